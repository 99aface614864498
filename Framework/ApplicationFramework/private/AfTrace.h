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

/// Opens a record if the code's level is enabled. The threshold is read before the code is mapped.
/// @return whether there is a record to fill and to end.
bool beginTrace(std::uint32_t code, const VoxTraceHeader &header) noexcept;

/// Ends a record with its code line.
void endTrace(std::uint32_t code) noexcept;

} // namespace af

/// Traces one message under a function's name; the arguments are evaluated only when the level is enabled.
///
/// A site is a header, a question and a message: there are so many of them that what else they share stands in
/// AfTrace.cpp.
#define AF_TRACE_AS(label, traceCode, ...)                                                                             \
    do {                                                                                                               \
        static const VoxTraceHeader afHeader = {__FILE__, __LINE__, label};                                            \
        const std::uint32_t afCode = traceCode;                                                                        \
        if (af::beginTrace(afCode, afHeader)) {                                                                        \
            VT_rawprintf(&AF_trace, __VA_ARGS__);                                                                      \
            af::endTrace(afCode);                                                                                      \
        }                                                                                                              \
    } while (false)

/// The same under the name of the function that it stands in.
#define AF_TRACE(traceCode, ...) AF_TRACE_AS(__func__, traceCode, __VA_ARGS__)
