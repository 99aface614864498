#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "EventService.h"

namespace {

using test::Lines;
using test::Listener;
using test::RawQueue;
using testing::ElementsAre;

constexpr unsigned int urgent = 32767;

class Firing : public test::EventService {
protected:
    Firing() { initialize(100, 4); }

    Lines unknown(std::int32_t id) {
        const std::string number = std::to_string(id);
        return {{"CEventHandler_FindEventIndex", "Unknown event id: " + number, 0x800E},
                {"CEventHandler_FireEventInternal", "Could not find event index for event id " + number, 0x800E}};
    }
};

/// The six operations, and what each puts on the queue.
struct Operation {
    const char *name;
    std::function<EAFResult(std::uint32_t, void *)> fire;
    bool carriesData;
    bool isCopied;
    unsigned int priority;
};

const std::vector<Operation> &operations() {
    static const std::vector<Operation> all{
        {"FireEvent", [](std::uint32_t id, void *) { return CEventHandler_FireEvent(id); }, false, false, 0},
        {"FireEventWithData", CEventHandler_FireEventWithData, true, false, 0},
        {"FireEventWithCopiedData",
         [](std::uint32_t id, void *data) { return CEventHandler_FireEventWithCopiedData(id, data, 4); }, true, true,
         0},
        {"FireUrgentEvent", [](std::uint32_t id, void *) { return CEventHandler_FireUrgentEvent(id); }, false, false,
         urgent},
        {"FireUrgentEventWithData", CEventHandler_FireUrgentEventWithData, true, false, urgent},
        {"FireUrgentEventWithCopiedData",
         [](std::uint32_t id, void *data) { return CEventHandler_FireUrgentEventWithCopiedData(id, data, 4); }, true,
         true, urgent},
    };
    return all;
}

TEST_F(Firing, TheMessageKeepsItsFieldOrderAndSize) {
    EXPECT_EQ(0u, offsetof(SEventDataMessage, eventId));
    EXPECT_EQ(sizeof(void *), offsetof(SEventDataMessage, pData));
    EXPECT_EQ(2 * sizeof(void *), offsetof(SEventDataMessage, isCopied));
    EXPECT_EQ(3 * sizeof(void *), sizeof(SEventDataMessage)) << "12 bytes where a pointer takes 4";
    EXPECT_EQ(0xFFFFFFFFu, EVENT_ID_STOP);
}

TEST_F(Firing, EachOperation_PutsItsMessageOnTheQueueOfEveryListener) {
    registerEvents({7});
    Listener first("A");
    Listener second("B");
    first.add();
    second.add({7});
    const RawQueue firstQueue(first.queue());
    const RawQueue secondQueue(second.queue());
    std::array<char, 4> data{'d', 'a', 't', 'a'};
    for (const Operation &operation : operations()) {
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(eAF_S_OK, operation.fire(7, data.data()));
        std::vector<void *> pointers;
        for (const RawQueue *queue : {&firstQueue, &secondQueue}) {
            const test::RawMessage raw = queue->receive();
            const SEventDataMessage message = raw.message();
            EXPECT_EQ(sizeof(SEventDataMessage), raw.bytes.size());
            EXPECT_EQ(operation.priority, raw.priority);
            EXPECT_EQ(7u, message.eventId);
            EXPECT_EQ(operation.isCopied ? 1u : 0u, message.isCopied);
            pointers.push_back(message.pData);
        }
        if (!operation.carriesData) {
            EXPECT_THAT(pointers, ElementsAre(nullptr, nullptr));
        } else if (!operation.isCopied) {
            EXPECT_THAT(pointers, ElementsAre(data.data(), data.data()));
        } else {
            EXPECT_NE(pointers[0], pointers[1]) << "each listener has a copy of its own";
            for (void *copy : pointers) {
                EXPECT_NE(data.data(), copy);
                EXPECT_EQ(0, std::memcmp(copy, data.data(), data.size()));
                delete[] static_cast<char *>(copy);
            }
        }
    }
}

TEST_F(Firing, TheUnusedBytesOfAMessageAreZero) {
    registerEvents({7});
    Listener listener("A");
    listener.add();
    CEventHandler_FireEvent(7);
    std::string expected(sizeof(SEventDataMessage), '\0');
    const std::uint32_t id = 7;
    std::memcpy(&expected[0], &id, sizeof id);
    EXPECT_EQ(expected, RawQueue(listener.queue()).receive().bytes);
}

TEST_F(Firing, OnlyTheNormalCopiedDataOf48_GoesOutUrgent) {
    registerEvents({47, 48, 49});
    Listener listener("A");
    listener.add();
    const RawQueue queue(listener.queue());
    std::array<char, 4> data{};
    for (const std::uint32_t id : {47u, 48u, 49u}) {
        for (const Operation &operation : operations()) {
            SCOPED_TRACE(operation.name + std::to_string(id));
            operation.fire(id, data.data());
            const test::RawMessage raw = queue.receive();
            const bool isTheException = id == 48 && std::string("FireEventWithCopiedData") == operation.name;
            EXPECT_EQ(isTheException ? urgent : operation.priority, raw.priority);
            if (raw.message().isCopied != 0) {
                delete[] static_cast<char *>(raw.message().pData);
            }
        }
    }
}

TEST_F(Firing, AnUnknownId_IsTracedTwiceByEveryOperation) {
    registerEvents({1});
    std::array<char, 4> data{};
    for (const Operation &operation : operations()) {
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(eAF_E_UNKNOWN_EVENT, operation.fire(77, data.data()));
        EXPECT_EQ(unknown(77), traced());
    }
}

TEST_F(Firing, AnUnknownId_IsTracedSignedAndNeverCached) {
    for (int firings = 0; firings < 3; ++firings) {
        EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireEvent(0xFFFFFFFFu));
        EXPECT_EQ(unknown(-1), traced());
    }
    EXPECT_EQ(0u, statistics().noOfCacheMisses) << "only a found id counts as a miss";
    registerEvents({0xFFFFFFFFu});
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(0xFFFFFFFFu));
    EXPECT_EQ(1u, statistics().noOfCacheMisses);
}

