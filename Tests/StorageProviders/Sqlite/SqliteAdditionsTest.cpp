// What others add to a store's database, or make of its table: the variables stay, and what hinders is named.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::Severity;
using storage::SqliteStore;
using storage::StoredValues;
using test::int32Value;
using test::stringValue;
using test::valueOf;
using testing::ElementsAre;
using testing::HasSubstr;

class SqliteAdditionsTest : public test::SqliteStores {
protected:
    SqliteAdditionsTest() { store(values); }

    /// The sqlite3 program has functions and collations of its own, which the store's connection does not have.
    std::string ask(const std::string &statements) { return test::sqlite3Program(file, statements); }

    void restore() {
        for (const std::string &name : folder.names()) {
            std::filesystem::remove(folder.file(name));
        }
        report.lines.clear();
        store(values);
    }

    /// Starts on the file, as a host and as a reader. @return whether it was set aside.
    bool isSetAside() {
        const StoredValues read = stored();
        const bool isAside = std::filesystem::exists(file + ".damaged-1");
        EXPECT_EQ(isAside ? StoredValues{} : values, read);
        return isAside;
    }

    /// @return what a write answers; its text is in the report's errors.
    EAFResult write(const StoredValues &changes) {
        SqliteStore store(file, 1);
        EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report)) << report.errors();
        return store.write(changes, report);
    }

    StoredValues values =
        test::sorted({int32Value("R/A", 1), stringValue("R/B", "\xc3\xa5\xf0\x9f\x93\xa1 text"),
                      valueOf<double>("R/C", TYPE_DOUBLE_ARRAY, {1.5, 2.5}), stringValue("R/D\xff", "\xff")});
};

TEST_F(SqliteAdditionsTest, ATableOfOthersThatThisProgramCanNotCheck_IsNoDamage) {
    for (const char *addition :
         {"CREATE TABLE notes(t); CREATE INDEX ni ON notes(sha3(t));",
          "CREATE TABLE notes(t); CREATE INDEX ni ON notes(t COLLATE uint);",
          "CREATE TABLE notes(t, CHECK(sha3(t) IS NOT NULL));", "CREATE TABLE notes(t, u AS (sha3(t)) STORED);"}) {
        SCOPED_TRACE(addition);
        restore();
        ASSERT_EQ("ok\n", ask(std::string(addition) + "INSERT INTO notes(t) VALUES('a'),('b');"
                                                      "PRAGMA integrity_check;"));
        EXPECT_FALSE(isSetAside());
        EXPECT_EQ("", report.warnings());
        store({int32Value("R/A", 5)});
        EXPECT_EQ("5\n2\n", ask("SELECT value FROM variable WHERE path='R/A'; SELECT count(*) FROM notes;"));
    }
}

TEST_F(SqliteAdditionsTest, AFaultInATableOfOthers_IsToldAsInformationAndLeftAsItIs) {
    const std::string notes = "CREATE TABLE notes(t, c); CREATE INDEX ni ON notes(t);"
                              "INSERT INTO notes VALUES('a',NULL),('b',2); PRAGMA writable_schema=ON;";
    const struct {
        const char *sql;
        const char *finding;
    } faults[] = {
        {"UPDATE sqlite_schema SET sql='CREATE TABLE notes(t, c NOT NULL)' WHERE name='notes';", "NULL value in notes"},
        {"UPDATE sqlite_schema SET sql='CREATE INDEX ni ON notes(c)' WHERE name='ni';", "missing from index ni"},
        {"", "Page"},
    };
    for (const auto &fault : faults) {
        SCOPED_TRACE(fault.sql);
        restore();
        ask(notes + fault.sql);
        std::string before = test::contentsOf(file);
        if (*fault.sql == '\0') {
            before.replace(before.size() - 4096, 64, std::string(64, '\x55')); // the last page is their index's
            test::writeFile(file, before);
        }
        EXPECT_FALSE(isSetAside());
        EXPECT_EQ("", report.warnings());
        EXPECT_THAT(report.texts(Severity::information), HasSubstr(file + ": the variables are whole"));
        EXPECT_THAT(report.texts(Severity::information), HasSubstr(fault.finding));
        EXPECT_TRUE(before == test::contentsOf(file));
        EXPECT_EQ(eAF_S_OK, write({int32Value("R/A", 5)})) << report.errors();
        EXPECT_EQ(values.size(), stored().size());
    }
}

