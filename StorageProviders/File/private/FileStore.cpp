#include "FileStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <utility>

namespace storage {

namespace {

constexpr mode_t storeMode = 0644;
constexpr off_t largestStore = 1024L * 1024 * 1024; ///< A size beyond it is a damaged one.

/// A descriptor, closed with its scope.
class Descriptor {
public:
    Descriptor(const std::string &file, int flags) : m_descriptor(::open(file.c_str(), flags | O_CLOEXEC, storeMode)) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor != -1; }
    /// @return 0, or -1 with errno: what was written may not be there.
    int close() {
        const int descriptor = std::exchange(m_descriptor, -1);
        return descriptor != -1 ? ::close(descriptor) : 0;
    }

private:
    int m_descriptor;
};

/// @return 0, or the error.
int readAll(const std::string &file, Bytes &bytes) {
    const Descriptor descriptor(file, O_RDONLY);
    struct stat status {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    if (status.st_size > largestStore) {
        return EFBIG;
    }
    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t length = ::read(descriptor.get(), bytes.data() + done, bytes.size() - done);
        if (length == -1 && errno == EINTR) {
            continue;
        }
        if (length == -1) {
            return errno;
        }
        if (length == 0) {
            break; // it became shorter: its checks will tell
        }
        done += static_cast<std::size_t>(length);
    }
    bytes.resize(done);
    return 0;
}

/// @return 0, or the error.
int writeAll(int descriptor, const Bytes &bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t length = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (length == -1 && errno == EINTR) {
            continue;
        }
        if (length == -1) {
            return errno;
        }
        done += static_cast<std::size_t>(length);
    }
    return 0;
}

/// A signal cuts a sync short without harm. @return 0, or the error.
int retried(int (*sync)(int), int descriptor) {
    int result = sync(descriptor);
    while (result != 0 && errno == EINTR) {
        result = sync(descriptor);
    }
    return result == 0 ? 0 : errno;
}

std::string folderOf(const std::string &file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

bool exists(const std::string &file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0;
}

std::string adviceFor(int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return "free some space on its disk";
    case EROFS:
    case EACCES:
    case EPERM:
        return "make the file, its folder and its disk writable";
    case ENOENT:
    case ENOTDIR:
        return "make its folder, or name another file";
    case EMFILE:
    case ENFILE:
        return "let the process, or the system, open more files";
    case EIO:
        return "its disk failed: see the kernel's log";
    default:
        return "see that it is a plain file of this process's user";
    }
}

EAFResult codeOf(int error) {
    switch (error) {
    case EROFS:
    case EACCES:
    case EPERM:
        return eAF_E_WRONG_ACCESS;
    case ENOENT:
    case ENOTDIR:
        return eAF_E_INITIALIZATION_ERROR;
    case ENOMEM:
        return eAF_E_OUT_OF_MEMORY;
    default:
        return eAF_E_FAILED;
    }
}

} // namespace

/// One of the two files, as it was found.
struct FileStore::Generation {
    std::string file;
    bool isThere = false;
    UnpackedStore store;
};

FileStore::FileStore(std::string file) : m_name(std::move(file)), m_before(m_name + ".1"), m_new(m_name + ".new") {}

EAFResult FileStore::failed(const std::string &doing, int error, Report &report) const {
    report.add(Severity::error, doing + " failed (" + std::strerror(error) + "): " + adviceFor(error));
    return codeOf(error);
}

EAFResult FileStore::open(Access access, Report &report) {
    if (m_isOpen) {
        return eAF_S_OK;
    }
    m_isReadOnly = access == Access::readOnly;
    if (access == Access::readWrite) {
        const EAFResult locked = m_lock.acquire(m_name, report);
        if (locked >= eAF_E_FAILED) {
            return locked;
        }
        m_isReadOnly = !m_lock.isHeld();
        if (m_isReadOnly) {
            report.add(Severity::warning,
                       "the store " + m_name +
                           " can only be read: make its folder and its disk writable to store values");
        } else {
            ::unlink(m_new.c_str()); // of a host that was killed
        }
    }
    UnpackedStore newest;
    const EAFResult chosen = choose(newest, report);
    if (chosen != eAF_S_OK) {
        m_lock.release();
        return chosen;
    }
    m_isOpen = true;
    return eAF_S_OK;
}

EAFResult FileStore::load(Generation &generation, Report &report) const {
    Bytes bytes;
    const int error = readAll(generation.file, bytes);
    if (error == ENOENT) {
        return eAF_S_OK;
    }
    if (error != 0) {
        return failed("reading the store " + generation.file, error, report);
    }
    generation.isThere = true;
    generation.store = unpackStore(bytes);
    return eAF_S_OK;
}

