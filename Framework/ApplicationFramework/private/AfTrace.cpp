#include "AfTrace.h"

void af::beginTrace(std::int32_t level, const VoxTraceHeader &header) noexcept {
    VT_beginImpl(&AF_trace, level, &header);
}

void af::endTrace(std::uint32_t code) noexcept {
    VT_rawprintf(&AF_trace, "      code: %#lx\n", static_cast<unsigned long>(code));
    VT_endImpl(&AF_trace);
}
