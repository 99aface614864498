#pragma once

#include <optional>

#include "TextBuffer.h"
#include "TraceOutput.h"

namespace voxtrace {

/// The record that a thread has opened and not yet closed.
struct OpenRecord {
    std::optional<RecordOrigin> origin; ///< Empty: none is open.
    TextBuffer lines;
};

/// At load, before any thread asks for its record.
void prepareOpenRecords() noexcept;

/// @return the calling thread's record; null when it never opened one.
OpenRecord *openRecord() noexcept;

/// @return the calling thread's record, made if need be; null when there is no memory for it.
OpenRecord *openRecordMade() noexcept;

/// Closes the record; the last thread to run out of memory hands the reserve back.
void recordClosed(OpenRecord &record) noexcept;

} // namespace voxtrace
