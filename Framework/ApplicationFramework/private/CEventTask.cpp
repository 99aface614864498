#include "CEventTask.h"

#include <sys/prctl.h>
#include <sys/stat.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <new>

#include "AfTrace.h"
#include "AtomicWord.h"
#include "BoundedText.h"
#include "CEventHandler.h"
#include "CFrameworkUtils.h"
#include "EventQueue.h"
#include "EventRegistry.h"

namespace {

constexpr mode_t taskQueueMode = 0777;
constexpr std::uint32_t largestStackSize = 16384;
constexpr std::chrono::milliseconds betweenDrains{10};

/// One life of a worker, from Create until both the worker has ended and the task has given it up.
///
/// Nobody waits for a leaving worker: meanwhile the task's record may be freed, or created anew. So the worker
/// lives on this block, and touches the record only under runsLock and only while `task` still names it.
struct TaskRun {
    TaskRun *next = nullptr;
    CEventTask *task = nullptr; ///< Null once Destroy or another Create has given the run up.
    std::atomic<bool> runFlag{true};
    bool hasWorker = false;
    bool hasSemaphore = false;
    bool isUnlinked = false; ///< By the worker or by Destroy: the name may be another run's by now.

    // The descriptor is closed once, and not while a thread is inside a call on it: its number could be
    // somebody else's before the call begins.
    mqd_t queue = af::noQueue;
    bool isQueueOpen = false;
    bool isCloseDue = false; ///< Closed for everybody; the last user closes the descriptor.
    std::uint32_t queueUsers = 0;
    std::uint32_t leavings = 0; ///< How often one of them was done.
    std::condition_variable userLeft;

    char queueName[sizeof CEventTask::queueName]{};
    char taskName[sizeof CEventTask::taskName]{};
};

std::mutex runsLock;
TaskRun *runs;

TaskRun *findRun(const CEventTask *task) {
    TaskRun *run = runs;
    while (run != nullptr && run->task != task) {
        run = run->next;
    }
    return run;
}

/// Call with runsLock held.
void freeIfOver(TaskRun *run) {
    if (run->task != nullptr || run->hasWorker || run->queueUsers != 0) {
        return;
    }
    TaskRun **link = &runs;
    while (*link != run) {
        link = &(*link)->next;
    }
    *link = run->next;
    delete run;
}

/// Call with runsLock held.
void wakeWorker(const TaskRun &run) {
    if (run.hasWorker && (run.isQueueOpen || run.isCloseDue)) {
        af::wakeReceiver(run.queue);
    }
}

/// Wakes the workers of runs that were given up: whoever else reads a queue may have taken what should have woken
/// them. Nobody waits for them, so this is done once more with each run that begins or ends. Call with runsLock held.
void wakeAbandonedWorkers() {
    for (const TaskRun *run = runs; run != nullptr; run = run->next) {
        if (run->task == nullptr) {
            wakeWorker(*run);
        }
    }
}

/// Ends the run's claim on the task's record, where its worker counts as gone. Call with runsLock held.
void giveUp(TaskRun *run) {
    run->runFlag.store(false);
    // Nobody may have stopped it, or Stop's message may have been lost: it would wait for ever.
    wakeWorker(*run);
    af::storeRelease(run->task->running, std::uint32_t{0});
    run->task = nullptr;
    freeIfOver(run);
}

/// Closes for everybody; the descriptor itself goes with the last thread inside a call on it.
/// @return whether there was one to close, and closing it did not fail. Call with runsLock held.
bool closeQueue(TaskRun &run) {
    if (!run.isQueueOpen) {
        return false;
    }
    run.isQueueOpen = false;
    if (run.task != nullptr) {
        af::storeRelease(run.task->queue, af::noQueue);
    }
    run.isCloseDue = run.queueUsers != 0;
    return run.isCloseDue || mq_close(run.queue) == 0;
}

/// @return mq_unlink's plain result; whoever comes second fails. Call with runsLock held.
int unlinkQueue(TaskRun &run) {
    if (run.isUnlinked) {
        errno = ENOENT;
        return -1;
    }
    run.isUnlinked = true;
    return mq_unlink(run.queueName);
}

/// @return whether there was one to destroy. Call with runsLock held.
bool destroySemaphore(TaskRun &run) {
    if (!run.hasSemaphore || run.task == nullptr) {
        return false;
    }
    run.hasSemaphore = false;
    return sem_destroy(&run.task->semaphore) == 0;
}

/// The task's queue for the length of one call on it; -1 when none is open.
class QueueUse {
public:
    explicit QueueUse(TaskRun *run) : m_run(run) {
        const std::lock_guard<std::mutex> lock(runsLock);
        enter();
    }

