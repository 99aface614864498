// What a host that was killed in the middle of a store leaves, and who rolls it back.
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "OpenCalls.h"
#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValues;
using storage::StoreLock;
using test::FailingOpen;
using test::int32Value;
using testing::ElementsAre;
using testing::HasSubstr;

class SqliteUnfinishedTest : public test::SqliteStores {
protected:
    SqliteUnfinishedTest() {
        store(values);
        contents = test::contentsOf(file);
        // A copy taken in the middle of a transaction is what a killed host leaves.
        sqlite3 *writer = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &writer));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(writer, "PRAGMA cache_size=1; BEGIN; UPDATE variable SET value=value+1;",
                                          nullptr, nullptr, nullptr));
        EXPECT_EQ(SQLITE_OK, sqlite3_db_cacheflush(writer));
        torn = test::contentsOf(file);
        journal = test::contentsOf(file + "-journal");
        EXPECT_EQ(SQLITE_OK, sqlite3_close(writer));
        EXPECT_FALSE(contents == torn);
    }

    void cutShort() const {
        test::writeFile(file, torn);
        test::writeFile(file + "-journal", journal);
    }

    /// Neither the database nor its journal was touched.
    bool isUntouched() const {
        return test::contentsOf(file) == torn && test::contentsOf(file + "-journal") == journal;
    }

    bool isLockFree() const {
        StoreLock lock;
        test::ReportRecorder ignored;
        return lock.acquire(std::filesystem::canonical(folder.path()) / "store.db", ignored) == eAF_S_OK;
    }

    static StoredValues generation(std::int32_t number) {
        StoredValues values;
        for (std::int32_t i = 0; i < 300; ++i) {
            values.push_back(int32Value("Region/Object/Variable" + std::to_string(i), number));
        }
        return test::sorted(values);
    }

    StoredValues values = generation(1);
    std::string contents;
    std::string torn;
    std::string journal;
};

/// A signal each millisecond while it lives: what waits is interrupted.
class Interruptions {
public:
    Interruptions() {
        s_number = 0;
        struct sigaction handler {};
        handler.sa_handler = [](int /*signal*/) { s_number = s_number + 1; };
        sigaction(SIGALRM, &handler, &m_before);
        const itimerval each{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &each, nullptr);
    }
    ~Interruptions() {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &m_before, nullptr);
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

    static int number() { return s_number; }

private:
    static inline volatile std::sig_atomic_t s_number;
    struct sigaction m_before {};
};

TEST_F(SqliteUnfinishedTest, AHost_RollsItBackWhenItStarts) {
    cutShort();
    EXPECT_EQ(values, stored());
    EXPECT_TRUE(contents == test::contentsOf(file));
    EXPECT_EQ("", report.warnings());
}

TEST_F(SqliteUnfinishedTest, AReader_RollsItBackWhereNoHostRuns) {
    cutShort();
    SqliteStore reader(file, 1);
    StoredValues read;
    EXPECT_EQ(eAF_S_OK, reader.open(Access::readOnly, report)) << report.errors();
    EXPECT_TRUE(contents == test::contentsOf(file));
    EXPECT_EQ(eAF_S_OK, reader.read(read, report));
    EXPECT_EQ(values, test::sorted(read));
    EXPECT_EQ(eAF_E_WRONG_ACCESS, reader.write(values, report)) << "it stays a reader";
    EXPECT_TRUE(isLockFree());
    store(generation(2));
    EXPECT_EQ(generation(2), stored());
}

TEST_F(SqliteUnfinishedTest, AReaderThatIsOpenWhenTheHostIsKilled_RollsItBackToo) {
    SqliteStore reader(file, 1);
    StoredValues read;
    ASSERT_EQ(eAF_S_OK, reader.open(Access::readOnly, report));
    cutShort();
    EXPECT_EQ(eAF_S_OK, reader.read(read, report)) << report.errors();
    EXPECT_EQ(values, test::sorted(read));
    EXPECT_TRUE(contents == test::contentsOf(file));
}

