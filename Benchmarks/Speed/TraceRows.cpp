// What a trace site costs while nobody wants to see it.
#include <syslog.h>

#include "Comparison.h"
#include "TraceSites.h"

using namespace speed;

namespace {

using Site = void (*)(const char *);

Body pass(Site site) {
    return [site](benchmark::State &state) {
        const char *name = "PowerAmplifier";
        const std::uint64_t before = textsAskedFor;
        for (auto _ : state) {
            benchmark::DoNotOptimize(name);
            site(name);
        }
        if (textsAskedFor != before) {
            state.SkipWithError("the site is not disabled: it composes its message");
        }
    };
}

Body passSyslog() {
    return [](benchmark::State &state) {
        const int before = setlogmask(LOG_UPTO(LOG_WARNING));
        pass(traceBySyslog)(state);
        setlogmask(before);
    };
}

} // namespace

void speed::addTraceRows() {
    Work work{"trace", "a disabled trace site"};
    work.aim = 1.2;
    compare(work, Role::limit, "level test and level call", pass(traceAtLeast));
    compare(work, Role::library, "library", pass(traceAsLibrary));
    compare(work, Role::peer, "spdlog below its level", pass(traceBySpdlog));
    compare(work, Role::peer, "syslog below its mask", passSyslog());
}
