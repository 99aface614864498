#include "AfResult.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

namespace {

/// Written out by hand, apart from the header's table: the two must agree.
const std::map<std::uint32_t, std::string> names{
    {0x0000, "eAF_S_OK"},
    {0x0001, "eAF_S_TRUE"},
    {0x0002, "eAF_S_FALSE"},
    {0x0100, "eAF_I_INFO"},
    {0x0101, "eAF_I_ALREADY_CACHED"},
    {0x0800, "eAF_DEBUG"},
    {0x0820, "eAF_DEBUG2"},
    {0x0840, "eAF_DEBUG3"},
    {0x0900, "eAF_I_LOG_ALWAYS"},
    {0x1000, "eAF_W_WARNING"},
    {0x1001, "eAF_W_ALREADY_REGISTERED"},
    {0x1002, "eAF_W_NO_MATCHING_MODULE"},
    {0x1003, "eAF_W_DUPLICATE_IGNORED"},
    {0x1004, "eAF_W_NO_MORE_DATA"},
    {0x1005, "eAF_W_NOT_ALL_EVENTS_SENT"},
    {0x1006, "eAF_W_UNEXPECTED_EVENT"},
    {0x1007, "eAF_W_COULD_NOT_CACHE_EVENT"},
    {0x1008, "eAF_W_NOT_SUPPORTED"},
    {0x1009, "eAF_W_VARIABLE_MISSING_IN_STORAGE"},
    {0x8000, "eAF_E_FAILED"},
    {0x8001, "eAF_E_NOT_IMPLEMENTED"},
    {0x8002, "eAF_E_STACK_OVERFLOW"},
    {0x8003, "eAF_E_STACK_EMPTY"},
    {0x8004, "eAF_E_NOT_IN_LIST"},
    {0x8005, "eAF_E_OUT_OF_MEMORY"},
    {0x8006, "eAF_E_INVALID_ARGUMENT"},
    {0x8007, "eAF_E_NOT_REGISTERED"},
    {0x8008, "eAF_E_TOO_MANY_REGISTRATIONS"},
    {0x8009, "eAF_E_UNKNOWN_BATCH"},
    {0x800A, "eAF_E_UNKNOWN_GROUP"},
    {0x800B, "eAF_E_UNKNOWN_PHASE"},
    {0x800C, "eAF_E_UNKNOWN_MODULE"},
    {0x800D, "eAF_E_APPLICATION_ERROR_DURING_PHASE_EXECUTION"},
    {0x800E, "eAF_E_UNKNOWN_EVENT"},
    {0x800F, "eAF_E_QUEUE_CREATION_FAILED"},
    {0x8010, "eAF_E_PUT_TO_QUEUE_FAILED"},
    {0x8011, "eAF_E_GET_FROM_QUEUE_FAILED"},
    {0x8012, "eAF_E_INDEX_OUT_OF_RANGE"},
    {0x8013, "eAF_E_NO_APPLICATION"},
    {0x8014, "eAF_E_NOT_INITIALIZED"},
    {0x8015, "eAF_E_ALREADY_INITIALIZED"},
    {0x8016, "eAF_E_UNKNOWN_REGION"},
    {0x8017, "eAF_E_UNKNOWN_OBJECT"},
    {0x8018, "eAF_E_UNKNOWN_VARIABLE"},
    {0x8019, "eAF_E_UNKNOWN_LOCATION"},
    {0x801A, "eAF_E_UNKNOWN_PROVIDER"},
    {0x801B, "eAF_E_NAME_NOT_UNIQUE"},
    {0x801C, "eAF_E_INITIALIZATION_ERROR"},
    {0x801D, "eAF_E_VARIABLE_HASH_TABLE_EMPTY"},
    {0x801E, "eAF_E_COULD_NOT_ADD_TO_VARIABLE_HASH_TABLE"},
    {0x801F, "eAF_E_WRONG_ACCESS"},
    {0x8020, "eAF_E_MUTEX_ERROR"},
    {0x8021, "eAF_E_BUFFER_TOO_SMALL"},
};

TEST(AfResult, ToString_OfEveryValueUpTo0xFFFF_IsItsNameOrUnknown) {
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const auto known = names.find(code);
        EXPECT_EQ(known != names.end() ? known->second : "Unknown", AfResult::toString(static_cast<EAFResult>(code)))
            << "code " << code;
    }
}

TEST(AfResult, ToString_OfValuesBeyondTheTable_IsUnknown) {
    for (const std::uint32_t code : {0x10000u, 0x18000u, 0x7FFFFFFFu, 0x80000000u, 0x80008006u, 0xFFFFFFFFu}) {
        EXPECT_EQ("Unknown", AfResult::toString(static_cast<EAFResult>(code))) << "code " << code;
    }
}

TEST(AfResult, EnumerationHasTheSettledValues) {
#define AF_CHECK_ROW(name, value, meaning) EXPECT_EQ(#name, names.at(name));
    AF_RESULT_TABLE(AF_CHECK_ROW)
#undef AF_CHECK_ROW
    std::size_t rows = 0;
#define AF_COUNT_ROW(name, value, meaning) ++rows;
    AF_RESULT_TABLE(AF_COUNT_ROW)
#undef AF_COUNT_ROW
    EXPECT_EQ(names.size(), rows);
}

TEST(AfResult, ResultsAre32BitsUnsigned) {
    static_assert(sizeof(EAFResult) == 4);
    EXPECT_GT(static_cast<EAFResult>(0xFFFFFFFFu), eAF_E_BUFFER_TOO_SMALL);
}

} // namespace
