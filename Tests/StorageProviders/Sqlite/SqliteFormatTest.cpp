// What the page of the format promises to whoever opens a store with the sqlite3 program.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "SqliteStore.h"
#include "StoreSupport.h"
#include "VariableType.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValue;
using storage::StoredValues;
using test::int32Value;
using test::stringValue;
using test::valueOf;
using testing::HasSubstr;

constexpr double infinity = std::numeric_limits<double>::infinity();

class SqliteFormatTest : public test::SqliteStores {
protected:
    std::string ask(const std::string &statements) { return test::sqlite3Program(file, statements); }

    /// What the program shows of the value of a variable, with its storage class.
    std::string shown(const StoredValue &value) {
        store({value});
        return ask("SELECT typeof(value), value FROM variable WHERE path='" + value.path + "';");
    }

    /// Mends a stored value by hand and reads it.
    StoredValues mended(const StoredValue &value, const std::string &sqlValue) {
        store({value});
        EXPECT_EQ("", ask("UPDATE variable SET value=" + sqlValue + " WHERE path='" + value.path + "';"));
        report.lines.clear();
        return stored();
    }
};

TEST_F(SqliteFormatTest, TheFile_TellsWhatItIs) {
    store({int32Value("Cfg/Radio/Gain", -7)}, 3);
    EXPECT_EQ("1514227283\n", ask("PRAGMA application_id;")) << "ZAFS";
    EXPECT_EQ("1\n", ask("PRAGMA user_version;"));
    EXPECT_EQ("UTF-8\n", ask("PRAGMA encoding;"));
    EXPECT_EQ("id|INTEGER|0|1\nlocation|INTEGER|1|0\npath|TEXT|1|0\ntype|TEXT|1|0\ncount|INTEGER|1|0\nvalue||0|0\n",
              ask("SELECT name,type,\"notnull\",pk FROM pragma_table_info('variable');"));
    EXPECT_EQ("1|3|Cfg/Radio/Gain|INT32|1|-7\n", ask("SELECT * FROM variable;"));
}

TEST_F(SqliteFormatTest, NumbersAreNumbers) {
    EXPECT_EQ("integer|-128\n", shown(valueOf<std::int8_t>("A", TYPE_INT8, {-128})));
    EXPECT_EQ("integer|4294967295\n", shown(valueOf<std::uint32_t>("B", TYPE_UINT32, {0xFFFFFFFF})));
    EXPECT_EQ("integer|2\n", shown(valueOf<std::uint32_t>("C", TYPE_BOOL, {2})));
    EXPECT_EQ("integer|200\n", shown(valueOf<std::uint8_t>("D", TYPE_CHAR, {200})));
    EXPECT_EQ("real|1.5\n", shown(valueOf<float>("E", TYPE_FLOAT, {1.5F})));
    EXPECT_EQ("real|0.1\n", shown(valueOf<double>("F", TYPE_DOUBLE, {0.1})));
    EXPECT_EQ("real|Inf\n", shown(valueOf<double>("G", TYPE_DOUBLE, {infinity})));
    EXPECT_EQ("text|nan:7fc00000\n", shown(valueOf<float>("H", TYPE_FLOAT, {std::nanf("")})));
    EXPECT_EQ("text|nan:7ff8000000000000\n", shown(valueOf<double>("I", TYPE_DOUBLE, {std::nan("")})));
}

TEST_F(SqliteFormatTest, StringsAreText_UnlessTheyCanNotBe) {
    using namespace std::literals;
    EXPECT_EQ("text|SN-0042\n", shown(stringValue("A", "SN-0042\0\0\0"s)));
    EXPECT_EQ("text|\xc3\xa5\n", shown(stringValue("B", "\xc3\xa5")));
    EXPECT_EQ("text|\n", shown(stringValue("C", "")));
    store({stringValue("D", "a\0b"s), stringValue("E", "\xff")});
    EXPECT_EQ("blob|610062\nblob|FF\n",
              ask("SELECT typeof(value), hex(value) FROM variable WHERE path IN ('D','E') ORDER BY path;"));
}

TEST_F(SqliteFormatTest, ArraysAreJson) {
    EXPECT_EQ("text|[1,-2,3]\n", shown(valueOf<std::int16_t>("A", TYPE_INT16_ARRAY, {1, -2, 3})));
    EXPECT_EQ("text|[]\n", shown(valueOf<std::int8_t>("B", TYPE_INT8_ARRAY, {})));
    EXPECT_EQ("text|[72,105]\n", shown(valueOf<char>("C", TYPE_CHAR_ARRAY, {'H', 'i'})));
    EXPECT_EQ("text|[0.1,-0,\"inf\",\"-inf\",\"nan:7fc00000\"]\n",
              shown(valueOf<float>("D", TYPE_FLOAT_ARRAY, {0.1F, -0.0F, INFINITY, -INFINITY, std::nanf("")})));
    EXPECT_EQ("3\n", ask("SELECT json_extract(value,'$[2]') FROM variable WHERE path='A';"));
}

