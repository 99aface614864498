/// @file
/// Where the rows that store put their files.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace speed {

/// Beside the program, in the build's folder: one for temporary files may lie in memory, where a flush is nothing.
/// Throws where it can not be made.
class StoreFolder {
public:
    StoreFolder() : m_path(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "speed-stores-XXXXXX") {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("no folder could be made as " + m_path + ": make the one above it writable");
        }
    }
    ~StoreFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    StoreFolder(const StoreFolder &) = delete;
    StoreFolder &operator=(const StoreFolder &) = delete;

    const std::string &path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace speed
