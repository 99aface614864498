// What came to light when each call failed in turn, each by its name.
#include <fcntl.h>
#include <mqueue.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "CEventTask.h"
#include "EventQueues.h"
#include "FailingCalls.h"
#include "Progress.h"
#include "SqliteStore.h"
#include "ThreadCount.h"
#include "TraceRecorder.h"
#include "WorkerReceives.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValues;
using test::FailingCalls;
using testing::HasSubstr;

std::size_t callNamed(const std::string &name) {
    const auto &calls = test::failingCalls();
    return static_cast<std::size_t>(
        std::find_if(calls.begin(), calls.end(), [&](const auto &each) { return name == each.name; }) - calls.begin());
}

std::string bytesOf(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class KeptReport : public storage::Report {
public:
    void add(storage::Severity /*severity*/, const std::string &text) override { texts += text + "\n"; }
    std::string texts;
};

class FoundByFailures : public testing::Test {
protected:
    FoundByFailures() {
        SqliteStore store(file, 1);
        EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
        EXPECT_EQ(eAF_S_OK, store.write(values, report));
    }
    ~FoundByFailures() override { FailingCalls::failNone(); }

    test::StoreFolder folder;
    const std::string file = folder.name() + "/store";
    const StoredValues values = {{"Cfg/Radio/Gain", TYPE_UINT8_ARRAY, 3, {1, 2, 3}}};
    KeptReport report;
};

/// To SQLite a page that could not be read is a damaged one, and a damaged store was set aside: all values gone for one
/// read that failed once.
TEST_F(FoundByFailures, AnSqliteStoreThatCouldNotBeReadOnce_IsNotSetAside) {
    const std::size_t read = callNamed("pread");
    std::uint64_t number = 0;
    for (;; ++number) {
        FailingCalls::fail(read, FailingCalls::Thread::test, number, EIO);
        report.texts.clear();
        StoredValues found;
        EAFResult result = eAF_S_OK;
        {
            const FailingCalls::Counted counted;
            SqliteStore store(file, 1);
            result = store.open(Access::readWrite, report);
            result = result < eAF_E_FAILED ? store.read(found, report) : result;
        }
        EXPECT_FALSE(std::filesystem::exists(file + ".damaged-1")) << "read " << number << ": " << report.texts;
        SqliteStore again(file, 1);
        StoredValues foundAgain;
        EXPECT_EQ(eAF_S_OK, again.open(Access::readWrite, report));
        EXPECT_EQ(eAF_S_OK, again.read(foundAgain, report));
        EXPECT_EQ(values, foundAgain) << "read " << number;
        if (FailingCalls::failures() == 0) {
            EXPECT_EQ(values, found);
            break;
        }
        EXPECT_TRUE(result == eAF_E_FAILED || found == values) << "read " << number << " answered " << result;
        if (result == eAF_E_FAILED) {
            EXPECT_THAT(report.texts, HasSubstr("input or output failed"));
        }
    }
    EXPECT_GT(number, 1u);
}

/// SQLite opens for reading what it can not open for writing, and the store stayed so: the next one failed as well,
/// although nothing hindered it any more.
TEST_F(FoundByFailures, AnSqliteStoreThatCouldNotBeOpenedForWritingOnce_TakesTheNextValues) {
    for (const int error : {EMFILE, ENFILE, ENOMEM, EACCES, EIO}) {
        // The first file that is opened is the lock, the second the database.
        FailingCalls::fail(callNamed("open"), FailingCalls::Thread::test, 1, error);
        report.texts.clear();
        SqliteStore store(file, 1);
        {
            const FailingCalls::Counted counted;
            EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
        }
        EXPECT_EQ(1u, FailingCalls::failures());
        EXPECT_THAT(report.texts, HasSubstr("opened for reading only"));
        StoredValues found;
        EXPECT_EQ(eAF_S_OK, store.read(found, report));
        EXPECT_EQ(eAF_S_OK, store.write(values, report)) << std::strerror(error) << ": " << report.texts;
    }
}

/// Each number was taken for free whose file could not be looked for, and what was set aside before was renamed over.
TEST_F(FoundByFailures, AnSqliteStoreThatIsSetAsideTwice_ReplacesNothing) {
    const auto damage = [this](char with) {
        std::filesystem::remove(file + "-journal");
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(100);
        stream << std::string(60, with);
        return stream.flush().good();
    };
    const auto open = [this] {
        SqliteStore store(file, 1);
        const EAFResult opened = store.open(Access::readWrite, report);
        return opened < eAF_E_FAILED ? store.write(values, report) : opened;
    };
    ASSERT_TRUE(damage('\xFE'));
    ASSERT_EQ(eAF_S_OK, open());
    const std::string earlier = bytesOf(file + ".damaged-1");
    ASSERT_THAT(earlier, HasSubstr(std::string(60, '\xFE')));
    for (const int error : {EIO, EACCES, ENOMEM, ELOOP}) {
        for (std::uint64_t number = 0;; ++number) {
            SCOPED_TRACE("lstat " + std::to_string(number) + ": " + std::strerror(error));
            ASSERT_TRUE(damage('\xFD'));
            const std::string damaged = bytesOf(file);
            report.texts.clear();
            FailingCalls::fail(callNamed("lstat"), FailingCalls::Thread::test, number, error);
            EAFResult result = eAF_S_OK;
            {
                const FailingCalls::Counted counted;
                SqliteStore store(file, 1);
                result = store.open(Access::readWrite, report);
            }
            const bool hasFailed = FailingCalls::failures() > 0;
            FailingCalls::failNone();
            EXPECT_EQ(earlier, bytesOf(file + ".damaged-1"));
            if (hasFailed) {
                EXPECT_NE(eAF_S_OK, result);
                EXPECT_EQ(damaged, bytesOf(file)) << "it stays where it is";
                EXPECT_THAT(report.texts, HasSubstr(std::strerror(error)));
            } else {
                EXPECT_EQ(eAF_S_OK, result);
                EXPECT_EQ(damaged, bytesOf(file + ".damaged-2"));
                EXPECT_GE(number, 5u) << "names in the path, the two of each number";
            }
            std::filesystem::remove(file + ".damaged-2");
            EXPECT_EQ(eAF_S_OK, open());
            std::filesystem::remove(file + ".damaged-2");
            if (!hasFailed || HasFailure()) {
                break;
            }
        }
    }
}

/// A link that was taken for the file itself had the lock beside it, and the database where it led: two hosts held a
/// lock each, and wrote one file.
TEST_F(FoundByFailures, AnSqliteStoreBehindALinkThatCouldNotBeReadOnce_HasNoSecondOwner) {
    const std::string target = folder.name() + "/data/target";
    const std::string link = folder.name() + "/link";
    std::filesystem::create_directory(folder.name() + "/data");
    std::filesystem::create_symlink("data/target", link);
    for (const std::string &name : {link, std::filesystem::relative(link).string()}) {
        for (const char *call : {"readlink", "getcwd"}) {
            for (const int error : {EIO, EACCES, ENOMEM}) {
                std::uint64_t number = 0;
                for (bool hasFailed = true; hasFailed; ++number) {
                    SCOPED_TRACE(name + ", " + call + " " + std::to_string(number) + ": " + std::strerror(error));
                    report.texts.clear();
                    SqliteStore owner(name, 1);
                    EAFResult result = eAF_S_OK;
                    FailingCalls::fail(callNamed(call), FailingCalls::Thread::test, number, error);
                    try {
                        const FailingCalls::Counted counted;
                        result = owner.open(Access::readWrite, report);
                    } catch (const std::bad_alloc &) {
                        result = eAF_E_OUT_OF_MEMORY;
                    }
                    hasFailed = FailingCalls::failures() > 0;
                    FailingCalls::failNone();
                    EXPECT_FALSE(std::filesystem::exists(link + ".lock"));
                    if (hasFailed) {
                        EXPECT_EQ(error == ENOMEM ? eAF_E_OUT_OF_MEMORY : eAF_E_INITIALIZATION_ERROR, result);
                        EXPECT_TRUE(error == ENOMEM ||
                                    report.texts.find("the name " + name + " can not be") != std::string::npos)
                            << report.texts;
                        EXPECT_EQ(eAF_S_OK, owner.open(Access::readWrite, report)) << "the same store, once it can";
                    }
                    EXPECT_EQ(eAF_S_OK, owner.write(values, report));
                    storage::StoreLock other;
                    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, other.acquire(target, report));
                    std::filesystem::remove(target); // the next link leads to no file again
                }
                const bool isMade = std::strcmp(call, "readlink") == 0 || name != link;
                EXPECT_EQ(isMade, number > 1) << call << " " << number;
            }
        }
    }
}