TEST_F(SqliteFormatTest, APathThatIsNoUtf8_IsABlob) {
    store({int32Value("R/\xff", 1), int32Value("R/\xc3\xa5", 2)});
    EXPECT_EQ("blob|522FFF\ntext|522FC3A5\n", ask("SELECT typeof(path), hex(path) FROM variable ORDER BY id;"));
}

TEST_F(SqliteFormatTest, AMendedValueThatFits_IsTaken) {
    const struct {
        StoredValue value;
        const char *sql;
        StoredValue expected;
    } rows[] = {
        {int32Value("V", 1), "5", int32Value("V", 5)},
        {int32Value("V", 1), "value*-40", int32Value("V", -40)},
        {int32Value("V", 1), "'-12'", int32Value("V", -12)},
        {int32Value("V", 1), "-2147483648", int32Value("V", -2147483647 - 1)},
        {valueOf<std::uint8_t>("V", TYPE_UINT8, {1}), "255", valueOf<std::uint8_t>("V", TYPE_UINT8, {255})},
        {valueOf<std::uint32_t>("V", TYPE_BOOL, {0}), "TRUE", valueOf<std::uint32_t>("V", TYPE_BOOL, {1})},
        {valueOf<float>("V", TYPE_FLOAT, {1}), "2", valueOf<float>("V", TYPE_FLOAT, {2})},
        {valueOf<float>("V", TYPE_FLOAT, {1}), "0.1", valueOf<float>("V", TYPE_FLOAT, {0.1F})},
        {valueOf<double>("V", TYPE_DOUBLE, {1}), "'1e-3'", valueOf<double>("V", TYPE_DOUBLE, {1e-3})},
        {valueOf<double>("V", TYPE_DOUBLE, {1}), "'-inf'", valueOf<double>("V", TYPE_DOUBLE, {-infinity})},
        {stringValue("V", "12345"), "'ab'", stringValue("V", std::string("ab\0\0\0", 5))},
        {stringValue("V", "12345"), "'54321'", stringValue("V", "54321")},
        {stringValue("V", ""), "x''", stringValue("V", "")},
        {stringValue("V", "12345"), "x'0001020304'", stringValue("V", std::string("\0\1\2\3\4", 5))},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "' [ -1 ,\n 127 ] '",
         valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {-1, 127})},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "json_array(3,4)",
         valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {3, 4})},
        {valueOf<double>("V", TYPE_DOUBLE_ARRAY, {1, 2}), "'[1e3,\"inf\"]'",
         valueOf<double>("V", TYPE_DOUBLE_ARRAY, {1000, infinity})},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(StoredValues{row.expected}, mended(row.value, row.sql)) << row.sql;
        EXPECT_EQ("", report.warnings()) << row.sql;
    }
}

