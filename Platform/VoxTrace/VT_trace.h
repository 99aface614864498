/// @file
/// Procedural tracing of the platform, with C linkage.
#pragma once

#include <stdint.h>

#define VT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/// Where a record comes from: one constant for each trace site.
typedef struct VoxTraceHeader {
    const char *file;
    uint32_t line;
    const char *function;
} VoxTraceHeader;

/// A trace handle; callers read its level.
typedef struct VT_TraceHandle {
    int32_t level; ///< Threshold: a record is emitted when this is not below the record's level.
} VT_TraceHandle;

/// The one handle that the whole process shares. Its level is taken from the environment at load.
extern VT_API VT_TraceHandle AF_trace;

/// The trace level of a result code: 0 always logged, 1 error, 3 warning, 5 information and success, 7, 8 and 9 debug.
VT_API int32_t CKivTraceHandler_DmLevel2VtLevel(uint32_t code);

/// Opens a record on the calling thread. Each thread has a record of its own, so records never mix.
VT_API void VT_beginImpl(VT_TraceHandle *handle, int32_t level, const VoxTraceHeader *header);

/// Appends printf-formatted text to the calling thread's open record.
VT_API void VT_rawprintf(VT_TraceHandle *handle, const char *format, ...) __attribute__((format(printf, 2, 3)));

/// Closes and emits the calling thread's open record as one unit.
VT_API void VT_endImpl(VT_TraceHandle *handle);

#ifdef __cplusplus
}
#endif
