#include "StorePath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace storage {
namespace {

constexpr mode_t modeOfAStore = 0644;
constexpr unsigned mostLinks = 40; // as many as the system follows

/// @return whether there is such a path, which `resolved` receives without links.
bool resolve(const std::string &path, std::string &resolved) {
    std::array<char, PATH_MAX> real{};
    if (realpath(path.c_str(), real.data()) == nullptr) {
        return false;
    }
    resolved = real.data();
    return true;
}

/// @return what a link points to, relative to its folder or not; empty when it is no link.
std::string targetOf(const std::string &path) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

std::string in(std::string folder, const std::string &name) {
    if (folder.back() != '/') {
        folder += '/';
    }
    folder += name;
    return folder;
}

} // namespace

std::string pathOf(const std::string &name) {
    std::string path = name.rfind('/', 0) == 0 ? name : "./" + name;
    for (unsigned links = 0; links < mostLinks; ++links) {
        std::string resolved;
        if (resolve(path, resolved)) {
            return resolved;
        }
        if (resolve(folderWithSlash(path), resolved)) {
            path = in(resolved, path.substr(folderWithSlash(path).size()));
        }
        // The first store makes the file that a link of no file points to, and its lock and its journal lie there.
        const std::string target = targetOf(path);
        if (target.empty()) {
            break;
        }
        path = target.rfind('/', 0) == 0 ? target : in(folderWithSlash(path), target);
    }
    return path;
}

std::string folderWithSlash(const std::string &path) {
    return path.substr(0, path.rfind('/') + 1);
}

bool exists(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

std::string freeName(const std::string &path) {
    for (unsigned number = 1;; ++number) {
        std::string name = path + ".damaged-" + std::to_string(number);
        if (!exists(name) && !exists(journalOf(name))) {
            return name;
        }
    }
}

void syncFolder(const std::string &folder) {
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor != -1) {
        static_cast<void>(fsync(descriptor));
        ::close(descriptor);
    }
}

int errorOfMaking(const std::string &path) {
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, modeOfAStore);
    if (descriptor == -1) {
        return errno == EEXIST ? 0 : errno;
    }
    ::close(descriptor);
    static_cast<void>(unlink(path.c_str()));
    return 0;
}

} // namespace storage
