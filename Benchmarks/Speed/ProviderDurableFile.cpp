#include "ProviderDurableFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace speed {

namespace {

void require(bool isDone, const std::string &file) {
    if (!isDone) {
        throw std::runtime_error(file + ": " + std::strerror(errno));
    }
}

} // namespace

DurableFile::DurableFile(const std::string &folder, const char *name)
    : m_name(folder + "/" + name), m_new(m_name + ".new"),
      m_folder(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    require(m_folder != -1, folder);
}

DurableFile::~DurableFile() {
    ::close(m_folder);
}

void DurableFile::replace(const void *bytes, std::size_t length) const {
    const int file = ::open(m_new.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    require(file != -1, m_new);
    const bool isWritten = ::write(file, bytes, length) == static_cast<ssize_t>(length) && ::fdatasync(file) == 0;
    ::close(file);
    require(isWritten && std::rename(m_new.c_str(), m_name.c_str()) == 0 && ::fsync(m_folder) == 0, m_name);
}

void DurableFile::read(std::vector<char> &bytes) const {
    const int file = ::open(m_name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    require(file != -1 && ::fstat(file, &status) == 0, m_name);
    bytes.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t length = ::read(file, bytes.data(), bytes.size());
    ::close(file);
    require(length == status.st_size, m_name);
}

} // namespace speed
