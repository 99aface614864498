// Where the allocator's exceptions become a result code, and what goes on its way as it is.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "OutOfMemory.h"

namespace {

TEST(WithOutOfMemoryAsCode, TheStepsOwnCode_IsHandedOn) {
    EXPECT_EQ(eAF_S_OK, af::withOutOfMemoryAsCode([] { return eAF_S_OK; }));
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, af::withOutOfMemoryAsCode([] { return eAF_W_ALREADY_REGISTERED; }));
}

TEST(WithOutOfMemoryAsCode, WhatMemoryIsTooSmallFor_IsOutOfMemory) {
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY, af::withOutOfMemoryAsCode([]() -> EAFResult { throw std::bad_alloc(); }));
    EXPECT_EQ(eAF_E_OUT_OF_MEMORY,
              af::withOutOfMemoryAsCode([]() -> EAFResult { throw std::length_error("vector::reserve"); }));
}

TEST(WithOutOfMemoryAsCode, WhatElseIsThrown_GoesOn) {
    EXPECT_THROW(af::withOutOfMemoryAsCode([]() -> EAFResult { throw std::logic_error("no name"); }), std::logic_error);
    EXPECT_THROW(af::withOutOfMemoryAsCode([]() -> EAFResult { throw 5; }), int);
}

} // namespace