TEST_F(SqliteFormatTest, AMendedValueThatDoesNotFit_IsReportedAndCountsAsNotStored) {
    const struct {
        StoredValue value;
        const char *sql;
        const char *found;
    } rows[] = {
        {int32Value("V", 1), "2147483648", "holds 2147483648, which does not fit INT32[1]"},
        {int32Value("V", 1), "1.5", "holds 1.5, which does not fit"},
        {int32Value("V", 1), "'12a'", "holds '12a', which does not fit"},
        {int32Value("V", 1), "''", "holds '', which does not fit"},
        {int32Value("V", 1), "NULL", "holds NULL, which does not fit"},
        {int32Value("V", 1), "x'01'", "holds a blob of 1 bytes, which does not fit"},
        {valueOf<std::uint8_t>("V", TYPE_UINT8, {1}), "-1", "holds -1, which does not fit UINT8[1]"},
        {valueOf<std::uint8_t>("V", TYPE_CHAR, {1}), "256", "holds 256, which does not fit CHAR[1]"},
        {valueOf<std::uint32_t>("V", TYPE_BOOL, {1}), "4294967296", "which does not fit BOOL[1]"},
        {valueOf<float>("V", TYPE_FLOAT, {1}), "1e39", "holds 1e+39, which does not fit FLOAT[1]"},
        {valueOf<float>("V", TYPE_FLOAT, {1}), "'1e39'", "holds '1e39', which does not fit FLOAT[1]"},
        {valueOf<double>("V", TYPE_DOUBLE, {1}), "'nan:0000000000000000'", "which does not fit DOUBLE[1]"},
        {valueOf<double>("V", TYPE_DOUBLE, {1}), "'nan:quiet'", "which does not fit DOUBLE[1]"},
        {valueOf<double>("V", TYPE_DOUBLE, {1}), "'nan:7ff8000000000000.'", "which does not fit DOUBLE[1]"},
        {valueOf<float>("V", TYPE_FLOAT, {1}), "'nan:'", "holds 'nan:', which does not fit FLOAT[1]"},
        {valueOf<float>("V", TYPE_FLOAT, {1}), "'nan:7fc00000 '", "which does not fit FLOAT[1]"},
        {valueOf<double>("V", TYPE_DOUBLE, {1}), "x'00'", "a blob of 1 bytes, which does not fit DOUBLE[1]"},
        {stringValue("V", "12"), "'123'", "holds a text of 3 bytes, which does not fit STRING[2]"},
        {stringValue("V", "12"), "x'00'", "holds a blob of 1 bytes, which does not fit STRING[2]"},
        {stringValue("V", "12"), "x''", "holds a blob of 0 bytes, which does not fit STRING[2]"},
        {stringValue("V", "12"), "12", "holds 12, which does not fit STRING[2]"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1,128]'", "holds element 1 is 128, which"},
        {valueOf<std::uint8_t>("V", TYPE_UINT8_ARRAY, {1, 2}), "'[1,2x]'", "holds element 1 is 2x, which"},
        {valueOf<std::int32_t>("V", TYPE_INT32_ARRAY, {1, 2}), "'[1,2x]'", "holds element 1 is 2x, which"},
        {valueOf<std::uint16_t>("V", TYPE_UINT16_ARRAY, {1, 2}), "'[1,2.]'", "holds element 1 is 2., which"},
        {valueOf<double>("V", TYPE_DOUBLE_ARRAY, {1, 2}), "'[1,2x]'", "holds element 1 is 2x, which"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1]'", "holds an array of 1, which"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1,2,3]'", "holds an array of 3, which"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1,2'", "holds no array like [1,2,3] but [1,2,"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1,2]]'", "holds no array like"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'1,2'", "holds no array like"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1,,2]'", "holds element 1 is , which"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "'[1,\"2]'", "holds no array like"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1, 2}), "''", "holds no array like"},
        {valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1}), "1", "holds 1, which"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(StoredValues{}, mended(row.value, row.sql)) << row.sql;
        const std::string warnings = report.warnings();
        EXPECT_THAT(warnings, HasSubstr(file + ": V (row 1) ")) << row.sql;
        EXPECT_THAT(warnings, HasSubstr(row.found)) << row.sql;
        EXPECT_THAT(warnings, HasSubstr("it counts as not stored: mend the row")) << row.sql;
        EXPECT_EQ(1, std::count(warnings.begin(), warnings.end(), '\n')) << row.sql;
        // A store replaces what did not fit.
        store({row.value});
        EXPECT_EQ(StoredValues{row.value}, stored()) << row.sql;
    }
}

TEST_F(SqliteFormatTest, WhatStandsAroundANumber_FitsNoType) {
    const StoredValue values[] = {
        valueOf<std::int8_t>("V", TYPE_INT8, {1}),     valueOf<std::int8_t>("V", TYPE_INT8_ARRAY, {1}),
        valueOf<std::uint8_t>("V", TYPE_UINT8, {1}),   valueOf<std::uint8_t>("V", TYPE_UINT8_ARRAY, {1}),
        valueOf<std::int16_t>("V", TYPE_INT16, {1}),   valueOf<std::int16_t>("V", TYPE_INT16_ARRAY, {1}),
        valueOf<std::uint16_t>("V", TYPE_UINT16, {1}), valueOf<std::uint16_t>("V", TYPE_UINT16_ARRAY, {1}),
        valueOf<std::int32_t>("V", TYPE_INT32, {1}),   valueOf<std::int32_t>("V", TYPE_INT32_ARRAY, {1}),
        valueOf<std::uint32_t>("V", TYPE_UINT32, {1}), valueOf<std::uint32_t>("V", TYPE_UINT32_ARRAY, {1}),
        valueOf<float>("V", TYPE_FLOAT, {1}),          valueOf<float>("V", TYPE_FLOAT_ARRAY, {1}),
        valueOf<double>("V", TYPE_DOUBLE, {1}),        valueOf<double>("V", TYPE_DOUBLE_ARRAY, {1}),
    };
    for (const StoredValue &value : values) {
        const bool isArray = storage::isArray(value.type);
        for (const std::string &text :
             std::vector<std::string>{"x2", "2x", "2 3", "nan:7fc00001x", "nan:7ff8000000000001x"}) {
            const std::string sql = isArray && text[0] != 'n' ? "'[" + text + "]'"
                                    : isArray                 ? "'[\"" + text + "\"]'"
                                                              : "'" + text + "'";
            EXPECT_EQ(StoredValues{}, mended(value, sql)) << sql;
            const std::string name(storage::typeName(value.type));
            EXPECT_THAT(report.warnings(), HasSubstr(text)) << sql;
            EXPECT_THAT(report.warnings(), HasSubstr("which does not fit " + name + "[1]; it counts as not stored"))
                << sql;
        }
    }
}

