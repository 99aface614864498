#include "ChildProcess.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace test {

namespace {

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (auto &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const Environment &added) {
    std::vector<std::string> variables;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        const std::string text{*variable};
        const auto name = text.substr(0, text.find('='));
        const auto isTracings = name.rfind("VOXTRACE_", 0) == 0 || name == "TERM" || name == "NO_COLOR";
        if (!isTracings && added.count(name) == 0) {
            variables.push_back(text);
        }
    }
    for (const auto &[name, value] : added) {
        auto variable = name;
        variable += '=';
        variable += value;
        variables.push_back(variable);
    }
    return variables;
}

std::string takeAll(int file) {
    std::string text;
    std::array<char, 4096> block{};
    for (auto count = read(file, block.data(), block.size()); count > 0;
         count = read(file, block.data(), block.size())) {
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    close(file);
    return text;
}

int statusOf(pid_t child) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t start(const Script &script, const Environment &environment, int out, int err) {
    std::vector<std::string> arguments{TRACING_PROGRAM};
    arguments.insert(arguments.end(), script.begin(), script.end());
    auto variables = environmentWith(environment);
    const auto argv = pointersTo(arguments);
    const auto envp = pointersTo(variables);
    const auto child = fork();
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execve(TRACING_PROGRAM, argv.data(), envp.data());
        _exit(126);
    }
    EXPECT_GT(child, 0);
    return child;
}

} // namespace

Outcome runTracing(const Script &script, const Environment &environment) {
    const auto out = memfd_create("out", MFD_CLOEXEC);
    const auto err = memfd_create("err", MFD_CLOEXEC);
    Outcome outcome;
    outcome.exitCode = statusOf(start(script, environment, out, err));
    lseek(out, 0, SEEK_SET);
    lseek(err, 0, SEEK_SET);
    outcome.out = takeAll(out);
    outcome.err = takeAll(err);
    return outcome;
}

Outcome runTracingOnTerminal(const Script &script, const Environment &environment) {
    const auto terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(terminal), 0);
    EXPECT_EQ(unlockpt(terminal), 0);
    std::array<char, 64> name{};
    EXPECT_EQ(ptsname_r(terminal, name.data(), name.size()), 0);
    const auto err = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const auto out = memfd_create("out", MFD_CLOEXEC);
    const auto child = start(script, environment, out, err);
    close(err); // reading ends when the program's end, the last one, is closed
    Outcome outcome;
    outcome.err = takeAll(terminal);
    outcome.exitCode = statusOf(child);
    lseek(out, 0, SEEK_SET);
    outcome.out = takeAll(out);
    return outcome;
}

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in{text};
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string contentOf(const std::string &file) {
    std::ifstream in{file, std::ios::binary};
    EXPECT_TRUE(in) << file << " cannot be read";
    return {std::istreambuf_iterator<char>{in}, {}};
}

Folder::Folder() {
    m_path = testing::TempDir() + "voxtrace-XXXXXX";
    EXPECT_NE(mkdtemp(m_path.data()), nullptr);
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::vector<std::string> Folder::names() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator{m_path}) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace test
