// What another process may put into the queues of a listener and of the event task: messages of any size up to the
// queue's, any id, any flag, any priority, padding too. The data pointer is null or points to memory of this process,
// which is what the service trusts its user's processes to keep.
#include <fcntl.h>
#include <mqueue.h>

#include <sched.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "CEventHandler.h"
#include "EventQueues.h"
#include "FuzzInput.h"
#include "Harness.h"
#include "TraceRecorder.h"

namespace {

using fuzz::FuzzInput;

constexpr std::uint32_t noOfListeners = 2;
constexpr std::size_t mostWaiting = 10;
constexpr std::uint32_t registered[] = {1, 2, 3, 48};
constexpr std::uint32_t unknownId = 4711;
constexpr std::uint32_t unfilledHandle = noOfListeners;

std::array<char, 16> harnessMemory;

struct Delivery {
    std::uint32_t listener;
    std::uint32_t eventId;
    const void *data;
    std::string copy; ///< What a copy held when it was delivered.
};

/// What a listener should see of a message.
struct Expected {
    enum class Kind { plain, copied, address } kind = Kind::plain;
    std::size_t size = 0;
    std::uint32_t eventId = 0;
    const void *data = nullptr;
    std::string copy;
};

std::vector<Delivery> deliveries;
std::size_t bytesOfCopy; ///< Of the message about to be pumped.
EAFResult answer;

EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *self) {
    FUZZ_CHECK(self != nullptr && self->context == context, "another record");
    const auto listener = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(context));
    deliveries.push_back({listener, eventId, data, {}});
    if (bytesOfCopy != 0) {
        deliveries.back().copy.assign(static_cast<const char *>(data), bytesOfCopy);
    }
    return answer;
}

struct Listener {
    std::string name;
    SListenerCallback callback{};
    std::vector<std::uint32_t> filter;
    std::uint32_t handle = 0;
    mqd_t queue = -1;
    /// By priority, highest first, and in the order sent.
    std::map<unsigned, std::deque<Expected>, std::greater<>> waiting;

    std::size_t count() const {
        std::size_t all = 0;
        for (const auto &entry : waiting) {
            all += entry.second.size();
        }
        return all;
    }
    bool hears(std::uint32_t id) const {
        return filter.empty() || std::find(filter.begin(), filter.end(), id) != filter.end();
    }
};

std::array<Listener, noOfListeners> listeners;
mqd_t taskQueue = -1;

bool isRegistered(std::uint32_t id) {
    return std::find(std::begin(registered), std::end(registered), id) != std::end(registered);
}

void closeService() {
    CEventHandler_UnInitialize();
    for (const Listener &listener : listeners) {
        mq_unlink(test::queueName(listener.name).c_str());
    }
    mq_unlink(test::taskQueueName().c_str());
}

mqd_t opened(const std::string &name) {
    const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    FUZZ_CHECK(queue != -1, name + ": " + std::strerror(errno));
    return queue;
}

void openService() {
    test::useOwnServerPort();
    FUZZ_CHECK(CEventHandler_Initialize(8, noOfListeners + 1) == eAF_S_OK, "Initialize");
    std::atexit(closeService);
    for (const std::uint32_t id : registered) {
        FUZZ_CHECK(CEventHandler_RegisterEvent(id, "event") == eAF_S_OK, "RegisterEvent");
    }
    listeners[0].filter = {1, 2};
    for (std::uint32_t i = 0; i < noOfListeners; ++i) {
        Listener &listener = listeners[i];
        listener.name = "L" + std::to_string(i);
        listener.callback = {reinterpret_cast<void *>(static_cast<std::uintptr_t>(i)), onEvent};
        FUZZ_CHECK(CEventHandler_AddListener(&listener.callback,
                                             listener.filter.empty() ? nullptr : listener.filter.data(),
                                             static_cast<std::uint32_t>(listener.filter.size()), listener.name.c_str(),
                                             &listener.handle) == eAF_S_OK,
                   listener.name);
        listener.queue = opened(test::queueName(listener.name));
    }
    taskQueue = opened(test::taskQueueName());
}

std::uint32_t idFrom(FuzzInput &input) {
    static constexpr std::uint32_t ids[] = {1, 2, 3, 48, unknownId, EVENT_ID_STOP, 0};
    return input.oneIn(8) ? input.word() : input.any(ids);
}

unsigned priorityFrom(FuzzInput &input) {
    static constexpr unsigned priorities[] = {0, 0, 0, 1, 32767};
    return input.oneIn(8) ? input.below(32768) : input.any(priorities);
}

struct Message {
    std::array<char, sizeof(SEventDataMessage)> bytes{};
    std::size_t size = 0;
    SEventDataMessage read{}; ///< As whoever receives it into zeros reads it.

    void setRead() {
        std::array<char, sizeof(SEventDataMessage)> received{};
        std::copy_n(bytes.begin(), size, received.begin());
        std::memcpy(&read, received.data(), sizeof read);
    }
    void setData(const void *data) {
        std::memcpy(bytes.data() + offsetof(SEventDataMessage, pData), &data, sizeof data);
        setRead();
    }
};

