#include "EventHandlerWalk.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace test {

using Kind = ModelMessage::Kind;

EventHandlerWalk::EventHandlerWalk(Choices &choices) : m_choices(choices) {}

EventHandlerWalk::~EventHandlerWalk() {
    closeQueuesOfThisLife();
}

void EventHandlerWalk::beginLife() {
    // Before the service begins, no worker traces.
    TraceRecorder::reset();
    forgetTraces();
    m_log.clear();
    for (std::uint32_t i = 0; i < noOfOddCalls; ++i) {
        odd();
    }
}

void EventHandlerWalk::initialize() {
    const std::uint32_t events = oneIn(6) ? below(4) : 40 + below(90);
    const std::uint32_t listeners = oneIn(6) ? below(2) : 2 + below(5);
    compareTraces();
    note("Initialize " + std::to_string(events) + " " + std::to_string(listeners));
    ASSERT_EQ(m_model.initialize(events, listeners), CEventHandler_Initialize(events, listeners));
    forgetTraces();
    m_model.takeTraces();
    // Something to begin with, in most lives more than the cache holds.
    for (std::uint32_t id = 0; id < events * 3 / 4; ++id) {
        registerEvent(id);
    }
    for (std::uint32_t i = 0; 2 * i < listeners; ++i) {
        addListener();
    }
}

void EventHandlerWalk::unInitialize() {
    note("UnInitialize");
    ASSERT_EQ(m_model.unInitialize(), CEventHandler_UnInitialize());
    ASSERT_TRUE(eventually([this] { return workerHasLeft(); }));
    closeQueuesOfThisLife();
}

void EventHandlerWalk::compareTraces() {
    ASSERT_EQ(m_model.takeTraces(), traced());
}

void EventHandlerWalk::step() {
    operate();
    odd();
}

void EventHandlerWalk::operate() {
    switch (below(16)) {
    case 0:
    case 1:
        return registerEvent(anyId());
    case 2:
        return addListener();
    case 3:
    case 4:
    case 5:
    case 6:
    case 7:
        return fire();
    case 8:
        return fireFromMessage();
    case 9:
    case 10:
    case 11:
    case 12:
        return pump();
    case 13:
        return sendEmptyMessage();
    case 14:
        return askForNames();
    default:
        return askForNumbers();
    }
}

std::uint32_t EventHandlerWalk::anyId() {
    if (oneIn(20)) {
        return oneIn(2) ? EVENT_ID_STOP : 0x80000000u + below(3);
    }
    return below(noOfIds);
}

void EventHandlerWalk::registerEvent(std::uint32_t id) {
    const std::size_t length = below(60);
    const std::string name(length, static_cast<char>('a' + below(26)));
    note("RegisterEvent " + std::to_string(id));
    const bool isNull = name.empty() && m_oddCalls % 2 == 0;
    ASSERT_EQ(m_model.registerEvent(id, name), CEventHandler_RegisterEvent(id, isNull ? nullptr : name.c_str()));
}

void EventHandlerWalk::addListener() {
    std::vector<std::uint32_t> filter;
    if (!oneIn(3)) {
        for (std::uint32_t entries = 1 + below(12); entries > 0; --entries) {
            filter.push_back(!filter.empty() && oneIn(6) ? filter.back() : anyId());
        }
    }
    const bool isRefused = oneIn(10);
    std::string name = "M" + std::to_string(below(4));
    name += std::string(below(40), 'x') + (isRefused ? "/" : "");
    if (oneIn(10)) {
        name.clear();
    }
    note("AddListener " + name + " with " + std::to_string(filter.size()) + " entries");
    const std::string queueName = expectedQueueName(name);
    const std::size_t expectedHandle = m_model.listeners().size();
    m_queueNames.push_back(queueName);
    m_filters.push_back(std::make_unique<std::vector<std::uint32_t>>(filter));
    // No filter is a null one, of whatever count, or one of no entries.
    static constexpr std::uint32_t unread = 0;
    const std::uint32_t *entries = filter.empty() ? nullptr : m_filters.back()->data();
    auto count = static_cast<std::uint32_t>(filter.size());
    if (filter.empty() && m_oddCalls % 3 != 0) {
        entries = m_oddCalls % 3 == 1 ? &unread : nullptr;
        count = m_oddCalls % 3 == 1 ? 0 : 1 + m_oddCalls;
    }
    std::uint32_t handle = ~0u;
    ASSERT_EQ(m_model.addListener(filter, name, queueName, isRefused),
              CEventHandler_AddListener(m_record.callback(), entries, count, name.c_str(), &handle));
    ASSERT_EQ(m_model.listeners().size() > expectedHandle ? expectedHandle : ~0u, handle);
}

