#include "PlainFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace storage {

namespace {

constexpr mode_t modeOfNew = 0644;
constexpr mode_t permissions = 0777;
constexpr std::size_t lengthOfBeginning = 4096;

/// @return 0, or the error. A file that ends earlier is as long as it is: its checks will tell.
int readAll(int descriptor, Bytes &bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t length = ::read(descriptor, bytes.data() + done, bytes.size() - done);
        if (length == 0) {
            break;
        }
        if (length > 0) {
            done += static_cast<std::size_t>(length);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    bytes.resize(done);
    return 0;
}

int writeAll(int descriptor, const Bytes &bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t length = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (length > 0) {
            done += static_cast<std::size_t>(length);
        } else if (length == 0) {
            return EIO; // or it would go on for ever
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

/// @return 0, or the error. Whoever may not give files away makes its own of what it replaces.
int inherit(int descriptor, const struct stat &predecessor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        return errno;
    }
    const bool isAnothers = status.st_uid != predecessor.st_uid || status.st_gid != predecessor.st_gid;
    if (isAnothers && fchown(descriptor, predecessor.st_uid, predecessor.st_gid) != 0 && errno != EPERM) {
        return errno;
    }
    const mode_t mode = predecessor.st_mode & permissions;
    return (status.st_mode & permissions) == mode || fchmod(descriptor, mode) == 0 ? 0 : errno;
}

/// A signal cuts a sync short without harm.
int retried(int (*sync)(int), int descriptor) {
    while (sync(descriptor) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace

// A pipe would make the host wait for somebody to write into it.
Descriptor::Descriptor(const std::string &file, int flags, mode_t mode) : m_descriptor(-1) {
    do {
        m_descriptor = ::open(file.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
    } while (m_descriptor == -1 && errno == EINTR);
}

Descriptor::~Descriptor() {
    close();
}

int Descriptor::close() {
    const int descriptor = std::exchange(m_descriptor, -1);
    // Interrupted or not, it is closed: asking again could close another thread's.
    return descriptor == -1 || ::close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

int readFile(const std::string &file, Bytes &bytes) {
    bytes.clear();
    const Descriptor descriptor(file, O_RDONLY);
    struct stat status {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return notAFile;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const bool isTooLarge = size > largestStore;
    bytes.resize(isTooLarge ? lengthOfBeginning : static_cast<std::size_t>(size));
    const int error = readAll(descriptor.get(), bytes);
    return error != 0 ? error : isTooLarge ? tooLarge : 0;
}

int writeFile(const std::string &file, const Bytes &bytes, const std::string &predecessor) {
    struct stat status {};
    const bool isSuccessor = stat(predecessor.c_str(), &status) == 0;
    if (!isSuccessor && errno != ENOENT) {
        return errno;
    }
    // Made anew: nothing that lay there is written into, and no link is followed.
    if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
        return errno;
    }
    // At no moment more is permitted than in the end.
    Descriptor descriptor(file, O_WRONLY | O_CREAT | O_EXCL, isSuccessor ? status.st_mode & permissions : modeOfNew);
    int error = descriptor.isOpen() ? writeAll(descriptor.get(), bytes) : errno;
    if (error == 0 && isSuccessor) {
        error = inherit(descriptor.get(), status);
    }
    if (error == 0) {
        error = retried(fdatasync, descriptor.get());
    }
    const int closed = descriptor.close();
    return error != 0 ? error : closed;
}

int syncFolder(int folder) {
    const int error = retried(fsync, folder);
    return error == EINVAL ? 0 : error; // a file system whose folders need no sync of their own
}

std::string folderOf(const std::string &file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

bool isThere(const std::string &name) {
    struct stat status {};
    return lstat(name.c_str(), &status) == 0;
}

bool isLostOnDisk(int error) {
    return error == EIO || error == EBADMSG || error == EUCLEAN;
}

std::string adviceFor(int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return "free some space on its disk, or allow its user more";
    case EROFS:
    case EACCES:
    case EPERM:
        return "give the process access to the file and its folder, and make its disk writable";
    case ENOENT:
    case ENOTDIR:
        return "make its folder, or name another file";
    case EMFILE:
    case ENFILE:
        return "let the process, or the system, open more files";
    case ENOMEM:
        return "free some memory and try again";
    case EIO:
    case EBADMSG:
    case EUCLEAN:
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

} // namespace storage
