// The event service, its task and its cache.
#include <mqueue.h>

#include <cerrno>
#include <cstring>

#include "ScenarioParts.h"
#include "WorkerReceives.h"

namespace test {
namespace {

EAFResult onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback * /*self*/) {
    auto *listener = static_cast<ScenarioListener *>(context);
    ++listener->noOfHeard;
    listener->last.eventId = eventId;
    listener->last.data = data;
    if (data != nullptr && eventId != EVENT_ID_STOP) {
        std::memcpy(listener->last.bytes.data(), data, listener->last.bytes.size());
    }
    return eAF_S_OK;
}

void drain(ScenarioListener &listener) {
    while (listener.waiting() > 0) {
        errno = 0;
        CEventHandler_PumpEvent(listener.handle);
    }
    listener.noOfHeard = 0;
}

/// Nothing was heard: the message is still there, and the pump returned.
constexpr std::uint32_t nothingHeard = eAF_S_FALSE;

std::uint32_t pumpOne(ScenarioListener &listener, std::uint32_t eventId) {
    const std::uint32_t before = listener.noOfHeard;
    CEventHandler_PumpEvent(listener.handle);
    return listener.noOfHeard == before ? nothingHeard : listener.last.eventId == eventId ? eAF_S_OK : wrongEffect;
}

constexpr char data[8] = "payload";

/// A worker that waits has made all its calls, and the message that it is told of next wakes it.
std::function<bool()> areWaiting(unsigned workers) {
    return [=] { return soon([=] { return WorkerReceives::waiting() == workers; }); };
}

} // namespace

ScenarioListener::ScenarioListener(const char *listenerName) : name(listenerName), callback{this, onEvent} {}