void EventHandlerWalk::fire() {
    const std::uint32_t id = anyId();
    const std::uint32_t operation = below(6);
    if (!m_model.hasRoomFor(id)) {
        return;
    }
    note("fire " + std::to_string(id) + " by operation " + std::to_string(operation));
    Letters letters{};
    for (char &letter : letters) {
        letter = static_cast<char>('a' + below(26));
    }
    ModelMessage message;
    if (operation % 3 == 1) {
        message.data = &m_words.at(below(static_cast<std::uint32_t>(m_words.size())));
    } else if (operation % 3 == 2) {
        message.kind = Kind::copied;
        message.copy = copyMadeOf(letters);
    }
    // Gone when this returns. Of nothing, null is as good as any other address.
    const std::vector<char> copied(message.copy.begin(), message.copy.end());
    const bool isNull = copied.empty() && m_copies % 4 < 2;
    const bool isUrgent = operation >= 3 || (operation == 2 && id == 48);
    ASSERT_EQ(m_model.fire(id, message, isUrgent),
              fireReally(operation, id, message, isNull ? nullptr : static_cast<const void *>(copied.data())));
}

/// The sizes take turns.
std::string EventHandlerWalk::copyMadeOf(const Letters &letters) {
    constexpr std::array<std::size_t, 6> sizes{8, 0, 1, 300, 7, 5000};
    std::string copy(sizes.at(m_copies++ % sizes.size()), '\0');
    for (std::size_t i = 0; i < copy.size(); ++i) {
        copy[i] = static_cast<char>(letters.at(i % letters.size()) + static_cast<int>(i / letters.size() % 4));
    }
    return copy;
}

EAFResult EventHandlerWalk::fireReally(std::uint32_t operation, std::uint32_t id, const ModelMessage &message,
                                       const void *copied) {
    const auto size = static_cast<std::uint32_t>(message.copy.size());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the listeners do not write there
    void *pointer = const_cast<void *>(message.data);
    switch (operation) {
    case 0:
        return CEventHandler_FireEvent(id);
    case 1:
        return CEventHandler_FireEventWithData(id, pointer);
    case 2:
        return CEventHandler_FireEventWithCopiedData(id, copied, size);
    case 3:
        return CEventHandler_FireUrgentEvent(id);
    case 4:
        return CEventHandler_FireUrgentEventWithData(id, pointer);
    default:
        return CEventHandler_FireUrgentEventWithCopiedData(id, copied, size);
    }
}

void EventHandlerWalk::fireFromMessage() {
    SEventDataMessage message{anyId(), this, 1};
    if (!m_model.hasRoomFor(message.eventId)) {
        return;
    }
    note("FireEventFromMessageInternal " + std::to_string(message.eventId));
    const auto lowWord = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&message));
    ASSERT_EQ(m_model.fireFromMessage(message.eventId, lowWord), CEventHandler_FireEventFromMessageInternal(&message));
}

std::uint32_t EventHandlerWalk::anyHandle() {
    if (oneIn(12)) {
        return oneIn(2) ? ~0u : m_model.capacity() + below(3);
    }
    const auto added = static_cast<std::uint32_t>(m_model.listeners().size());
    return below(added != 0 && !oneIn(10) ? added : m_model.capacity() + 1);
}

