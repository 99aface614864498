#include "Measure.h"

#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>

namespace instructions {

void measure(const std::string &path, unsigned operations, const std::function<void()> &batch,
             const std::function<void()> &before, unsigned noOfBatches) {
    const std::string name = std::to_string(operations) + " " + path;
    CALLGRIND_START_INSTRUMENTATION;
    for (unsigned i = 0; i <= noOfBatches; ++i) {
        if (before) {
            before();
        }
        // A dump takes everything before it along. Callgrind's mark for what to collect would leave the calls in.
        CALLGRIND_DUMP_STATS_AT("uncounted");
        batch();
        CALLGRIND_DUMP_STATS_AT(i > 0 ? name.c_str() : "uncounted");
    }
    std::puts(path.c_str());
}

void require(const char *step, bool holds) {
    if (!holds) {
        std::fprintf(stderr, "InstructionPaths: %s did not go as expected; VOXTRACE_LEVEL=warning may tell more\n",
                     step);
        std::exit(1);
    }
}

std::string numbered(const char *word, std::uint32_t number) {
    const std::string digits = std::to_string(number);
    return word + std::string(6 - digits.size(), '0') + digits;
}

} // namespace instructions
