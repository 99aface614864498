#include "CEventTask.h"

#include <fcntl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CApplicationFramework.h"
#include "EventService.h"

namespace {

using test::Line;
using test::Lines;
using test::RawQueue;
using testing::Contains;
using testing::Not;

const Line closeFailed{"CEventTask_OsProcess", "Could not close the queue.", 0x1000};
const Line unlinkFailed{"CEventTask_OsProcess", "Could not unlink the queue.", 0x1000};
const Line destroyFailed{"CEventTask_OsProcess", "Could not destroy the semaphore.", 0x1000};

/// A task in memory that holds anything but zeros before it is created.
class Task {
public:
    explicit Task(std::string name) : m_name(std::move(name)) {
        std::memset(static_cast<void *>(m_task.get()), 0xA5, sizeof(CEventTask));
        EXPECT_EQ(eAF_S_OK, CEventTask_GetInterface(m_task.get(), &m_operations));
        mq_unlink(m_queueName.c_str());
    }
    ~Task() { mq_unlink(m_queueName.c_str()); }
    Task(const Task &) = delete;
    Task &operator=(const Task &) = delete;

    EAFResult create(std::uint32_t createQueue = 1) {
        return m_operations->Create(m_operations, m_name.c_str(), 7, 2048, 99, createQueue);
    }
    EAFResult start() { return m_operations->Start(m_operations); }
    EAFResult stop() { return m_operations->Stop(m_operations); }
    int destroy() { return m_operations->Destroy(m_operations); }
    bool isRunning() { return m_operations->IsRunning(m_operations) == 1; }

