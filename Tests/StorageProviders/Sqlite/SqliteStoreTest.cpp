#include "SqliteStore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <limits>

#include "StoreSupport.h"
#include "VariableType.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValue;
using storage::StoredValues;
using test::int32Value;
using test::sorted;
using test::stringValue;
using test::valueOf;
using testing::HasSubstr;
using testing::IsEmpty;

template <class Real>
Real fromBits(std::conditional_t<sizeof(Real) == 4, std::uint32_t, std::uint64_t> bits) {
    Real real{};
    std::memcpy(&real, &bits, sizeof(real));
    return real;
}

template <class Integer>
std::vector<Integer> integers() {
    return {std::numeric_limits<Integer>::min(), Integer{0}, Integer{1}, std::numeric_limits<Integer>::max()};
}

template <class Real>
std::vector<Real> reals() {
    using Limits = std::numeric_limits<Real>;
    std::vector<Real> all{Real{0},
                          -Real{0},
                          Real{1} / 3,
                          Limits::max(),
                          Limits::lowest(),
                          Limits::min(),
                          -Limits::min(),
                          Limits::denorm_min(),
                          Limits::infinity(),
                          -Limits::infinity(),
                          Limits::quiet_NaN(),
                          -Limits::quiet_NaN(),
                          static_cast<Real>(1e15),
                          static_cast<Real>(123456789)};
    if constexpr (sizeof(Real) == 4) {
        all.insert(all.end(), {fromBits<Real>(0x7fc12345), fromBits<Real>(0x7f800001), fromBits<Real>(0xff923456)});
    } else {
        all.insert(all.end(), {fromBits<Real>(0x7ff8123456789abc), fromBits<Real>(0x7ff0000000000001),
                               fromBits<Real>(0xfff4000000000000), Real{9007199254740993.0}});
    }
    return all;
}

/// Each element as a value of its own, and all of them as an array.
template <class Element>
void addAll(StoredValues &values, EVariableType single, EVariableType array, const std::vector<Element> &elements) {
    const std::string name = "R/O/" + std::string(storage::typeName(single));
    for (std::size_t i = 0; i < elements.size(); ++i) {
        values.push_back(valueOf<Element>(name + std::to_string(i), single, {elements[i]}));
    }
    values.push_back(valueOf<Element>(name + "_ARRAY", array, elements));
    values.push_back(valueOf<Element>(name + "_EMPTY", array, {}));
}

StoredValues everyType() {
    StoredValues values;
    addAll(values, TYPE_INT8, TYPE_INT8_ARRAY, integers<std::int8_t>());
    addAll(values, TYPE_INT16, TYPE_INT16_ARRAY, integers<std::int16_t>());
    addAll(values, TYPE_INT32, TYPE_INT32_ARRAY, integers<std::int32_t>());
    addAll(values, TYPE_UINT8, TYPE_UINT8_ARRAY, integers<std::uint8_t>());
    addAll(values, TYPE_UINT16, TYPE_UINT16_ARRAY, integers<std::uint16_t>());
    addAll(values, TYPE_UINT32, TYPE_UINT32_ARRAY, integers<std::uint32_t>());
    addAll<std::uint32_t>(values, TYPE_BOOL, TYPE_BOOL_ARRAY, {0, 1, 2, 0x80000000, 0xFFFFFFFF});
    addAll<char>(values, TYPE_CHAR, TYPE_CHAR_ARRAY, {'\0', 'A', '"', '\x7f', '\x80', '\xff'});
    addAll(values, TYPE_FLOAT, TYPE_FLOAT_ARRAY, reals<float>());
    addAll(values, TYPE_DOUBLE, TYPE_DOUBLE_ARRAY, reals<double>());
    return values;
}

class SqliteStoreTest : public test::SqliteStores {
protected:
    void expectKept(const StoredValues &values) {
        store(values);
        const StoredValues read = stored();
        const StoredValues expected = sorted(values);
        ASSERT_EQ(expected.size(), read.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(expected[i], read[i]);
        }
        EXPECT_EQ("", report.warnings());
        EXPECT_EQ("", report.errors());
    }
};

TEST_F(SqliteStoreTest, EveryType_AtItsExtremes_ComesBackBitByBit) {
    expectKept(everyType());
}

