// A store that went bad: never a crash, never overwritten, and the start goes on.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>

#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValue;
using storage::StoredValues;
using test::int32Value;
using test::stringValue;
using test::valueOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr std::size_t pageSize = 4096;

class SqliteDamageTest : public test::SqliteStores {
protected:
    SqliteDamageTest() {
        for (std::int32_t i = 0; i < 300; ++i) {
            values.push_back(int32Value("Region/Object/Variable" + std::to_string(i), i));
        }
        values.push_back(stringValue("Region/Object/Long", std::string(3 * pageSize, 'l')));
        values.push_back(valueOf("Region/Object/Array", TYPE_UINT16_ARRAY, std::vector<std::uint16_t>(5000, 65535)));
        values = test::sorted(values);
        store(values);
        contents = test::contentsOf(file);
    }

    /// What a start on a file with these contents came to.
    enum class Outcome { whole, changed, setAside, refused, count };

    /// Starts, and checks what holds for every start: nothing of the file is lost, and the store goes on where it may.
    Outcome start(const std::string &damaged) {
        test::writeFile(file, damaged);
        report.lines.clear();
        StoredValues read;
        Outcome outcome = Outcome::whole;
        {
            SqliteStore store(file, 1);
            const EAFResult opened = store.open(Access::readWrite, report);
            if (opened >= eAF_E_FAILED) {
                EXPECT_EQ(eAF_E_INVALID_ARGUMENT, opened) << report.errors();
                EXPECT_EQ(damaged, test::contentsOf(file));
                return Outcome::refused;
            }
            EXPECT_EQ(eAF_S_OK, store.read(read, report)) << report.errors();
            outcome = outcomeOf(damaged, read);
            const EAFResult written = store.write({int32Value("New", 1)}, report);
            EXPECT_TRUE(written == eAF_S_OK || written == eAF_E_FAILED || written == eAF_E_WRONG_ACCESS) << written;
        }
        clear();
        return outcome;
    }

    Outcome outcomeOf(const std::string &damaged, const StoredValues &read) {
        const std::string warnings = report.warnings();
        if (warnings.find("it is kept as") != std::string::npos) {
            EXPECT_EQ(StoredValues{}, read);
            EXPECT_EQ(damaged, test::contentsOf(file + ".damaged-1"));
            EXPECT_FALSE(std::filesystem::exists(file));
            return Outcome::setAside;
        }
        if (!warnings.empty() || test::sorted(read) != values) {
            return Outcome::changed;
        }
        return Outcome::whole;
    }

    void clear() const {
        for (const char *end : {"", "-journal", "-wal", "-shm", ".damaged-1", ".damaged-1-journal"}) {
            std::filesystem::remove(file + end);
        }
    }

    void print(const std::map<Outcome, unsigned> &outcomes) const {
        static constexpr const char *names[] = {"whole", "values changed", "set aside", "refused"};
        for (const auto &[outcome, times] : outcomes) {
            std::printf("[  FIGURES ] %s: %u\n", names[static_cast<std::size_t>(outcome)], times);
        }
    }

    void expectSetAside(const std::string &damaged) { EXPECT_EQ(Outcome::setAside, start(damaged)); }

    StoredValues values;
    std::string contents;
};

TEST_F(SqliteDamageTest, AStoreThatIsWhole_IsNotTakenForDamaged) {
    EXPECT_EQ(Outcome::whole, start(contents));
}

TEST_F(SqliteDamageTest, ATruncatedStore_IsSetAside) {
    for (std::size_t length = 2; length < contents.size() - pageSize; length += length < 600 ? 7 : 1021) {
        SCOPED_TRACE(length);
        expectSetAside(contents.substr(0, length));
    }
}

TEST_F(SqliteDamageTest, ALostHeader_IsSetAside) {
    for (const std::size_t lost : {1u, 16u, 100u, 512u, 4096u}) {
        for (const char filler : {'\0', '\xff', 'x'}) {
            if (lost == pageSize && filler != '\0') {
                continue; // nothing tells any more that it was a store
            }
            SCOPED_TRACE(lost);
            expectSetAside(std::string(lost, filler) + contents.substr(lost));
        }
    }
}