    const std::string &queueName() const { return m_queueName; }
    CEventTask &record() { return *m_task; }
    ITask *operations() { return m_operations; }

private:
    std::unique_ptr<CEventTask> m_task = std::make_unique<CEventTask>();
    ITask *m_operations = nullptr;
    const std::string m_name;
    const std::string m_queueName = test::expectedTaskQueueName(m_name);
};

class CEventTaskTest : public test::EventService {
protected:
    bool allWorkersLeft() {
        return test::eventually([this] { return workerHasLeft(); });
    }
    static bool entersLoop(Task &task) {
        return test::eventually([&] { return task.isRunning(); });
    }
    static int semaphoreValue(Task &task) {
        int value = -1;
        sem_getvalue(&task.record().semaphore, &value);
        return value;
    }
};

TEST_F(CEventTaskTest, TheRecordBeginsWithItsTableAndKeepsItsFieldOrder) {
    EXPECT_EQ(0u, offsetof(CEventTask, operations));
    EXPECT_EQ(6 * sizeof(void *), sizeof(ITask));
    const std::vector<std::size_t> offsets{
        offsetof(CEventTask, threadHandle), offsetof(CEventTask, queue),     offsetof(CEventTask, queueName),
        offsetof(CEventTask, priority),     offsetof(CEventTask, stackSize), offsetof(CEventTask, messageSize),
        offsetof(CEventTask, createQueue),  offsetof(CEventTask, semaphore), offsetof(CEventTask, running),
        offsetof(CEventTask, runFlag),      offsetof(CEventTask, taskName)};
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
    EXPECT_EQ(20u, sizeof CEventTask::queueName);
    EXPECT_EQ(1u, sizeof CEventTask::priority);
    EXPECT_EQ(10u, sizeof CEventTask::taskName);
}

TEST_F(CEventTaskTest, GetInterface_FillsTheTableInSlotOrderAndHandsOutTheTaskItself) {
    CEventTask task;
    std::memset(static_cast<void *>(&task), 0xA5, sizeof task);
    ITask *out = nullptr;
    EXPECT_EQ(eAF_S_OK, CEventTask_GetInterface(&task, &out));
    EXPECT_EQ(static_cast<void *>(&task), static_cast<void *>(out));
    EXPECT_EQ(0u, offsetof(ITask, Create));
    EXPECT_EQ(1 * sizeof(void *), offsetof(ITask, GetThreadHandle));
    EXPECT_EQ(2 * sizeof(void *), offsetof(ITask, Start));
    EXPECT_EQ(3 * sizeof(void *), offsetof(ITask, Stop));
    EXPECT_EQ(4 * sizeof(void *), offsetof(ITask, IsRunning));
    EXPECT_EQ(5 * sizeof(void *), offsetof(ITask, Destroy));
    const auto *bytes = reinterpret_cast<const unsigned char *>(&task);
    for (std::size_t i = sizeof(ITask); i < sizeof task; ++i) {
        ASSERT_EQ(0xA5, bytes[i]) << "byte " << i << " belongs to the rest of the record";
    }
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(CEventTaskTest, Create_FillsTheRecord) {
    Task task("T");
    ASSERT_EQ(eAF_S_OK, task.operations()->Create(task.operations(), "T", 0x1FE, 123456, 99, 60));
    const CEventTask &record = task.record();
    EXPECT_STREQ("T", record.taskName);
    EXPECT_EQ(0xFE, record.priority) << "one byte of it";
    EXPECT_EQ(123456u, record.stackSize);
    EXPECT_EQ(sizeof(SEventDataMessage), record.messageSize) << "whatever was asked for";
    EXPECT_EQ(60u, record.createQueue);
    EXPECT_EQ(task.queueName(), record.queueName);
    EXPECT_EQ(1u, record.runFlag);
    EXPECT_EQ((std::vector<int>{record.queue}), test::descriptorsOn(task.queueName()));
    EXPECT_EQ((Lines{{"CFrameworkUtils_GetMQueueName", "  MQueueName = " + task.queueName(), 0x800},
                     {"CEventTask_Create", "  Task instance T created successfully", 0x800}}),
              traced());
    EXPECT_EQ(eAF_S_OK, task.stop());
    EXPECT_TRUE(allWorkersLeft());
    task.destroy();
}

TEST_F(CEventTaskTest, Create_KeepsNineBytesOfTheNameAndTracesAllOfIt) {
    Task task("ABCDEFGHIJKL");
    ASSERT_EQ(eAF_S_OK, task.create());
    EXPECT_STREQ("ABCDEFGHI", task.record().taskName);
    EXPECT_EQ((Line{"CEventTask_Create", "  Task instance ABCDEFGHIJKL created successfully", 0x800}), traced().back());
    EXPECT_TRUE(test::eventually([] { return workerTraced("  EventTask (ABCDEFGHI): Entering main loop"); }));
    task.stop();
    EXPECT_TRUE(allWorkersLeft());
    EXPECT_TRUE(workerTraced("  EventTask (ABCDEFGHI): Terminating"));
    task.destroy();
}

TEST_F(CEventTaskTest, ALongQueueName_IsCutTo19BytesAndWorks) {
    Task task("ABCDEFGHIJKL");
    ASSERT_EQ(eAF_S_OK, task.create());
    EXPECT_EQ(19u, std::strlen(task.record().queueName));
    EXPECT_EQ(test::expectedQueueName("ABCDEFGHIJKL").substr(0, 19), task.record().queueName);
    EXPECT_TRUE(RawQueue(task.queueName()).send({77, nullptr, 0}));
    EXPECT_TRUE(test::eventually([] { return workerTraced("Unknown event id: 77"); }));
    task.stop();
    EXPECT_TRUE(allWorkersLeft());
    EXPECT_FALSE(test::queueExists(task.queueName()));
    task.destroy();
}

TEST_F(CEventTaskTest, Create_WithoutTaskOrName_TracesOneCodeAndReturnsAnother) {
    Task task("T");
    const auto *bytes = reinterpret_cast<const char *>(&task.record());
    const std::string before(bytes, sizeof(CEventTask));
    ITask *operations = task.operations();
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, operations->Create(operations, nullptr, 1, 2, 3, 4));
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, operations->Create(nullptr, "T", 1, 2, 3, 4));
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, operations->Create(nullptr, nullptr, 1, 2, 3, 4));
    EXPECT_EQ((Lines{{"CEventTask_Create", "EventTask ((null)): Wrong parameters", 0x8006},
                     {"CEventTask_Create", "EventTask (T): Wrong parameters", 0x8006},
                     {"CEventTask_Create", "EventTask ((null)): Wrong parameters", 0x8006}}),
              traced());
    EXPECT_EQ(before, std::string(bytes, sizeof(CEventTask))) << "nothing is touched";
    EXPECT_TRUE(workerHasLeft());
}

TEST_F(CEventTaskTest, Create_TakesAQueueThatIsThereWithWhatItHolds) {
    Task task("T");
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;
    attributes.mq_msgsize = sizeof(SEventDataMessage);
    const mqd_t leftBehind = mq_open(task.queueName().c_str(), O_RDWR | O_CREAT | O_EXCL, mode_t{0600}, &attributes);
    const SEventDataMessage message{4242, nullptr, 0};
    ASSERT_EQ(0, mq_send(leftBehind, reinterpret_cast<const char *>(&message), sizeof message, 0));
    ASSERT_EQ(eAF_S_OK, task.create());
    EXPECT_TRUE(test::eventually([] { return workerTraced("Unknown event id: 4242"); }));
    task.stop();
    EXPECT_TRUE(allWorkersLeft());
    task.destroy();
    mq_close(leftBehind);
}

