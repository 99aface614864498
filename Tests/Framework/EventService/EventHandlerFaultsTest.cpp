// What the event handler does when the system, or another part of the library, fails it.
#include <fcntl.h>
#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "EventService.h"
#include "Interposed.h"

namespace {

using test::Call;
using test::Failing;
using test::Line;
using test::Lines;
using test::Listener;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class EventHandlerFaults : public test::EventService {
protected:
    ~EventHandlerFaults() override { test::forwardEverything(); }
};

// The queue limit

TEST_F(EventHandlerFaults, Initialize_RaisesBothQueueByteLimits) {
    initialize();
    EXPECT_EQ(RLIMIT_MSGQUEUE, test::lastLimitCall().resource);
    EXPECT_EQ(2457600u, test::lastLimitCall().soft);
    EXPECT_EQ(2457600u, test::lastLimitCall().hard);
}

TEST_F(EventHandlerFaults, ALimitThatWasRaised_IsNotTraced) {
    EXPECT_EQ(eAF_S_OK, CEventHandler_Initialize(1, 1));
    EXPECT_THAT(traced(),
                Not(Contains(Line{"CEventHandler_Initialize", "setrlimit() failed, continuing anyway.", 0x100})));
}

TEST_F(EventHandlerFaults, ALimitThatCouldNotBeRaised_IsTracedFirstAndNotFatal) {
    const Failing failing(Call::setRlimit, EPERM);
    EXPECT_EQ(eAF_S_OK, CEventHandler_Initialize(1, 1));
    EXPECT_EQ(1, failing.times());
    const Lines lines = traced();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ((Line{"CEventHandler_Initialize", "setrlimit() failed, continuing anyway.", 0x100}), lines.front());
    EXPECT_EQ("  Task instance EHNP created successfully", lines.back().message);
}

TEST_F(EventHandlerFaults, ARefusedInitialize_DoesNotRaiseTheLimitAgain) {
    initialize();
    test::forgetCalls();
    CEventHandler_Initialize(1, 1);
    EXPECT_THAT(test::callsOfOthers(), Not(Contains("setrlimit")));
}

// The event task

/// Stands in for the event task; keeps what it was asked.
struct FakeTask {
    ITask operations{create, getThreadHandle, start, stop, isRunning, destroy};
    std::vector<std::string> asked;
    EAFResult createAnswer = eAF_S_OK;
    EAFResult startAnswer = eAF_S_OK;
    EAFResult stopAnswer = eAF_S_OK;

    EAFResult giveInterface(ITask **out) {
        *out = &operations;
        return eAF_S_OK;
    }
    static FakeTask &of(void *self) { return *static_cast<FakeTask *>(self); }
    static EAFResult create(void *self, const char *name, std::uint32_t priority, std::uint32_t stackSize,
                            std::uint32_t messageSize, std::uint32_t createQueue) {
        of(self).asked.push_back("Create " + std::string(name) + " " + std::to_string(priority) + " " +
                                 std::to_string(stackSize) + " " + std::to_string(messageSize) + " " +
                                 std::to_string(createQueue));
        return of(self).createAnswer;
    }
    static pthread_t *getThreadHandle(void *) { return nullptr; }
    static EAFResult start(void *self) {
        of(self).asked.emplace_back("Start");
        return of(self).startAnswer;
    }
    static EAFResult stop(void *self) {
        of(self).asked.emplace_back("Stop");
        return of(self).stopAnswer;
    }
    static std::uint32_t isRunning(void *) { return 0; }
    static int destroy(void *self) {
        of(self).asked.emplace_back("Destroy");
        return -1;
    }
};

class EventHandlerTaskFaults : public EventHandlerFaults {
protected:
    EventHandlerTaskFaults() {
        test::replacements().getInterface = [this](CEventTask *, ITask **out) { return m_task.giveInterface(out); };
    }
    ~EventHandlerTaskFaults() override {
        CEventHandler_UnInitialize();
        test::forwardEverything();
    }