TEST_F(SqliteDamageTest, AFileOfOneByte_CountsAsEmptyAsItDoesForSqlite) {
    test::writeFile(file, std::string(1, '\0'));
    EXPECT_EQ(StoredValues{}, stored());
    store({int32Value("New", 1)});
    EXPECT_EQ(1u, stored().size());
}

TEST_F(SqliteDamageTest, AFileOfZeros_IsSetAside) {
    expectSetAside(std::string(10, '\0'));
    expectSetAside(std::string(3 * pageSize, '\0'));
}

TEST_F(SqliteDamageTest, ALostPage_IsFound) {
    std::map<Outcome, unsigned> outcomes;
    for (std::size_t page = 1; page < contents.size() / pageSize; ++page) {
        for (const char filler : {'\0', '\xff'}) {
            std::string damaged = contents;
            damaged.replace(page * pageSize, pageSize, pageSize, filler);
            ++outcomes[start(damaged)];
        }
    }
    print(outcomes);
    EXPECT_EQ(0u, outcomes[Outcome::whole]);
    EXPECT_EQ(0u, outcomes[Outcome::refused]);
}

TEST_F(SqliteDamageTest, AnyByteOfTheHeader_MayGoBad) {
    std::map<Outcome, unsigned> outcomes;
    for (std::size_t position = 0; position < 100; ++position) {
        for (const char flip : {'\x01', '\x80'}) {
            SCOPED_TRACE(position);
            std::string damaged = contents;
            damaged[position] = static_cast<char>(damaged[position] ^ flip);
            ++outcomes[start(damaged)];
        }
    }
    print(outcomes);
    EXPECT_GT(outcomes[Outcome::setAside], 30u) << "magic and sizes";
    EXPECT_EQ(16u, outcomes[Outcome::refused]) << "the eight bytes that tell whose it is and in which format";
}

TEST_F(SqliteDamageTest, BitsFlippedAnywhere_NeverCrashAndNeverLoseTheFile) {
    std::mt19937 random(20261121); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same noise at every run
    std::map<Outcome, unsigned> outcomes;
    for (std::size_t begin = 100; begin < contents.size(); begin += 331) {
        const std::size_t position = std::min<std::size_t>(begin + random() % 331, contents.size() - 1);
        const auto flip = static_cast<char>(1u << random() % 8);
        SCOPED_TRACE(position);
        std::string damaged = contents;
        damaged[position] = static_cast<char>(damaged[position] ^ flip);
        ++outcomes[start(damaged)];
    }
    print(outcomes);
    EXPECT_EQ(0u, outcomes[Outcome::refused]);
    EXPECT_GT(outcomes[Outcome::setAside], 0u);
}

TEST_F(SqliteDamageTest, ManyBytesOfNoise_NeverCrashAndNeverLoseTheFile) {
    std::mt19937 random(5); // NOLINT(cert-msc32-c,cert-msc51-cpp): as above
    std::map<Outcome, unsigned> outcomes;
    for (int i = 0; i < 150; ++i) {
        std::string damaged = contents;
        const std::size_t length = 1 + random() % 600;
        const std::size_t position = 100 + random() % (contents.size() - 100 - length);
        std::generate_n(damaged.begin() + static_cast<std::ptrdiff_t>(position), length,
                        [&] { return static_cast<char>(random()); });
        SCOPED_TRACE(i);
        ++outcomes[start(damaged)];
    }
    print(outcomes);
    EXPECT_GT(outcomes[Outcome::setAside], 0u);
}

TEST_F(SqliteDamageTest, WhatWasSetAsideBefore_IsNeverOverwritten) {
    test::writeFile(file + ".damaged-1", "first");
    test::writeFile(file + ".damaged-2-journal", "second");
    test::writeFile(file, contents.substr(0, 5000));
    test::writeFile(file + "-journal", "");
    EXPECT_EQ(StoredValues{}, stored());
    EXPECT_EQ("first", test::contentsOf(file + ".damaged-1"));
    EXPECT_EQ("second", test::contentsOf(file + ".damaged-2-journal"));
    EXPECT_EQ(contents.substr(0, 5000), test::contentsOf(file + ".damaged-3"));
    EXPECT_TRUE(std::filesystem::exists(file + ".damaged-3-journal")) << "it goes with its file";
    EXPECT_FALSE(std::filesystem::exists(file + "-journal"));
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": it is damaged: "));
    EXPECT_THAT(report.warnings(), HasSubstr("store.db.damaged-3, and the store is empty now"));
    store({int32Value("New", 1)});
    EXPECT_EQ(StoredValues{int32Value("New", 1)}, stored());
}

