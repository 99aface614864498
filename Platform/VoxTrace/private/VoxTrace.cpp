#include "VoxTrace.h"

#include <cerrno>
#include <exception>
#include <string>

#include "TraceProcess.h"

struct VoxTrace::Domain {
    std::string name;
    VoxTraceLevel level;
    VoxTraceHdrOption option;
};

namespace {

/// The threshold of an object that had no memory for its domain.
constexpr VoxTraceLevel levelWithoutDomain = 3;

} // namespace

VoxTrace::VoxTrace(const char *domain, VoxTraceLevel level, VoxTraceHdrOption option) : m_domain(nullptr) {
    const voxtrace::ErrnoKept kept;
    try {
        std::string name = domain != nullptr ? domain : "";
        if (const auto *const process = voxtrace::traceProcess()) {
            level = process->settings.levelOfDomain(name, level);
        }
        m_domain = new Domain{std::move(name), level, option};
    } catch (const std::exception &) {
        voxtrace::complain("no memory for the trace domain %s; its level is %d", domain, levelWithoutDomain);
    }
}

VoxTrace::~VoxTrace() {
    delete m_domain;
}

bool VoxTrace::isEnabled(VoxTraceLevel level) const {
    return level <= (m_domain != nullptr ? m_domain->level : levelWithoutDomain);
}

void VoxTrace::logMsg(VoxTraceLevel level, const VoxTraceHeader &header, const char *text) {
    const voxtrace::ErrnoKept kept;
    auto *const process = voxtrace::traceProcess();
    const auto threshold = m_domain != nullptr ? m_domain->level : levelWithoutDomain;
    if (process == nullptr || level > threshold) {
        return;
    }
    process->output.emit({level, m_domain != nullptr ? m_domain->name.c_str() : "?", header}, text);
}
