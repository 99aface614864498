#pragma once

#include <cerrno>
#include <utility>

#include "TraceOutput.h"
#include "TraceSettings.h"

namespace voxtrace {

/// What the process traces with. Made when the library is loaded and never destroyed: destructors that run at
/// exit, and threads that outlive main, may still trace.
struct TraceProcess {
    explicit TraceProcess(TraceSettings given) noexcept : settings(std::move(given)), output(settings) {}

    const TraceSettings settings;
    TraceOutput output;
};

/// Null until the library is loaded; whatever depends on the library is initialised later than that.
TraceProcess *traceProcess() noexcept;

/// The caller's errno often ends up in the very message that it traces, or in the next one.
class ErrnoKept {
public:
    ErrnoKept() noexcept : m_errno(errno) {}
    ~ErrnoKept() { errno = m_errno; }
    ErrnoKept(const ErrnoKept &) = delete;
    ErrnoKept &operator=(const ErrnoKept &) = delete;

    int value() const noexcept { return m_errno; }

private:
    int m_errno;
};

} // namespace voxtrace