Message messageFrom(FuzzInput &input) {
    Message message;
    for (char &byte : message.bytes) {
        byte = static_cast<char>(input.byte()); // padding too
    }
    const std::uint32_t id = idFrom(input);
    std::memcpy(message.bytes.data(), &id, sizeof id);
    const std::uint32_t isCopied = input.oneIn(2) ? 0 : input.oneIn(2) ? 1 : input.word();
    std::memcpy(message.bytes.data() + offsetof(SEventDataMessage, isCopied), &isCopied, sizeof isCopied);
    message.size = input.oneIn(4) ? input.below(sizeof(SEventDataMessage)) : sizeof(SEventDataMessage);
    message.setData(input.oneIn(2) ? nullptr : harnessMemory.data() + input.below(harnessMemory.size()));
    return message;
}

bool hasRoom(const Listener &listener) {
    return listener.count() < mostWaiting;
}

void sendToListener(FuzzInput &input) {
    Listener &listener = listeners[input.below(noOfListeners)];
    if (!hasRoom(listener)) {
        return;
    }
    Message message = messageFrom(input);
    Expected expected;
    expected.size = message.size;
    char *copy = nullptr;
    if (message.read.isCopied != 0) {
        // Whoever receives it frees it: it has to be memory of its own.
        expected.kind = Expected::Kind::copied;
        expected.copy = input.text(input.below(16));
        if (!expected.copy.empty()) {
            copy = new char[expected.copy.size()];
            std::copy(expected.copy.begin(), expected.copy.end(), copy);
        }
        message.setData(copy);
    }
    expected.eventId = message.read.eventId;
    expected.data = message.read.pData;
    const unsigned priority = priorityFrom(input);
    FUZZ_CHECK(mq_send(listener.queue, message.bytes.data(), message.size, priority) == 0, std::strerror(errno));
    listener.waiting[priority].push_back(expected);
}

/// The record that a pump takes next.
Expected takeNext(Listener &listener) {
    const auto first = listener.waiting.begin();
    Expected next = first->second.front();
    first->second.pop_front();
    if (first->second.empty()) {
        listener.waiting.erase(first);
    }
    return next;
}

void checkDelivery(const Listener &listener, const Expected &expected) {
    FUZZ_CHECK(deliveries.size() == 1, std::to_string(deliveries.size()) + " deliveries");
    const Delivery &delivery = deliveries.front();
    FUZZ_CHECK(delivery.listener == listener.handle, "to another listener");
    // The address of a record of the task's is anything; what is not address is zero.
    FUZZ_CHECK(expected.kind == Expected::Kind::address || delivery.eventId == expected.eventId,
               std::to_string(delivery.eventId));
    FUZZ_CHECK(delivery.data == expected.data, "other data");
    FUZZ_CHECK(delivery.copy == expected.copy, "another copy");
}

std::vector<test::Line> expectedLines(const Listener &listener, bool isDelivered, std::size_t size, bool isStale) {
    const std::string pump = "CEventHandler_PumpEventInternal";
    if (isDelivered && answer >= eAF_E_FAILED) {
        return {{pump, "Error response from listener " + listener.name, eAF_E_FAILED}};
    }
    if (isDelivered && answer >= eAF_W_WARNING) {
        return {{pump, "Warning response from listener " + listener.name, eAF_W_WARNING}};
    }
    if (size == 0 && !isStale) {
        return {{pump, "Failed to get event from queue", eAF_E_FAILED}};
    }
    return {};
}

void pump(Listener &listener, bool isIfAvailable, bool isStale) {
    if (listener.count() == 0) {
        return; // it would wait
    }
    const Expected expected = takeNext(listener);
    const bool isAddress = expected.kind == Expected::Kind::address;
    const bool isDelivered = !isStale && expected.size != 0 && (isAddress || expected.eventId != EVENT_ID_STOP);
    deliveries.clear();
    test::TraceRecorder::reset();
    bytesOfCopy = expected.copy.size();
    errno = isStale ? EINTR : 0;
    std::uint32_t result = isDelivered ? 1 : 0;
    if (isIfAvailable) {
        result = CEventHandler_PumpEventIfAvailable(listener.handle);
    } else {
        CEventHandler_PumpEvent(listener.handle);
    }
    bytesOfCopy = 0;
    FUZZ_CHECK(result == (isDelivered ? 1u : 0u), std::to_string(result));
    if (isDelivered) {
        checkDelivery(listener, expected);
    } else {
        FUZZ_CHECK(deliveries.empty(), "delivered " + std::to_string(deliveries.front().eventId));
    }
    FUZZ_CHECK(test::TraceRecorder::lines() == expectedLines(listener, isDelivered, expected.size, isStale),
               "other traces");
}

