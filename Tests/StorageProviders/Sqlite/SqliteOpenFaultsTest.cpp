// Files that can not be opened or made: SQLite keeps the reason to itself where it tries once more, for reading.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "OpenCalls.h"
#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValues;
using test::FailingOpen;
using test::int32Value;
using testing::ElementsAre;
using testing::HasSubstr;

class SqliteOpenFaultsTest : public test::SqliteStores {
protected:
    /// A host that has started; its next store is the one that fails.
    void start(SqliteStore &host) {
        StoredValues read;
        ASSERT_EQ(eAF_S_OK, host.open(Access::readWrite, report));
        ASSERT_EQ(eAF_S_OK, host.read(read, report));
    }

    const StoredValues changed{int32Value("A", 2)};
};

TEST_F(SqliteOpenFaultsTest, NoRoomForTheJournal_IsAFullDisk) {
    for (const int error : {ENOSPC, EDQUOT}) {
        std::filesystem::remove(file);
        std::filesystem::remove(file + "-journal");
        store({int32Value("A", 1)});
        std::filesystem::remove(file + "-journal");
        SqliteStore host(file, 1);
        start(host);
        {
            const FailingOpen failing("-journal", FailingOpen::Which::making, error);
            report.lines.clear();
            EXPECT_EQ(eAF_E_FAILED, host.write(changed, report));
            EXPECT_GT(failing.failures(), 0u);
        }
        EXPECT_THAT(report.errors(), HasSubstr(file + ": the disk is full: "));
        EXPECT_THAT(report.errors(), HasSubstr(std::string(std::strerror(error)) + "); make room and store again"));
        EXPECT_EQ(eAF_S_OK, host.write(changed, report)) << "when there is room";
    }
}

TEST_F(SqliteOpenFaultsTest, NoRoomForAFirstStore_IsAFullDisk) {
    for (const char *end : {"store.db", "-journal"}) {
        SqliteStore host(file, 1);
        start(host);
        {
            const FailingOpen failing(end, FailingOpen::Which::making, ENOSPC);
            report.lines.clear();
            EXPECT_EQ(eAF_E_FAILED, host.write(changed, report)) << end;
        }
        EXPECT_THAT(report.errors(), HasSubstr(file + ": the disk is full: ")) << end;
        EXPECT_EQ(eAF_S_OK, host.write(changed, report)) << "when there is room";
        std::filesystem::remove(file);
        std::filesystem::remove(file + "-journal");
    }
}

TEST_F(SqliteOpenFaultsTest, ADiskThatBecameReadOnly_IsAWrongAccess) {
    SqliteStore host(file, 1);
    start(host);
    const FailingOpen failing("store.db", FailingOpen::Which::making, EROFS);
    EXPECT_EQ(eAF_E_WRONG_ACCESS, host.write(changed, report));
    EXPECT_THAT(report.errors(), HasSubstr("Read-only file system"));
}

TEST_F(SqliteOpenFaultsTest, LookingForTheReason_LeavesNothingBehind) {
    SqliteStore host(file, 1);
    start(host);
    {
        const FailingOpen failing("store.db", FailingOpen::Which::making, ENOENT, 1); // gone when it is looked for
        EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, host.write(changed, report));
    }
    EXPECT_THAT(report.errors(), HasSubstr(file + ": it can not be opened: "));
    EXPECT_THAT(folder.names(), ElementsAre("store.db.lock"));
}

TEST_F(SqliteOpenFaultsTest, AFileThatMayNotBeRead_CanNotBeOpened) {
    store({int32Value("A", 1)});
    for (const Access access : {Access::readWrite, Access::readOnly}) {
        const FailingOpen failing("store.db", FailingOpen::Which::all, EACCES);
        SqliteStore refused(file, 1);
        report.lines.clear();
        EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, refused.open(access, report));
        EXPECT_THAT(report.errors(), HasSubstr(file + ": it can not be opened: "));
        EXPECT_THAT(report.errors(), HasSubstr("Permission denied); check the folder, the permissions"));
    }
}

TEST_F(SqliteOpenFaultsTest, AFileThatMayNotBeWritten_IsReadWithAWarningAndRefusesToStore) {
    store({int32Value("A", 1)});
    const FailingOpen failing("store.db", FailingOpen::Which::writing, EACCES);
    SqliteStore host(file, 1);
    StoredValues read;
    EXPECT_EQ(eAF_S_OK, host.open(Access::readWrite, report));
    EXPECT_THAT(report.warnings(), HasSubstr(file + ": opened for reading only"));
    EXPECT_EQ(eAF_S_OK, host.read(read, report));
    EXPECT_EQ(StoredValues{int32Value("A", 1)}, read);
    EXPECT_EQ(eAF_E_WRONG_ACCESS, host.write(changed, report));
    EXPECT_THAT(report.errors(), HasSubstr("make the file, its folder and its disk writable"));
}

TEST_F(SqliteOpenFaultsTest, AFolderThatTakesNoLockFile_IsReadWithAWarningAndWrittenOnceItDoes) {
    for (const bool isThere : {true, false}) {
        if (isThere) {
            store({int32Value("A", 1)});
        }
        report.lines.clear();
        SqliteStore host(file, 1);
        {
            const FailingOpen failing("store.db.lock", FailingOpen::Which::all, EROFS);
            start(host);
            EXPECT_EQ(isThere, report.warnings().find(file + ": opened for reading only") != std::string::npos);
            EXPECT_EQ(eAF_E_WRONG_ACCESS, host.write(changed, report));
            EXPECT_GT(failing.failures(), 0u);
        }
        EXPECT_THAT(report.errors(), HasSubstr(file + ": it was opened for reading only; make its folder writable"));
        report.lines.clear();
        EXPECT_EQ(eAF_S_OK, host.write(changed, report)) << report.errors();
        EXPECT_EQ(changed, stored());
        for (const std::string &name : folder.names()) {
            std::filesystem::remove(folder.file(name));
        }
    }
}

} // namespace
