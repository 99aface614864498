// Several locations in one file.
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include <filesystem>

#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValues;
using test::int32Value;
using testing::ElementsAre;
using testing::HasSubstr;

class SqliteSharedFileTest : public test::SqliteStores {
protected:
    void open(SqliteStore &store, Access access = Access::readWrite) {
        ASSERT_EQ(eAF_S_OK, store.open(access, report)) << report.errors();
    }
    void write(SqliteStore &store, const StoredValues &values) {
        ASSERT_EQ(eAF_S_OK, store.write(values, report)) << report.errors();
    }
    StoredValues read(SqliteStore &store) {
        StoredValues values;
        EXPECT_EQ(eAF_S_OK, store.read(values, report)) << report.errors();
        return test::sorted(values);
    }
};

TEST_F(SqliteSharedFileTest, OnePathInTwoLocations_IsTwoValues) {
    SqliteStore first(file, 1);
    SqliteStore second(file, 2);
    open(first);
    open(second);
    write(first, {int32Value("R/O/V", 1)});
    write(second, {int32Value("R/O/V", 2), int32Value("R/O/W", 3)});
    write(first, {int32Value("R/O/V", 4)});
    EXPECT_EQ(StoredValues{int32Value("R/O/V", 4)}, read(first));
    EXPECT_EQ((StoredValues{int32Value("R/O/V", 2), int32Value("R/O/W", 3)}), read(second));
}

TEST_F(SqliteSharedFileTest, AnyLocationId_IsKept) {
    for (const unsigned long id : {0UL, 1UL, 0x7FFFFFFFUL, ~0UL, ~0UL / 2 + 1}) {
        store({int32Value("R/O/V", static_cast<std::int32_t>(id))}, id);
    }
    for (const unsigned long id : {0UL, 1UL, 0x7FFFFFFFUL, ~0UL, ~0UL / 2 + 1}) {
        EXPECT_EQ(StoredValues{int32Value("R/O/V", static_cast<std::int32_t>(id))}, stored(id));
    }
}

TEST_F(SqliteSharedFileTest, AFileBySeveralNames_IsOneFile) {
    std::filesystem::create_directory_symlink(folder.path(), folder.file("link"));
    SqliteStore first(file, 1);
    SqliteStore second(folder.file("link/../") + std::filesystem::path(folder.path()).filename().string() + "/store.db",
                       2);
    SqliteStore third(folder.file("link/store.db"), 3);
    open(first);
    open(second);
    write(first, {int32Value("A", 1)});
    open(third);
    write(second, {int32Value("A", 2)});
    write(third, {int32Value("A", 3)});
    EXPECT_EQ(1u, read(first).size());
    EXPECT_EQ("3\n", test::sqlite3Program(file, "SELECT count(*) FROM variable;"));
}

TEST_F(SqliteSharedFileTest, ALinkToAFileThatIsNotThereYet_IsThatFile) {
    namespace fs = std::filesystem;
    const fs::path root = fs::canonical(folder.path());
    fs::create_directories(root / "etc");
    fs::create_directories(root / "data");
    fs::create_symlink("../data/store.db", root / "etc/store.db");
    fs::create_symlink(root / "etc/store.db", root / "link.db");
    for (const char *link : {"etc/store.db", "link.db", "etc/../link.db"}) {
        SCOPED_TRACE(link);
        SqliteStore linked(folder.file(link), 1);
        SqliteStore direct(folder.file("data/store.db"), 2);
        open(linked);
        storage::StoreLock other;
        EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, other.acquire(root / "data/store.db", report));
        open(direct);
        write(linked, {int32Value("A", 1)});
        write(direct, {int32Value("A", 2)});
        EXPECT_EQ(StoredValues{int32Value("A", 1)}, read(linked));
        EXPECT_TRUE(fs::is_regular_file(root / "data/store.db"));
        fs::remove(root / "data/store.db");
    }
    EXPECT_FALSE(fs::exists(root / "etc/store.db.lock"));
    EXPECT_FALSE(fs::exists(root / "link.db.lock"));
}

