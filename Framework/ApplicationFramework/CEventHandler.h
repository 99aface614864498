/// @file
/// The event service: event ids, listeners each with a message queue of its own, firing and pumping.
///
/// Order of use: Initialize; RegisterEvent for each event; AddListener for each listener; then fire and pump
/// from any threads; UnInitialize. Firing a registered event puts one SEventDataMessage on the queue of each of its
/// listeners; the listener's own thread pumps it. A queue takes 10 messages: a full one blocks the firing
/// thread, an empty one the pump. Urgent messages overtake normal ones, each kind keeps its order.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "CEventTask.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

/// What a pump calls. The listener owns it and keeps it while the event handler is initialized
/// and until its own last pump has returned.
typedef struct SListenerCallback {
    void *context; ///< Handed back as the first argument.
    /// @param data  the message's data word: null, the firing caller's pointer, or a copy that is freed when
    ///              this returns.
    /// @param self  this record.
    EAFResult (*function)(void *context, uint32_t eventId, void *data, struct SListenerCallback *self);
} SListenerCallback;

typedef struct SEventHandlerStatistics {
    uint32_t noOfRegisteredEvents;
    uint32_t maxNoOfEvents;
    uint32_t noOfListeners;
    uint32_t maxNoOfListeners;
    uint32_t noOfErrorResponses; ///< Callbacks that returned 0x8000 or more.
    uint32_t noOfPumpedEvents;   ///< Messages handed to a callback.
    uint32_t noOfCacheMisses;    ///< Firings of known events past the cache; a filtered listener clears it.
} SEventHandlerStatistics;

/// Reserves room for events and listeners, raises the process's limit of message-queue bytes and starts the
/// event task.
/// @retval eAF_E_ALREADY_INITIALIZED  traced.
/// @retval eAF_E_FAILED               the event task could not be made; the handler counts as initialized.
/// @retval eAF_E_OUT_OF_MEMORY        not traced; the handler is not initialized.
AF_API EAFResult CEventHandler_Initialize(uint32_t maxNoOfEvents, uint32_t maxNoOfListeners);

/// Stops the event task without waiting for its worker and forgets events and listeners. The listeners'
/// queues stay open and keep their names; adding a listener of the same name replaces them.
/// @retval eAF_E_NOT_INITIALIZED  traced.
AF_API EAFResult CEventHandler_UnInitialize(void);

/// Adds an event; neither id nor name is checked, and of two events with one id the first is found.
/// @param name  at most 49 bytes are kept; null counts as empty.
/// @retval eAF_E_NOT_INITIALIZED         traced.
/// @retval eAF_E_TOO_MANY_REGISTRATIONS  not traced.
AF_API EAFResult CEventHandler_RegisterEvent(uint32_t eventId, const char *name);

/// Adds a listener and opens its queue "/<user>_<server port>_<name>" anew.
/// @param callback          kept, not copied.
/// @param eventFilter       the ids to hear, kept, not copied; an entry listed twice is served twice. Null, or a
///                          count of 0, hears every event registered so far and none registered later.
/// @param name              at most 29 bytes are kept; the queue is named by the whole text, up to 255 bytes
///                          with its prefix.
/// @param handle            receives the handle for the pumps, also when a filter entry is unknown.
/// @retval eAF_E_NOT_INITIALIZED         traced.
/// @retval eAF_E_INVALID_ARGUMENT        null callback, name or handle, or an empty name; not traced.
/// @retval eAF_E_TOO_MANY_REGISTRATIONS  not traced.
/// @retval eAF_E_QUEUE_CREATION_FAILED   traced with the system's text.
/// @retval eAF_E_FAILED                  a filter entry is unknown (each is traced): the listener stays, and
///                                       hears the others.
AF_API EAFResult CEventHandler_AddListener(SListenerCallback *callback, const uint32_t *eventFilter,
                                           uint32_t noOfFilterEvents, const char *name, uint32_t *handle);

