#include "Host/ChildProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <spawn.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace radio {
namespace {

/// The child starts with no signal blocked, whatever this thread blocks.
class SpawnAttributes {
public:
    SpawnAttributes() {
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK);
    }
    SpawnAttributes(const SpawnAttributes &) = delete;
    SpawnAttributes &operator=(const SpawnAttributes &) = delete;
    ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }
    const posix_spawnattr_t *get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes{};
};

int complain(const std::string &path, const std::string &what) {
    std::cerr << "RadioUnitController: " << path << ' ' << what << '\n';
    return -1;
}

} // namespace

int runSibling(const std::string &program, std::vector<std::string> arguments) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string path = self.parent_path() / program;
    arguments.insert(arguments.begin(), path);
    std::vector<char *> argumentPointers;
    argumentPointers.reserve(arguments.size() + 1);
    for (std::string &argument : arguments) {
        argumentPointers.push_back(argument.data());
    }
    argumentPointers.push_back(nullptr);

    // The child's lines belong behind the ones that are still in this program's buffer.
    static_cast<void>(std::fflush(stdout));
    const SpawnAttributes attributes;
    pid_t child = 0;
    const int spawnError =
        posix_spawn(&child, path.c_str(), nullptr, attributes.get(), argumentPointers.data(), environ);
    if (spawnError != 0) {
        return complain(path, std::string("can not be run: ") + std::strerror(spawnError));
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return complain(path, std::string("can not be waited for: ") + std::strerror(errno));
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : complain(path, "was ended by a signal");
}

} // namespace radio
