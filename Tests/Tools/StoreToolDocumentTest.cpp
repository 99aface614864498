// zaf-store dump, load, convert and diff: whole stores that go from one form into another.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "StoreTool.h"

namespace storetool {
namespace {

using testing::HasSubstr;

namespace fs = std::filesystem;

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
        {R"({"format":"zaf-store","version":1,"variables":[GOOD,{"path":"P","type":"DOUBLE","count":1,"value":1e999}]})",
         "variable 1: number overflow parsing '1e999'"},
        {R"({"format":"zaf-store","variables":[GOOD],"version":1e999})", "bad.json: number overflow"},
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

std::string nested(const std::string &open, const std::string &close) {
    constexpr int levels = 200000;
    std::string text;
    for (int i = 0; i < levels; ++i) {
        text += open;
    }
    text += "1";
    for (int i = 0; i < levels; ++i) {
        text += close;
    }
    return text;
}

TEST_P(EitherKind, Load_OfADeeplyNestedDocument_IsRefused) {
    make("a", isSqlite, radio());
    const std::string deep = nested("[", "]");
    const std::string begin = R"({"format":"zaf-store","version":1,"variables":)";
    const std::string documents[] = {
        deep,
        nested(R"({"a":)", "}"),
        R"({"format":)" + deep + R"(,"version":1,"variables":[]})",
        R"({"format":"zaf-store","variables":[],"version":)" + deep + "}",
        begin + deep + "}",
        begin + R"([{"path":"P","type":"INT8","count":1,"value":)" + deep + "}]}",
        begin + R"([{"path":"P","type":"INT8","count":1,"value":)" + nested(R"({"a":)", "}") + "}]}",
        begin + R"([{"path":)" + deep + R"(,"type":"INT8","count":1,"value":1}]})",
    };
    for (const std::string &document : documents) {
        std::ofstream(in("deep.json")) << document;
        const Outcome outcome = tool("load a deep.json");
        EXPECT_EQ(6, outcome.exitCode) << document.substr(0, 80);
        EXPECT_THAT(outcome.err, HasSubstr("deep.json: no document: it is nested deeper than 8 levels"));
    }
}

TEST_P(EitherKind, Load_OfMoreThanAStoreHolds_IsRefusedBeforeItTakesMemory) {
    std::ofstream document(in("large.json"));
    document << R"({"format":"zaf-store","version":1,"variables":[)";
    for (int i = 0; i < 17; ++i) {
        document << (i == 0 ? "" : ",") << R"({"path":"P)" << i << R"(","type":"STRING","count":67108864,"value":""})";
    }
    document << "]}" << std::flush;
    const Outcome outcome = tool("load a large.json --kind " + kind);
    EXPECT_EQ(6, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("variable 16: P16: with it the values have more than 1073741824 bytes"));
    EXPECT_FALSE(fs::exists(in("a")));
}

TEST_P(EitherKind, ANewStoreOfNothing_IsNotMade) {
    std::ofstream(in("empty.json")) << R"({"format":"zaf-store","version":1,"variables":[]})";
    const Outcome loaded = tool("load a empty.json --kind " + kind);
    EXPECT_EQ(6, loaded.exitCode);
    EXPECT_THAT(loaded.err, HasSubstr("empty.json: it holds no values, so no store is made"));
    make("b", true, radio());
    mend("b", "DELETE FROM variable");
    const Outcome converted = tool("convert b c --kind " + kind);
    EXPECT_EQ(6, converted.exitCode);
    EXPECT_THAT(converted.err, HasSubstr("b: it holds no values, so no store is made"));
    for (const char *left : {"a", "a.lock", "c", "c.lock"}) {
        EXPECT_FALSE(fs::exists(in(left))) << left;
    }
}

TEST_P(EitherKind, Load_OfNothingIntoAStore_ChangesNothing) {
    make("a", isSqlite, radio());
    std::ofstream(in("empty.json")) << R"({"format":"zaf-store","version":1,"variables":[]})";
    EXPECT_EQ("0 values read, 0 written\n", tool("load a empty.json").out);
    EXPECT_THAT(valuesIn("a", isSqlite), testing::UnorderedElementsAreArray(radio()));
}

TEST_P(EitherKind, ANewStoreInAMissingFolder_CanNotBeWritten) {
    make("a", isSqlite, radio());
    const Outcome outcome = tool("convert a missing/b --kind " + kind);
    EXPECT_EQ(7, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("folder"));
}

TEST_P(EitherKind, ANewStoreBesideAnOldGeneration_IsRefused) {
    make("a", isSqlite, radio());
    make("y", false, everySort());
    fs::rename(in("y"), in("y.1"));
    fs::remove(in("y.lock"));
    const std::string before = bytesOf(in("y.1"));
    const Outcome converted = tool("convert a y --kind " + kind);
    EXPECT_EQ(2, converted.exitCode);
    EXPECT_THAT(converted.err, HasSubstr("y.1 is there"));
    ASSERT_EQ(0, tool("dump a a.json").exitCode);
    const Outcome loaded = tool("load y a.json --kind " + kind);
    EXPECT_EQ(2, loaded.exitCode);
    EXPECT_THAT(loaded.err, HasSubstr("y.1 is there"));
    EXPECT_FALSE(fs::exists(in("y")));
    EXPECT_FALSE(fs::exists(in("y.lock")));
    EXPECT_EQ(before, bytesOf(in("y.1")));
}

TEST_P(EitherKind, DumpAndConvert_OntoTheStoreItself_AreRefused) {
    make("a", isSqlite, radio());
    make("a", isSqlite, {single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 21)});
    fs::create_symlink("a", in("soft"));
    fs::create_hard_link(in("a"), in("hard"));
    const std::string before = bytesOf(in("a"));
    for (const char *file : {"a", "./a", "soft", "hard", "a.1", "a.lock", "a-journal", "a.new"}) {
        const Outcome dumped = tool(std::string("dump a ") + file);
        EXPECT_EQ(2, dumped.exitCode) << file;
        EXPECT_THAT(dumped.err, HasSubstr("belongs to the store itself")) << file;
    }
    EXPECT_EQ(2, tool("dump soft a.1").exitCode);
    EXPECT_EQ(2, tool("convert a a-journal --kind " + kind).exitCode);
    EXPECT_EQ(before, bytesOf(in("a")));
    EXPECT_THAT(valuesIn("a", isSqlite), testing::Contains(single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 21)));
}