TEST_F(SqliteFormatTest, AMendedTypeOrCountThatIsNone_IsReportedAndCountsAsNotStored) {
    const struct {
        const char *sql;
        const char *found;
    } rows[] = {
        {"type='INT33'", "is of type 'INT33', which no store keeps"},
        {"type=''", "is of type '', which no store keeps"},
        {"type='OBJECT'", "is of type 'OBJECT', which no store keeps"},
        {"count=-1", "has a count that is no number of elements"},
        {"count=4294967296", "has a count that is no number of elements"},
        {"count='many'", "has a count that is no number of elements"},
        {"count=4294967295,type='STRING',value='a'", "holds 4294967295 elements, more than a store keeps"},
        {"path=CAST('V' AS BLOB)", "has a path that is text though it is no UTF-8, or a blob though it is"},
    };
    for (const auto &row : rows) {
        store({int32Value("V", 1)});
        EXPECT_EQ("", ask(std::string("UPDATE variable SET ") + row.sql + ";"));
        report.lines.clear();
        EXPECT_EQ(StoredValues{}, stored()) << row.sql;
        EXPECT_THAT(report.warnings(), HasSubstr(row.found)) << row.sql;
        ask("UPDATE variable SET path='V';");
        store({int32Value("V", 2)});
        EXPECT_EQ(StoredValues{int32Value("V", 2)}, stored()) << row.sql;
    }
}

TEST_F(SqliteFormatTest, ARowThatWasAddedByHand_IsRead) {
    store({int32Value("A", 1)}, 7);
    EXPECT_EQ("",
              ask("INSERT INTO variable(location,path,type,count,value) VALUES(7,'B','DOUBLE_ARRAY',2,'[1,2.5]');"));
    EXPECT_EQ((StoredValues{int32Value("A", 1), valueOf<double>("B", TYPE_DOUBLE_ARRAY, {1, 2.5})}), stored(7));
    EXPECT_EQ("", report.warnings());
}

TEST_F(SqliteFormatTest, RowsThatChangeHandsWhileAStoreIsOpen_AreNotMixedUp) {
    store({int32Value("A", 1), int32Value("B", 2)});
    {
        SqliteStore open(file, 1);
        StoredValues values;
        ASSERT_EQ(eAF_S_OK, open.open(Access::readWrite, report));
        ASSERT_EQ(eAF_S_OK, open.read(values, report));
        EXPECT_EQ("", ask("DELETE FROM variable WHERE path='B';"
                          "INSERT INTO variable(location,path,type,count,value) VALUES(1,'C','INT32',1,30),"
                          "(1,'D','INT32',1,40);"));
        ASSERT_EQ(eAF_S_OK, open.write({int32Value("A", 11), int32Value("B", 12), int32Value("D", 14)}, report));
    }
    EXPECT_EQ((StoredValues{int32Value("A", 11), int32Value("B", 12), int32Value("C", 30), int32Value("D", 14)}),
              stored());
}

TEST_F(SqliteFormatTest, AStoreThatWasPutIntoWalMode_IsTakenBack) {
    store({int32Value("A", 1)});
    EXPECT_EQ("wal\n", ask("PRAGMA journal_mode=WAL;"));
    EXPECT_EQ(StoredValues{int32Value("A", 1)}, stored());
    store({int32Value("A", 2)});
    EXPECT_EQ("delete\n", ask("PRAGMA journal_mode;")) << "what a rollback journal is called from outside";
    EXPECT_EQ(StoredValues{int32Value("A", 2)}, stored());
}

