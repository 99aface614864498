// A life of the event service on real queues, its operations chosen by the fuzzer, against its model.
#include <cstdint>

#include "EventHandlerWalk.h"
#include "FuzzInput.h"
#include "Harness.h"

int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::failOnAssertions();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    test::EventHandlerWalk walk(input);
    walk.beginLife();
    for (std::uint32_t left = input.below(3); left > 0; --left) {
        walk.step();
    }
    walk.initialize();
    // The rest says what else happens; a life is not too long to be understood.
    for (int steps = 0; steps < 200 && !input.isAtEnd(); ++steps) {
        walk.step();
    }
    walk.compareTraces();
    walk.unInitialize();
    return 0;
}
