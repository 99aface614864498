// Thousands of random operations on the library and on a model that was written apart from it.
// AF_TEST_SEED=<number> in the environment repeats one seed.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "Choices.h"
#include "ModuleManagerWalk.h"

namespace {

constexpr int operations = 2500;

std::uint32_t seedOf(std::uint32_t parameter) {
    const char *given = std::getenv("AF_TEST_SEED");
    return given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 0)) : parameter;
}

class ModuleManagerModelTest : public testing::TestWithParam<std::uint32_t> {};

TEST_P(ModuleManagerModelTest, LibraryAndModelAgreeOnEverything) {
    const std::uint32_t seed = seedOf(GetParam());
    std::cout << "seed " << seed << std::endl;
    test::RandomChoices choices(seed);
    test::ModuleManagerWalk walk(choices);
    for (int operation = 0; operation < operations; ++operation) {
        walk.step();
        ASSERT_FALSE(HasFailure()) << "operation " << operation << " of seed " << seed << ": " << walk.lastOperation();
    }
    std::cout << walk.linesSeen << " traces, " << walk.failuresSeen << " of them of failures; " << walk.callsSeen
              << " calls\n";
    EXPECT_GT(walk.callsSeen, 100u) << "a walk that reaches no callback shows little";
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModuleManagerModelTest,
                         testing::Values(1u, 2u, 3u, 20u, 4711u, 65535u, 123456789u, 0xFFFFFFFFu));

} // namespace