void pump(FuzzInput &input) {
    static constexpr EAFResult answers[] = {eAF_S_OK, eAF_S_OK, eAF_W_WARNING, eAF_E_FAILED,
                                            static_cast<EAFResult>(0xFFFFFFFF)};
    answer = input.any(answers);
    Listener &listener = listeners[input.below(noOfListeners)];
    const bool isIfAvailable = input.oneIn(2);
    pump(listener, isIfAvailable, !input.oneIn(2) && input.oneIn(4));
}

void waitFor(bool (*isSo)()) {
    while (!isSo()) {
        sched_yield();
    }
}

std::size_t unknownEvents; ///< That the worker has yet to tell of.

bool isTaskQueueEmpty() {
    mq_attr attributes{};
    mq_getattr(taskQueue, &attributes);
    return attributes.mq_curmsgs == 0;
}

bool hasWorkerTold() {
    std::size_t told = 0;
    for (const test::Line &line : test::TraceRecorder::workerLines()) {
        told += line.message == "Could not fire (unknown) delayed event" ? 1 : 0;
    }
    FUZZ_CHECK(told <= unknownEvents, "the worker told of more than it was sent");
    return told == unknownEvents;
}

void send(const Message &message, unsigned priority) {
    FUZZ_CHECK(mq_send(taskQueue, message.bytes.data(), message.size, priority) == 0, std::strerror(errno));
    waitFor(isTaskQueueEmpty);
}

/// One message, and one behind it whose end is seen: by then the first is dealt with.
void sendToTask(FuzzInput &input) {
    const Message message = messageFrom(input);
    const bool isHeard = message.size != 0 && isRegistered(message.read.eventId);
    for (const Listener &listener : listeners) {
        if (isHeard && listener.hears(message.read.eventId) && !hasRoom(listener)) {
            return; // the worker would wait
        }
    }
    test::TraceRecorder::reset();
    unknownEvents = message.size == 0 || isHeard ? 1 : 2;
    send(message, priorityFrom(input));
    Message fence;
    fence.size = sizeof(SEventDataMessage);
    std::memcpy(fence.bytes.data(), &unknownId, sizeof unknownId);
    send(fence, 0);
    waitFor(hasWorkerTold);
    for (Listener &listener : listeners) {
        if (isHeard && listener.hears(message.read.eventId)) {
            Expected expected;
            expected.kind = Expected::Kind::address;
            expected.size = sizeof(SEventDataMessage);
            listener.waiting[0].push_back(expected);
        }
    }
}

/// Handles that no listener has; one that is within the capacity fails as a receive from no queue does.
void pumpOddHandle(FuzzInput &input) {
    const std::uint32_t handle = input.oneIn(2) ? unfilledHandle : unfilledHandle + 1 + input.word() % 0x10000;
    deliveries.clear();
    test::TraceRecorder::reset();
    errno = 0;
    const bool isIfAvailable = input.oneIn(2);
    if (isIfAvailable) {
        FUZZ_CHECK(CEventHandler_PumpEventIfAvailable(handle) == 0, std::to_string(handle));
    } else {
        CEventHandler_PumpEvent(handle);
    }
    const std::size_t traces = handle == unfilledHandle && isIfAvailable ? 0 : 1;
    FUZZ_CHECK(deliveries.empty() && test::TraceRecorder::lines().size() == traces, std::to_string(handle));
}

void sendEmpty(FuzzInput &input) {
    Listener &listener = listeners[input.below(noOfListeners)];
    if (hasRoom(listener)) {
        CEventHandler_SendEmptyMessage(listener.handle);
        listener.waiting[0].push_back(Expected());
    }
}

void fire(FuzzInput &input) {
    const std::uint32_t id = input.any(registered);
    for (const Listener &listener : listeners) {
        if (listener.hears(id) && !hasRoom(listener)) {
            return;
        }
    }
    FUZZ_CHECK(CEventHandler_FireEventWithData(id, harnessMemory.data()) == eAF_S_OK, std::to_string(id));
    for (Listener &listener : listeners) {
        if (listener.hears(id)) {
            Expected expected;
            expected.size = sizeof(SEventDataMessage);
            expected.eventId = id;
            expected.data = harnessMemory.data();
            listener.waiting[0].push_back(expected);
        }
    }
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    test::TraceRecorder::reset();
    openService();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    while (!input.isAtEnd()) {
        switch (input.below(8)) {
        case 0:
        case 1:
        case 2:
            sendToListener(input);
            break;
        case 3:
            sendToTask(input);
            break;
        case 4:
            fire(input);
            break;
        case 5:
            if (input.oneIn(2)) {
                sendEmpty(input);
            } else {
                pumpOddHandle(input);
            }
            break;
        default:
            pump(input);
            break;
        }
    }
    answer = eAF_S_OK;
    for (Listener &listener : listeners) {
        while (listener.count() != 0) {
            pump(listener, false, false);
        }
        FUZZ_CHECK(test::messagesIn(test::queueName(listener.name)) == 0, "more was sent than expected");
    }
    return 0;
}