    /// The handler counts as initialized, and everything but the task is there.
    void expectInitialized() {
        EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, CEventHandler_Initialize(1, 1));
        EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "one"));
        Listener listener("A");
        EXPECT_EQ(eAF_S_OK, listener.add());
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
        listener.pump();
        EXPECT_EQ(1u, listener.deliveries.size());
        EXPECT_EQ(1u, statistics().maxNoOfEvents);
    }

    FakeTask m_task;
    const std::string m_create = "Create EHNP 100 2048 " + std::to_string(sizeof(SEventDataMessage)) + " 60";
};

TEST_F(EventHandlerTaskFaults, Initialize_CreatesAndStartsTheTask) {
    EXPECT_EQ(eAF_S_OK, CEventHandler_Initialize(1, 1));
    EXPECT_THAT(m_task.asked, ElementsAre(m_create, "Start"));
    EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(EventHandlerTaskFaults, UnInitialize_StopsAndDestroysTheTask) {
    CEventHandler_Initialize(1, 1);
    m_task.asked.clear();
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize()) << "though Destroy answered -1";
    EXPECT_THAT(m_task.asked, ElementsAre("Stop", "Destroy"));
    EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(EventHandlerTaskFaults, Initialize_WithoutTheTasksInterface_FailsAndStaysInitialized) {
    const auto usual = test::replacements().getInterface.get();
    test::replacements().getInterface = [](CEventTask *, ITask **) { return eAF_E_INVALID_ARGUMENT; };
    EXPECT_EQ(eAF_E_FAILED, CEventHandler_Initialize(1, 1));
    EXPECT_EQ((Lines{{"CEventHandler_Initialize", "Could not get event task interface", 0x8000}}), traced());
    test::replacements().getInterface = usual;
    expectInitialized();
}

TEST_F(EventHandlerTaskFaults, Initialize_WithATaskThatIsNotCreated_FailsUntracedAndStaysInitialized) {
    for (const EAFResult answer : {eAF_E_FAILED, eAF_E_TOO_MANY_REGISTRATIONS, eAF_E_QUEUE_CREATION_FAILED}) {
        m_task.asked.clear();
        m_task.createAnswer = answer;
        EXPECT_EQ(eAF_E_FAILED, CEventHandler_Initialize(1, 1));
        EXPECT_THAT(m_task.asked, ElementsAre(m_create)) << "not started";
        EXPECT_THAT(traced(), IsEmpty());
        expectInitialized();
        CEventHandler_UnInitialize();
        forgetTraces();
    }
}

TEST_F(EventHandlerTaskFaults, Initialize_WithATaskThatDoesNotStart_FailsUntracedAndStaysInitialized) {
    m_task.startAnswer = eAF_E_NOT_IMPLEMENTED;
    EXPECT_EQ(eAF_E_FAILED, CEventHandler_Initialize(1, 1));
    EXPECT_THAT(traced(), IsEmpty());
    expectInitialized();
}

TEST_F(EventHandlerTaskFaults, WarningsOfTheTask_AreSuccesses) {
    m_task.createAnswer = eAF_W_WARNING;
    m_task.startAnswer = eAF_W_NOT_SUPPORTED;
    m_task.stopAnswer = eAF_W_WARNING;
    EXPECT_EQ(eAF_S_OK, CEventHandler_Initialize(1, 1));
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    EXPECT_THAT(m_task.asked, ElementsAre(m_create, "Start", "Stop", "Destroy"));
    EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(EventHandlerTaskFaults, UnInitialize_WithoutTheTasksInterface_WarnsAndGoesOn) {
    CEventHandler_Initialize(1, 1);
    m_task.asked.clear();
    test::replacements().getInterface = [](CEventTask *, ITask **) { return eAF_E_FAILED; };
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    EXPECT_EQ((Lines{{"CEventHandler_UnInitialize", "Could not get event task interface. Continuing anyway.", 0x1000}}),
              traced());
    EXPECT_THAT(m_task.asked, IsEmpty());
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_RegisterEvent(1, "one"));
}

TEST_F(EventHandlerTaskFaults, UnInitialize_WithATaskThatDoesNotStop_WarnsAndDestroysItAllTheSame) {
    CEventHandler_Initialize(1, 1);
    m_task.asked.clear();
    m_task.stopAnswer = eAF_E_FAILED;
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    EXPECT_EQ((Lines{{"CEventHandler_UnInitialize", "Could not stop the EventTask. Continuing anyway.", 0x1000}}),
              traced());
    EXPECT_THAT(m_task.asked, ElementsAre("Stop", "Destroy"));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_RegisterEvent(1, "one"));
}