TEST_F(SqliteStoreTest, AStringOfAnyBytes_ComesBackBitByBit) {
    using namespace std::literals;
    const std::string strings[] = {""s,
                                   "text"s,
                                   "padded\0\0\0"s,
                                   "\0"s,
                                   "a\0b"s,
                                   "\0hidden"s,
                                   "quo'te"s,
                                   "\"\\%s\n\t\r"s,
                                   "\xc3\xa5\xe2\x82\xac"s,
                                   "\xff\xfe"s,
                                   "\xc0\x80"s,
                                   "\xed\xa0\x80"s,
                                   "cut \xe2\x82"s,
                                   "\xf4\x90\x80\x80"s,
                                   "\xf0\x9f\x93\xa1"s,
                                   "\xef\xbb\xbf bom"s,
                                   "12"s,
                                   "NULL"s};
    StoredValues values;
    for (const std::string &string : strings) {
        values.push_back(stringValue("R/O/S" + std::to_string(values.size()), string));
    }
    expectKept(values);
}

TEST_F(SqliteStoreTest, APathOfAnyBytes_IsFoundAgain) {
    StoredValues values;
    for (const char *path : {"R/O/with blank", "R/O/quo'te\"s", "R/O/percent %s%n", "R/O/slash/slash//",
                             "R/O/line\nbreak\t", "R/O/\xc3\xa5", "R/O/\xff\xfe", "R/O/\xc3", "1", "1.0",
                             "'; DROP TABLE variable;--", "R/O/A", "R/O/a", "\xef\xbb\xbfR"}) {
        values.push_back(int32Value(path, static_cast<std::int32_t>(values.size())));
    }
    values.push_back(int32Value(std::string(511, 'p'), 1));
    expectKept(values);
    for (StoredValue &value : values) {
        value.content[0] ^= 0x40;
    }
    expectKept(values);
}

TEST_F(SqliteStoreTest, AMegabyte_ComesBack) {
    std::vector<std::uint8_t> bytes(1 << 20);
    std::vector<double> numbers((1 << 20) / sizeof(double));
    std::uint32_t seed = 1;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        seed = seed * 1664525u + 1013904223u;
        bytes[i] = static_cast<std::uint8_t>(seed >> 24);
        numbers[i / sizeof(double)] = std::sqrt(static_cast<double>(seed));
    }
    expectKept({valueOf("R/O/B", TYPE_UINT8_ARRAY, bytes), valueOf("R/O/D", TYPE_DOUBLE_ARRAY, numbers),
                stringValue("R/O/S", std::string(1 << 20, 's')), stringValue("R/O/R", {bytes.begin(), bytes.end()})});
}

TEST_F(SqliteStoreTest, AnElementCountOfASingleValue_IsKeptAsItIs) {
    StoredValue zero = int32Value("R/O/Zero", 5);
    zero.noOfElements = 0;
    StoredValue many = int32Value("R/O/Many", 6);
    many.noOfElements = 0xFFFFFFFF;
    expectKept({zero, many});
}

TEST_F(SqliteStoreTest, Open_WithoutAFile_IsEmptyAndMakesNone) {
    SqliteStore store(file, 1);
    StoredValues values{int32Value("left", 1)};
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    EXPECT_EQ(eAF_S_OK, store.read(values, report));
    EXPECT_EQ(StoredValues{}, values);
    EXPECT_EQ(eAF_S_OK, store.write({}, report));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_THAT(report.lines, IsEmpty());
}

