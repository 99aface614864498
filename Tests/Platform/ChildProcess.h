/// @file
/// Runs the tracing program and keeps what it wrote.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace test {

struct Outcome {
    int exitCode = -1; ///< 128 and the signal's number when a signal ended it.
    std::string out;
    std::string err;

    /// The machine or the build does not let the program do what its script asks; `err` tells why.
    bool isRefused() const { return exitCode == 77; }
};

using Script = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// Runs TracingProgram with a script (see its usage) and, of the tracing's variables, only those given here.
Outcome runTracing(const Script &script, const Environment &environment = {});

/// The same with standard error on a terminal of its own.
Outcome runTracingOnTerminal(const Script &script, const Environment &environment = {});

std::vector<std::string> linesOf(const std::string &text);
std::string contentOf(const std::string &file);

/// A folder of the test's own, removed with what is in it.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

    std::string path(const std::string &name) const { return m_path + "/" + name; }
    const std::string &path() const { return m_path; }
    std::vector<std::string> names() const; ///< Sorted.

private:
    std::string m_path;
};

} // namespace test
