#include "LastError.h"

#include <array>
#include <cstdio>

#include "VoxTrace.h"

namespace {

std::array<char, 512> text;

} // namespace

namespace test {

std::string lastError() {
    return text.data();
}

void forgetLastError() {
    text[0] = '\0';
}

} // namespace test

VoxTrace::VoxTrace(const char * /*domain*/, VoxTraceLevel /*level*/, VoxTraceHdrOption /*option*/)
    : m_domain(nullptr) {}

VoxTrace::~VoxTrace() = default;

bool VoxTrace::isEnabled(VoxTraceLevel /*level*/) const {
    return true;
}

void VoxTrace::logMsg(VoxTraceLevel level, const VoxTraceHeader & /*header*/, const char *message) {
    if (level == 1) {
        std::snprintf(text.data(), text.size(), "%s", message);
    }
}