TEST_F(Firing, WithNoEventAtAll_EveryIdIsUnknown) {
    EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireEvent(0));
    EXPECT_EQ(unknown(0), traced());
}

TEST_F(Firing, AnEventWithoutListeners_IsFineAndSendsNothing) {
    registerEvents({1, 2});
    Listener other("A");
    other.add({2});
    forgetTraces();
    std::array<char, 4> data{};
    for (const Operation &operation : operations()) {
        EXPECT_EQ(eAF_S_OK, operation.fire(1, data.data())) << operation.name;
    }
    EXPECT_EQ(0, other.waiting());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(Firing, AnEventWithoutListeners_IsCachedAllTheSame) {
    registerEvents({1});
    CEventHandler_FireEvent(1);
    CEventHandler_FireEvent(1);
    EXPECT_EQ(1u, statistics().noOfCacheMisses);
}

TEST_F(Firing, ACopy_IsMadeBeforeTheCallReturns) {
    registerEvents({1});
    Listener listener("A");
    listener.bytesToKeep = 5;
    listener.add();
    std::string data = "first";
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithCopiedData(1, data.data(), 5));
    data = "later";
    listener.pump();
    ASSERT_EQ(1u, listener.deliveries.size());
    EXPECT_EQ("first", listener.deliveries[0].copy);
    EXPECT_NE(data.data(), listener.deliveries[0].data);
}