TEST_F(SqliteUnfinishedTest, TheListOfLocations_RollsItBackToo) {
    cutShort();
    std::vector<unsigned long> locations;
    EXPECT_EQ(eAF_S_OK, SqliteStore::locations(file, locations, report)) << report.errors();
    EXPECT_THAT(locations, ElementsAre(1));
    EXPECT_TRUE(contents == test::contentsOf(file));
}

TEST_F(SqliteUnfinishedTest, AReader_GivesTheHostThatHoldsTheLockTimeToRollItBack) {
    cutShort();
    StoreLock host;
    ASSERT_EQ(eAF_S_OK, host.acquire(std::filesystem::canonical(file), report));
    EAFResult opened = eAF_E_FAILED;
    StoredValues read;
    std::thread reading([&] {
        SqliteStore reader(file, 1);
        // A busy machine may take longer over a program's start than a reader waits.
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        do {
            opened = reader.open(Access::readOnly, report);
        } while (opened == eAF_E_ALREADY_INITIALIZED && std::chrono::steady_clock::now() < end);
        if (opened == eAF_S_OK) {
            opened = reader.read(read, report);
        }
    });
    EXPECT_EQ(std::to_string(values.size()) + "\n",
              test::sqlite3Program(file, ".timeout 60000\nSELECT count(*) FROM variable;"));
    reading.join();
    EXPECT_EQ(eAF_S_OK, opened) << report.errors();
    EXPECT_EQ(values, test::sorted(read));
}

TEST_F(SqliteUnfinishedTest, AReader_LeavesItToAHostThatHoldsTheLockAndSaysSo) {
    cutShort();
    StoreLock host;
    ASSERT_EQ(eAF_S_OK, host.acquire(std::filesystem::canonical(file), report));
    SqliteStore reader(file, 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, reader.open(Access::readOnly, report));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << "the host's time for it";
    EXPECT_THAT(report.errors(), HasSubstr(file + ": a store was cut short and is not rolled back yet"));
    EXPECT_THAT(report.errors(), HasSubstr("is in use by process " + std::to_string(getpid())));
    EXPECT_TRUE(isUntouched());
    host.release();
    EXPECT_EQ(eAF_S_OK, reader.open(Access::readOnly, report)) << "once the host is gone";
}

TEST_F(SqliteUnfinishedTest, AReaderThatIsInterruptedWhileItWaits_WaitsAsLong) {
    cutShort();
    StoreLock host;
    ASSERT_EQ(eAF_S_OK, host.acquire(std::filesystem::canonical(file), report));
    SqliteStore reader(file, 1);
    {
        const Interruptions interruptions;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, reader.open(Access::readOnly, report));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
        EXPECT_GT(Interruptions::number(), 0);
    }
    EXPECT_THAT(report.errors(), HasSubstr("is in use by process " + std::to_string(getpid())));
    EXPECT_TRUE(isUntouched());
}

TEST_F(SqliteUnfinishedTest, AReaderThatMayNotWriteThere_LeavesItAndSaysWhatToDo) {
    const struct {
        const char *file;
        FailingOpen::Which which;
    } refusals[] = {{"store.db.lock", FailingOpen::Which::all}, {"store.db", FailingOpen::Which::writing}};
    for (const auto &refusal : refusals) {
        SCOPED_TRACE(refusal.file);
        cutShort();
        SqliteStore reader(file, 1);
        {
            const FailingOpen failing(refusal.file, refusal.which, EACCES);
            report.lines.clear();
            EXPECT_EQ(eAF_E_WRONG_ACCESS, reader.open(Access::readOnly, report));
            EXPECT_GT(failing.failures(), 0u);
        }
        EXPECT_THAT(report.errors(), HasSubstr(file + ": a store was cut short and can not be rolled back; make the "
                                                      "file, its folder and its disk writable, or read a copy"));
        EXPECT_TRUE(isUntouched());
        EXPECT_TRUE(isLockFree());
    }
    // As the text says.
    std::filesystem::create_directory(folder.file("copy"));
    for (const char *end : {"", "-journal"}) {
        std::filesystem::copy_file(file + end, folder.file("copy/store.db") + end);
    }
    SqliteStore copy(folder.file("copy/store.db"), 1);
    StoredValues read;
    ASSERT_EQ(eAF_S_OK, copy.open(Access::readOnly, report));
    ASSERT_EQ(eAF_S_OK, copy.read(read, report));
    EXPECT_EQ(values, test::sorted(read));
}

