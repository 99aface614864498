/// @file
/// Procedural tracing of the test's own platform. Levels go from 0, always, in steps of ten to 90; records go to
/// standard error, one line each.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VoxTraceHeader {
    const char *file;
    uint32_t line;
    const char *function;
} VoxTraceHeader;

struct TraceStream {
    int32_t level;
    uint32_t lostRecords;
    const char *prefix;
    void (*write)(const char *line, uint32_t length);
};

/// Its level is FOREIGN_TRACE_LEVEL of the environment, or 20.
extern struct TraceStream AF_trace;

int32_t CKivTraceHandler_DmLevel2VtLevel(uint32_t code);

/// Each of these answers how many bytes the record now has.
uint32_t VT_beginImpl(struct TraceStream *stream, int32_t level, const VoxTraceHeader *header);
uint32_t VT_rawprintf(struct TraceStream *stream, const char *format, ...) __attribute__((format(printf, 2, 3)));
uint32_t VT_endImpl(struct TraceStream *stream);

#ifdef __cplusplus
}
#endif
