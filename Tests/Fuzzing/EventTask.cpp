// Two tasks by themselves, their operations in any order, against what each operation promises: codes, records, queues,
// semaphores, what the worker fires and what it warns of when it leaves.
#include <fcntl.h>
#include <mqueue.h>
#include <semaphore.h>

#include <sched.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "CEventHandler.h"
#include "EventQueues.h"
#include "FuzzInput.h"
#include "Harness.h"
#include "ThreadCount.h"
#include "TraceRecorder.h"

namespace {

using fuzz::FuzzInput;

constexpr std::uint32_t eventId = 1;
constexpr std::uint32_t unknownId = 4711;
constexpr std::int32_t warningLevel = 3; ///< A worker without a queue would fill the memory with what it traces below.
constexpr std::size_t longestQueueName = sizeof CEventTask::queueName - 1;
constexpr std::size_t longestTaskName = sizeof CEventTask::taskName - 1;
constexpr const char *listenerName = "L";

std::uint32_t listener;
std::uint32_t deliveries;
std::size_t usualThreads;

EAFResult onEvent(void * /*context*/, std::uint32_t /*event*/, void *data, SListenerCallback * /*self*/) {
    FUZZ_CHECK(data == nullptr, "other data");
    ++deliveries;
    return eAF_S_OK;
}

/// Until another thread has made it true; the fuzzer's time limit ends what never becomes so.
template <class Condition>
void waitUntil(Condition isSo) {
    while (!isSo()) {
        sched_yield();
    }
}

/// What the leaving workers could not do, and what they could not fire.
struct Warnings {
    std::size_t close = 0;
    std::size_t unlink = 0;
    std::size_t semaphore = 0;
    std::size_t unknown = 0;

    static Warnings told() {
        Warnings warnings;
        for (const test::Line &line : test::TraceRecorder::workerLines()) {
            warnings.close += line.message == "Could not close the queue." ? 1 : 0;
            warnings.unlink += line.message == "Could not unlink the queue." ? 1 : 0;
            warnings.semaphore += line.message == "Could not destroy the semaphore." ? 1 : 0;
            warnings.unknown += line.message == "Could not fire (unknown) delayed event" ? 1 : 0;
        }
        return warnings;
    }
    std::string text() const {
        return std::to_string(close) + " " + std::to_string(unlink) + " " + std::to_string(semaphore) + " " +
               std::to_string(unknown);
    }
};

class Task {
public:
    enum class State { none, runs, leaving, left };

    explicit Task(char letter) : m_letter(letter) { renew(); }

    State state() const { return m_state; }
    bool hasQueue() const { return m_hasQueue; }
    const std::string &queueName() const { return m_queueName; }
    ITask &operations() { return *m_operations; }
    CEventTask &record() { return *m_record; }

    void create(FuzzInput &input, Warnings &expected) {
        std::string name(1, m_letter);
        for (std::uint32_t left = input.below(14); left > 0; --left) {
            name += static_cast<char>('a' + input.below(26));
        }
        const std::uint32_t createQueue = input.oneIn(8) ? 0 : input.oneIn(2) ? 1 : input.word() | 1;
        const std::uint32_t priority = input.word();
        const std::uint32_t stackSize = input.oneIn(4) ? input.word() : input.below(65536);
        if (m_state == State::runs) { // its queue loses its name, and its semaphore is the next run's
            expected.close += m_hasQueue ? 0 : 1;
            ++expected.unlink;
            ++expected.semaphore;
        }
        FUZZ_CHECK(m_operations->Create(m_record.get(), name.c_str(), priority, stackSize, input.word(), createQueue) ==
                       eAF_S_OK,
                   name);
        m_state = State::runs;
        m_hasQueue = createQueue != 0;
        m_queueName = m_hasQueue ? test::queueName(name).substr(0, longestQueueName) : "";
        m_starts = 0;
        FUZZ_CHECK(m_record->taskName == name.substr(0, longestTaskName), m_record->taskName);
        FUZZ_CHECK(m_record->queueName == m_queueName, m_record->queueName);
        FUZZ_CHECK(m_record->priority == (priority & 0xFF), std::to_string(m_record->priority));
        FUZZ_CHECK(m_record->stackSize == stackSize, std::to_string(m_record->stackSize));
        FUZZ_CHECK(m_record->messageSize == sizeof(SEventDataMessage), std::to_string(m_record->messageSize));
        FUZZ_CHECK(m_record->createQueue == createQueue, std::to_string(m_record->createQueue));
        FUZZ_CHECK(m_hasQueue == (m_record->queue != -1), std::to_string(m_record->queue));
        FUZZ_CHECK(!m_hasQueue || test::messagesIn(m_queueName) == 0, m_queueName);
        waitUntil([this] { return m_operations->IsRunning(m_record.get()) == 1; });
    }

