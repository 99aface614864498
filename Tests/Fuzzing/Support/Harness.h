/// @file
/// What every harness defines, and what it calls where it finds something.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

/// Prints the finding and aborts: the fuzzer keeps the input, the replay ends.
[[noreturn]] void found(const char *file, int line, const char *condition, const std::string &detail);

/// Makes an assertion of GoogleTest a finding, for walks that the tests share. Call it once, first.
void failOnAssertions();

} // namespace fuzz

/// Not an assertion that a release build leaves out.
#define FUZZ_CHECK(condition, detail)                                                                                  \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fuzz::found(__FILE__, __LINE__, #condition, (detail));                                                     \
        }                                                                                                              \
    } while (false)

extern "C" {
int LLVMFuzzerInitialize(int *argc, char ***argv);
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
}