TEST_F(SqliteUnfinishedTest, AReaderThatCanNotLock_LeavesItAndSaysWhatStandsInTheWay) {
    cutShort();
    std::filesystem::remove(file + ".lock");
    std::filesystem::create_directory(file + ".lock");
    SqliteStore reader(file, 1);
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, reader.open(Access::readOnly, report));
    EXPECT_THAT(report.errors(), HasSubstr("store.db.lock can not be opened (Is a directory)"));
    EXPECT_TRUE(isUntouched());
    std::filesystem::remove(file + ".lock");
    EXPECT_EQ(eAF_S_OK, reader.open(Access::readOnly, report)) << "once nothing does";
}

TEST_F(SqliteUnfinishedTest, AHostThatMayNotWriteThere_LeavesItAndSaysWhatToDo) {
    cutShort();
    SqliteStore host(file, 1);
    {
        const FailingOpen failing("store.db.lock", FailingOpen::Which::all, EROFS);
        EXPECT_EQ(eAF_E_WRONG_ACCESS, host.open(Access::readWrite, report));
        EXPECT_GT(failing.failures(), 0u);
    }
    EXPECT_THAT(report.errors(), HasSubstr(file + ": a store was cut short and can not be rolled back; make the file, "
                                                  "its folder and its disk writable"));
    EXPECT_TRUE(isUntouched());
    EXPECT_EQ(eAF_S_OK, host.open(Access::readWrite, report)) << "once it may";
}

TEST_F(SqliteUnfinishedTest, AnotherProgramsDatabase_IsNotRolledBack) {
    torn.replace(68, 4, 4, '\0'); // whose it is
    cutShort();
    SqliteStore reader(file, 1);
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, reader.open(Access::readOnly, report));
    EXPECT_TRUE(isUntouched());
}

TEST_F(SqliteUnfinishedTest, AReaderAfterAHostThatWasKilled_FindsOneStoreWhole) {
    constexpr int kills = 8;
    for (int kill = 0; kill < kills; ++kill) {
        int ready[2] = {-1, -1};
        ASSERT_EQ(0, pipe(ready));
        const pid_t host = fork();
        ASSERT_NE(-1, host);
        if (host == 0) {
            SqliteStore store(file, 1);
            bool isGoing = store.open(Access::readWrite, report) == eAF_S_OK;
            for (std::int32_t number = 0; isGoing; ++number) {
                isGoing = store.write(generation(number), report) == eAF_S_OK && write(ready[1], "", 1) == 1;
            }
            _exit(1);
        }
        char byte = 0;
        for (int store = 0; store <= kill; ++store) {
            ASSERT_EQ(1, read(ready[0], &byte, 1));
        }
        ASSERT_EQ(0, ::kill(host, SIGKILL));
        ASSERT_EQ(host, waitpid(host, nullptr, 0));
        close(ready[0]);
        close(ready[1]);
        SqliteStore reader(file, 1);
        StoredValues read;
        ASSERT_EQ(eAF_S_OK, reader.open(Access::readOnly, report)) << report.errors();
        ASSERT_EQ(eAF_S_OK, reader.read(read, report)) << report.errors();
        ASSERT_EQ(values.size(), read.size());
        std::int32_t number = 0;
        std::memcpy(&number, read[0].content.data(), sizeof(number));
        EXPECT_GE(number, kill) << "a store that returned is durable";
        EXPECT_EQ(generation(number), test::sorted(read));
    }
}

} // namespace