TEST_F(Firing, ACopy_TakesAnyNumberOfBytes) {
    registerEvents({1});
    Listener listener("A");
    listener.add();
    for (const std::size_t size : {std::size_t{1}, std::size_t{12}, std::size_t{4097}, std::size_t{1} << 20}) {
        const std::string data(size, static_cast<char>('a' + size % 23));
        listener.bytesToKeep = size;
        EXPECT_EQ(eAF_S_OK,
                  CEventHandler_FireUrgentEventWithCopiedData(1, data.data(), static_cast<std::uint32_t>(size)));
        listener.pump();
        EXPECT_EQ(data, listener.deliveries.back().copy);
    }
}

TEST_F(Firing, ACopyOfNoBytes_IsStillACopy) {
    registerEvents({1});
    Listener listener("A");
    listener.add();
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithCopiedData(1, "", 0));
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventWithCopiedData(1, nullptr, 0));
    listener.pump(2);
    ASSERT_EQ(2u, listener.deliveries.size());
    EXPECT_NE(nullptr, listener.deliveries[0].data);
    EXPECT_NE(nullptr, listener.deliveries[1].data);
}

TEST_F(Firing, TheCallersPointer_TravelsAsItIs) {
    registerEvents({1});
    Listener listener("A");
    listener.add();
    int object = 0;
    CEventHandler_FireEventWithData(1, &object);
    CEventHandler_FireEventWithData(1, nullptr);
    listener.pump(2);
    ASSERT_EQ(2u, listener.deliveries.size());
    EXPECT_EQ(&object, listener.deliveries[0].data);
    EXPECT_EQ(nullptr, listener.deliveries[1].data);
}

TEST_F(Firing, GoesThroughTheCacheAfterTheFirstTime) {
    registerEvents({1, 2});
    for (int firings = 0; firings < 5; ++firings) {
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireUrgentEvent(2));
    }
    EXPECT_EQ(2u, statistics().noOfCacheMisses);
}

TEST_F(Firing, The65thId_PushesTheFirstOutOfTheCache) {
    for (std::uint32_t id = 1; id <= 65; ++id) {
        registerEvents({id});
    }
    for (std::uint32_t id = 1; id <= 64; ++id) {
        CEventHandler_FireEvent(id);
    }
    CEventHandler_FireEvent(1);
    EXPECT_EQ(64u, statistics().noOfCacheMisses) << "all 64 are held";
    CEventHandler_FireEvent(65);
    CEventHandler_FireEvent(2);
    EXPECT_EQ(65u, statistics().noOfCacheMisses);
    CEventHandler_FireEvent(1);
    EXPECT_EQ(66u, statistics().noOfCacheMisses);
}

TEST_F(Firing, OneFailedSend_IsAWarningWithoutATraceAndTheOthersHaveTheEvent) {
    registerEvents({1});
    Listener first("A");
    Listener broken("B");
    Listener last("C");
    for (Listener *listener : {&first, &broken, &last}) {
        listener->add();
    }
    const std::vector<int> descriptors = test::descriptorsOn(broken.queue());
    ASSERT_EQ(1u, descriptors.size());
    ASSERT_EQ(0, mq_close(descriptors[0]));
    forgetTraces();
    std::array<char, 4> data{};
    for (const Operation &operation : operations()) {
        EXPECT_EQ(eAF_W_NOT_ALL_EVENTS_SENT, operation.fire(1, data.data())) << operation.name;
        EXPECT_EQ(1, first.waiting());
        EXPECT_EQ(1, last.waiting());
        first.pump();
        last.pump();
    }
    EXPECT_EQ(6u, first.deliveries.size());
    EXPECT_EQ(6u, last.deliveries.size());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(Firing, FromInsideACallback_Works) {
    registerEvents({1, 2});
    struct Chain {
        int calls = 0;
        static EAFResult onEvent(void *context, std::uint32_t eventId, void *, SListenerCallback *) {
            ++static_cast<Chain *>(context)->calls;
            return eventId == 1 ? CEventHandler_FireEvent(2) : eAF_S_OK;
        }
    } chain;
    const Listener queueOwner("A");
    SListenerCallback callback{&chain, Chain::onEvent};
    std::uint32_t handle = 0;
    ASSERT_EQ(eAF_S_OK, CEventHandler_AddListener(&callback, nullptr, 0, "A", &handle));
    CEventHandler_FireEvent(1);
    CEventHandler_PumpEvent(handle);
    CEventHandler_PumpEvent(handle);
    EXPECT_EQ(2, chain.calls);
}

// FireEventFromMessageInternal

TEST_F(Firing, FromAMessage_SendsTheMessagesAddressAndNotItsContents) {
    registerEvents({1});
    Listener listener("A");
    listener.add();
    SEventDataMessage message{1, &listener, 1};
    const SEventDataMessage *address = &message;
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventFromMessageInternal(&message));

    const test::RawMessage raw = RawQueue(listener.queue()).receive();
    std::string expected(sizeof(SEventDataMessage), '\0');
    std::memcpy(&expected[0], &address, sizeof address);
    EXPECT_EQ(expected, raw.bytes);
    EXPECT_EQ(0u, raw.priority);
}

