// Operations on the module manager, chosen by the fuzzer, against its model.
#include <cstdint>

#include "FuzzInput.h"
#include "Harness.h"
#include "ModuleManagerWalk.h"

int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::failOnAssertions();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::walkToTheEnd<test::ModuleManagerWalk>(data, size);
    return 0;
}
