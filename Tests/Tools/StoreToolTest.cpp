// zaf-store as a program: what it prints, what it ends with, what it leaves in the stores.
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include "FileStore.h"
#include "SqliteStore.h"
#include "VariableType.h"

namespace {

using storage::Access;
using storage::StoredValue;
using storage::StoredValues;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace fs = std::filesystem;

struct Outcome {
    int exitCode;
    std::string out;
    std::string err;
};

class Silent : public storage::Report {
public:
    void add(storage::Severity, const std::string &) override {}
};

std::string bytesOf(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

template <class Element>
StoredValue single(const std::string &path, EVariableType type, Element element) {
    StoredValue value{path, type, 1, std::vector<unsigned char>(sizeof element)};
    std::memcpy(value.content.data(), &element, sizeof element);
    return value;
}

template <class Element>
StoredValue array(const std::string &path, EVariableType type, const std::vector<Element> &elements) {
    StoredValue value{path, type, static_cast<std::uint32_t>(elements.size()),
                      std::vector<unsigned char>(elements.size() * sizeof(Element))};
    if (!elements.empty()) {
        std::memcpy(value.content.data(), elements.data(), value.content.size());
    }
    return value;
}

StoredValue text(const std::string &path, const std::string &content) {
    return {path, TYPE_STRING, static_cast<std::uint32_t>(content.size()), {content.begin(), content.end()}};
}

StoredValues radio() {
    return {single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 20),
            text("Cfg/Radio/Name", std::string("north mast\0\0\0\0\0\0", 16)),
            array<float>("Cfg/Radio/Tilt", TYPE_FLOAT_ARRAY, {0.5F, -1.25F, 2.F})};
}

StoredValues everySort() {
    return {single<std::int8_t>("a", TYPE_INT8, -128),
            array<std::int8_t>("b", TYPE_INT8_ARRAY, {-128, 127}),
            single<std::int16_t>("c", TYPE_INT16, -32768),
            array<std::int16_t>("d", TYPE_INT16_ARRAY, {}),
            single<std::int32_t>("e", TYPE_INT32, INT32_MIN),
            array<std::int32_t>("f", TYPE_INT32_ARRAY, {INT32_MIN, INT32_MAX}),
            single<std::uint8_t>("g", TYPE_UINT8, 255),
            array<std::uint8_t>("h", TYPE_UINT8_ARRAY, std::vector<std::uint8_t>(5000, 7)),
            single<std::uint16_t>("i", TYPE_UINT16, 65535),
            array<std::uint16_t>("j", TYPE_UINT16_ARRAY, {0, 65535}),
            single<std::uint32_t>("k", TYPE_UINT32, UINT32_MAX),
            array<std::uint32_t>("l", TYPE_UINT32_ARRAY, {UINT32_MAX}),
            single<std::uint32_t>("m", TYPE_BOOL, 2),
            array<std::uint32_t>("n", TYPE_BOOL_ARRAY, {0, 1, UINT32_MAX}),
            single<std::int8_t>("o", TYPE_CHAR, -1),
            array<std::int8_t>("p", TYPE_CHAR_ARRAY, {'x', 0, -1}),
            text("q", "plain"),
            text("r", std::string("behind\0nul", 10)),
            text("s", "\xFF\xFE no text"),
            single<float>("t", TYPE_FLOAT, -0.F),
            array<float>("u", TYPE_FLOAT_ARRAY, {0.1F, std::numeric_limits<float>::infinity(), std::nanf("0x123")}),
            single<double>("v", TYPE_DOUBLE, 5e-324),
            array<double>("w", TYPE_DOUBLE_ARRAY,
                          {-0., 0.1, -std::numeric_limits<double>::infinity(), std::nan("0x456"), 1e308}),
            single<std::int32_t>("path with blanks, 'quotes' and \"more\"\n", TYPE_INT32, 1),
            single<std::int32_t>("path \xFF that is no text", TYPE_INT32, 2)};
}

class StoreTool : public testing::Test {
protected:
    StoreTool() {
        std::string pattern = (fs::temp_directory_path() / "zaf-store-XXXXXX").string();
        EXPECT_NE(nullptr, mkdtemp(pattern.data()));
        m_folder = pattern;
    }
    ~StoreTool() override { fs::remove_all(m_folder); }
    StoreTool(const StoreTool &) = delete;
    StoreTool &operator=(const StoreTool &) = delete;

