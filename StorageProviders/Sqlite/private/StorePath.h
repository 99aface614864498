/// @file
/// Names of a store's files.
#pragma once

#include <string>

namespace storage {

/// @return one path for a file, however its name is spelled, also where the file is not there yet. It begins with a
///         slash or a dot: SQLite takes names like "file:x" or ":memory:" for something else.
std::string pathOf(const std::string &name);

/// @return with its last slash.
std::string folderWithSlash(const std::string &path);

bool exists(const std::string &path);

/// @return "<path>.damaged-<N>" with the first N that neither a file nor a journal has.
std::string freeName(const std::string &path);

/// @return the file that a store which is cut short is rolled back with.
inline std::string journalOf(const std::string &path) {
    return path + "-journal";
}

/// Makes a rename last. Where that fails the file is found damaged once more, no worse.
void syncFolder(const std::string &folder);

/// @return errno of making a file that is not there, or 0: nothing is left behind.
int errorOfMaking(const std::string &path);

} // namespace storage
