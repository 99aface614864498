/// @file
/// What may be on a disk after the power was cut, when nothing counts but what was synced.
#pragma once

#include <cstddef>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace test {

/// How much a file system promises of names that no sync of their folder has made durable.
enum class Names {
    anyOfEach,   ///< Each name leads, on its own, to any file that it has led to since.
    anyOperation ///< Each operation is done or not, as a whole, whatever became of those before it.
};

class CutDisk {
public:
    /// Everything is durable.
    explicit CutDisk(const TemporaryFolder::Files &files);

    void apply(const Change &change);

    /// What a start finds. A file's bytes that were not synced are there, missing or torn by sectors, and its length is
    /// then any up to the longest that it had.
    TemporaryFolder::Files afterPowerCut(Names promise, std::mt19937 &random) const;

private:
    struct File {
        std::string bytes{};
        std::string durable{};
    };
    struct Step {
        std::string name;
        std::size_t file;
    };
    using Operation = std::vector<Step>; ///< What one operation makes of the names.

    static std::string tornContent(const File &file, std::mt19937 &random);
    void perform(const Operation &operation);

    std::vector<File> m_files;
    std::map<std::string, std::size_t> m_names;
    std::map<std::string, std::size_t> m_durableNames;
    std::vector<Operation> m_pending; ///< Since the folder's last sync.
};

} // namespace test
