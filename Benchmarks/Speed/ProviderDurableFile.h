/// @file
/// A whole file that takes the place of another in one step, durable then: one flush of the file, one of its folder.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace speed {

class DurableFile {
public:
    DurableFile(const std::string &folder, const char *name);
    ~DurableFile();
    DurableFile(const DurableFile &) = delete;
    DurableFile &operator=(const DurableFile &) = delete;

    void replace(const void *bytes, std::size_t length) const;
    void read(std::vector<char> &bytes) const;

private:
    std::string m_name;
    std::string m_new;
    int m_folder;
};

} // namespace speed