std::uint32_t EventHandlerWalk::fullestListener() {
    const auto &listeners = m_model.listeners();
    const auto fullest = std::max_element(listeners.begin(), listeners.end(),
                                          [](const auto &a, const auto &b) { return a.waiting() < b.waiting(); });
    return fullest != listeners.end() ? static_cast<std::uint32_t>(fullest - listeners.begin()) : anyHandle();
}

void EventHandlerWalk::pump() {
    const std::uint32_t handle = oneIn(3) ? anyHandle() : fullestListener();
    const bool isAdded = handle < m_model.listeners().size();
    if (isAdded && m_model.listeners()[handle].waiting() == 0) {
        return;
    }
    constexpr std::array<std::uint32_t, 8> answers{0, 0, 2, 0x101, 0x1000, 0x7FFF, 0x8000, 0xFFFFFFFFu};
    const auto answer = static_cast<EAFResult>(answers.at(below(answers.size())));
    const bool isIfAvailable = oneIn(2);
    note((isIfAvailable ? "PumpEventIfAvailable " : "PumpEvent ") + std::to_string(handle));
    m_record.answer = answer;
    m_record.deliveries.clear();
    errno = 0;
    const ModelMessage expected = m_model.pump(handle, answer, !isIfAvailable);
    const bool isDelivered = expected.kind != Kind::empty;
    m_record.bytesToKeep = expected.copy.size();
    if (isIfAvailable) {
        ASSERT_EQ(isDelivered ? 1u : 0u, CEventHandler_PumpEventIfAvailable(handle));
    } else {
        CEventHandler_PumpEvent(handle);
    }
    ASSERT_EQ(isDelivered ? 1u : 0u, m_record.deliveries.size());
    if (isDelivered) {
        expectDelivery(expected, m_record.deliveries.front());
    }
}

void EventHandlerWalk::expectDelivery(const ModelMessage &expected, const Delivery &delivery) {
    ++m_deliveries;
    ASSERT_EQ(expected.eventId, delivery.eventId);
    ASSERT_EQ(m_record.callback(), delivery.self);
    if (expected.kind == Kind::copied) {
        ASSERT_EQ(expected.copy, delivery.copy);
    } else {
        ASSERT_EQ(expected.data, delivery.data);
    }
}

void EventHandlerWalk::sendEmptyMessage() {
    const std::uint32_t handle = anyHandle();
    if (handle < m_model.listeners().size() && m_model.listeners()[handle].waiting() >= 10) {
        return;
    }
    note("SendEmptyMessage " + std::to_string(handle));
    m_model.sendEmptyMessage(handle);
    CEventHandler_SendEmptyMessage(handle);
}

void EventHandlerWalk::askForNames() {
    const std::uint32_t id = anyId();
    note("GetEventName " + std::to_string(id));
    std::string expected;
    const char *name = "untouched";
    const EAFResult result = m_model.getEventName(id, expected);
    ASSERT_EQ(result, CEventHandler_GetEventName(id, &name));
    if (result == eAF_S_OK) {
        ASSERT_EQ(expected, name);
    } else {
        ASSERT_EQ(nullptr, name);
    }
}

void EventHandlerWalk::askForNumbers() {
    note("GetStatistics");
    ASSERT_EQ(m_model.getNumberOfRegisteredEvents(), CEventHandler_GetNumberOfRegisteredEvents());
    SEventHandlerStatistics expected{};
    SEventHandlerStatistics statistics{};
    ASSERT_EQ(m_model.getStatistics(expected), CEventHandler_GetStatistics(&statistics));
    ASSERT_EQ(expected.noOfRegisteredEvents, statistics.noOfRegisteredEvents);
    ASSERT_EQ(expected.maxNoOfEvents, statistics.maxNoOfEvents);
    ASSERT_EQ(expected.noOfListeners, statistics.noOfListeners);
    ASSERT_EQ(expected.maxNoOfListeners, statistics.maxNoOfListeners);
    ASSERT_EQ(expected.noOfErrorResponses, statistics.noOfErrorResponses);
    ASSERT_EQ(expected.noOfPumpedEvents, statistics.noOfPumpedEvents);
    ASSERT_EQ(expected.noOfCacheMisses, statistics.noOfCacheMisses);
    if (oneIn(5)) {
        note("ResetStatistics");
        m_model.resetStatistics();
        CEventHandler_ResetStatistics();
    }
    if (oneIn(10) && m_model.isInitialized()) {
        note("Initialize again");
        ASSERT_EQ(m_model.initialize(1, 1), CEventHandler_Initialize(1, 1));
    }
    if (oneIn(10) && !m_model.isInitialized()) {
        note("UnInitialize already");
        ASSERT_EQ(m_model.unInitialize(), CEventHandler_UnInitialize());
    }
}