TEST_F(StoreTool, Dump_ReplacesAFileWholeAndKeepsItsModeAndLinks) {
    make("a", true, radio());
    std::ofstream(in("out.json")) << std::string(100000, 'x');
    fs::permissions(in("out.json"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("out.json", in("link.json"));
    EXPECT_EQ(0, tool("dump a link.json").exitCode);
    EXPECT_EQ(tool("dump a").out, bytesOf(in("out.json")));
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(in("out.json")).permissions());
    EXPECT_TRUE(fs::is_symlink(in("link.json")));
}

// A link that could not be followed to a file was taken for none, and replaced.
TEST_F(StoreTool, Dump_KeepsALinkWhoseFileIsNotThereYet_AndOneThatLeadsNowhere) {
    make("a", true, radio());
    fs::create_symlink("new.json", in("link.json"));
    EXPECT_EQ(0, tool("dump a link.json").exitCode);
    EXPECT_TRUE(fs::is_symlink(in("link.json")));
    EXPECT_EQ(tool("dump a").out, bytesOf(in("new.json")));
    fs::create_symlink("circle.json", in("circle.json"));
    const Outcome outcome = tool("dump a circle.json");
    EXPECT_EQ(5, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("circle.json"));
    EXPECT_TRUE(fs::is_symlink(in("circle.json")));
}

TEST_F(StoreTool, Dump_ThatFails_LeavesTheFileAsItWas) {
    make("a", true, everySort());
    std::ofstream(in("out.json")) << "precious";
    const Outcome outcome = run("trap '' XFSZ; ulimit -f 4; zaf-store dump a out.json");
    EXPECT_EQ(7, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("out.json: it can not be written (File too large)"));
    EXPECT_EQ("precious", bytesOf(in("out.json")));
    for (const auto &entry : fs::directory_iterator(in(""))) {
        EXPECT_THAT(entry.path().filename().string(), testing::Not(HasSubstr(".new-")));
    }
    EXPECT_EQ(7, tool("dump a missing/out.json").exitCode);
}

TEST_F(StoreTool, Dump_WritesThroughAPipe) {
    make("a", true, radio());
    EXPECT_EQ(0,
              run("mkfifo p; timeout 60 cat p >got & timeout 60 zaf-store dump a p; r=$?; wait; (exit $r)").exitCode);
    EXPECT_EQ(tool("dump a").out, bytesOf(in("got")));
    EXPECT_EQ(tool("dump a").out, run("zaf-store dump a /dev/stdout | cat").out);
    EXPECT_EQ(7, tool("dump a /dev/full").exitCode);
}

TEST_F(StoreTool, WhatCopiesAStoreWithAFault_CopiesTheRestAndSaysWhich) {
    make("a", true, radio());
    ASSERT_EQ(0, tool("convert a whole --kind sqlite").exitCode);
    mend("a", "UPDATE variable SET value='junk' WHERE path='Cfg/Radio/Gain'");
    for (const char *command : {"dump a", "dump a a.json", "list a", "list --json a", "convert a b --kind file",
                                "convert a c --kind sqlite", "diff a a", "diff b a"}) {
        const Outcome outcome = tool(command);
        EXPECT_EQ(1, outcome.exitCode) << command;
        EXPECT_THAT(outcome.err, HasSubstr("Cfg/Radio/Gain")) << command;
    }
    EXPECT_EQ(2u, valuesIn("b", false).size());
    EXPECT_EQ(2u, valuesIn("c", true).size());
    EXPECT_EQ(0, tool("dump b").exitCode);
    EXPECT_EQ(0, tool("get a Cfg/Radio/Name").exitCode);
}

} // namespace
} // namespace storetool