TEST_F(CEventTaskTest, TheWorker_RunsDetachedUnderItsNameWithoutWaitingForStart) {
    Task task("T");
    ASSERT_EQ(eAF_S_OK, task.create());
    EXPECT_TRUE(entersLoop(task));
    EXPECT_EQ(1u, task.record().runFlag);
    const pthread_t *handle = task.operations()->GetThreadHandle(task.operations());
    EXPECT_EQ(&task.record().threadHandle, handle);
    std::array<char, 16> name{};
    EXPECT_EQ(0, pthread_getname_np(*handle, name.data(), name.size()));
    EXPECT_STREQ("dm-af-eventtsk", name.data());
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_getattr_np(*handle, &attributes));
    int detachState = -1;
    pthread_attr_getdetachstate(&attributes, &detachState);
    EXPECT_EQ(PTHREAD_CREATE_DETACHED, detachState);
    pthread_attr_destroy(&attributes);
    task.stop();
    EXPECT_TRUE(allWorkersLeft());
    task.destroy();
}

TEST_F(CEventTaskTest, TheSemaphore_IsTakenOnceAlsoByAWorkerThatStartCameBefore) {
    // Nothing tells whether it came before; a worker needs its time to begin.
    for (int i = 0; i < 20; ++i) {
        Task task("T");
        ASSERT_EQ(eAF_S_OK, task.create(0));
        ASSERT_EQ(eAF_S_OK, task.start());
        ASSERT_TRUE(entersLoop(task));
        EXPECT_EQ(1, semaphoreValue(task));
        task.stop();
        task.destroy();
    }
    EXPECT_TRUE(allWorkersLeft());
}

TEST_F(CEventTaskTest, TheSemaphore_IsTakenOnceByTheWorkerAndGivenByEachStart) {
    Task task("T");
    ASSERT_EQ(eAF_S_OK, task.create());
    ASSERT_TRUE(entersLoop(task));
    EXPECT_EQ(0, semaphoreValue(task)) << "one from the beginning, taken and given by Create, taken by the worker";
    EXPECT_EQ(eAF_S_OK, task.start());
    EXPECT_EQ(1, semaphoreValue(task));
    EXPECT_EQ(eAF_S_OK, task.start());
    EXPECT_EQ(2, semaphoreValue(task));
    task.stop();
    EXPECT_TRUE(allWorkersLeft());
    EXPECT_EQ(eAF_S_OK, task.start()) << "always";
    task.destroy();
    EXPECT_EQ(eAF_S_OK, task.start());
}

TEST_F(CEventTaskTest, Stop_EndsTheWorkerWhichCleansUpByItself) {
    Task task("T");
    task.create();
    ASSERT_TRUE(entersLoop(task));
    EXPECT_EQ(eAF_S_OK, task.stop());
    EXPECT_EQ(0u, task.record().runFlag);
    ASSERT_TRUE(allWorkersLeft());
    EXPECT_FALSE(task.isRunning());
    EXPECT_FALSE(test::queueExists(task.queueName()));
    EXPECT_EQ(-1, __atomic_load_n(&task.record().queue, __ATOMIC_ACQUIRE)) << "stored by the worker";
    const auto lines = test::TraceRecorder::workerLines();
    EXPECT_EQ((Line{"CEventTask_OsProcess", "  EventTask (T): Terminating", 0x800}), lines.back());
    for (const Line &warning : {closeFailed, unlinkFailed, destroyFailed}) {
        EXPECT_THAT(lines, Not(Contains(warning)));
    }
    EXPECT_EQ(-1, task.destroy()) << "nothing is left to unlink";
}

TEST_F(CEventTaskTest, Stop_WithoutAQueue_FailsAndEndsTheWorkerAllTheSame) {
    // The worker of a task without a queue tries again at once, with a debug trace each time.
    test::TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    Task task("T");
    ASSERT_EQ(eAF_S_OK, task.create(0));
    EXPECT_EQ(-1, task.record().queue);
    EXPECT_STREQ("", task.record().queueName);
    ASSERT_TRUE(entersLoop(task));
    EXPECT_EQ(eAF_E_FAILED, task.stop());
    ASSERT_TRUE(allWorkersLeft());
    EXPECT_EQ((Lines{closeFailed, unlinkFailed}), test::TraceRecorder::workerLines());
    EXPECT_EQ(-1, task.destroy());
}

TEST_F(CEventTaskTest, IsRunning_IsTheRunningWordItself) {
    Task task("T");
    task.record().running = 1;
    EXPECT_TRUE(task.isRunning());
    task.record().running = 0;
    EXPECT_FALSE(task.isRunning());
}

