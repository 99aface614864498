// Thousands of random operations on the storage manager and on a model of it, compared after each.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>

#include "Choices.h"
#include "StorageWalk.h"

namespace {

class StorageManagerModel : public testing::TestWithParam<std::uint32_t> {};

TEST_P(StorageManagerModel, AgreesAfterEachOfTwoThousandOperations) {
    std::printf("seed %u\n", GetParam());
    test::RandomChoices choices(GetParam());
    test::StorageWalk walk(choices);
    for (int round = 0; round < 20 && !HasFatalFailure(); ++round) {
        for (int i = 0; i < 100 && !HasFatalFailure(); ++i) {
            walk.step();
        }
        walk.begin();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, StorageManagerModel, testing::Range(1U, 9U));

} // namespace