TEST_F(SqliteStoreTest, OpenReadOnly_WithoutAFile_LeavesTheFolderEmpty) {
    SqliteStore store(file, 1);
    StoredValues values;
    EXPECT_EQ(eAF_S_OK, store.open(Access::readOnly, report));
    EXPECT_EQ(eAF_S_OK, store.read(values, report));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(SqliteStoreTest, Open_OfAnEmptyFile_IsAnEmptyStoreThatCanBeFilled) {
    test::writeFile(file, "");
    EXPECT_EQ(StoredValues{}, stored());
    store({int32Value("R/O/V", 1)});
    EXPECT_EQ(1u, stored().size());
}

TEST_F(SqliteStoreTest, Write_AddsAndReplacesAndLeavesTheRest) {
    store({int32Value("R/O/A", 1), int32Value("R/O/B", 2)});
    store({int32Value("R/O/B", 3), stringValue("R/O/C", "new")});
    EXPECT_EQ((StoredValues{int32Value("R/O/A", 1), int32Value("R/O/B", 3), stringValue("R/O/C", "new")}), stored());
}

TEST_F(SqliteStoreTest, Write_OfAnotherTypeAndCount_ReplacesTheRow) {
    store({int32Value("R/O/A", 1)});
    store({valueOf<double>("R/O/A", TYPE_DOUBLE_ARRAY, {1.5, 2.5})});
    EXPECT_EQ((StoredValues{valueOf<double>("R/O/A", TYPE_DOUBLE_ARRAY, {1.5, 2.5})}), stored());
}

TEST_F(SqliteStoreTest, Write_OfOnePathTwice_KeepsTheLast) {
    store({int32Value("R/O/A", 1), int32Value("R/O/A", 2)});
    EXPECT_EQ(StoredValues{int32Value("R/O/A", 2)}, stored());
}

TEST_F(SqliteStoreTest, ManyWritesOfOneStore_EachCount) {
    SqliteStore store(file, 1);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    for (std::int32_t i = 0; i < 20; ++i) {
        ASSERT_EQ(eAF_S_OK, store.write({int32Value("R/O/A", i), int32Value("R/O/" + std::to_string(i), i)}, report));
        StoredValues values;
        ASSERT_EQ(eAF_S_OK, store.read(values, report));
        EXPECT_EQ(static_cast<std::size_t>(i) + 2, values.size());
    }
}

TEST_F(SqliteStoreTest, Write_OfAValueThatIsNotWhole_IsRefusedWithItsPath) {
    store({int32Value("R/O/A", 1)});
    SqliteStore store(file, 1);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    StoredValue cut = int32Value("R/O/A", 2);
    cut.content.pop_back();
    StoredValue object = int32Value("R/O/A", 2);
    object.type = TYPE_OBJECT;
    EXPECT_EQ(eAF_E_FAILED, store.write({int32Value("R/O/B", 2), cut}, report));
    EXPECT_EQ(eAF_E_FAILED, store.write({object}, report));
    EXPECT_THAT(report.errors(), HasSubstr("R/O/A has 3 bytes, which is not the size of its type"));
    EXPECT_EQ(StoredValues{int32Value("R/O/A", 1)}, stored());
}

TEST_F(SqliteStoreTest, Write_OfMoreThanAStoreKeeps_IsRefusedWithItsPath) {
    SqliteStore store(file, 1);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    EXPECT_EQ(eAF_E_FAILED, store.write({stringValue("R/O/Huge", std::string((64u << 20) + 1, 'h'))}, report));
    EXPECT_THAT(report.errors(), HasSubstr("R/O/Huge has 67108865 bytes, more than a store keeps"));
}

TEST_F(SqliteStoreTest, ReadAndWrite_BeforeOpen_FailAndSaySo) {
    SqliteStore store(file, 1);
    StoredValues values;
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.read(values, report));
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.write({int32Value("A", 1)}, report));
    EXPECT_THAT(report.errors(), HasSubstr(file + ": is not open"));
}

TEST_F(SqliteStoreTest, Open_Twice_DoesNothing) {
    SqliteStore store(file, 1);
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    EXPECT_EQ(file, store.name());
    EXPECT_THAT(report.lines, IsEmpty());
}

TEST_F(SqliteStoreTest, AMissingFolder_IsAnInitializationErrorThatNamesItAndCanBeMended) {
    file = folder.file("none/store.db");
    for (const Access access : {Access::readWrite, Access::readOnly}) {
        SqliteStore store(file, 1);
        report.lines.clear();
        EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.open(access, report));
        EXPECT_THAT(report.errors(), HasSubstr(file));
        EXPECT_THAT(report.errors(), HasSubstr("folder"));
    }
    SqliteStore store(file, 1);
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.open(Access::readWrite, report));
    ASSERT_TRUE(std::filesystem::create_directory(folder.file("none")));
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    EXPECT_EQ(eAF_S_OK, store.write({int32Value("A", 1)}, report));
}

TEST_F(SqliteStoreTest, AFolderInTheFilesPlace_CanNotBeOpened) {
    ASSERT_TRUE(std::filesystem::create_directory(file));
    SqliteStore store(file, 1);
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.open(Access::readWrite, report));
    EXPECT_THAT(report.errors(), HasSubstr(file + ": it can not be opened"));
}

TEST_F(SqliteStoreTest, AnotherProgramsFile_IsRefusedAndLeftAlone) {
    const std::string contents[] = {"just a text", std::string(5000, 'x'),
                                    std::string("\x7f"
                                                "ELF\0\0",
                                                6),
                                    "SQLite 2"};
    for (const std::string &content : contents) {
        test::writeFile(file, content);
        for (const Access access : {Access::readWrite, Access::readOnly}) {
            SqliteStore store(file, 1);
            report.lines.clear();
            EXPECT_EQ(eAF_E_INVALID_ARGUMENT, store.open(access, report));
            EXPECT_THAT(report.errors(), HasSubstr(file + ": is no SQLite database; it is left as it is"));
        }
        EXPECT_EQ(content, test::contentsOf(file));
    }
    EXPECT_THAT(folder.names(), testing::ElementsAre("store.db", "store.db.lock"));
}

