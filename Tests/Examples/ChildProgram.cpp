#include "ChildProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <spawn.h>

#include <cerrno>
#include <system_error>

namespace test {
namespace {

// Only a program that hangs comes to the end of it. Longer than a program's own patience, behind which it says more.
constexpr int patienceInMilliseconds = 90000;

void require(int error, const char *what) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

} // namespace

ChildProgram::ChildProgram(const std::string &path, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), path);
    std::vector<char *> argumentPointers;
    argumentPointers.reserve(arguments.size() + 1);
    for (std::string &argument : arguments) {
        argumentPointers.push_back(argument.data());
    }
    argumentPointers.push_back(nullptr);

    std::array<int, 2> writeEnds{};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (std::size_t i = 0; i < m_pipes.size(); ++i) {
        std::array<int, 2> ends{};
        require(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
        m_pipes[i] = ends[0];
        writeEnds[i] = ends[1];
        posix_spawn_file_actions_adddup2(&actions, ends[1], i == 0 ? STDOUT_FILENO : STDERR_FILENO);
    }
    const int error = posix_spawn(&m_process, path.c_str(), &actions, nullptr, argumentPointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    for (const int end : writeEnds) {
        close(end);
    }
    require(error, path.c_str());
    m_running = true;
}

ChildProgram::~ChildProgram() {
    if (m_running) {
        send(SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    for (const int pipe : m_pipes) {
        if (pipe >= 0) {
            close(pipe);
        }
    }
}

bool ChildProgram::waitForOutput(const std::string &text) {
    while (output().find(text) == std::string::npos) {
        if (!readSome()) {
            return false;
        }
    }
    return true;
}

void ChildProgram::send(int signalNumber) const {
    kill(m_process, signalNumber);
}

int ChildProgram::exitCode() {
    while (readSome()) {
    }
    if (m_pipes[0] >= 0 || m_pipes[1] >= 0) {
        send(SIGKILL);
    }
    int status = 0;
    waitpid(m_process, &status, 0);
    m_running = false;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// @return false at the end of both pipes and when nothing came for a long time.
bool ChildProgram::readSome() {
    std::array<pollfd, 2> descriptors{{{m_pipes[0], POLLIN, 0}, {m_pipes[1], POLLIN, 0}}};
    if (m_pipes[0] < 0 && m_pipes[1] < 0) {
        return false;
    }
    if (poll(descriptors.data(), descriptors.size(), patienceInMilliseconds) <= 0) {
        return false;
    }
    for (std::size_t i = 0; i < m_pipes.size(); ++i) {
        if (descriptors[i].revents == 0) {
            continue;
        }
        std::array<char, 4096> buffer{};
        const ssize_t count = read(m_pipes[i], buffer.data(), buffer.size());
        if (count > 0) {
            m_texts[i].append(buffer.data(), static_cast<std::size_t>(count));
        } else {
            close(m_pipes[i]);
            m_pipes[i] = -1;
        }
    }
    return true;
}

} // namespace test