/// A trigger of somebody else's may sort more than SQLite's buffers hold. It would look for a folder that takes files,
/// with access, and fail where the controller has none: it does so in memory.
TEST_F(FoundByFailures, AnSqliteStoreThatNeedsRoomForItsOwnWork_AsksForNoFolder) {
    sqlite3 *database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(file.c_str(), &database));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database,
                                      "CREATE TABLE log(text);"
                                      "CREATE TRIGGER noted AFTER UPDATE ON variable BEGIN"
                                      " INSERT INTO log WITH RECURSIVE n(i) AS"
                                      " (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<8000)"
                                      " SELECT zeroblob(500+i%7) FROM n ORDER BY 1;"
                                      "END",
                                      nullptr, nullptr, nullptr));
    EXPECT_EQ(SQLITE_OK, sqlite3_close(database));
    StoredValues changed = values;
    changed[0].content[0] = 9;
    FailingCalls::fail(callNamed("access"), FailingCalls::Thread::test, 0, EACCES);
    StoredValues found;
    {
        const FailingCalls::Counted counted;
        SqliteStore store(file, 1);
        EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
        EXPECT_EQ(eAF_S_OK, store.write(changed, report)) << report.texts;
        EXPECT_EQ(eAF_S_OK, store.read(found, report));
    }
    EXPECT_EQ(changed, found);
    EXPECT_EQ(0u, FailingCalls::counted(callNamed("access"), FailingCalls::Thread::test));
    FailingCalls::failNone();
    EXPECT_GT(std::filesystem::file_size(file), 8000u * 500u) << "the trigger ran";
}