    /// For a thread that knows only the task. A record that was never created is used as it stands.
    explicit QueueUse(const CEventTask *task) {
        const std::lock_guard<std::mutex> lock(runsLock);
        m_run = findRun(task); // NOLINT(cppcoreguidelines-prefer-member-initializer): needs the lock
        if (m_run == nullptr) {
            m_queue = af::loadAcquire(task->queue);
        } else {
            enter();
        }
    }

    ~QueueUse() {
        if (m_run == nullptr) {
            return;
        }
        const std::lock_guard<std::mutex> lock(runsLock);
        if (--m_run->queueUsers == 0 && m_run->isCloseDue) {
            m_run->isCloseDue = false;
            mq_close(m_run->queue);
        }
        ++m_run->leavings;
        m_run->userLeft.notify_one();
        freeIfOver(m_run);
    }

    QueueUse(const QueueUse &) = delete;
    QueueUse &operator=(const QueueUse &) = delete;

    mqd_t queue() const { return m_queue; }

    /// Tells the worker to leave. It is this use's worker, whatever became of the task since.
    void stopWorker() const {
        if (m_run != nullptr) {
            m_run->runFlag.store(false);
        }
    }

private:
    void enter() {
        ++m_run->queueUsers;
        m_queue = m_run->isQueueOpen ? m_run->queue : af::noQueue;
    }

    TaskRun *m_run = nullptr;
    mqd_t m_queue = af::noQueue;
};

// The worker

/// Keeps signals from this thread, but for those that tell of its own faults. One that ended the wait for a full
/// listener would lose the event, and nobody is there to be told.
class WithoutSignals {
public:
    WithoutSignals() {
        sigset_t signals;
        sigfillset(&signals);
        for (const int fault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
            sigdelset(&signals, fault);
        }
        pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    }
    ~WithoutSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    WithoutSignals(const WithoutSignals &) = delete;
    WithoutSignals &operator=(const WithoutSignals &) = delete;

private:
    sigset_t m_before{};
};

void handleMessage(SEventDataMessage &message) {
    const WithoutSignals whileItForwards;
    // The name below is the registry's own text: it stays while this is held.
    const RegistryPin registry;
    if (!af::isError(CEventHandler_FireEventFromMessageInternal(&message))) {
        return;
    }
    const char *name = nullptr;
    if (af::isError(CEventHandler_GetEventName(message.eventId, &name)) || name == nullptr) {
        AF_TRACE_AS("CEventTask_OsProcess", eAF_W_WARNING, "Could not fire (unknown) delayed event");
    } else {
        AF_TRACE_AS("CEventTask_OsProcess", eAF_W_WARNING, "Could not fire delayed event %s", name);
    }
}

void enterMainLoop(TaskRun &run) {
    std::unique_lock<std::mutex> lock(runsLock);
    // Create has given the semaphore before this thread began, so this does not wait for Start, or at all. Should
    // somebody hold it all the same, the lock is not held meanwhile: the task may be destroyed.
    while (run.task != nullptr && run.hasSemaphore && sem_trywait(&run.task->semaphore) != 0) {
        lock.unlock();
        sched_yield();
        lock.lock();
    }
    if (run.task != nullptr) {
        af::storeRelease(run.task->running, std::uint32_t{1});
    }
}

/// Lets the senders that are blocked on the full queue finish: nobody else would read it any more. None joins
/// them, the queue is closed for everybody. Call with runsLock held.
void drainForBlockedSenders(TaskRun &run, std::unique_lock<std::mutex> &lock) {
    while (run.isCloseDue) {
        const std::uint32_t seen = run.leavings;
        ++run.queueUsers;
        lock.unlock();
        // Not until it is empty: another process may fill it as fast, and nothing waits for that one.
        bool isEmpty = false;
        for (long i = 0; i < af::queueLength && !isEmpty; ++i) {
            isEmpty = !af::discardMessage(run.queue);
        }
        lock.lock();
        if (--run.queueUsers == 0) {
            run.isCloseDue = false;
            mq_close(run.queue);
        } else if (isEmpty && run.leavings == seen) {
            // One that has not begun its send yet would sleep in it if another process filled the queue meanwhile.
            run.userLeft.wait_for(lock, betweenDrains);
        }
    }
}

void leave(TaskRun &run) {
    std::unique_lock<std::mutex> lock(runsLock);
    if (run.task != nullptr) {
        af::storeRelease(run.task->running, std::uint32_t{0});
    }
    const bool isClosed = closeQueue(run);
    const bool isUnlinked = unlinkQueue(run) == 0;
    const bool isSemaphoreDestroyed = destroySemaphore(run);
    drainForBlockedSenders(run, lock);
    lock.unlock();
    if (!isClosed) {
        AF_TRACE_AS("CEventTask_OsProcess", eAF_W_WARNING, "Could not close the queue.");
    }
    if (!isUnlinked) {
        AF_TRACE_AS("CEventTask_OsProcess", eAF_W_WARNING, "Could not unlink the queue.");
    }
    if (!isSemaphoreDestroyed) {
        AF_TRACE_AS("CEventTask_OsProcess", eAF_W_WARNING, "Could not destroy the semaphore.");
    }
    AF_TRACE_AS("CEventTask_OsProcess", eAF_DEBUG, "  EventTask (%s): Terminating", run.taskName);
    lock.lock();
    run.hasWorker = false;
    freeIfOver(&run);
}

extern "C" void *CEventTask_OsProcess(void *argument) {
    TaskRun &run = *static_cast<TaskRun *>(argument);
    prctl(PR_SET_NAME, "dm-af-eventtsk", 0, 0, 0);
    enterMainLoop(run);
    AF_TRACE(eAF_DEBUG, "  EventTask (%s): Entering main loop", run.taskName);
    while (run.runFlag.load()) {
        SEventDataMessage message;
        ssize_t received = 0;
        int error = 0;
        {
            const QueueUse use(&run);
            received = af::receiveMessage(use.queue(), message);
            error = errno;
        }
        if (!run.runFlag.load()) {
            break;
        }
        if (received > 0) {
            handleMessage(message);
        } else {
            // Also the first turns of a worker that is faster than Create opens the queue.
            AF_TRACE(eAF_DEBUG, "EventTask (%s): Receive from queue failed, error %s", run.taskName,
                     std::strerror(error));
            // Create may need this processor to store the descriptor.
            sched_yield();
        }
    }
    leave(run);
    return nullptr;
}

// The operations of the table

/// @return whether the thread, detached, could be made.
bool createWorker(TaskRun &run, pthread_t &threadHandle, std::uint32_t stackSize) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    // Nobody would join one that is not detached.
    const bool isDetached = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0;
    // Too small a size is refused, and the default stack is used: the event handler relies on it.
    pthread_attr_setstacksize(&attributes, std::min(stackSize, largestStackSize));
    run.hasWorker = true;
    const bool isCreated = isDetached && pthread_create(&threadHandle, &attributes, CEventTask_OsProcess, &run) == 0;
    pthread_attr_destroy(&attributes);
    if (!isCreated) {
        run.hasWorker = false;
    }
    return isCreated;
}