    std::string in(const std::string &file) const { return m_folder + "/" + file; }

    /// Runs the program in the test's folder.
    Outcome run(const std::string &arguments) const {
        const std::string command = "cd '" + m_folder + "' && PATH='" + fs::path(ZAF_STORE).parent_path().string() +
                                    "':$PATH; " + arguments + " >.out 2>.err";
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << arguments;
        return {WEXITSTATUS(status), bytesOf(in(".out")), bytesOf(in(".err"))};
    }
    Outcome tool(const std::string &arguments) const { return run("zaf-store " + arguments); }

    std::unique_ptr<storage::VariableStore> open(const std::string &file, bool isSqlite, Access access,
                                                 unsigned long location = 1) const {
        std::unique_ptr<storage::VariableStore> store;
        if (isSqlite) {
            store = std::make_unique<storage::SqliteStore>(in(file), location);
        } else {
            store = std::make_unique<storage::FileStore>(in(file));
        }
        Silent report;
        EXPECT_EQ(eAF_S_OK, store->open(access, report));
        return store;
    }

    void make(const std::string &file, bool isSqlite, const StoredValues &values, unsigned long location = 1) const {
        Silent report;
        const auto store = open(file, isSqlite, Access::readWrite, location);
        StoredValues before;
        ASSERT_EQ(eAF_S_OK, store->read(before, report));
        ASSERT_EQ(eAF_S_OK, store->write(values, report));
    }

