/// @file
/// What the tests of the event service share: a fixture that leaves nothing behind, and a listener that keeps what
/// it was given.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "CEventHandler.h"
#include "CEventTask.h"
#include "EventQueues.h"
#include "ThreadCount.h"
#include "TraceRecorder.h"

namespace test {

/// "/<user>_<port>_<suffix>" as this process's queues should be named; made without the library's help.
std::string expectedQueueName(const std::string &suffix);

/// The name of a task's queue, which the library cuts; the event service's own unless named.
std::string expectedTaskQueueName(const std::string &task = "EHNP");

/// The system's text for an error number.
std::string errorText(int error);

/// Whether an emulator runs this program, on another machine's kernel.
bool isEmulated();

/// Open descriptors of this process.
std::size_t descriptorCount();

/// Descriptors of this process that are open on the queue.
std::vector<int> descriptorsOn(const std::string &queueName);

/// The running thread's id, as the system counts.
int threadId();

/// The threads of this process that have the name.
std::vector<int> threadsNamed(const std::string &name);

/// Whether a thread of this process sleeps because the queue that it sends to is full.
bool blocksSending(int thread);

/// Waits until a thread of this process sleeps because the queue that it sends to is full.
bool eventuallyBlocksSending(int thread);

/// Waits until a thread of this process sleeps because the queue that it receives from is empty.
bool eventuallyBlocksReceiving(int thread);

/// Waits until a thread of this process sleeps until another one wakes it.
bool eventuallyWaits(int thread);

/// Whether the thread keeps the signal from itself.
bool blocksSignal(int thread, int signalNumber);

/// One call of a listener's callback.
struct Delivery {
    void *context = nullptr;
    std::uint32_t eventId = 0;
    void *data = nullptr;
    SListenerCallback *self = nullptr;
    std::string copy; ///< What data pointed to, when the listener was told how many bytes to look at.
};

/// A listener with a queue that goes when it goes.
class Listener {
public:
    explicit Listener(std::string name, EAFResult answer = eAF_S_OK);
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    /// Adds itself; an empty filter is given as null.
    EAFResult add(std::vector<std::uint32_t> filter = {});

    void pump(int times = 1) const;
    /// Pumps what waits, without ever waiting itself.
    void pumpAll() const;

    const std::string &name() const { return m_name; }
    std::uint32_t handle() const { return m_handle; }
    std::string queue() const { return m_queue; }
    long waiting() const { return messagesIn(m_queue); }
    SListenerCallback *callback() { return &m_callback; }
    std::vector<std::uint32_t> ids() const;

    EAFResult answer;
    std::size_t bytesToKeep = 0;
    std::vector<Delivery> deliveries;

private:
    static EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *self);

    std::string m_name;
    std::string m_queue;
    std::vector<std::uint32_t> m_filter;
    SListenerCallback m_callback;
    std::uint32_t m_handle = ~0u;
};

/// Own server port, empty trace record; at the end the service is closed, its worker gone, its queue removed.
class EventService : public testing::Test {
protected:
    EventService();
    ~EventService() override;

    void initialize(std::uint32_t maxNoOfEvents = 8, std::uint32_t maxNoOfListeners = 4);
    /// Also waits for the worker to leave.
    void unInitialize();
    static void registerEvents(std::initializer_list<std::uint32_t> ids);

    /// The traces since the last call, those of the event task's worker left out.
    std::vector<Line> traced();
    void forgetTraces() { traced(); }
    static SEventHandlerStatistics statistics();
    bool workerHasLeft() const;
    /// Whether the worker has traced the message.
    static bool workerTraced(const std::string &message);

private:
    std::size_t m_threadsBefore;
    std::size_t m_tracesSeen = 0;
};

/// Messages read straight from a queue, with their priorities.
struct RawMessage {
    std::string bytes;
    unsigned int priority = 0;
    SEventDataMessage message() const;
};

/// A queue opened by name, as another program would.
class RawQueue {
public:
    explicit RawQueue(const std::string &name);
    ~RawQueue();
    RawQueue(const RawQueue &) = delete;
    RawQueue &operator=(const RawQueue &) = delete;

    mqd_t descriptor() const { return m_queue; }
    bool send(const SEventDataMessage &message, unsigned int priority = 0) const;
    RawMessage receive() const;

private:
    mqd_t m_queue;
};

using Lines = std::vector<Line>;

} // namespace test
