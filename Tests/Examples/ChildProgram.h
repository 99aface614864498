/// @file
/// A program in a process of its own.
#pragma once

#include <sys/types.h>

#include <array>
#include <string>
#include <vector>

namespace test {

class ChildProgram {
public:
    ChildProgram(const std::string &path, std::vector<std::string> arguments);
    ChildProgram(const ChildProgram &) = delete;
    ChildProgram &operator=(const ChildProgram &) = delete;

    /// Ends the program if it still runs.
    ~ChildProgram();

    /// Reads until standard output holds the text. @return false when the program ended, or a long time passed,
    /// without it.
    bool waitForOutput(const std::string &text);

    pid_t process() const { return m_process; }

    void send(int signalNumber) const;

    /// Reads to the end. @return the exit code; minus the signal's number when a signal ended the program, or when
    /// it had to be ended because it did not end by itself.
    int exitCode();

    /// Both hold what was read so far.
    const std::string &output() const { return m_texts[0]; }
    const std::string &errors() const { return m_texts[1]; }

private:
    bool readSome();

    pid_t m_process = 0;
    bool m_running = false;
    std::array<int, 2> m_pipes{-1, -1};
    std::array<std::string, 2> m_texts;
};

} // namespace test
