// The platform's tracing, told to say nothing: on any platform, it takes no memory then.
#include <limits>

#include "PlatformTracing.h"

std::int32_t CKivTraceHandler_DmLevel2VtLevel(std::uint32_t /*code*/) {
    return std::numeric_limits<std::int32_t>::max();
}

bool VoxTrace::isEnabled(VoxTraceLevel /*level*/) const {
    return false;
}
