// Operations on the storage manager, chosen by the fuzzer, against its model.
#include <cstdint>

#include "FuzzInput.h"
#include "Harness.h"
#include "StorageWalk.h"

int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::failOnAssertions();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    test::StorageWalk walk(input);
    while (!input.isAtEnd()) {
        if (input.oneIn(64)) {
            walk.begin();
        }
        walk.step();
    }
    return 0;
}