    StoredValues valuesIn(const std::string &file, bool isSqlite, unsigned long location = 1) const {
        Silent report;
        StoredValues values;
        EXPECT_EQ(eAF_S_OK, open(file, isSqlite, Access::readOnly, location)->read(values, report));
        return values;
    }

private:
    std::string m_folder;
};

TEST_F(StoreTool, PlaysTheSessionOfItsPage) {
    make("radio.db", true, radio());
    std::istringstream page(bytesOf(ZAF_STORE_PAGE));
    std::string line;
    std::string command;
    std::string expected;
    unsigned played = 0;
    const auto play = [&] {
        if (!command.empty()) {
            const Outcome outcome = run(command);
            EXPECT_EQ(expected, outcome.out + outcome.err) << command;
            ++played;
        }
        command.clear();
        expected.clear();
    };
    bool isInSession = false;
    while (std::getline(page, line)) {
        if (line.rfind("    $ ", 0) == 0) {
            play();
            isInSession = true;
            command = line.substr(6);
        } else if (isInSession && line.rfind("    ", 0) == 0) {
            expected += line.substr(4) + "\n";
        } else if (isInSession) {
            break;
        }
    }
    play();
    EXPECT_EQ(9u, played);
}

class EitherKind : public StoreTool, public testing::WithParamInterface<bool> {
protected:
    bool isSqlite = GetParam();
    std::string kind = GetParam() ? "sqlite" : "file";
    std::string otherKind = GetParam() ? "file" : "sqlite";
};
INSTANTIATE_TEST_SUITE_P(Kinds, EitherKind, testing::Bool(),
                         [](const auto &kind) { return kind.param ? std::string("Sqlite") : std::string("File"); });

TEST_P(EitherKind, DumpAndLoad_GiveBackEveryBit) {
    make("a", isSqlite, everySort());
    ASSERT_EQ(0, tool("dump a a.json").exitCode);
    const Outcome loaded = tool("load b a.json --kind " + kind);
    EXPECT_EQ("25 values read, 25 written\n", loaded.out);
    const Outcome compared = tool("diff a b");
    EXPECT_EQ(0, compared.exitCode) << compared.out;
    EXPECT_EQ("no difference in 25 values\n", compared.out);
    for (const StoredValue &value : everySort()) {
        EXPECT_THAT(valuesIn("b", isSqlite), testing::Contains(value)) << value.path;
    }
    EXPECT_EQ("25 values read, 0 written\n", tool("load b a.json").out);
}

TEST_P(EitherKind, Convert_ThereAndBack_IsTheSame) {
    make("a", isSqlite, everySort());
    EXPECT_EQ("25 values written to b\n", tool("convert a b --kind " + otherKind).out);
    EXPECT_EQ("25 values written to c\n", tool("convert b c --kind " + kind).out);
    EXPECT_EQ(0, tool("diff a c").exitCode);
    EXPECT_EQ(0, tool("diff a b").exitCode);
    const Outcome again = tool("convert a b --kind " + otherKind);
    EXPECT_EQ(2, again.exitCode) << "nothing is overwritten";
    EXPECT_THAT(again.err, HasSubstr("is there already"));
}

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

TEST_P(EitherKind, WhileAProcessHoldsTheStore_ReadingGoesAndWritingNamesTheProcess) {
    make("a", isSqlite, radio());
    const auto holder = open("a", isSqlite, Access::readWrite);
    EXPECT_EQ(0, tool("list a").exitCode);
    EXPECT_EQ(0, tool("verify a").exitCode);
    const Outcome refused = tool("set a Cfg/Radio/Gain 5");
    EXPECT_EQ(4, refused.exitCode);
    EXPECT_THAT(refused.err, HasSubstr(std::to_string(getpid())));
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain").out);
}

TEST_P(EitherKind, ADamagedStore_IsNeverTouched) {
    make("a", isSqlite, radio());
    fs::remove(in("a.1"));
    std::string bytes = bytesOf(in("a"));
    for (std::size_t i = bytes.size() / 3; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(bytes[i] ^ 0x3C);
    }
    std::ofstream(in("a"), std::ios::binary) << bytes;
    for (const char *command : {"list a", "get a Cfg/Radio/Gain", "set a Cfg/Radio/Gain 5", "verify a", "dump a",
                                "convert a b --kind file"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(5, outcome.exitCode) << command << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("damaged")) << command;
    }
    EXPECT_EQ(bytes, bytesOf(in("a")));
    EXPECT_FALSE(fs::exists(in("a.damaged-1")));
    EXPECT_FALSE(fs::exists(in("b")));
}

TEST_P(EitherKind, Diff_ShowsWhatIsOnlyInOneAndWhatDiffers) {
    make("a", isSqlite, radio());
    StoredValues other = radio();
    other[0] = single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 21);
    other[1].path = "Cfg/Radio/Named";
    make("b", !isSqlite, other);
    const Outcome outcome = tool("diff a b");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("- Cfg/Radio/Gain INT32[1] 20\n"
              "+ Cfg/Radio/Gain INT32[1] 21\n"
              "- Cfg/Radio/Name STRING[16] \"north mast\"\n"
              "+ Cfg/Radio/Named STRING[16] \"north mast\"\n",
              outcome.out);
}

struct BadDocument {
    const char *text;
    const char *says;
};

TEST_P(EitherKind, Load_OfABadDocument_SaysWhereAndChangesNothing) {
    make("a", isSqlite, radio());
    const std::string good = R"({"path":"Cfg/Radio/Gain","type":"INT32","count":1,"value":5})";
    const BadDocument documents[] = {
        {"", "no JSON"},
        {"{", "no JSON"},
        {"[]", "no document"},
        {R"({"format":"other","version":1,"variables":[]})", "no document"},
        {R"({"format":"zaf-store","version":2,"variables":[]})", "its version is 2"},
        {R"({"format":"zaf-store","version":1,"variables":{}})", "no document"},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,5]})", "variable 1: it is no object"},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"type":"INT32","count":1,"value":1}]})", "\"path\""},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"OBJECT","count":1,"value":1}]})",
         "\"type\""},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"INT8","count":-1,"value":1}]})",
         "\"count\""},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"INT8","count":1}]})", "\"value\""},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"INT8","count":1,"value":128}]})",
         "128 is no value"},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"UINT8_ARRAY","count":4294967295,"value":[]}]})",
         "more than"},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"STRING","count":2,"value":{"hex":"zz"}}]})",
         "hex"},
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,GOOD]})", "twice"},
    };
    for (const BadDocument &document : documents) {
        std::string text = document.text;
        for (std::size_t at = text.find("GOOD"); at != std::string::npos; at = text.find("GOOD")) {
            text.replace(at, 4, good);
        }
        std::ofstream(in("bad.json")) << text;
        const Outcome outcome = tool("load a bad.json");
        EXPECT_EQ(6, outcome.exitCode) << text;
        EXPECT_THAT(outcome.err, HasSubstr(document.says)) << text;
        EXPECT_THAT(outcome.err, HasSubstr("bad.json"));
    }
    EXPECT_THAT(valuesIn("a", isSqlite), testing::UnorderedElementsAreArray(radio()));
    EXPECT_EQ(3, tool("load a missing.json").exitCode);
    std::ofstream(in("good.json")) << R"({"format":"zaf-store","version":1,"variables":[]})";
    EXPECT_EQ(2, tool("load nothing good.json").exitCode) << "a new store's kind must be named";
}

