/// @file
/// What the program ends with; its page and its help list them.
#pragma once

enum ExitCode {
    ExitDone = 0,
    ExitDiffers = 1,    ///< diff found a difference, or something of a store could not be read.
    ExitUsage = 2,      ///< Also an argument that does not fit the store.
    ExitNotFound = 3,   ///< No such store, path or location.
    ExitInUse = 4,      ///< Another process has the store open for writing.
    ExitUnreadable = 5, ///< No store, a damaged or unfinished one, or one of a newer format.
    ExitMisfit = 6,     ///< A value that does not fit its type; a document that is none; nothing to make a store of.
    ExitNotWritten = 7  ///< The disk is full, read-only or failed: nothing has changed; or standard output is.
};