    void start() {
        FUZZ_CHECK(m_operations->Start(m_record.get()) == eAF_S_OK, "Start");
        ++m_starts;
        if (m_state == State::runs) {
            int value = -1;
            FUZZ_CHECK(sem_getvalue(&m_record->semaphore, &value) == 0 && value == m_starts, std::to_string(value));
        }
    }

    /// @param isWaitedFor  whether the worker is gone when this returns.
    void stop(bool isWaitedFor, Warnings &expected) {
        const bool isSent = m_state == State::runs && m_hasQueue;
        const EAFResult result = m_operations->Stop(m_record.get());
        FUZZ_CHECK(m_state == State::leaving || result == (isSent ? eAF_S_OK : eAF_E_FAILED), std::to_string(result));
        if (m_state != State::runs) {
            return;
        }
        expected.close += m_hasQueue ? 0 : 1;
        expected.unlink += m_hasQueue ? 0 : 1;
        m_state = State::leaving;
        if (isWaitedFor) {
            waitUntil([this] {
                return m_operations->IsRunning(m_record.get()) == 0 && (!m_hasQueue || !test::queueExists(m_queueName));
            });
            m_state = State::left;
        }
    }

    void destroy(Warnings &expected, bool &isExact) {
        const int result = m_operations->Destroy(m_record.get());
        if (m_state == State::runs) {
            FUZZ_CHECK(result == (m_hasQueue ? 0 : -1), std::to_string(result));
            FUZZ_CHECK(!m_hasQueue || !test::queueExists(m_queueName), m_queueName);
            ++expected.close;
            ++expected.unlink;
            ++expected.semaphore;
        } else if (m_state == State::leaving) {
            isExact = false; // whoever comes first closes, unlinks and destroys
        } else {
            FUZZ_CHECK(result == -1, std::to_string(result));
        }
        FUZZ_CHECK(m_state == State::none || m_operations->IsRunning(m_record.get()) == 0, "runs");
        renew(); // the worker may be on its way out still
    }

    void checkIsRunning() {
        if (m_state == State::runs || m_state == State::left) {
            FUZZ_CHECK(m_operations->IsRunning(m_record.get()) == (m_state == State::runs ? 1u : 0u), "IsRunning");
        }
    }

private:
    void renew() {
        m_record = std::make_unique<CEventTask>();
        std::memset(static_cast<void *>(m_record.get()), 0xA5, sizeof(CEventTask));
        FUZZ_CHECK(CEventTask_GetInterface(m_record.get(), &m_operations) == eAF_S_OK, "GetInterface");
        FUZZ_CHECK(static_cast<void *>(m_operations) == m_record.get(), "another address");
        m_state = State::none;
        m_hasQueue = false;
    }

    char m_letter;
    std::unique_ptr<CEventTask> m_record;
    ITask *m_operations = nullptr;
    State m_state = State::none;
    bool m_hasQueue = false;
    std::string m_queueName;
    int m_starts = 0;
};

class Walk {
public:
    explicit Walk(FuzzInput &input) : m_input(input) { test::TraceRecorder::reset(warningLevel); }
    ~Walk() {
        for (Task &task : m_tasks) {
            task.destroy(m_expected, m_isExact);
        }
        waitUntil([] { return test::threadCount() == usualThreads; });
        const Warnings told = Warnings::told();
        FUZZ_CHECK(told.unknown == m_expected.unknown, told.text() + ", expected " + m_expected.text());
        FUZZ_CHECK(!m_isExact || told.text() == m_expected.text(), told.text() + ", expected " + m_expected.text());
    }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    void step() {
        Task &task = m_tasks[m_input.below(2)];
        switch (m_input.below(10)) {
        case 0:
        case 1:
        case 2:
            m_isExact = m_isExact && task.state() != Task::State::leaving;
            task.create(m_input, m_expected);
            break;
        case 3:
            task.start();
            break;
        case 4:
            task.stop(!m_input.oneIn(4), m_expected);
            break;
        case 5:
            task.destroy(m_expected, m_isExact);
            break;
        case 6:
            handleEvent(task);
            break;
        case 7:
        case 8:
            post(task);
            break;
        default:
            odd(task);
            break;
        }
        task.checkIsRunning();
    }

private:
    static bool takesMessages(const Task &task) { return task.state() == Task::State::runs && task.hasQueue(); }

