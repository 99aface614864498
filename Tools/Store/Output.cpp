#include "Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "Fault.h"
#include "StoreNames.h"

namespace {

constexpr mode_t usualMode = 0666; ///< Less what the user masks.
constexpr mode_t permissions = 07777;

Fault failed(const std::string &file, int error) {
    return {ExitNotWritten, file + ": it can not be written (" + std::strerror(error) + ")"};
}

/// @return 0, or the error.
int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(descriptor, text.data(), text.size());
        if (length == -1 && errno != EINTR) {
            return errno;
        }
        text.remove_prefix(length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    return 0;
}

/// @return the file behind symbolic links, so that those stay.
std::string targetOf(const std::string &file) {
    storage::ResolvedName name = storage::resolveName(file);
    if (!name.problem.empty()) {
        throw Fault(ExitNotWritten, name.problem);
    }
    return std::move(name.file);
}

void writeThrough(const std::string &file, const std::string &text) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    int error = descriptor != -1 ? writeAll(descriptor, text) : errno;
    if (descriptor != -1 && close(descriptor) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        throw failed(file, error);
    }
}

/// @param before  the file that is replaced, or null.
void replace(const std::string &file, const std::string &text, const struct stat *before) {
    const std::string beside = file + ".new-" + std::to_string(getpid());
    const int descriptor = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, usualMode);
    if (descriptor == -1) {
        throw failed(beside, errno);
    }
    int error = 0;
    if (before != nullptr && fchmod(descriptor, before->st_mode & permissions) != 0) {
        error = errno;
    }
    if (error == 0) {
        error = writeAll(descriptor, text);
    }
    if (error == 0 && fdatasync(descriptor) != 0) {
        error = errno;
    }
    if (close(descriptor) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && std::rename(beside.c_str(), file.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(beside.c_str());
        throw failed(file, error);
    }
}

} // namespace

void holdStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            // The wrong way round: using it fails, as it would without this.
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

void finishOutput() {
    errno = 0;
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        const std::string reason = errno != 0 ? std::string(" (") + std::strerror(errno) + ")" : std::string();
        throw Fault(ExitNotWritten, "standard output can not be written" + reason +
                                        ": the command is done, what it shows is not whole");
    }
}

void writeFile(const std::string &file, const std::string &text) {
    struct stat status {};
    const bool isThere = stat(file.c_str(), &status) == 0;
    if (isThere && !S_ISREG(status.st_mode)) {
        writeThrough(file, text); // what it leads to need not have a name: a pipe has none
    } else {
        replace(targetOf(file), text, isThere ? &status : nullptr);
    }
}