TEST_F(SqliteAdditionsTest, DamageOfTheVariablesBesideATableOfOthers_IsSetAside) {
    const std::string addition = "CREATE TABLE notes(t); CREATE INDEX ni ON notes(sha3(t));"
                                 "INSERT INTO notes VALUES('a'); PRAGMA writable_schema=ON;";
    for (const char *damage :
         {"UPDATE sqlite_schema SET sql='CREATE TABLE variable(id)' WHERE name='variable';",
          "DELETE FROM sqlite_schema WHERE name='variable';", "DROP TABLE variable;",
          "UPDATE sqlite_schema SET rootpage=(SELECT rootpage FROM sqlite_schema WHERE name='variable') "
          "WHERE name='notes';"}) {
        SCOPED_TRACE(damage);
        restore();
        ask(addition + damage);
        EXPECT_TRUE(isSetAside());
        EXPECT_THAT(report.warnings(), HasSubstr(file + ": it is damaged: "));
        EXPECT_EQ(1u, report.lines.size());
    }
    restore();
    ask(addition);
    const std::string contents = test::contentsOf(file);
    std::string damaged = contents;
    damaged[39] = 7; // the number of free pages
    test::writeFile(file, damaged);
    EXPECT_TRUE(isSetAside());
    EXPECT_THAT(report.warnings(), HasSubstr("it is damaged: Main freelist: size is 0 but should be 7; it is kept"));
    restore();
    damaged = contents;
    damaged.replace(4096, 64, std::string(64, '\x55')); // the table's page
    test::writeFile(file, damaged);
    EXPECT_TRUE(isSetAside());
}

TEST_F(SqliteAdditionsTest, AnIndexOfOthersOnTheTableThatOnlyTheyCanKeep_IsNamedAndLeftAlone) {
    ask("CREATE INDEX vi ON variable(sha3(path));");
    EXPECT_FALSE(isSetAside());
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": no value can be stored in it: unknown function: sha3(); drop"));
    EXPECT_EQ(eAF_E_FAILED, write({int32Value("R/New", 1)}));
    EXPECT_THAT(report.errors(), HasSubstr("unknown function: sha3()"));
    ask("DROP INDEX vi;");
    EXPECT_EQ(eAF_S_OK, write({int32Value("R/New", 1)}));
}

TEST_F(SqliteAdditionsTest, ACheckOfOthersOnTheTableThatOnlyTheyCanRun_IsNamedAndItsValuesAreRead) {
    ask("PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql=replace(sql,'value,','value "
        "CHECK(sha3(value) IS NOT NULL),') WHERE name='variable';");
    EXPECT_FALSE(isSetAside());
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": no value can be stored in it: unknown function: sha3()"));
    EXPECT_EQ(eAF_E_FAILED, write({int32Value("R/New", 1)}));
    EXPECT_THAT(report.errors(), HasSubstr("unknown function: sha3()"));
    ask("PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql=replace(sql,' CHECK(sha3(value) IS NOT NULL)','') "
        "WHERE name='variable';");
    EXPECT_EQ(eAF_S_OK, write({int32Value("R/New", 1)}));
}

TEST_F(SqliteAdditionsTest, ATableWithoutItsUniqueConstraint_IsReadAndSaysHowItIsMended) {
    ask("CREATE TABLE v2 AS SELECT * FROM variable; DROP TABLE variable; ALTER TABLE v2 RENAME TO variable;");
    EXPECT_FALSE(isSetAside());
    const std::string advice = "no value can be stored in it: the table of variables lacks UNIQUE(location,path); "
                               "delete rows that stand twice and add it: ";
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": " + advice));
    {
        SqliteStore reader(file, 1);
        report.lines.clear();
        EXPECT_EQ(eAF_S_OK, reader.open(Access::readOnly, report));
        EXPECT_THAT(report.warnings(), HasSubstr(advice)) << "whoever verifies the store is told too";
    }
    SqliteStore host(file, 1);
    StoredValues read;
    ASSERT_EQ(eAF_S_OK, host.open(Access::readWrite, report));
    ASSERT_EQ(eAF_S_OK, host.read(read, report));
    for (int time = 0; time < 2; ++time) {
        report.lines.clear();
        EXPECT_EQ(eAF_E_FAILED, host.write({int32Value("R/A", 5)}, report));
        EXPECT_THAT(report.errors(), HasSubstr(file + ": " + advice));
    }
    const std::string text = report.errors();
    EXPECT_EQ("", ask(text.substr(text.find("CREATE UNIQUE INDEX")) + ";"));
    EXPECT_EQ(eAF_S_OK, host.write({int32Value("R/A", 5)}, report)) << "as soon as it is mended";
    EXPECT_EQ(values.size(), stored().size());
}