TEST_F(SqliteDamageTest, AReader_LeavesADamagedStoreWhereItIs) {
    test::writeFile(file, contents.substr(0, 5000));
    SqliteStore reader(file, 1);
    EXPECT_EQ(eAF_E_FAILED, reader.open(Access::readOnly, report));
    EXPECT_THAT(report.errors(), HasSubstr("nothing was changed, the host's next start or retrieve sets it aside"));
    EXPECT_EQ(contents.substr(0, 5000), test::contentsOf(file));
    EXPECT_THAT(folder.names(), Not(Contains("store.db.damaged-1")));
}

TEST_F(SqliteDamageTest, AStoreOfOursWithoutItsTable_IsSetAside) {
    for (const char *change : {"DROP TABLE variable;", "ALTER TABLE variable RENAME COLUMN value TO worth;",
                               "ALTER TABLE variable RENAME TO variables;",
                               "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql='CREATE TABLE variable(id' "
                               "WHERE name='variable';"}) {
        test::writeFile(file, contents);
        test::sqlite3Program(file, change);
        SCOPED_TRACE(change);
        expectSetAside(test::contentsOf(file));
    }
}

TEST_F(SqliteDamageTest, TriggersAndViewsOfOthers_DoNoHarm) {
    test::sqlite3Program(file,
                         "CREATE VIEW v AS SELECT load_extension('x'); CREATE TABLE log(t);"
                         "CREATE TRIGGER t AFTER UPDATE ON variable BEGIN INSERT INTO log VALUES(new.path); END;");
    EXPECT_EQ(values, stored());
    store({int32Value("Region/Object/Variable0", 5)});
    EXPECT_EQ("5\n", test::sqlite3Program(file, "SELECT value FROM variable WHERE path='Region/Object/Variable0';"));
}

TEST_F(SqliteDamageTest, DamageFoundByAWrite_ChangesNothingUntilItIsRead) {
    SqliteStore store(file, 1);
    StoredValues read;
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    ASSERT_EQ(eAF_S_OK, store.read(read, report));
    std::string damaged = contents;
    ++damaged[27]; // the counter that tells the connection to read anew
    damaged.replace(pageSize, contents.size() - pageSize, contents.size() - pageSize, '\x55');
    test::writeFile(file, damaged);
    EXPECT_EQ(eAF_E_FAILED, store.write({int32Value("Region/Object/Variable0", 5)}, report));
    EXPECT_THAT(report.errors(), HasSubstr(file + ": it is damaged"));
    EXPECT_EQ(damaged, test::contentsOf(file));
    EXPECT_EQ(eAF_E_FAILED, store.write({int32Value("Region/Object/Variable0", 5)}, report));
    EXPECT_EQ(damaged, test::contentsOf(file));
    EXPECT_EQ(eAF_S_OK, store.read(read, report));
    EXPECT_EQ(StoredValues{}, read);
    EXPECT_EQ(damaged, test::contentsOf(file + ".damaged-1"));
    EXPECT_EQ(eAF_S_OK, store.write(values, report));
}

TEST_F(SqliteDamageTest, TheAdviceForAStoreThatWasSetAside_ShowsItsValues) {
    test::writeFile(file, contents.substr(0, contents.size() - pageSize));
    EXPECT_EQ(StoredValues{}, stored());
    const std::string warning = report.warnings();
    const std::size_t begin = warning.find("`sqlite3 ");
    ASSERT_NE(std::string::npos, begin);
    const std::string command = warning.substr(begin + 1, warning.find('`', begin + 1) - begin - 1);
    EXPECT_THAT(test::outputOf(command), HasSubstr("'Region/Object/Variable0','INT32',1,0)"));
}

} // namespace
