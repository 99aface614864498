#include "StoreLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace storage {

namespace {

constexpr mode_t lockMode = 0644;

struct flock wholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock; // the lock belongs to the open file, not to the process: l_pid stays 0
}

std::string holderOf(int descriptor) {
    std::array<char, 16> text{};
    const ssize_t length = pread(descriptor, text.data(), text.size() - 1, 0);
    const std::string holder(text.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return holder.substr(0, holder.find_first_not_of("0123456789"));
}

void noteHolder(int descriptor) {
    // For the other side's message only: that nobody could note it takes nothing from the lock.
    const std::string text = std::to_string(getpid()) + "\n";
    if (ftruncate(descriptor, 0) == 0) {
        static_cast<void>(!pwrite(descriptor, text.data(), text.size(), 0));
    }
}

/// What a tool of root's leaves must not keep the host of another user out.
void giveToOwner(int descriptor, const std::string &storeFile, const std::string &folder) {
    struct stat mine {};
    struct stat owner {};
    const bool isKnown = stat(storeFile.c_str(), &owner) == 0 || stat(folder.c_str(), &owner) == 0;
    if (isKnown && fstat(descriptor, &mine) == 0 && mine.st_uid == geteuid() && mine.st_uid != owner.st_uid) {
        static_cast<void>(!fchown(descriptor, owner.st_uid, owner.st_gid)); // only root may: nobody else needs to
    }
}

} // namespace

StoreLock::~StoreLock() {
    release();
}

EAFResult StoreLock::acquire(const std::string &storeFile, Report &report) {
    if (isHeld()) {
        return eAF_S_OK;
    }
    const std::string name = storeFile + ".lock";
    const std::string folder = storeFile.substr(0, storeFile.rfind('/') + 1);
    const int descriptor = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, lockMode);
    if (descriptor == -1) {
        const int error = errno;
        if (error == EACCES && faccessat(AT_FDCWD, name.c_str(), F_OK, AT_EACCESS) == 0) {
            report.add(Severity::warning, "the lock file " + name +
                                              " is another user's: remove it while no process uses the store, or give "
                                              "it to the user of this one");
        }
        if (error == EROFS || error == EACCES || error == EPERM || error == ENOSPC || error == EDQUOT) {
            return eAF_W_WARNING;
        }
        const bool isMissing = error == ENOENT || error == ENOTDIR;
        report.add(Severity::error, "the lock file " + name + " can not be opened (" + std::strerror(error) + "): " +
                                        (isMissing ? "make the folder, or name another one"
                                                   : "see what stands in its way, or name another file"));
        return eAF_E_INITIALIZATION_ERROR;
    }
    giveToOwner(descriptor, storeFile, folder);
    struct flock lock = wholeFile();
    if (fcntl(descriptor, F_OFD_SETLK, &lock) == 0) {
        noteHolder(descriptor);
        m_descriptor = descriptor;
        return eAF_S_OK;
    }
    const int error = errno;
    const std::string holder = holderOf(descriptor);
    close(descriptor);
    if (error == EAGAIN || error == EACCES) {
        report.add(Severity::error, "the store " + storeFile + " is in use by process " +
                                        (holder.empty() ? "(unknown)" : holder) + ": stop it first");
        return eAF_E_ALREADY_INITIALIZED;
    }
    report.add(Severity::error, "the lock file " + name + " can not be locked (" + std::strerror(error) +
                                    "): use a file system with locks");
    return eAF_E_INITIALIZATION_ERROR;
}

void StoreLock::release() {
    if (isHeld()) {
        close(m_descriptor);
        m_descriptor = -1;
    }
}

} // namespace storage
