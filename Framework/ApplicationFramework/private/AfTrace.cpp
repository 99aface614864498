#include "AfTrace.h"

bool af::beginTrace(std::uint32_t code, const VoxTraceHeader &header) noexcept {
    const std::int32_t threshold = __atomic_load_n(&AF_trace.level, __ATOMIC_RELAXED);
    const std::int32_t level = CKivTraceHandler_DmLevel2VtLevel(code);
    if (threshold < level) {
        return false;
    }
    VT_beginImpl(&AF_trace, level, &header);
    return true;
}

void af::endTrace(std::uint32_t code) noexcept {
    VT_rawprintf(&AF_trace, "      code: %#lx\n", static_cast<unsigned long>(code));
    VT_endImpl(&AF_trace);
}