TEST_F(SqliteStoreTest, AnotherProgramsDatabase_IsRefusedAndLeftAlone) {
    test::sqlite3Program(file, "CREATE TABLE songs(name); INSERT INTO songs VALUES('x'); PRAGMA user_version=1;");
    const std::string before = test::contentsOf(file);
    SqliteStore store(file, 1);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, store.open(Access::readWrite, report));
    EXPECT_THAT(report.errors(), HasSubstr("is another program's SQLite database (application_id 0, a store has"));
    EXPECT_EQ(before, test::contentsOf(file));
}

TEST_F(SqliteStoreTest, ANewerFormat_IsRefusedAndLeftAlone) {
    store({int32Value("R/O/A", 1)});
    test::sqlite3Program(file, "PRAGMA user_version=2;");
    const std::string before = test::contentsOf(file);
    SqliteStore store(file, 1);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, store.open(Access::readWrite, report));
    EXPECT_THAT(report.errors(), HasSubstr("is in format 2, and this program knows format 1"));
    EXPECT_EQ(before, test::contentsOf(file));
}

TEST_F(SqliteStoreTest, AStoreThatIsOpen_IsReadByOthersAndWrittenByNone) {
    store({int32Value("R/O/A", 1)});
    SqliteStore owner(file, 1);
    ASSERT_EQ(eAF_S_OK, owner.open(Access::readWrite, report));
    storage::StoreLock second;
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, second.acquire(std::filesystem::canonical(file), report));
    SqliteStore reader(file, 1);
    StoredValues values;
    EXPECT_EQ(eAF_S_OK, reader.open(Access::readOnly, report));
    EXPECT_EQ(eAF_S_OK, reader.read(values, report));
    EXPECT_EQ(1u, values.size());
    EXPECT_EQ(eAF_E_WRONG_ACCESS, reader.write({int32Value("R/O/A", 2)}, report));
    ASSERT_EQ(eAF_S_OK, owner.write({int32Value("R/O/A", 3)}, report));
    EXPECT_EQ(eAF_S_OK, reader.read(values, report));
    EXPECT_EQ(StoredValues{int32Value("R/O/A", 3)}, values);
}

TEST_F(SqliteStoreTest, AFileThatIsMovedAwayWhileOpen_RefusesToStoreUntilItIsReadAgain) {
    store({int32Value("R/O/A", 1), int32Value("R/O/B", 2)});
    SqliteStore owner(file, 1);
    StoredValues values;
    ASSERT_EQ(eAF_S_OK, owner.open(Access::readWrite, report));
    ASSERT_EQ(eAF_S_OK, owner.read(values, report));
    std::filesystem::rename(file, file + ".moved");
    EXPECT_EQ(eAF_E_WRONG_ACCESS, owner.write({int32Value("R/O/A", 3)}, report));
    EXPECT_THAT(report.errors(), HasSubstr("was moved or deleted while in use"));
    EXPECT_EQ(eAF_E_FAILED, owner.write({int32Value("R/O/A", 3)}, report)) << "a part of the values makes no store";
    EXPECT_THAT(report.errors(), HasSubstr("retrieve again before storing"));
    EXPECT_FALSE(std::filesystem::exists(file));
    ASSERT_EQ(eAF_S_OK, owner.read(values, report));
    EXPECT_EQ(StoredValues{}, values);
    EXPECT_EQ(eAF_S_OK, owner.write({int32Value("R/O/A", 3), int32Value("R/O/B", 2)}, report));
    EXPECT_EQ((StoredValues{int32Value("R/O/A", 3), int32Value("R/O/B", 2)}), stored());
}

TEST_F(SqliteStoreTest, NamesThatSqliteTakesForSomethingElse_AreFiles) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    for (const char *name : {":memory:", "file:x?mode=memory", "plain.db"}) {
        file = name;
        store({int32Value("R/O/A", 1)});
        EXPECT_TRUE(std::filesystem::exists(folder.file(name)));
        EXPECT_EQ(1u, stored().size());
    }
    std::filesystem::current_path(before);
}

} // namespace