TEST_F(StoreTool, SeveralLocationsInAFile_MustBeNamed) {
    make("a", true, radio(), 1);
    make("a", true, {single<std::int32_t>("Cal/X", TYPE_INT32, 3)}, 7);
    const Outcome unnamed = tool("list a");
    EXPECT_EQ(2, unnamed.exitCode);
    EXPECT_THAT(unnamed.err, HasSubstr("1 7: say which with --location"));
    EXPECT_EQ("3\n", tool("get a Cal/X --location 7").out);
    EXPECT_EQ(0, tool("set a Cal/X 4 --location 7").exitCode);
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain --location 1").out);
}

TEST_F(StoreTool, TheOnlyLocationInAFile_NeedsNoName) {
    make("a", true, radio(), 42);
    EXPECT_EQ("20\n", tool("get a Cfg/Radio/Gain").out);
    EXPECT_EQ(0, tool("set a Cfg/Radio/Gain 21").exitCode);
    EXPECT_EQ(3u, valuesIn("a", true, 42).size());
}

TEST_F(StoreTool, WhatIsNotThere_IsSaid) {
    make("a", true, radio());
    std::ofstream(in("letter")) << "no store, but a letter of some length";
    EXPECT_EQ(3, tool("list nothing").exitCode);
    EXPECT_EQ(3, tool("get a Cfg/Radio/Loss").exitCode);
    EXPECT_EQ(5, tool("list letter").exitCode);
    EXPECT_EQ(5, tool("set letter P 1").exitCode);
    EXPECT_EQ("no store, but a letter of some length", bytesOf(in("letter")));
    EXPECT_FALSE(fs::exists(in("nothing")));
}

TEST_F(StoreTool, Usage_IsAnExitCodeOfItsOwnAndHelpIsNone) {
    EXPECT_EQ(2, tool("").exitCode);
    EXPECT_EQ(2, tool("frobnicate a").exitCode);
    EXPECT_EQ(2, tool("get a").exitCode);
    EXPECT_EQ(2, tool("convert a b --kind tape").exitCode);
    EXPECT_THAT(tool("--help").out, HasSubstr("Exit codes"));
    for (const char *command : {"list", "get", "set", "dump", "load", "diff", "verify", "convert"}) {
        const Outcome help = tool(std::string(command) + " --help");
        EXPECT_EQ(0, help.exitCode);
        EXPECT_THAT(help.out, HasSubstr("Examples:\n  zaf-store " + std::string(command)));
    }
}

TEST_F(StoreTool, AValueMendedByHandThatDoesNotFit_IsAFaultOfVerify) {
    make("a", true, radio());
    const int status = std::system(
        ("sqlite3 '" + in("a") + "' \"UPDATE variable SET value='high' WHERE path='Cfg/Radio/Gain'\"").c_str());
    ASSERT_EQ(0, status);
    const Outcome outcome = tool("verify a");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("a: 2 values, 1 fault\n", outcome.out);
    EXPECT_THAT(outcome.err, HasSubstr("Cfg/Radio/Gain"));
}

} // namespace