void Scenario::addEvents() {
    Parts &p = *m_parts;
    add("CEventHandler_GetNumberOfRegisteredEvents", [] {
        return CEventHandler_GetNumberOfRegisteredEvents();
    }).answers(eAF_E_NOT_INITIALIZED);
    // A thread that could not be made for want of memory is a thread that could not be made.
    add("CEventHandler_Initialize", [] { return CEventHandler_Initialize(6, 3); })
        .settles(areWaiting(1))
        .needs({eAF_E_OUT_OF_MEMORY, eAF_E_FAILED, eAF_S_OK})
        .leaves()
        .undoneBy([] {
            CEventHandler_UnInitialize();
            workersAre(0);
        })
        .onCall("mq_receive", {eAF_S_OK}, "EventTask (EHNP): Receive from queue failed, error %m")
        .onCall("setrlimit", {eAF_S_OK}, "setrlimit() failed, continuing anyway.")
        .onCall("sem_init", {eAF_E_FAILED}, "EventTask (EHNP): Could not create semaphore")
        .onCall("pthread_attr_init", {eAF_E_FAILED}, "EventTask (EHNP): Could not create thread")
        .onCall("pthread_attr_setdetachstate", {eAF_E_FAILED}, "EventTask (EHNP): Could not create thread")
        .onCall("pthread_create", {eAF_E_FAILED}, "EventTask (EHNP): Could not create thread")
        .onCall("mq_open", {eAF_E_FAILED}, "%m");
    add("CEventHandler_Initialize", [] { return CEventHandler_Initialize(6, 3); }).answers(eAF_E_ALREADY_INITIALIZED);
    for (const std::uint32_t id : {2u, 3u, 48u}) {
        add("CEventHandler_RegisterEvent", [id] { return CEventHandler_RegisterEvent(id, longName.c_str()); });
    }
    add("CEventHandler_GetNumberOfRegisteredEvents", [] {
        return CEventHandler_GetNumberOfRegisteredEvents();
    }).answers(3);
    // Its list grows past the listeners that were announced. A user whose name can not be looked up is UNKNOWN.
    add("CEventHandler_AddListener",
        [&p] {
            return CEventHandler_AddListener(&p.greedy.callback, p.greedyFilter.data(), 5, p.greedy.name.c_str(),
                                             &p.greedy.handle);
        })
        .needs({eAF_E_OUT_OF_MEMORY, eAF_S_OK})
        .onCall("mq_open", {eAF_E_QUEUE_CREATION_FAILED}, "%m");
    add("CEventHandler_AddListener",
        [&p] {
            return CEventHandler_AddListener(&p.unfiltered.callback, nullptr, 0, p.unfiltered.name.c_str(),
                                             &p.unfiltered.handle);
        })
        .needs({eAF_E_OUT_OF_MEMORY, eAF_S_OK})
        .onCall("mq_open", {eAF_E_QUEUE_CREATION_FAILED}, "%m");
    add("CEventHandler_GetEventName", [] {
        const char *name = nullptr;
        const EAFResult result = CEventHandler_GetEventName(48, &name);
        return result != eAF_S_OK || std::strncmp(name, longName.c_str(), 49) == 0 ? result : wrongEffect;
    });

    const auto drainAll = [&p] {
        drain(p.greedy);
        drain(p.unfiltered);
    };
    const auto fire = [&](const char *operation, std::function<std::uint32_t()> run) -> Step & {
        return add(operation, std::move(run))
            .leaves()
            .undoneBy(drainAll)
            .onCall("mq_send", {eAF_W_NOT_ALL_EVENTS_SENT});
    };
    const auto pump = [&](ScenarioListener &listener, std::uint32_t eventId) {
        add("CEventHandler_PumpEvent", [&listener, eventId] {
            return pumpOne(listener, eventId);
        }).after([&listener] {
              return listener.waiting() > 0;
          }).onCall("mq_receive", {nothingHeard});
    };
    const auto pumpIfAvailable = [&](ScenarioListener &listener, std::uint32_t expected) -> Step & {
        return add("CEventHandler_PumpEventIfAvailable",
                   [&listener] { return CEventHandler_PumpEventIfAvailable(listener.handle); })
            .answers(expected)
            .after([&listener] { return listener.waiting() > 0; })
            .onCall("mq_receive", {0});
    };
    fire("CEventHandler_FireEvent", [] { return CEventHandler_FireEvent(2); });
    for (int i = 0; i < 4; ++i) {
        pump(p.greedy, 2); // as often as it is listed
    }
    pumpIfAvailable(p.unfiltered, 1);
    fire("CEventHandler_FireEventWithData",
         [] { return CEventHandler_FireEventWithData(3, const_cast<char *>(data)); });
    pump(p.greedy, 3);
    pump(p.unfiltered, 3);
    fire("CEventHandler_FireUrgentEvent", [] { return CEventHandler_FireUrgentEvent(3); });
    pump(p.greedy, 3);
    pump(p.unfiltered, 3);
    fire("CEventHandler_FireUrgentEventWithData",
         [] { return CEventHandler_FireUrgentEventWithData(3, const_cast<char *>(data)); });
    pump(p.greedy, 3);
    pump(p.unfiltered, 3);
    for (const std::uint32_t id : {3u, 48u}) {
        fire("CEventHandler_FireEventWithCopiedData", [id] {
            return CEventHandler_FireEventWithCopiedData(id, data, sizeof data);
        }).needs({eAF_W_NOT_ALL_EVENTS_SENT});
        if (id == 3) {
            pump(p.greedy, id);
        }
        pump(p.unfiltered, id);
    }
    fire("CEventHandler_FireUrgentEventWithCopiedData", [] {
        return CEventHandler_FireUrgentEventWithCopiedData(3, data, sizeof data);
    }).needs({eAF_W_NOT_ALL_EVENTS_SENT});
    pump(p.greedy, 3);
    pump(p.unfiltered, 3);
    add("a listener's copied data",
        [&p] { return std::memcmp(p.greedy.last.bytes.data(), data, sizeof data) == 0 ? eAF_S_OK : wrongEffect; });
    fire("CEventHandler_FireEventFromMessageInternal", [&p] {
        p.message.eventId = 3;
        return CEventHandler_FireEventFromMessageInternal(&p.message);
    });
    // The message's address is what arrives.
    pumpIfAvailable(p.greedy, 1);
    pumpIfAvailable(p.unfiltered, 1);
    add("CEventHandler_SendEmptyMessage", [&p] {
        CEventHandler_SendEmptyMessage(p.unfiltered.handle);
        return eAF_S_OK;
    }).isUnansweredWhen([&p] { return p.unfiltered.waiting() == 0; });
    pumpIfAvailable(p.unfiltered, 0).isUnansweredWhen([&p] { return p.unfiltered.waiting() > 0; });
    add("CEventHandler_GetStatistics", [] {
        SEventHandlerStatistics statistics{};
        const EAFResult result = CEventHandler_GetStatistics(&statistics);
        return result != eAF_S_OK || (statistics.noOfListeners == 2 && statistics.noOfErrorResponses == 0)
                   ? result
                   : wrongEffect;
    });
    add("CEventHandler_ResetStatistics", [] {
        CEventHandler_ResetStatistics();
        return eAF_S_OK;
    });
    add("CFrameworkUtils_GetMQueueName", [] {
        std::array<char, 256> name{};
        return CFrameworkUtils_GetMQueueName(name.data(), static_cast<std::int32_t>(name.size()), "Suffix");
    }).needs({eAF_S_OK});
}

