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

/// The highest level that is traced.
inline std::int32_t traceThreshold() noexcept {
    return __atomic_load_n(&AF_trace.level, __ATOMIC_RELAXED);
}

/// Opens a record, to be filled and ended.
void beginTrace(std::int32_t level, const VoxTraceHeader &header) noexcept;

/// Ends a record with its code line.
void endTrace(std::uint32_t code) noexcept;

} // namespace af

/// Traces one message under a function's name; the arguments are evaluated only when the level is enabled.
///
/// The threshold is read before the code is mapped. A site asks for itself, because nearly all are disabled; of what
/// else they share each is only a call, because there are so many of them.
#define AF_TRACE_AS(label, traceCode, ...)                                                                             \
    do {                                                                                                               \
        static const VoxTraceHeader afHeader = {__FILE__, __LINE__, label};                                            \
        const std::uint32_t afCode = traceCode;                                                                        \
        const std::int32_t afThreshold = af::traceThreshold();                                                         \
        const std::int32_t afLevel = CKivTraceHandler_DmLevel2VtLevel(afCode);                                         \
        if (afThreshold >= afLevel) {                                                                                  \
            af::beginTrace(afLevel, afHeader);                                                                         \
            VT_rawprintf(&AF_trace, __VA_ARGS__);                                                                      \
            af::endTrace(afCode);                                                                                      \
        }                                                                                                              \
    } while (false)

/// The same under the name of the function that it stands in.
#define AF_TRACE(traceCode, ...) AF_TRACE_AS(__func__, traceCode, __VA_ARGS__)
