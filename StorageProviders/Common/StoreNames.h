/// @file
/// Names of a store's files, as the system knows them. A question that it can not answer is never taken for a no: a
/// link that was taken for none would be replaced, and a name that was taken for free would be written over.
#pragma once

#include <string>

namespace storage {

struct ResolvedName {
    /// From the root on, without dots, symbolic links followed: nothing needs to be there, neither the file nor its
    /// folders. As it was given when it can not be resolved.
    std::string file;
    std::string problem; ///< Why it can not be resolved, for a report; empty when it is.
};

/// @throws std::bad_alloc  also for memory that the system has not.
ResolvedName resolveName(const std::string &name);

/// @param companion  the end of another file's name that goes with it and must be free as well; empty for none.
/// @param name  receives the beginning with the first number behind it that no file has.
/// @return 0, or the error: whether a file has it can not be told.
int firstFree(const std::string &beginning, const std::string &companion, std::string &name);

} // namespace storage
