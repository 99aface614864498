/// @file
/// The one way in which every source file here writes to the platform's procedural tracing.
#pragma once

#include <cstdint>

#include "EAFResult.h"
#include "VT_trace.h"

namespace af {

/// Success, information, debug and warning codes are no errors.
constexpr bool isError(std::uint32_t code) {
    return code >= eAF_E_FAILED;
}

/// Ends a record with its code line.
void endTrace(std::uint32_t code) noexcept;

} // namespace af

/// Traces one message under a function's name; the arguments are evaluated only when the level is enabled.
///
/// The level test stands at the site: a disabled trace costs no more than that. The threshold is read before
/// the code is mapped.
#define AF_TRACE_AS(label, traceCode, ...)                                                                             \
    do {                                                                                                               \
        const std::int32_t afThreshold = __atomic_load_n(&AF_trace.level, __ATOMIC_RELAXED);                           \
        const std::int32_t afLevel = CKivTraceHandler_DmLevel2VtLevel(traceCode);                                      \
        if (afThreshold >= afLevel) {                                                                                  \
            static const VoxTraceHeader afHeader = {__FILE__, __LINE__, label};                                        \
            VT_beginImpl(&AF_trace, afLevel, &afHeader);                                                               \
            VT_rawprintf(&AF_trace, __VA_ARGS__);                                                                      \
            af::endTrace(traceCode);                                                                                   \
        }                                                                                                              \
    } while (false)

/// The same under the name of the function that it stands in.
#define AF_TRACE(traceCode, ...) AF_TRACE_AS(__func__, traceCode, __VA_ARGS__)