/// The umask is the process's: two tasks that clear and restore it at once would leave it cleared.
std::mutex umaskLock;

/// Opens the task's queue for everybody, under a cleared umask.
bool openTaskQueue(TaskRun &run, CEventTask &task, const char *name) {
    CFrameworkUtils_GetMQueueName(task.queueName, sizeof task.queueName, name);
    {
        const std::lock_guard<std::mutex> lock(runsLock);
        std::memcpy(run.queueName, task.queueName, sizeof run.queueName);
    }
    std::unique_lock<std::mutex> maskLock(umaskLock);
    const mode_t usualMask = umask(0);
    const mqd_t queue = af::openEventQueue(task.queueName, taskQueueMode);
    const int error = errno;
    umask(usualMask);
    maskLock.unlock();
    if (queue == af::noQueue) {
        AF_TRACE_AS("CEventTask_Create", eAF_E_QUEUE_CREATION_FAILED, "%s", std::strerror(error));
        return false;
    }
    const std::lock_guard<std::mutex> lock(runsLock);
    run.queue = queue;
    run.isQueueOpen = true;
    af::storeRelease(task.queue, queue);
    return true;
}

/// Files a run for the task in place of an earlier one that nobody destroyed. That one's queue loses its name
/// here, not when its worker leaves: the two runs share nothing.
TaskRun *beginRun(CEventTask *task, const char *name) {
    auto *run = new (std::nothrow) TaskRun();
    if (run == nullptr) {
        return nullptr;
    }
    af::copyBounded(run->taskName, name);
    const std::lock_guard<std::mutex> lock(runsLock);
    TaskRun *earlier = findRun(task);
    if (earlier != nullptr) {
        if (earlier->isQueueOpen) {
            unlinkQueue(*earlier);
        }
        earlier->isUnlinked = true;
        giveUp(earlier);
    }
    wakeAbandonedWorkers();
    run->task = task;
    run->next = runs;
    runs = run;
    return run;
}

