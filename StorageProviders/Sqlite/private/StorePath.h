/// @file
/// Names of a store's files.
#pragma once

#include <string>

namespace storage {

/// @return with its last slash.
std::string folderWithSlash(const std::string &path);

bool exists(const std::string &path);

constexpr const char *endOfJournal = "-journal";

/// @return the file that a store which is cut short is rolled back with.
inline std::string journalOf(const std::string &path) {
    return path + endOfJournal;
}

/// Makes a rename last. Where that fails the file is found damaged once more, no worse.
void syncFolder(const std::string &folder);

/// @return errno of making a file that is not there, or 0: nothing is left behind.
int errorOfMaking(const std::string &path);

} // namespace storage