TEST_F(EventHandlerFaults, AWorkerThatCouldNotBeMade_FailsInitializeAndWarnsAtTheEnd) {
    {
        const Failing failing(Call::pthreadCreate, EAGAIN);
        EXPECT_EQ(eAF_E_FAILED, CEventHandler_Initialize(1, 1));
    }
    EXPECT_EQ((Lines{{"CEventTask_Create", "EventTask (EHNP): Could not create thread", 0x8000}}), traced());
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "one"));
    EXPECT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    EXPECT_EQ((Lines{{"CEventHandler_UnInitialize", "Could not stop the EventTask. Continuing anyway.", 0x1000}}),
              traced());
    initialize();
    EXPECT_TRUE(test::eventually([] { return workerTraced("  EventTask (EHNP): Entering main loop"); }));
}

// The cache

TEST_F(EventHandlerFaults, AnEventThatCouldNotBeCached_GoesToTheListenersOfTheFirstEvent) {
    initialize();
    registerEvents({1, 2, 3});
    Listener first("A");
    Listener third("B");
    first.add({1});
    third.add({3});
    forgetTraces();
    std::vector<std::uint32_t> added;
    test::replacements().cacheAdd = [&](std::uint32_t key, std::uint32_t value) {
        added = {key, value};
        return eAF_E_NOT_INITIALIZED;
    };
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(3));
    EXPECT_THAT(added, ElementsAre(3, 2));
    EXPECT_EQ((Lines{{"CEventHandler_FindEventIndex", "Error when caching event", 0x1007}}), traced());
    EXPECT_EQ(1u, statistics().noOfCacheMisses);
    EXPECT_EQ(0, third.waiting());
    first.pump();
    EXPECT_THAT(first.ids(), ElementsAre(3)) << "under its own id";
}

TEST_F(EventHandlerFaults, AnEventThatSomebodyElseCached_IsFiredAsUsual) {
    initialize();
    registerEvents({1, 2});
    Listener second("A");
    second.add({2});
    forgetTraces();
    for (const EAFResult answer : {eAF_I_ALREADY_CACHED, eAF_W_COULD_NOT_CACHE_EVENT}) {
        test::replacements().cacheAdd = [answer](std::uint32_t, std::uint32_t) { return answer; };
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(2)) << "no error";
    }
    EXPECT_EQ(2, second.waiting());
    EXPECT_EQ(2u, statistics().noOfCacheMisses);
    EXPECT_THAT(traced(), IsEmpty());
}

// The listeners' queues

TEST_F(EventHandlerFaults, AddListener_UnlinksAndOpensWithTheSettledArguments) {
    initialize();
    Listener listener("A");
    test::forgetCalls();
    listener.add();
    EXPECT_THAT(test::callsOfOthers(), ElementsAre("mq_unlink " + listener.queue(), "mq_open " + listener.queue()));
    const test::OpenCall call = test::lastOpenCall();
    EXPECT_EQ(O_RDWR | O_CREAT, call.flags);
    EXPECT_EQ(mode_t{0xdff}, call.mode);
    EXPECT_EQ(0, call.attributes.mq_flags);
    EXPECT_EQ(10, call.attributes.mq_maxmsg);
    EXPECT_EQ(static_cast<long>(sizeof(SEventDataMessage)), call.attributes.mq_msgsize);
}

TEST_F(EventHandlerFaults, AQueueThatCouldNotBeOpened_IsTracedWithTheSystemsText) {
    initialize();
    registerEvents({1});
    for (const int error : {EMFILE, ENOSPC, EACCES, ENOMEM, EINVAL}) {
        const Failing failing(Call::mqOpen, error);
        Listener listener("A");
        EXPECT_EQ(eAF_E_QUEUE_CREATION_FAILED, listener.add());
        EXPECT_EQ((Line{"CEventHandler_AddListener", test::errorText(error), 0x800F}), traced().back());
        EXPECT_EQ(~0u, listener.handle());
    }
    EXPECT_EQ(0u, statistics().noOfListeners);
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
}

