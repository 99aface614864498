// zaf-store set: what it takes, what it refuses, what it leaves as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "StoreTool.h"

namespace storetool {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace fs = std::filesystem;

TEST_P(EitherKind, Set_KeepsTypeAndCountAndEveryOtherValue) {
    make("a", isSqlite, radio());
    EXPECT_EQ(0, tool("set a Cfg/Radio/Tilt '[1,2,3e1]'").exitCode);
    StoredValues expected = radio();
    expected[2] = array<float>("Cfg/Radio/Tilt", TYPE_FLOAT_ARRAY, {1.F, 2.F, 30.F});
    EXPECT_THAT(valuesIn("a", isSqlite), testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ("Cfg/Radio/Tilt is that already\n", tool("set a Cfg/Radio/Tilt '[1,2,30]'").out);
    EXPECT_EQ(0, tool("set a Cfg/Radio/Name 'x'").exitCode);
    EXPECT_EQ("x\n", tool("get a Cfg/Radio/Name").out);
}

struct Misfit {
    const char *path;
    const char *value;
    const char *says;
};

TEST_P(EitherKind, Set_RefusesWhatDoesNotFitAndChangesNothing) {
    StoredValues values = radio();
    values.push_back(single<std::uint8_t>("Small", TYPE_UINT8, 1));
    values.push_back(single<std::uint32_t>("Flag", TYPE_BOOL, 1));
    values.push_back(single<float>("Real", TYPE_FLOAT, 1.F));
    make("a", isSqlite, values);
    const Misfit misfits[] = {
        {"Small", "256", "256 is no value of UINT8"},
        {"Small", "-1", "-1 is no value of UINT8"},
        {"Small", "1.5", "1.5 is no value of UINT8"},
        {"Small", "abc", "is no value of UINT8"},
        {"Small", "[1]", "[1] is no value of UINT8"},
        {"Cfg/Radio/Gain", "2147483648", "is no value of INT32"},
        {"Real", "1e39", "is no value of FLOAT"},
        {"Real", "nan:00000001", "is no value of FLOAT"},
        {"Flag", "maybe", "is no value of BOOL"},
        {"Cfg/Radio/Tilt", "5", "expected an array of 3"},
        {"Cfg/Radio/Tilt", "[1,2,\"x\"]", "\"x\" is no value of FLOAT_ARRAY"},
        {"Cfg/Radio/Name", "a name of more than sixteen bytes", "there is room for 16"},
    };
    for (const Misfit &misfit : misfits) {
        const Outcome outcome = tool(std::string("set a ") + misfit.path + " -- '" + misfit.value + "'");
        EXPECT_EQ(6, outcome.exitCode) << misfit.value;
        EXPECT_THAT(outcome.err, HasSubstr(misfit.says));
        EXPECT_THAT(outcome.err, StartsWith("zaf-store: "));
        EXPECT_THAT(outcome.out, IsEmpty());
    }
    EXPECT_THAT(valuesIn("a", isSqlite), testing::UnorderedElementsAreArray(values));
}

TEST_P(EitherKind, Set_TakesWhatFits) {
    make("a", isSqlite,
         {single<std::uint32_t>("Flag", TYPE_BOOL, 1), single<double>("Real", TYPE_DOUBLE, 1.),
          single<std::int8_t>("Least", TYPE_INT8, 0)});
    EXPECT_EQ(0, tool("set a Flag false").exitCode);
    EXPECT_EQ("0\n", tool("get a Flag").out);
    EXPECT_EQ(0, tool("set a Real -- -inf").exitCode);
    EXPECT_EQ("-inf\n", tool("get a Real").out);
    EXPECT_EQ(0, tool("set a Real 7").exitCode);
    EXPECT_EQ("7.0\n", tool("get a Real").out);
    EXPECT_EQ(0, tool("set a Least -- -128").exitCode);
    EXPECT_EQ("-128\n", tool("get a Least").out);
}

TEST_P(EitherKind, Set_AddsOnlyWhatIsAskedFor) {
    make("a", isSqlite, radio());
    EXPECT_EQ(3, tool("set a New 5").exitCode);
    EXPECT_EQ(2, tool("set a New 5 --create INT7").exitCode);
    EXPECT_EQ(0, tool("set a New '[5,6]' --create INT16_ARRAY").exitCode);
    EXPECT_EQ("[5,6]\n", tool("get a New").out);
    EXPECT_EQ(0, tool("set a Serial RU4711 --create STRING --count 16").exitCode);
    EXPECT_EQ(5u, valuesIn("a", isSqlite).size());
}

TEST_P(EitherKind, Set_TakesAValueThatBeginsWithADash) {
    make("a", isSqlite,
         {single<std::int8_t>("Least", TYPE_INT8, 0), text("Name", std::string(8, '\0')),
          single<double>("Real", TYPE_DOUBLE, 1.)});
    EXPECT_EQ("Least: 0 -> -5\n", tool("set a Least -5").out);
    EXPECT_EQ("Real: 1.0 -> \"-inf\"\n", tool("set a Real -inf").out);
    EXPECT_EQ("Name: \"\" -> \"-hello\"\n", tool("set a Name -hello").out);
    EXPECT_EQ("Name: \"-hello\" -> \"-h\"\n", tool("set a Name -h").out);
    EXPECT_EQ("Name: \"-h\" -> \"-\"\n", tool("set a Name -").out);
    EXPECT_EQ("Name: \"-\" -> \"--x\"\n", tool("set a Name -- --x").out);
    EXPECT_EQ("Name: \"--x\" -> \"\"\n", tool("set a Name ''").out);
    EXPECT_EQ("Name: \"\" -> \"list\"\n", tool("set a Name list").out);
}

TEST_P(EitherKind, Set_TakesItsOptionsBeforeAndBehindAValueThatBeginsWithADash) {
    make("a", isSqlite, radio());
    EXPECT_EQ("A: (new) -> -1\n", tool("set a A -1 --create INT8").out);
    EXPECT_EQ("B: (new) -> \"-x\"\n", tool("set --create STRING a B --count=4 -x").out);
    EXPECT_EQ("C: (new) -> \"-y\"\n", tool("set a C --create=STRING -y --count 4").out);
    EXPECT_THAT(valuesIn("a", isSqlite), testing::Contains(text("C", std::string("-y\0\0", 4))));
}

TEST_P(EitherKind, Set_OfAnUnknownOption_IsUsageAndSetsNothing) {
    make("a", isSqlite, radio());
    EXPECT_EQ(2, tool("set a Cfg/Radio/Name --hello").exitCode);
    EXPECT_EQ(2, tool("set a Cfg/Radio/Name").exitCode);
    EXPECT_EQ(2, tool("set a Cfg/Radio/Gain -5 -6").exitCode);
    EXPECT_THAT(valuesIn("a", isSqlite), testing::UnorderedElementsAreArray(radio()));
    EXPECT_THAT(tool("set --help").out, HasSubstr("behind --"));
}

TEST_P(EitherKind, Set_OfANewString_CountsTheBytesOfItsHexadecimalForm) {
    make("a", isSqlite, radio());
    EXPECT_EQ(0, tool("set a H '{\"hex\":\"00ff\"}' --create STRING").exitCode);
    EXPECT_THAT(valuesIn("a", isSqlite), testing::Contains(text("H", std::string("\0\xFF", 2))));
}

TEST_P(EitherKind, Set_OfADeeplyNestedValue_IsAMisfit) {
    make("a", isSqlite, radio());
    for (const std::string &value : {std::string(100000, '['), std::string(50000, '[') + std::string(50000, ']')}) {
        const Outcome outcome = tool("set a Cfg/Radio/Tilt '" + value + "'");
        EXPECT_EQ(6, outcome.exitCode);
        EXPECT_THAT(outcome.err, HasSubstr("expected an array of 3"));
    }
}

TEST_P(EitherKind, Set_ThatChangesNothing_NeedsNoLock) {
    make("a", isSqlite, radio());
    fs::remove(in("a.lock"));
    EXPECT_EQ(6, tool("set a Cfg/Radio/Gain high").exitCode);
    EXPECT_EQ(3, tool("set a Cfg/Radio/Loss 5").exitCode);
    EXPECT_EQ(0, tool("set a Cfg/Radio/Gain 20").exitCode);
    EXPECT_FALSE(fs::exists(in("a.lock")));
}

TEST_F(StoreTool, Set_OfAValueThatCanNotBeRead_SaysSoAndReplacesItWhenTold) {
    make("a", true, radio());
    mend("a", "UPDATE variable SET value='junk' WHERE path='Cfg/Radio/Gain'");
    const Outcome refused = tool("set a Cfg/Radio/Gain 3");
    EXPECT_EQ(6, refused.exitCode);
    EXPECT_THAT(refused.err, HasSubstr("the value of Cfg/Radio/Gain can not be read"));
    EXPECT_THAT(refused.err, HasSubstr("--create TYPE --count N replaces it"));
    EXPECT_EQ(6, tool("get a Cfg/Radio/Gain").exitCode);
    EXPECT_EQ(3, tool("set a Radio/Gain 3").exitCode) << "another path";
    EXPECT_EQ("Cfg/Radio/Gain: (unreadable) -> 3\n", tool("set a Cfg/Radio/Gain 3 --create INT32").out);
    EXPECT_EQ("a: 3 values, 0 faults\n", tool("verify a").out);
}

} // namespace
} // namespace storetool