TEST_F(SqliteSharedFileTest, LinksThatLeadNowhere_AreAnInitializationError) {
    namespace fs = std::filesystem;
    fs::create_symlink("round.db", folder.file("circle.db"));
    fs::create_symlink("circle.db", folder.file("round.db"));
    fs::create_symlink("gone/store.db", folder.file("far.db"));
    for (const char *link : {"round.db", "far.db"}) {
        for (const Access access : {Access::readWrite, Access::readOnly}) {
            SqliteStore store(folder.file(link), 1);
            report.lines.clear();
            EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.open(access, report)) << link;
            EXPECT_NE("", report.errors()) << link;
        }
    }
}

TEST_F(SqliteSharedFileTest, TheLock_IsHeldUntilTheLastLocationIsClosed) {
    const auto lockedForOthers = [&] {
        storage::StoreLock other;
        test::ReportRecorder ignored;
        return other.acquire(std::filesystem::canonical(folder.path()) / "store.db", ignored) ==
               eAF_E_ALREADY_INITIALIZED;
    };
    {
        SqliteStore first(file, 1);
        open(first);
        {
            SqliteStore second(file, 2);
            open(second);
            EXPECT_TRUE(lockedForOthers());
        }
        EXPECT_TRUE(lockedForOthers());
    }
    EXPECT_FALSE(lockedForOthers());
}

TEST_F(SqliteSharedFileTest, AnotherProcess_IsToldWhoHasIt) {
    SqliteStore mine(file, 1);
    open(mine);
    const pid_t owner = getpid();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        // The child has not opened the file itself: it asks as a stranger, under a name of its own.
        storage::StoreLock lock;
        test::ReportRecorder told;
        const EAFResult result = lock.acquire(std::filesystem::canonical(folder.path()) / "store.db", told);
        const bool isNamed = told.errors().find(std::to_string(owner)) != std::string::npos;
        _exit(result == eAF_E_ALREADY_INITIALIZED && isNamed ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

TEST_F(SqliteSharedFileTest, Locations_AreListedInOrder) {
    std::vector<unsigned long> ids{99};
    EXPECT_EQ(eAF_S_OK, SqliteStore::locations(file, ids, report));
    EXPECT_THAT(ids, ElementsAre());
    store({int32Value("A", 1), int32Value("B", 1)}, 12);
    store({int32Value("A", 1)}, 3);
    EXPECT_EQ(eAF_S_OK, SqliteStore::locations(file, ids, report));
    EXPECT_THAT(ids, ElementsAre(3, 12));
    test::writeFile(file, "no store");
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, SqliteStore::locations(file, ids, report));
    EXPECT_THAT(ids, ElementsAre());
    std::filesystem::remove(file);
    std::filesystem::create_symlink(file, file);
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, SqliteStore::locations(file, ids, report)) << "it leads in a circle";
    EXPECT_THAT(ids, ElementsAre());
}

TEST_F(SqliteSharedFileTest, WhatOneReadSetAside_TheOtherLocationsStoreWholeOrNotAtAll) {
    store({int32Value("A", 1)}, 1);
    store({int32Value("A", 2)}, 2);
    SqliteStore first(file, 1);
    SqliteStore second(file, 2);
    open(first);
    open(second);
    EXPECT_EQ(1u, read(second).size());
    // The table's page goes bad while both are open; the connection drops its cache because the file's header changed.
    std::string contents = test::contentsOf(file);
    ++contents[27];
    contents.replace(4096, 64, std::string(64, '\x55'));
    test::writeFile(file, contents);
    EXPECT_FALSE(second.isStale());
    EXPECT_EQ(StoredValues{}, read(first));
    EXPECT_THAT(report.warnings(), HasSubstr("it is kept as"));
    EXPECT_FALSE(first.isStale());
    EXPECT_TRUE(second.isStale());
    EXPECT_EQ(eAF_E_FAILED, second.write({int32Value("B", 2)}, report));
    EXPECT_THAT(report.errors(), HasSubstr("retrieve again before storing"));
    EXPECT_EQ(StoredValues{}, read(second));
    EXPECT_FALSE(second.isStale());
    write(second, {int32Value("A", 2), int32Value("B", 2)});
    write(first, {int32Value("A", 1)});
    EXPECT_EQ(contents, test::contentsOf(std::filesystem::canonical(folder.path()) / "store.db.damaged-1"));
    EXPECT_EQ(2u, read(second).size());
}

} // namespace