TEST_F(SqliteAdditionsTest, ATriggerOfOthersThatRefusesAValue_IsQuoted) {
    const struct {
        const char *sql;
        const char *text;
    } triggers[] = {
        {"CREATE TRIGGER t BEFORE UPDATE ON variable BEGIN SELECT RAISE(ABORT,'the gain is\nfixed'); END;",
         "refuses a value: the gain is?fixed (SQLite code 1811); drop that trigger"},
        {"CREATE TRIGGER t BEFORE UPDATE ON variable BEGIN SELECT RAISE(IGNORE); END;", "(SQLite code 1811)"},
        {"CREATE TRIGGER t BEFORE UPDATE ON variable BEGIN SELECT sha3(1); END;", "no such function: sha3"},
        {"CREATE TRIGGER t BEFORE UPDATE ON variable BEGIN INSERT INTO gone VALUES(1); END;",
         "no such table: main.gone"},
        {"CREATE UNIQUE INDEX u ON variable(value);", "UNIQUE constraint failed: variable.value"},
    };
    for (const auto &trigger : triggers) {
        SCOPED_TRACE(trigger.sql);
        restore();
        store({int32Value("R/E", 5)});
        ask(trigger.sql);
        EXPECT_EQ(eAF_E_FAILED, write({int32Value("R/A", 5)}));
        EXPECT_THAT(report.errors(), HasSubstr(trigger.text));
        EXPECT_EQ("1\n", ask("SELECT value FROM variable WHERE path='R/A';"));
    }
}

TEST_F(SqliteAdditionsTest, ATriggerOnNewRowsThatOnlyOthersCanRun_IsNamedAtTheStart) {
    ask("CREATE TRIGGER t AFTER INSERT ON variable BEGIN SELECT sha3(1); END;");
    EXPECT_FALSE(isSetAside());
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": no value can be stored in it: no such function: sha3; drop the "
                                                    "index, the trigger or the check that was added to the table"));
    EXPECT_EQ(eAF_E_FAILED, write({int32Value("R/New", 1)}));
    ask("DROP TRIGGER t;");
    EXPECT_EQ(eAF_S_OK, write({int32Value("R/New", 1)}));
}

TEST_F(SqliteAdditionsTest, WhatIsAddedWhileAHostRuns_IsNamedByItsNextStore) {
    SqliteStore host(file, 1);
    StoredValues read;
    ASSERT_EQ(eAF_S_OK, host.open(Access::readWrite, report));
    ASSERT_EQ(eAF_S_OK, host.read(read, report));
    ask("CREATE TRIGGER t BEFORE UPDATE ON variable BEGIN SELECT sha3(1); END;");
    EXPECT_EQ(eAF_E_FAILED, host.write({int32Value("R/A", 5)}, report));
    EXPECT_THAT(report.errors(),
                HasSubstr(file + ": its table of variables can not be used: no such function: sha3 (SQLite code 1); "
                                 "mend the table, or drop what was added to it"));
    ask("DROP TRIGGER t;");
    report.lines.clear();
    EXPECT_EQ(eAF_S_OK, host.write({int32Value("R/A", 5)}, report)) << report.errors();
    EXPECT_EQ("5\n", ask("SELECT value FROM variable WHERE path='R/A';"));
}

TEST_F(SqliteAdditionsTest, ARowThatStandsTwice_CountsOnceAndIsNamed) {
    ask("CREATE TABLE v2 AS SELECT * FROM variable; DROP TABLE variable; ALTER TABLE v2 RENAME TO variable;"
        "INSERT INTO variable SELECT id+100,location,path,type,count,9 FROM variable WHERE path='R/A';");
    EXPECT_FALSE(isSetAside());
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": R/A (row 101) stands twice; it counts as not stored"));
}

TEST_F(SqliteAdditionsTest, ADatabaseInUtf16_IsAStoreLikeAnyOther) {
    for (const char *encoding : {"UTF-16le", "UTF-16be"}) {
        SCOPED_TRACE(encoding);
        restore();
        const std::string dump = ask(".dump");
        std::filesystem::remove(file);
        EXPECT_EQ("", ask("PRAGMA encoding='" + std::string(encoding) + "';" + dump +
                          "PRAGMA application_id=1514227283; PRAGMA user_version=1;"));
        EXPECT_EQ(std::string(encoding) + "\n", ask("PRAGMA encoding;"));
        EXPECT_FALSE(isSetAside());
        store(values);
        store({int32Value("R/A", 1), stringValue("R/New", "\xc3\xa5")});
        EXPECT_EQ(values.size() + 1, stored().size());
        EXPECT_EQ("", report.warnings());
        EXPECT_THAT(folder.names(), ElementsAre("store.db", "store.db-journal", "store.db.lock"));
    }
}

} // namespace