    void waitForUnknown() {
        ++m_expected.unknown;
        waitUntil([this] { return Warnings::told().unknown == m_expected.unknown; });
    }

    /// The worker reads the address for an event's id, which no event has.
    void handleEvent(Task &task) {
        if (task.state() == Task::State::leaving) {
            return; // its queue may be there or not
        }
        SEventDataMessage message{eventId, nullptr, 0};
        SEventDataMessage *const address = m_input.oneIn(4) ? nullptr : &message;
        const EAFResult result = CEventTask_HandleEvent(&task.record(), address);
        FUZZ_CHECK(result == (takesMessages(task) ? eAF_S_OK : eAF_E_FAILED), std::to_string(result));
        if (takesMessages(task)) {
            waitForUnknown();
        }
    }

    /// As whoever delays an event does.
    void post(Task &task) {
        if (!takesMessages(task)) {
            return;
        }
        const bool isKnown = !m_input.oneIn(4);
        const SEventDataMessage message{isKnown ? eventId : unknownId, nullptr, 0};
        const mqd_t queue = mq_open(task.queueName().c_str(), O_WRONLY | O_CLOEXEC);
        FUZZ_CHECK(queue != -1, task.queueName() + ": " + std::strerror(errno));
        FUZZ_CHECK(mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, m_input.below(32768)) == 0,
                   std::strerror(errno));
        mq_close(queue);
        if (isKnown) {
            deliveries = 0;
            CEventHandler_PumpEvent(listener); // waits for it
            FUZZ_CHECK(deliveries == 1, std::to_string(deliveries));
        } else {
            waitForUnknown();
        }
    }

    void odd(Task &task) {
        ITask &operations = task.operations();
        const bool isNameless = m_input.oneIn(2);
        FUZZ_CHECK(operations.Create(isNameless ? &task.record() : nullptr, isNameless ? nullptr : "A", 0, 0, 0, 1) ==
                       eAF_E_TOO_MANY_REGISTRATIONS,
                   "no name or no task");
        FUZZ_CHECK(operations.GetThreadHandle(&task.record()) == &task.record().threadHandle, "another handle");
        FUZZ_CHECK(operations.GetThreadHandle(nullptr) == nullptr, "no task");
        FUZZ_CHECK(operations.Start(nullptr) == eAF_S_OK, "no task");
        FUZZ_CHECK(operations.Stop(nullptr) == eAF_E_INVALID_ARGUMENT, "no task");
        FUZZ_CHECK(operations.IsRunning(nullptr) == 0, "no task");
        FUZZ_CHECK(operations.Destroy(nullptr) == -1, "no task");
        ITask *out = nullptr;
        FUZZ_CHECK(CEventTask_GetInterface(nullptr, &out) == eAF_E_INVALID_ARGUMENT && out == nullptr, "no task");
        FUZZ_CHECK(CEventTask_GetInterface(&task.record(), nullptr) == eAF_E_INVALID_ARGUMENT, "no address");
        FUZZ_CHECK(CEventTask_HandleEvent(nullptr, nullptr) == eAF_E_INVALID_ARGUMENT, "no task");
    }

    FuzzInput &m_input;
    std::array<Task, 2> m_tasks{Task('A'), Task('B')};
    Warnings m_expected;
    bool m_isExact = true;
};

void closeService() {
    CEventHandler_UnInitialize();
    mq_unlink(test::queueName(listenerName).c_str());
    mq_unlink(test::taskQueueName().c_str());
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    static SListenerCallback callback{nullptr, onEvent};
    test::TraceRecorder::reset(warningLevel);
    test::useOwnServerPort();
    FUZZ_CHECK(CEventHandler_Initialize(8, 1) == eAF_S_OK, "Initialize");
    std::atexit(closeService);
    FUZZ_CHECK(CEventHandler_RegisterEvent(eventId, "event") == eAF_S_OK, "RegisterEvent");
    FUZZ_CHECK(CEventHandler_AddListener(&callback, nullptr, 0, listenerName, &listener) == eAF_S_OK, "AddListener");
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // A user's long name leaves nothing of a task's to tell the queues apart by.
    const std::string cut = test::queueName("A").substr(0, longestQueueName);
    if (cut.back() != 'A') {
        return 0;
    }
    // The fuzzer's own are there, and no task's.
    usualThreads = usualThreads == 0 ? test::threadCount() : usualThreads;
    FuzzInput input(data, size);
    Walk walk(input);
    for (int steps = 0; steps < 60 && !input.isAtEnd(); ++steps) {
        walk.step();
    }
    return 0;
}