TEST_F(SqliteFormatTest, AReaderOfAStoreInWalMode_MakesItsTwoFilesAndChangesNothingElse) {
    store({int32Value("A", 1)});
    ask("PRAGMA journal_mode=WAL;");
    const std::string before = test::contentsOf(file);
    {
        SqliteStore reader(file, 1);
        StoredValues values;
        EXPECT_EQ(eAF_S_OK, reader.open(Access::readOnly, report));
        EXPECT_EQ(eAF_S_OK, reader.read(values, report));
        EXPECT_EQ(StoredValues{int32Value("A", 1)}, values);
    }
    EXPECT_TRUE(before == test::contentsOf(file));
    EXPECT_EQ("", test::contentsOf(file + "-wal"));
    EXPECT_THAT(folder.names(), testing::IsSupersetOf({"store.db", "store.db-shm", "store.db-wal"}));
}

TEST_F(SqliteFormatTest, AnUnfinishedTransactionOfTheProgram_IsWaitedForAndThenSaid) {
    store({int32Value("A", 1)});
    sqlite3 *other = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &other));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
    SqliteStore store(file, 1);
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, store.open(Access::readWrite, report));
    EXPECT_THAT(report.errors(), HasSubstr(file + ": another process has locked it"));
    ASSERT_EQ(SQLITE_OK, sqlite3_close(other));
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
}

TEST_F(SqliteFormatTest, AProgramThatWritesWhileAStoreIsOpen_IsSaidAndTheNextStoreGoesOn) {
    store({int32Value("A", 1)});
    SqliteStore open(file, 1);
    StoredValues values;
    ASSERT_EQ(eAF_S_OK, open.open(Access::readWrite, report));
    ASSERT_EQ(eAF_S_OK, open.read(values, report));
    sqlite3 *other = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &other));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, open.write({int32Value("A", 2)}, report));
    ASSERT_EQ(SQLITE_OK, sqlite3_close(other));
    EXPECT_EQ(eAF_S_OK, open.write({int32Value("A", 2)}, report));
    EXPECT_EQ(eAF_S_OK, open.read(values, report));
    EXPECT_EQ(StoredValues{int32Value("A", 2)}, values);
}

/// The commands that the page shows on its example store, each with what is printed below it.
std::vector<std::pair<std::string, std::string>> sessionOfThePage() {
    std::ifstream page(ZELAF_SQLITE_PAGE);
    std::vector<std::pair<std::string, std::string>> session;
    const std::string command = "    $ sqlite3 parameters.db ";
    bool isOutput = false;
    for (std::string line; std::getline(page, line);) {
        if (line.compare(0, command.size(), command) == 0) {
            session.emplace_back(line.substr(command.size()), "");
            isOutput = true;
        } else if (isOutput && line.compare(0, 4, "    ") == 0) {
            session.back().second += line.substr(4) + "\n";
        } else {
            isOutput = false;
        }
    }
    return session;
}

TEST_F(SqliteFormatTest, TheSessionOfThePage_IsWhatTheProgramShows) {
    using namespace std::literals;
    store({int32Value("Cfg/Radio/Gain", 20), stringValue("Cfg/Radio/Serial", "SN-0042\0\0\0\0\0\0\0\0\0"s),
           valueOf<std::uint32_t>("Cfg/Radio/Carriers", TYPE_UINT32_ARRAY, {2110000, 2112500, 2115000})});
    const auto session = sessionOfThePage();
    ASSERT_EQ(3u, session.size());
    for (const auto &[command, output] : session) {
        ASSERT_EQ('"', command.front());
        EXPECT_EQ(output, ask(command.substr(1, command.size() - 2) + ";")) << command;
    }
    EXPECT_EQ(
        (StoredValues{valueOf<std::uint32_t>("Cfg/Radio/Carriers", TYPE_UINT32_ARRAY, {2110000, 2112500, 2117500}),
                      int32Value("Cfg/Radio/Gain", 5), stringValue("Cfg/Radio/Serial", "SN-0042\0\0\0\0\0\0\0\0\0"s)}),
        stored());
}

TEST_F(SqliteFormatTest, AStoreThatWentThroughADump_IsTakenUpOnceItsPragmasAreSet) {
    store({int32Value("A", 1), stringValue("B\xff", "\xff")});
    const std::string dump = ask(".dump");
    std::filesystem::remove(file);
    ask(dump);
    {
        SqliteStore refused(file, 1);
        EXPECT_EQ(eAF_E_INVALID_ARGUMENT, refused.open(Access::readWrite, report));
    }
    ask("PRAGMA application_id=1514227283; PRAGMA user_version=1;");
    EXPECT_EQ((StoredValues{int32Value("A", 1), stringValue("B\xff", "\xff")}), stored());
}

} // namespace