/// The newest generation whose checks hold; without any file an empty one.
EAFResult FileStore::choose(UnpackedStore &newest, Report &report) {
    Generation last{m_name, false, {}};
    Generation before{m_before, false, {}};
    EAFResult loaded = load(last, report);
    if (loaded == eAF_S_OK) {
        loaded = load(before, report);
    }
    if (loaded != eAF_S_OK) {
        return loaded;
    }
    for (const Generation &generation : {last, before}) {
        if (generation.isThere && generation.store.state == StoreState::newer) {
            report.add(Severity::error,
                       generation.file + " is left alone: " + generation.store.why + "; use a library that knows it");
            return eAF_E_INVALID_ARGUMENT;
        }
    }
    if (last.isThere && last.store.state == StoreState::notAStore && !before.isThere) {
        report.add(Severity::error,
                   m_name + " is no store (" + last.store.why + "): it is left alone, name another file");
        return eAF_E_INVALID_ARGUMENT;
    }
    const bool isBeforeWhole = before.isThere && before.store.state == StoreState::whole;
    if (last.isThere && last.store.state == StoreState::whole) {
        newest = std::move(last.store);
        return eAF_S_OK;
    }
    if (!last.isThere && !before.isThere) {
        newest.state = StoreState::whole;
        return eAF_S_OK;
    }
    if (isBeforeWhole) {
        report.add(Severity::warning,
                   "the generation before, " + m_before + ", is taken, because " + m_name +
                       (last.isThere ? " is damaged: " + last.store.why : std::string(" is missing")));
    }
    m_isInTheWay = false;
    // A damaged newest one must not take the place of the whole one before it at the next store.
    for (const Generation &generation : {last, before}) {
        if (generation.isThere && generation.store.state != StoreState::whole) {
            const EAFResult aside = setAside(generation.file, generation.store.why, report);
            if (aside != eAF_S_OK && !isBeforeWhole) {
                return aside;
            }
            m_isInTheWay = m_isInTheWay || aside != eAF_S_OK;
        }
    }
    if (isBeforeWhole) {
        newest = std::move(before.store);
        return eAF_S_OK;
    }
    report.add(Severity::warning,
               "no generation of the store " + m_name + " is whole: the start goes on with defaults");
    newest.state = StoreState::whole;
    return eAF_S_OK;
}

EAFResult FileStore::setAside(const std::string &file, const std::string &why, Report &report) const {
    if (m_isReadOnly) {
        report.add(Severity::error, "the store " + file + " is damaged (" + why +
                                        "): its host sets it aside when it starts and can write it");
        return eAF_E_FAILED;
    }
    std::string aside;
    for (int i = 1; aside.empty() || exists(aside); ++i) {
        aside = m_name + ".damaged-" + std::to_string(i);
    }
    if (std::rename(file.c_str(), aside.c_str()) != 0) {
        return failed("setting the damaged store " + file + " aside as " + aside, errno, report);
    }
    report.add(Severity::warning, "the store " + file + " is damaged (" + why + "): it was set aside as " + aside);
    return eAF_S_OK;
}

EAFResult FileStore::read(StoredValues &values, Report &report) {
    values.clear();
    if (!m_isOpen) {
        return eAF_E_NOT_INITIALIZED;
    }
    UnpackedStore newest;
    const EAFResult chosen = choose(newest, report);
    values = std::move(newest.values);
    return chosen;
}

EAFResult FileStore::writeNew(const Bytes &bytes, Report &report) const {
    Descriptor descriptor(m_new, O_WRONLY | O_CREAT | O_TRUNC);
    int error = descriptor.isOpen() ? writeAll(descriptor.get(), bytes) : errno;
    if (error == 0) {
        error = retried(fdatasync, descriptor.get());
    }
    if (error == 0 && descriptor.close() != 0 && errno != EINTR) {
        error = errno;
    }
    if (error == 0) {
        return eAF_S_OK;
    }
    const EAFResult code = failed("writing the store " + m_new, error, report);
    ::unlink(m_new.c_str());
    return code;
}

/// Both renames are of whole, synced files: whichever of them a power cut leaves done, a whole generation is found.
EAFResult FileStore::putInPlace(Report &report) const {
    const Descriptor folder(folderOf(m_name), O_RDONLY | O_DIRECTORY);
    int error = folder.isOpen() ? 0 : errno;
    if (error == 0 && std::rename(m_name.c_str(), m_before.c_str()) != 0 && errno != ENOENT) {
        error = errno;
    }
    if (error == 0 && std::rename(m_new.c_str(), m_name.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        const EAFResult code = failed("putting the store " + m_name + " in place", error, report);
        ::unlink(m_new.c_str());
        return code;
    }
    error = retried(fsync, folder.get());
    return error == 0 ? eAF_S_OK : failed("syncing the folder of the store " + m_name, error, report);
}

EAFResult FileStore::write(const StoredValues &values, Report &report) {
    if (!m_isOpen) {
        return eAF_E_NOT_INITIALIZED;
    }
    if (values.empty()) {
        return eAF_S_OK;
    }
    if (m_isReadOnly) {
        report.add(Severity::error,
                   "nothing can be stored in " + m_name + ": make its folder and its disk writable, and start again");
        return eAF_E_WRONG_ACCESS;
    }
    UnpackedStore newest;
    const EAFResult chosen = choose(newest, report);
    if (chosen != eAF_S_OK || m_isInTheWay) {
        return chosen != eAF_S_OK ? chosen : eAF_E_FAILED;
    }
    std::unordered_map<std::string, std::size_t> places;
    for (std::size_t i = 0; i < newest.values.size(); ++i) {
        places.emplace(newest.values[i].path, i);
    }
    for (const StoredValue &value : values) {
        const auto [place, isNew] = places.emplace(value.path, newest.values.size());
        if (isNew) {
            newest.values.push_back(value);
        } else {
            newest.values[place->second] = value;
        }
    }
    const EAFResult written = writeNew(packStore(newest.values, newest.generation + 1), report);
    return written == eAF_S_OK ? putInPlace(report) : written;
}

} // namespace storage
