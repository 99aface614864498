/// @file
/// Reads, writes and syncs whole files, in terms of the system's error numbers.
#pragma once

#include <fcntl.h>

#include <string>

#include "EAFResult.h"
#include "FileFormat.h"

namespace storage {

/// Closed with its scope.
class Descriptor {
public:
    Descriptor(const std::string &file, int flags, mode_t mode = 0);
    ~Descriptor();
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor != -1; }
    /// @return 0, or the error: what was written may not be there.
    int close();

private:
    int m_descriptor;
};

/// What readFile answers beside the system's errors.
constexpr int notAFile = -1; ///< A folder, a device, a pipe.
constexpr int tooLarge = -2; ///< The file is beyond the largest store; its beginning was read.

/// @return 0, or the error.
int readFile(const std::string &file, Bytes &bytes);

/// Makes a file, durable but for its name, with the permissions and the owner of the one that it succeeds, if there is
/// such a one.
/// @return 0, or the error; whatever there is of it then is the caller's to remove.
int writeFile(const std::string &file, const Bytes &bytes, const std::string &predecessor);

/// @return 0, or the error.
int syncFolder(int folder);

std::string folderOf(const std::string &file);
bool isThere(const std::string &name);

/// Whether the disk did not give back what was written to it.
bool isLostOnDisk(int error);

/// What the user can do.
std::string adviceFor(int error);

/// The VariableStore's code of a failure to write. Of one to read, WRONG_ACCESS says nothing: see there.
EAFResult codeOf(int error);

} // namespace storage