/// What is refused, in whatever state. Takes no choice of its own, so that the kept inputs of the fuzzer stay what they
/// are; that nothing has changed, the operations show that follow.
void EventHandlerWalk::odd() {
    const std::uint32_t round = m_oddCalls / noOfOddCalls;
    const std::uint32_t id = 7 * round % (noOfIds + 10);
    const std::uint32_t which = m_oddCalls++ % noOfOddCalls;
    note("odd call " + std::to_string(which) + " of round " + std::to_string(round));
    switch (which) {
    case 0:
    case 1:
    case 2:
    case 3:
        return addNobody(which);
    case 4:
        return copyFromNull(id, round);
    case 5:
        ASSERT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_FireEventFromMessageInternal(nullptr));
        return;
    case 6:
        ASSERT_EQ(eAF_E_INVALID_ARGUMENT, CEventHandler_GetEventName(id, nullptr));
        return;
    default: {
        SEventHandlerStatistics none{};
        const EAFResult result = m_model.getStatistics(none);
        ASSERT_EQ(result == eAF_S_OK ? eAF_E_INVALID_ARGUMENT : result, CEventHandler_GetStatistics(nullptr));
    }
    }
}

void EventHandlerWalk::addNobody(std::uint32_t which) {
    SListenerCallback *const callback = which == 0 ? nullptr : m_record.callback();
    const char *const name = which == 1 ? nullptr : which == 2 ? "" : "M0";
    std::uint32_t handle = ~0u;
    ASSERT_EQ(m_model.addListener({}, "", "", false),
              CEventHandler_AddListener(callback, nullptr, 0, name, which == 3 ? nullptr : &handle));
    ASSERT_EQ(~0u, handle);
}

void EventHandlerWalk::copyFromNull(std::uint32_t id, std::uint32_t round) {
    const std::uint32_t size = round % 3 == 0 ? ~0u : 1 + round;
    ASSERT_EQ(m_model.fireFromNull(id), round % 2 == 0
                                            ? CEventHandler_FireEventWithCopiedData(id, nullptr, size)
                                            : CEventHandler_FireUrgentEventWithCopiedData(id, nullptr, size));
}

/// The service leaves its listeners' queues open, and copies in them: both would pile up over the lives.
void EventHandlerWalk::closeQueuesOfThisLife() {
    std::error_code ignored;
    const std::string prefix = expectedQueueName("M");
    std::vector<int> descriptors;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        if (std::filesystem::read_symlink(entry.path(), ignored).string().rfind(prefix, 0) == 0) {
            descriptors.push_back(std::stoi(entry.path().filename()));
        }
    }
    for (const int descriptor : descriptors) {
        mq_attr attributes{};
        mq_getattr(descriptor, &attributes);
        for (long i = 0; i < attributes.mq_curmsgs; ++i) {
            SEventDataMessage message{};
            mq_receive(descriptor, reinterpret_cast<char *>(&message), sizeof message, nullptr);
            if (message.isCopied != 0) {
                delete[] static_cast<char *>(message.pData);
            }
        }
        mq_close(descriptor);
    }
    for (const std::string &name : m_queueNames) {
        mq_unlink(name.c_str());
    }
    m_queueNames.clear();
    m_filters.clear();
}

void EventHandlerWalk::note(const std::string &operation) {
    m_log.push_back(operation);
    if (m_log.size() > 80) {
        m_log.erase(m_log.begin());
    }
}

} // namespace test
