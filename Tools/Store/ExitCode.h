/// @file
/// What the program ends with; its page and its help list them.
#pragma once

enum ExitCode {
    ExitDone = 0,
    ExitDiffers = 1,    ///< diff found a difference, verify a fault.
    ExitUsage = 2,      ///< Also an argument that does not fit the store.
    ExitNotFound = 3,   ///< No such store, path or location.
    ExitInUse = 4,      ///< Another process has the store open for writing.
    ExitUnreadable = 5, ///< No store, a damaged one, or one of a newer format.
    ExitMisfit = 6,     ///< A value that does not fit its type; a document that is none.
    ExitNotWritten = 7  ///< The disk is full, read-only or failed; nothing has changed.
};