TEST_F(CEventTaskTest, Destroy_OfWhatWasNeverCreated_Fails) {
    Task task("T");
    EXPECT_EQ(-1, task.destroy());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(CEventTaskTest, ATaskThatEnded_IsCreatedAnew) {
    Task task("T");
    for (int life = 0; life < 3; ++life) {
        ASSERT_EQ(eAF_S_OK, task.create());
        ASSERT_TRUE(entersLoop(task));
        EXPECT_EQ(1u, task.record().runFlag);
        task.stop();
        ASSERT_TRUE(allWorkersLeft());
    }
    task.destroy();
}

TEST_F(CEventTaskTest, CreatedAnewWhileItsEarlierWorkerLeaves_TheNewRunIsUntouched) {
    Task task("T");
    for (int life = 0; life < 100; ++life) {
        ASSERT_EQ(eAF_S_OK, task.create());
        ASSERT_EQ(eAF_S_OK, task.stop());
        ASSERT_EQ(eAF_S_OK, task.create());
        ASSERT_TRUE(entersLoop(task));
        EXPECT_EQ(1u, task.record().runFlag);
        EXPECT_NE(-1, task.record().queue);
        if (life % 2 == 0) {
            task.stop();
        } else {
            task.stop();
            task.destroy();
        }
    }
    EXPECT_TRUE(allWorkersLeft()) << "every worker";
    task.destroy();
}

TEST_F(CEventTaskTest, StopAndDestroyAtOnce_LeaveTheMemoryToItsOwner) {
    for (int life = 0; life < 100; ++life) {
        Task task("T");
        ASSERT_EQ(eAF_S_OK, task.create());
        if (life % 3 == 0) {
            ASSERT_TRUE(entersLoop(task));
        }
        task.start();
        EXPECT_EQ(eAF_S_OK, task.stop());
        task.destroy();
    }
    EXPECT_TRUE(allWorkersLeft());
}

TEST_F(CEventTaskTest, TwoTasks_AreTwoWorkersWithQueuesOfTheirOwn) {
    Task first("T1");
    ASSERT_EQ(eAF_S_OK, first.create());
    if (first.queueName() == test::expectedTaskQueueName("T2")) {
        // The user's name leaves no room for the tasks'.
        CApplicationFramework_SetServerPort(-CApplicationFramework_GetServerPort());
    }
    Task second("T2");
    ASSERT_EQ(eAF_S_OK, second.create());
    EXPECT_NE(first.record().queue, second.record().queue);
    first.stop();
    EXPECT_TRUE(test::eventually([&] { return !test::queueExists(first.queueName()); }));
    EXPECT_TRUE(test::queueExists(second.queueName()));
    EXPECT_TRUE(entersLoop(second));
    second.stop();
    EXPECT_TRUE(allWorkersLeft());
    first.destroy();
    second.destroy();
}

// HandleEvent

TEST_F(CEventTaskTest, HandleEvent_SendsTheAddressOfTheMessageAndZeros) {
    test::Listener queueOwner("A");
    initialize();
    queueOwner.add();
    const RawQueue queue(queueOwner.queue());
    CEventTask task{};
    task.queue = queue.descriptor();
    SEventDataMessage message{1, &task, 1};
    const SEventDataMessage *address = &message;
    EXPECT_EQ(eAF_S_OK, CEventTask_HandleEvent(&task, &message));

    const test::RawMessage raw = queue.receive();
    std::string expected(sizeof message, '\0');
    std::memcpy(&expected[0], &address, sizeof address);
    EXPECT_EQ(expected, raw.bytes);
    EXPECT_EQ(0u, raw.priority);
}

TEST_F(CEventTaskTest, HandleEvent_WithoutAQueue_FailsWithoutATrace) {
    CEventTask task{};
    task.queue = -1;
    SEventDataMessage message{1, nullptr, 0};
    EXPECT_EQ(eAF_E_FAILED, CEventTask_HandleEvent(&task, &message));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(CEventTaskTest, HandleEvent_MakesTheWorkerLookForTheAddressAsAnId) {
    initialize();
    registerEvents({1});
    Task task("T");
    ASSERT_EQ(eAF_S_OK, task.create());
    SEventDataMessage message{1, nullptr, 0};
    EXPECT_EQ(eAF_S_OK, CEventTask_HandleEvent(&task.record(), &message));
    const auto id = static_cast<std::int32_t>(reinterpret_cast<std::uintptr_t>(&message));
    EXPECT_TRUE(test::eventually([] { return workerTraced("Could not fire (unknown) delayed event"); }));
    EXPECT_TRUE(workerTraced("Unknown event id: " + std::to_string(id)));
    task.stop();
    task.destroy();
}

TEST_F(CEventTaskTest, HandleEvent_OfAnAddressThatIsARegisteredId_ReachesItsListeners) {
    initialize();
    Task task("T");
    SEventDataMessage message{1, nullptr, 0};
    registerEvents({static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&message))});
    test::Listener listener("A");
    listener.add();
    ASSERT_EQ(eAF_S_OK, task.create());
    EXPECT_EQ(eAF_S_OK, CEventTask_HandleEvent(&task.record(), &message));
    listener.pump();
    EXPECT_EQ(1u, listener.deliveries.size());
    task.stop();
    task.destroy();
}

} // namespace
