#include "SimulatedDisk.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace test {
namespace {

using Operation = SimulatedDisk::Operation;
using Kind = Operation::Kind;
using Survival = SimulatedDisk::Survival;

constexpr std::size_t sectorSize = 512;

void perform(const Operation &operation, std::string &contents) {
    if (operation.kind == Kind::truncate) {
        contents.resize(operation.position);
        return;
    }
    contents.resize(std::max(contents.size(), operation.position + operation.bytes.size()));
    contents.replace(operation.position, operation.bytes.size(), operation.bytes);
}

/// The sectors that reach the disk one by one.
std::vector<Operation> sectorsOf(const std::vector<Operation> &operations) {
    std::vector<Operation> sectors;
    for (const Operation &operation : operations) {
        if (operation.kind == Kind::truncate) {
            sectors.push_back(operation);
            continue;
        }
        std::size_t done = 0;
        while (done < operation.bytes.size()) {
            const std::size_t position = operation.position + done;
            const std::size_t length = std::min(sectorSize - position % sectorSize, operation.bytes.size() - done);
            sectors.push_back({operation.kind, operation.file, {}, position, operation.bytes.substr(done, length)});
            done += length;
        }
    }
    return sectors;
}

void survive(const std::vector<Operation> &pending, Survival survival, std::mt19937 &random, std::string &contents) {
    std::string complete = contents;
    for (const Operation &operation : pending) {
        perform(operation, complete);
    }
    if (survival == Survival::all) {
        contents = complete;
    }
    if (survival == Survival::all || survival == Survival::none) {
        return;
    }
    std::vector<Operation> sectors = sectorsOf(pending);
    if (survival == Survival::anyOrder) {
        std::shuffle(sectors.begin(), sectors.end(), random);
    }
    const auto outOf = 2 + random() % 7;
    const auto kept = 1 + random() % (outOf - 1);
    for (const Operation &sector : sectors) {
        if (random() % outOf < kept) {
            perform(sector, contents);
        }
    }
    if (survival == Survival::anyOrder && random() % 2 == 0 && contents.size() < complete.size()) {
        contents.resize(complete.size(), random() % 2 == 0 ? '\0' : '\xa5');
    }
}

struct File {
    sqlite3_file base;
    int file;
    bool isNewJournal;
};

File &fileOf(sqlite3_file *file) {
    return *reinterpret_cast<File *>(file);
}

SimulatedDisk &disk() {
    return SimulatedDisk::instance();
}

int closeFile(sqlite3_file *) {
    return SQLITE_OK;
}

int readFile(sqlite3_file *file, void *buffer, int size, sqlite3_int64 offset) {
    const std::string &contents = disk().contents(fileOf(file).file);
    const auto position = std::min(static_cast<std::size_t>(offset), contents.size());
    const auto wanted = static_cast<std::size_t>(size);
    const std::size_t length = std::min(wanted, contents.size() - position);
    std::memcpy(buffer, contents.data() + position, length);
    std::memset(static_cast<char *>(buffer) + length, 0, wanted - length);
    return length == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int writeFile(sqlite3_file *file, const void *bytes, int size, sqlite3_int64 offset) {
    return disk().write(fileOf(file).file, static_cast<std::size_t>(offset), static_cast<const char *>(bytes),
                        static_cast<std::size_t>(size));
}

int truncateFile(sqlite3_file *file, sqlite3_int64 size) {
    return disk().truncate(fileOf(file).file, static_cast<std::size_t>(size));
}

int syncFile(sqlite3_file *file, int) {
    return disk().sync(fileOf(file).file, std::exchange(fileOf(file).isNewJournal, false));
}

int sizeOfFile(sqlite3_file *file, sqlite3_int64 *size) {
    *size = static_cast<sqlite3_int64>(disk().contents(fileOf(file).file).size());
    return SQLITE_OK;
}

int lockFile(sqlite3_file *, int) {
    return SQLITE_OK;
}

int checkReservedLock(sqlite3_file *, int *result) {
    *result = 0;
    return SQLITE_OK;
}

int controlFile(sqlite3_file *, int, void *) {
    return SQLITE_NOTFOUND;
}

int sectorSizeOfFile(sqlite3_file *) {
    return 4096; // what SQLite's own file system says
}

int deviceCharacteristics(sqlite3_file *) {
    return SQLITE_IOCAP_POWERSAFE_OVERWRITE; // and so it does here
}

int openFile(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *outFlags) {
    static const sqlite3_io_methods methods{1,
                                            closeFile,
                                            readFile,
                                            writeFile,
                                            truncateFile,
                                            syncFile,
                                            sizeOfFile,
                                            lockFile,
                                            lockFile,
                                            checkReservedLock,
                                            controlFile,
                                            sectorSizeOfFile,
                                            deviceCharacteristics,
                                            nullptr,
                                            nullptr,
                                            nullptr,
                                            nullptr,
                                            nullptr,
                                            nullptr};
    fileOf(file).base.pMethods = nullptr;
    const bool mayCreate = (flags & SQLITE_OPEN_CREATE) != 0;
    const int result = disk().open(name, mayCreate, fileOf(file).file);
    if (result == SQLITE_OK) {
        fileOf(file).base.pMethods = &methods;
        fileOf(file).isNewJournal = mayCreate && (flags & SQLITE_OPEN_MAIN_JOURNAL) != 0;
        if (outFlags != nullptr) {
            *outFlags = flags;
        }
    }
    return result;
}

int removeFile(sqlite3_vfs *, const char *name, int syncsFolder) {
    return disk().remove(name, syncsFolder != 0);
}

int accessFile(sqlite3_vfs *, const char *name, int, int *result) {
    *result = disk().exists(name) ? 1 : 0;
    return SQLITE_OK;
}

int fullPathName(sqlite3_vfs *, const char *name, int size, char *full) {
    sqlite3_snprintf(size, full, "%s", name);
    return SQLITE_OK;
}

int lastError(sqlite3_vfs *, int, char *) {
    return ENOENT; // of a file that could not be opened
}

} // namespace

SimulatedDisk &SimulatedDisk::instance() {
    static auto &disk = *new SimulatedDisk;
    return disk;
}

SimulatedDisk::SimulatedDisk() {
    static sqlite3_vfs vfs = *sqlite3_vfs_find(nullptr);
    vfs.szOsFile = sizeof(File);
    vfs.pNext = nullptr;
    vfs.zName = "simulated disk";
    vfs.xOpen = openFile;
    vfs.xDelete = removeFile;
    vfs.xAccess = accessFile;
    vfs.xFullPathname = fullPathName;
    vfs.xGetLastError = lastError;
    sqlite3_vfs_register(&vfs, 1);
}

void SimulatedDisk::load(const Image &image) {
    m_names.clear();
    m_files.clear();
    for (const auto &[name, contents] : image) {
        m_names[name] = m_nextFile;
        m_files[m_nextFile++] = contents;
    }
}

SimulatedDisk::Image SimulatedDisk::image() const {
    Image image;
    for (const auto &[name, file] : m_names) {
        image[name] = m_files.at(file);
    }
    return image;
}

void SimulatedDisk::startLog() {
    m_log.clear();
    m_namesAtLog = m_names;
    m_filesAtLog = m_files;
}

SimulatedDisk::Image SimulatedDisk::afterPowerCut(std::size_t noOfOperations, Survival survival,
                                                  std::uint32_t seed) const {
    std::map<std::string, int> names = m_namesAtLog;
    std::map<int, std::string> files = m_filesAtLog;
    std::map<int, std::vector<Operation>> pending;
    std::vector<Operation> pendingNames;
    const auto applyName = [&](const Operation &operation) {
        if (operation.kind == Kind::create) {
            names[operation.name] = operation.file;
        } else {
            names.erase(operation.name);
        }
    };
    for (std::size_t i = 0; i < noOfOperations; ++i) {
        const Operation &operation = m_log[i];
        switch (operation.kind) {
        case Kind::create:
        case Kind::remove:
            pendingNames.push_back(operation);
            break;
        case Kind::write:
        case Kind::truncate:
            pending[operation.file].push_back(operation);
            break;
        case Kind::sync:
            for (const Operation &written : std::exchange(pending[operation.file], std::vector<Operation>{})) {
                perform(written, files[operation.file]);
            }
            break;
        case Kind::syncFolder:
            for (const Operation &name : std::exchange(pendingNames, std::vector<Operation>{})) {
                applyName(name);
            }
            break;
        }
    }
    std::mt19937 random(seed);
    for (const auto &[file, operations] : pending) {
        survive(operations, survival, random, files[file]);
    }
    for (const Operation &name : pendingNames) {
        if (survival == Survival::all || (survival != Survival::none && random() % 2 == 0)) {
            applyName(name);
        }
    }
    Image image;
    for (const auto &[name, file] : names) {
        image[name] = files[file];
    }
    return image;
}

void SimulatedDisk::failAfter(std::size_t noOfOperations, int sqliteCode, bool forEver) {
    m_passing = noOfOperations;
    m_failure = sqliteCode;
    m_failsForEver = forEver;
    m_failures = 0;
}

int SimulatedDisk::failureNow() {
    ++m_operations;
    if (m_failure == 0) {
        return SQLITE_OK;
    }
    if (m_passing > 0) {
        --m_passing;
        return SQLITE_OK;
    }
    if (m_failures > 0 && !m_failsForEver) {
        return SQLITE_OK;
    }
    ++m_failures;
    return m_failure;
}

void SimulatedDisk::note(Operation operation) {
    m_log.push_back(std::move(operation));
}

int SimulatedDisk::open(const std::string &name, bool mayCreate, int &file) {
    const auto known = m_names.find(name);
    if (known != m_names.end()) {
        file = known->second;
        return SQLITE_OK;
    }
    if (!mayCreate) {
        return SQLITE_CANTOPEN;
    }
    if (failureNow() != SQLITE_OK) {
        return SQLITE_CANTOPEN;
    }
    file = m_nextFile++;
    m_names[name] = file;
    m_files[file];
    note({Kind::create, file, name});
    return SQLITE_OK;
}

int SimulatedDisk::remove(const std::string &name, bool syncsFolder) {
    const auto known = m_names.find(name);
    if (known == m_names.end()) {
        return SQLITE_IOERR_DELETE_NOENT;
    }
    if (failureNow() != SQLITE_OK) {
        return SQLITE_IOERR_DELETE;
    }
    note({Kind::remove, known->second, name});
    m_names.erase(known);
    if (syncsFolder) {
        note({Kind::syncFolder, 0, {}});
    }
    return SQLITE_OK;
}

int SimulatedDisk::write(int file, std::size_t position, const char *bytes, std::size_t size) {
    const int failure = failureNow();
    if (failure != SQLITE_OK) {
        return failure;
    }
    Operation operation{Kind::write, file, {}, position, std::string(bytes, size)};
    perform(operation, m_files[file]);
    m_bytesWritten += size;
    note(std::move(operation));
    return SQLITE_OK;
}

int SimulatedDisk::truncate(int file, std::size_t size) {
    const int failure = failureNow();
    if (failure != SQLITE_OK) {
        return failure == SQLITE_FULL ? SQLITE_IOERR_TRUNCATE : failure;
    }
    Operation operation{Kind::truncate, file, {}, size};
    perform(operation, m_files[file]);
    note(std::move(operation));
    return SQLITE_OK;
}

int SimulatedDisk::sync(int file, bool syncsFolder) {
    const int failure = failureNow();
    if (failure != SQLITE_OK) {
        return failure;
    }
    note({Kind::sync, file, {}});
    if (syncsFolder) {
        note({Kind::syncFolder, 0, {}});
    }
    return SQLITE_OK;
}

} // namespace test
