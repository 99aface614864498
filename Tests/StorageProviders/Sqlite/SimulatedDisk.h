/// @file
/// A disk in memory below SQLite, which knows what had been synced when the power went.
///
/// The first use makes it SQLite's default file system. It promises SQLite what a POSIX file system does: writes of
/// whole 512-byte sectors, in any order until the next sync; a new journal's name lasts from its first sync on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace test {

class SimulatedDisk {
public:
    using Image = std::map<std::string, std::string>;

    /// What became of the operations that were not synced.
    enum class Survival {
        all,      ///< All of them reached the disk.
        none,     ///< None did.
        some,     ///< Some sectors did, in the order in which they were written.
        anyOrder, ///< Some sectors did, in another order; what a file grew by may hold anything.
        count
    };

    struct Operation {
        enum class Kind { create, remove, write, truncate, sync, syncFolder };
        Kind kind{};
        int file = 0;
        std::string name{};
        std::size_t position = 0;
        std::string bytes{};
    };

    static SimulatedDisk &instance();

    /// Replaces every file; all of it is on the disk. No file may be open.
    void load(const Image &image);
    Image image() const;

    /// From here on operations are kept; what came before counts as synced.
    void startLog();
    const std::vector<Operation> &log() const { return m_log; }
    /// What a start finds when the power went after so many operations of the log.
    Image afterPowerCut(std::size_t noOfOperations, Survival survival, std::uint32_t seed) const;

    /// Lets so many operations that change the disk pass, then fails one, or all that follow, with an SQLite code.
    void failAfter(std::size_t noOfOperations, int sqliteCode, bool forEver);
    void failNever() { m_failure = 0; }
    std::size_t failures() const { return m_failures; }

    std::uint64_t bytesWritten() const { return m_bytesWritten; }
    std::size_t operations() const { return m_operations; }

    // The file system's side.
    int open(const std::string &name, bool mayCreate, int &file);
    int remove(const std::string &name, bool syncsFolder);
    bool exists(const std::string &name) const { return m_names.count(name) != 0; }
    int write(int file, std::size_t position, const char *bytes, std::size_t size);
    int truncate(int file, std::size_t size);
    int sync(int file, bool syncsFolder);
    const std::string &contents(int file) const { return m_files.at(file); }

private:
    SimulatedDisk();
    int failureNow();
    void note(Operation operation);

    std::map<std::string, int> m_names;
    std::map<int, std::string> m_files;
    int m_nextFile = 1;
    std::map<std::string, int> m_namesAtLog;
    std::map<int, std::string> m_filesAtLog;
    std::vector<Operation> m_log;
    int m_failure = 0;
    std::size_t m_passing = 0;
    bool m_failsForEver = false;
    std::size_t m_failures = 0;
    std::uint64_t m_bytesWritten = 0;
    std::size_t m_operations = 0;
};

} // namespace test