void abandonRun(TaskRun *run) {
    const std::lock_guard<std::mutex> lock(runsLock);
    giveUp(run);
}

EAFResult CEventTask_Create(void *self, const char *name, std::uint32_t priority, std::uint32_t stackSize,
                            std::uint32_t /*messageSize*/, std::uint32_t createQueue) {
    if (self == nullptr || name == nullptr) {
        // Traced as what it is, returned as what the event handler's users have always been told.
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "EventTask (%s): Wrong parameters", name != nullptr ? name : "(null)");
        return eAF_E_TOO_MANY_REGISTRATIONS;
    }
    auto *task = static_cast<CEventTask *>(self);
    TaskRun *run = beginRun(task, name);
    if (run == nullptr) {
        return eAF_E_OUT_OF_MEMORY;
    }
    af::copyBounded(task->taskName, name);
    task->priority = static_cast<std::uint8_t>(priority);
    task->stackSize = stackSize;
    task->messageSize = sizeof(SEventDataMessage);
    task->createQueue = createQueue;
    af::copyBounded(task->queueName, nullptr);
    af::storeRelease(task->queue, af::noQueue);

    if (sem_init(&task->semaphore, 0, 1) != 0) {
        AF_TRACE(eAF_E_FAILED, "EventTask (%s): Could not create semaphore", name);
        abandonRun(run);
        return eAF_E_FAILED;
    }
    run->hasSemaphore = true;
    while (sem_wait(&task->semaphore) != 0 && errno == EINTR) {
    }
    af::storeRelease(task->running, std::uint32_t{0});
    af::storeRelease(task->runFlag, std::uint32_t{1});
    sem_post(&task->semaphore);

    if (!createWorker(*run, task->threadHandle, stackSize)) {
        AF_TRACE(eAF_E_FAILED, "EventTask (%s): Could not create thread", name);
        return eAF_E_FAILED;
    }
    if (createQueue != 0 && !openTaskQueue(*run, *task, name)) {
        return eAF_E_FAILED;
    }
    AF_TRACE(eAF_DEBUG, "  Task instance %s created successfully", name);
    return eAF_S_OK;
}

pthread_t *CEventTask_GetThreadHandle(void *self) {
    return self != nullptr ? &static_cast<CEventTask *>(self)->threadHandle : nullptr;
}

EAFResult CEventTask_Start(void *self) {
    const std::lock_guard<std::mutex> lock(runsLock);
    const TaskRun *run = self != nullptr ? findRun(static_cast<CEventTask *>(self)) : nullptr;
    if (run != nullptr && run->hasSemaphore) {
        sem_post(&run->task->semaphore);
    }
    return eAF_S_OK;
}

EAFResult CEventTask_Stop(void *self) {
    if (self == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    auto *task = static_cast<CEventTask *>(self);
    af::storeRelease(task->runFlag, std::uint32_t{0});
    // In use before the worker is told: it keeps the queue until this message is in.
    const QueueUse use(task);
    use.stopWorker();
    const SEventDataMessage wakeUp = af::makeMessage(EVENT_ID_STOP, nullptr, 0);
    return af::sendMessage(use.queue(), wakeUp, af::normalPriority) ? eAF_S_OK : eAF_E_FAILED;
}

std::uint32_t CEventTask_IsRunning(void *self) {
    return self != nullptr ? af::loadAcquire(static_cast<CEventTask *>(self)->running) : 0;
}

int CEventTask_Destroy(void *self) {
    const std::lock_guard<std::mutex> lock(runsLock);
    TaskRun *run = self != nullptr ? findRun(static_cast<CEventTask *>(self)) : nullptr;
    if (run == nullptr) {
        errno = EINVAL;
        return -1;
    }
    destroySemaphore(*run);
    closeQueue(*run);
    const int result = unlinkQueue(*run);
    wakeAbandonedWorkers();
    giveUp(run);
    return result;
}

} // namespace

EAFResult CEventTask_GetInterface(CEventTask *task, ITask **out) {
    if (task == nullptr || out == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    task->operations = {CEventTask_Create, CEventTask_GetThreadHandle, CEventTask_Start,
                        CEventTask_Stop,   CEventTask_IsRunning,       CEventTask_Destroy};
    *out = &task->operations;
    return eAF_S_OK;
}

EAFResult CEventTask_HandleEvent(CEventTask *task, SEventDataMessage *message) {
    if (task == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const QueueUse use(task);
    return af::sendMessage(use.queue(), af::makeAddressMessage(message), af::normalPriority) ? eAF_S_OK : eAF_E_FAILED;
}