void Scenario::addTask() {
    Parts &p = *m_parts;
    const auto destroy = [&p] {
        p.isTaskCreated = false;
        return static_cast<std::uint32_t>(p.operations->Destroy(p.operations));
    };
    const auto create = [this, &p, destroy] {
        add("ITask::Create",
            [&p] {
                const EAFResult result = p.operations->Create(p.operations, "Task", 100, 2048, 12, 60);
                p.isTaskCreated = result != eAF_E_OUT_OF_MEMORY;
                return result;
            })
            .settles(areWaiting(2))
            .settlesLaterAfter("sem_post") // Start, or the task's end, lets the worker go
            .needs({eAF_E_OUT_OF_MEMORY, eAF_E_FAILED, eAF_S_OK})
            .leaves()
            .undoneBy([destroy] {
                destroy();
                workersAre(1);
            })
            .onCall("sem_init", {eAF_E_FAILED}, "EventTask (Task): Could not create semaphore")
            .onCall("pthread_attr_init", {eAF_E_FAILED}, "EventTask (Task): Could not create thread")
            .onCall("pthread_attr_setdetachstate", {eAF_E_FAILED}, "EventTask (Task): Could not create thread")
            .onCall("pthread_create", {eAF_E_FAILED}, "EventTask (Task): Could not create thread")
            .onCall("mq_open", {eAF_E_FAILED}, "%m")
            .onCall("mq_receive", {eAF_S_OK}, "EventTask (Task): Receive from queue failed, error %m");
    };
    add("CEventTask_GetInterface", [&p] { return CEventTask_GetInterface(&p.task, &p.operations); });
    create();
    add("ITask::GetThreadHandle",
        [&p] { return p.operations->GetThreadHandle(p.operations) == &p.task.threadHandle ? eAF_S_OK : wrongEffect; });
    add("ITask::Start", [&p] { return p.operations->Start(p.operations); }).settles(areWaiting(2));
    // The message's address is no event.
    const auto isTaken = [&p] {
        return soon([&p] { return WorkerReceives::received() > p.takenBefore; }) && areWaiting(2)();
    };
    add("CEventTask_HandleEvent",
        [&p] {
            p.takenBefore = WorkerReceives::received();
            return CEventTask_HandleEvent(&p.task, &p.message);
        })
        .settles(isTaken)
        .onCall("mq_send", {eAF_E_FAILED})
        .onCall("mq_receive", {eAF_S_OK}, "EventTask (Task): Receive from queue failed, error %m");
    // An event that stands in the queue is passed on to its listeners, whatever befell the worker before.
    const auto put = [&p] {
        SEventDataMessage message{};
        message.eventId = 3;
        p.takenBefore = WorkerReceives::received();
        return mq_send(p.task.queue, reinterpret_cast<const char *>(&message), sizeof message, 0) == 0;
    };
    add("an event in the task's queue", [] { return eAF_S_OK; })
        .after(put)
        .settles(isTaken)
        .isUnansweredWhen([&p] { return p.greedy.waiting() != 1 || p.unfiltered.waiting() != 1; })
        .undoneBy([&p, put] {
            drain(p.greedy);
            drain(p.unfiltered);
            put();
        })
        .onCall("mq_receive", {eAF_S_OK}, "EventTask (Task): Receive from queue failed, error %m");
    for (ScenarioListener *listener : {&p.greedy, &p.unfiltered}) {
        add("a listener of the task's event",
            [listener] { return CEventHandler_PumpEventIfAvailable(listener->handle); })
            .answers(1)
            .after([listener] { return listener->waiting() > 0; })
            .onCall("mq_receive", {0});
    }
    add("ITask::Stop",
        [&p] {
            const WorkerReceives::Held held; // it closes the queue when nobody else uses it any more
            return p.operations->Stop(p.operations);
        })
        .settles([] { return workersAre(1); })
        .onCall("mq_send", {eAF_E_FAILED})
        .onCall("mq_close", {eAF_S_OK}, "Could not close the queue.")
        .onCall("mq_unlink", {eAF_S_OK}, "Could not unlink the queue.")
        .onCall("sem_destroy", {eAF_S_OK}, "Could not destroy the semaphore.");
    // Its worker has removed the queue.
    add("ITask::Destroy", destroy).answers(static_cast<std::uint32_t>(-1));
    add("ITask::IsRunning", [&p] { return p.operations->IsRunning(p.operations); });
    create();
    // Of a task that nobody stopped: the worker is told by another message, or by the next run that begins or ends.
    add("ITask::Destroy",
        [destroy] {
            const WorkerReceives::Held held;
            return destroy();
        })
        .settles([] { return workersAre(1); })
        .settlesLaterAfter("mq_timedsend")
        .undoneBy([&p] {
            p.operations->Create(p.operations, "Task", 100, 2048, 12, 60);
            p.isTaskCreated = true;
        })
        .onCall("mq_unlink", {static_cast<std::uint32_t>(-1)});
}

void Scenario::addCache() {
    Parts &p = *m_parts;
    add("CEventCache_Construct", [&p] {
        CEventCache_Construct(&p.cache, 2);
        return p.cache.capacity == 2 ? eAF_S_OK : eAF_E_OUT_OF_MEMORY;
    }).needs();
    add("CEventCache_Add", [&p] { return CEventCache_Add(&p.cache, 7, 70); });
    add("CEventCache_Add", [&p] { return CEventCache_Add(&p.cache, 7, 71); }).answers(eAF_I_ALREADY_CACHED);
    add("CEventCache_IsHit", [&p] {
        std::uint32_t value = 0;
        return CEventCache_IsHit(&p.cache, 7, &value) == 1 && value == 70 ? eAF_S_OK : wrongEffect;
    });
    add("CEventCache_Destruct", [&p] {
        CEventCache_Destruct(&p.cache);
        return p.cache.entries == nullptr ? eAF_S_OK : wrongEffect;
    });
}

} // namespace test
