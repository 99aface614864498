/// @file
/// A file that goes with its object.
#pragma once

#include <string>

namespace radio {

class TemporaryFile {
public:
    /// Makes an empty file in the system's folder for such files.
    /// @throw std::system_error  it could not be made.
    TemporaryFile();
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;
    ~TemporaryFile();

    const std::string &path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace radio