TEST_F(Firing, FromAMessage_TheListenerHearsTheLowWordOfTheAddress) {
    registerEvents({1});
    Listener listener("A");
    listener.add();
    SEventDataMessage message{1, &listener, 1};
    CEventHandler_FireEventFromMessageInternal(&message);
    listener.pump();
    ASSERT_EQ(1u, listener.deliveries.size());
    EXPECT_EQ(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&message)), listener.deliveries[0].eventId);
    EXPECT_EQ(nullptr, listener.deliveries[0].data);
}

TEST_F(Firing, FromAMessage_GoesToEveryListenerOfTheMessagesEvent) {
    registerEvents({1, 2});
    Listener hears("A");
    Listener hearsToo("B");
    Listener hearsNot("C");
    hears.add({1});
    hearsToo.add();
    hearsNot.add({2});
    SEventDataMessage message{1, nullptr, 0};
    CEventHandler_FireEventFromMessageInternal(&message);
    EXPECT_EQ(1, hears.waiting());
    EXPECT_EQ(1, hearsToo.waiting());
    EXPECT_EQ(0, hearsNot.waiting());
}

TEST_F(Firing, FromAMessage_UsesNeitherCacheNorStatistics) {
    registerEvents({1});
    SEventDataMessage message{1, nullptr, 0};
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEventFromMessageInternal(&message));
    EXPECT_EQ(0u, statistics().noOfCacheMisses);
    CEventHandler_FireEvent(1);
    EXPECT_EQ(1u, statistics().noOfCacheMisses) << "the id was not cached meanwhile";
}

TEST_F(Firing, FromAMessageOfAnUnknownId_IsTracedTwice) {
    SEventDataMessage message{0x80000001u, nullptr, 0};
    EXPECT_EQ(eAF_E_UNKNOWN_EVENT, CEventHandler_FireEventFromMessageInternal(&message));
    EXPECT_EQ((Lines{{"CEventHandler_FindEventIndex", "Unknown event id: -2147483647", 0x800E},
                     {"CEventHandler_FireEventFromMessageInternal",
                      "Could not find event index for event id -2147483647", 0x800E}}),
              traced());
}

TEST_F(Firing, FromAMessage_WithAFailedSend_IsAWarning) {
    registerEvents({1});
    Listener broken("A");
    Listener other("B");
    broken.add();
    other.add();
    ASSERT_EQ(0, mq_close(test::descriptorsOn(broken.queue()).at(0)));
    SEventDataMessage message{1, nullptr, 0};
    forgetTraces();
    EXPECT_EQ(eAF_W_NOT_ALL_EVENTS_SENT, CEventHandler_FireEventFromMessageInternal(&message));
    EXPECT_EQ(1, other.waiting());
    EXPECT_EQ(Lines{}, traced());
}

} // namespace