/// A thread that is not detached keeps its stack for ever: nobody joins it.
TEST_F(FoundByFailures, AThreadThatCanNotBeDetached_IsNotMade) {
    const auto threads = test::threadCount();
    CEventTask task{};
    ITask *operations = nullptr;
    ASSERT_EQ(eAF_S_OK, CEventTask_GetInterface(&task, &operations));
    test::TraceRecorder::reset();
    FailingCalls::fail(callNamed("pthread_attr_setdetachstate"), FailingCalls::Thread::test, 0, EINVAL);
    {
        const FailingCalls::Counted counted;
        EXPECT_EQ(eAF_E_FAILED, operations->Create(operations, "T", 0, 0, 0, 0));
    }
    EXPECT_EQ(1u, FailingCalls::failures());
    EXPECT_THAT(
        test::TraceRecorder::failures(),
        testing::ElementsAre(test::Line{"CEventTask_Create", "EventTask (T): Could not create thread", 0x8000}));
    operations->Destroy(operations);
    EXPECT_EQ(threads, test::threadCount());
}

/// Host threads that a full queue blocks when its task is destroyed are let go by the leaving worker, which reads until
/// the queue is empty. It took a read that was interrupted, or a message whose size it could not learn, for the end,
/// and the sender waited for ever.
class BlockedSender : public testing::Test {
protected:
    static constexpr std::uint32_t noOfMessages = 4;

    BlockedSender() {
        test::useOwnServerPort();
        mq_unlink(name().c_str());
    }
    ~BlockedSender() override {
        FailingCalls::failNone();
        mq_unlink(name().c_str());
    }

    static std::string name() { return test::queueName("Blocked").substr(0, sizeof CEventTask::queueName - 1); }

    /// The queue as somebody else has left it: a task takes it over.
    static void leaveQueue(long messageSize) {
        mq_attr attributes{};
        attributes.mq_maxmsg = noOfMessages;
        attributes.mq_msgsize = messageSize;
        const mqd_t queue = mq_open(name().c_str(), O_RDWR | O_CREAT, 0600, &attributes);
        ASSERT_NE(-1, queue) << std::strerror(errno);
        mq_close(queue);
    }

    /// Blocks a sender, destroys the task while one of the calls of its worker is to fail, and waits for the sender.
    /// @param isTaken  whether the worker can take a message of this queue when it waits for one.
    void destroyWhile(const char *call, int error, bool isTaken) {
        const auto threads = test::threadCount();
        CEventTask task{};
        ITask *operations = nullptr;
        ASSERT_EQ(eAF_S_OK, CEventTask_GetInterface(&task, &operations));
        ASSERT_EQ(eAF_S_OK, operations->Create(operations, "Blocked", 0, 0, 0, 1));
        SEventDataMessage message{};
        std::atomic<bool> isSent{false};
        std::thread sender;
        {
            const test::WorkerReceives::Held held;
            const auto put = [&] {
                const timespec alreadyPast{};
                return mq_timedsend(task.queue, reinterpret_cast<const char *>(&message), sizeof message, 0,
                                    &alreadyPast) == 0;
            };
            if (isTaken) {
                put(); // from here on the worker is in nobody's way
                EXPECT_TRUE(test::eventually([] { return test::messagesIn(name()) == 0; }));
            }
            while (put()) {
            }
            FailingCalls::fail(callNamed(call), FailingCalls::Thread::other, 0, error);
            sender = std::thread([&] {
                CEventTask_HandleEvent(&task, &message);
                isSent = true;
            });
            const std::size_t send = callNamed("mq_send");
            EXPECT_TRUE(test::eventually([=] { return FailingCalls::counted(send, FailingCalls::Thread::other) > 0; }));
            operations->Destroy(operations);
        }
        EXPECT_TRUE(test::eventually([&] { return isSent.load(); })) << "the sender waits for ever";
        EXPECT_EQ(1u, FailingCalls::failures()) << call;
        if (!isSent) {
            std::_Exit(1); // nobody can let it go
        }
        sender.join();
        EXPECT_TRUE(test::eventually([=] { return test::threadCount() == threads; })) << "the worker stays";
    }
};

TEST_F(BlockedSender, WhoseWorkerIsInterrupted_IsLetGo) {
    leaveQueue(sizeof(SEventDataMessage));
    destroyWhile("mq_timedreceive", EINTR, true);
}

TEST_F(BlockedSender, WhoseMessageIsLargerThanTheWorkersAtFirst_IsLetGo) {
    leaveQueue(sizeof(SEventDataMessage));
    destroyWhile("mq_timedreceive", EMSGSIZE, true);
}

TEST_F(BlockedSender, WhoseQueueDoesNotTellItsSizeOnce_IsLetGo) {
    leaveQueue(4 * sizeof(SEventDataMessage));
    destroyWhile("mq_getattr", EBADF, false);
}

} // namespace
