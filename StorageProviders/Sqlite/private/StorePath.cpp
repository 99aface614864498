#include "StorePath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace storage {
namespace {

constexpr mode_t modeOfAStore = 0644;

} // namespace

std::string folderWithSlash(const std::string &path) {
    return path.substr(0, path.rfind('/') + 1);
}

bool exists(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
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