TEST_F(EventHandlerFaults, WithoutAPasswordEntry_TheQueueIsUnknowns) {
    initialize();
    Listener listener("A");
    const Failing failing(Call::getpwuid, ENOENT);
    const std::string name = test::expectedQueueName("A");
    ASSERT_EQ(0u, name.rfind("/UNKNOWN_", 0));
    EXPECT_EQ(eAF_S_OK, listener.add());
    EXPECT_EQ((Lines{{"CFrameworkUtils_GetMQueueName", "  MQueueName = " + name, 0x800}}), traced());
    EXPECT_EQ(0, test::messagesIn(name));
    mq_unlink(name.c_str());
}

TEST_F(EventHandlerFaults, AFiring_GoesThroughTheListInTheOrderOfAdding) {
    initialize(1, 4);
    registerEvents({1});
    Listener listeners[]{Listener("C"), Listener("A"), Listener("B")};
    for (Listener &listener : listeners) {
        listener.add();
    }
    std::vector<std::string> expected;
    for (const Listener &listener : listeners) {
        expected.push_back("mq_send " + std::to_string(test::descriptorsOn(listener.queue()).at(0)));
    }
    test::forgetCalls();
    CEventHandler_FireEvent(1);
    EXPECT_EQ(expected, test::callsOfOthers());
}

TEST_F(EventHandlerFaults, AnUnfilteredListener_IsAppendedBehindTheOthers) {
    initialize(2, 4);
    registerEvents({1, 2});
    Listener filtered("A");
    Listener everything("B");
    filtered.add({2, 2});
    everything.add();
    const std::string first = "mq_send " + std::to_string(test::descriptorsOn(filtered.queue()).at(0));
    const std::string second = "mq_send " + std::to_string(test::descriptorsOn(everything.queue()).at(0));
    test::forgetCalls();
    CEventHandler_FireUrgentEvent(2);
    EXPECT_THAT(test::callsOfOthers(), ElementsAre(first, first, second));
}

TEST_F(EventHandlerFaults, AFailedSend_IsRememberedWhileTheOthersAreServed) {
    initialize(1, 3);
    registerEvents({1});
    Listener first("A");
    Listener second("B");
    Listener third("C");
    for (Listener *listener : {&first, &second, &third}) {
        listener->add();
    }
    forgetTraces();
    const Failing failing(Call::mqSend, EINTR, 2);
    EXPECT_EQ(eAF_W_NOT_ALL_EVENTS_SENT, CEventHandler_FireEventWithCopiedData(1, "copy", 4)) << "the last failed";
    EXPECT_EQ(1, failing.times());
    EXPECT_EQ(1, first.waiting());
    EXPECT_EQ(1, second.waiting());
    EXPECT_EQ(0, third.waiting());
    EXPECT_THAT(traced(), IsEmpty());
    first.pump();
    second.pump();
}

TEST_F(EventHandlerFaults, AnInterruptedReceive_IsSilentInBothPumps) {
    initialize();
    Listener listener("A");
    listener.add();
    forgetTraces();
    const Failing failing(Call::mqReceive, EINTR);
    CEventHandler_PumpEvent(listener.handle());
    errno = 0;
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(listener.handle()));
    EXPECT_THAT(traced(), IsEmpty());
    errno = 0;
}

TEST_F(EventHandlerFaults, AnyOtherFailedReceive_IsTracedByPumpEventOnly) {
    initialize();
    Listener listener("A");
    listener.add();
    forgetTraces();
    const Failing failing(Call::mqReceive, EBADF);
    CEventHandler_PumpEvent(listener.handle());
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Failed to get event from queue", 0x8000}}), traced());
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(listener.handle()));
    EXPECT_THAT(traced(), IsEmpty());
}

} // namespace