/// Fires an event without data. Any thread may call.
/// @retval eAF_E_UNKNOWN_EVENT        traced twice.
/// @retval eAF_W_NOT_ALL_EVENTS_SENT  a queue did not take the event; not traced. The others have it.
AF_API EAFResult CEventHandler_FireEvent(uint32_t eventId);

/// As CEventHandler_FireEvent; the listeners receive the pointer itself, which must stay valid until the last
/// of them is done.
AF_API EAFResult CEventHandler_FireEventWithData(uint32_t eventId, void *data);

/// As CEventHandler_FireEvent; each listener receives a copy of its own, freed after its callback. Event 48
/// goes out urgent.
/// @param size  bytes of data.
/// @retval eAF_E_INVALID_ARGUMENT  null data with a size, for an event that has listeners; not traced.
AF_API EAFResult CEventHandler_FireEventWithCopiedData(uint32_t eventId, const void *data, uint32_t size);

/// As CEventHandler_FireEvent, overtaking what is not urgent.
AF_API EAFResult CEventHandler_FireUrgentEvent(uint32_t eventId);

/// As CEventHandler_FireEventWithData, overtaking what is not urgent.
AF_API EAFResult CEventHandler_FireUrgentEventWithData(uint32_t eventId, void *data);

/// As CEventHandler_FireEventWithCopiedData, overtaking what is not urgent.
AF_API EAFResult CEventHandler_FireUrgentEventWithCopiedData(uint32_t eventId, const void *data, uint32_t size);

/// For the event task's worker: sends each listener of the message's event the address of the message, not
/// its contents, at normal priority. Past the cache; no statistics.
/// @retval eAF_E_UNKNOWN_EVENT        traced twice.
/// @retval eAF_W_NOT_ALL_EVENTS_SENT  not traced.
/// @retval eAF_E_INVALID_ARGUMENT     null message; not traced.
AF_API EAFResult CEventHandler_FireEventFromMessageInternal(SEventDataMessage *message);

/// Waits for the listener's next message and runs its callback on this thread. A callback's warning or error
/// is traced with the listener's name, and so is a handle that is not below the capacity. An errno that already reads
/// EINTR drops the message: keep it clear.
AF_API void CEventHandler_PumpEvent(uint32_t handle);

/// As CEventHandler_PumpEvent, waiting too; of the receives that give nothing only the empty message is traced.
/// @return 1 if a callback ran, else 0; a plain number.
AF_API uint32_t CEventHandler_PumpEventIfAvailable(uint32_t handle);

/// Wakes a waiting pump with an empty message, which both pumps trace as a failed receive. Any thread may call;
/// blocks while the queue is full. A handle that is not below the capacity is traced.
AF_API void CEventHandler_SendEmptyMessage(uint32_t handle);

/// Tells the name that an event was registered with.
/// @param name  receives the registry's own text, valid until UnInitialize; null when unknown.
/// @retval eAF_E_UNKNOWN_EVENT     not traced.
/// @retval eAF_E_INVALID_ARGUMENT  null out pointer; not traced.
AF_API EAFResult CEventHandler_GetEventName(uint32_t eventId, const char **name);

/// @return the number of registered events, a plain number; before Initialize eAF_E_NOT_INITIALIZED (32788),
///         traced.
AF_API uint32_t CEventHandler_GetNumberOfRegisteredEvents(void);

/// Copies the counters; they are approximate while other threads fire and pump.
/// @retval eAF_E_NOT_INITIALIZED   traced.
/// @retval eAF_E_INVALID_ARGUMENT  null; not traced.
AF_API EAFResult CEventHandler_GetStatistics(SEventHandlerStatistics *statistics);

/// Clears noOfErrorResponses, noOfPumpedEvents and noOfCacheMisses, also before Initialize.
AF_API void CEventHandler_ResetStatistics(void);

AF_EXTERN_C_END
