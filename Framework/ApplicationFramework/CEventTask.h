/// @file
/// The record that travels through every event queue, and the worker with a queue of its own on which
/// delayed events arrive.
#pragma once

#include <mqueue.h>
#include <pthread.h>
#include <semaphore.h>

#include <stdint.h>

#include "AFExport.h"
#include "EAFResult.h"

/// Wakes or stops a receiver; never delivered to a callback.
#define EVENT_ID_STOP 0xFFFFFFFFu

AF_EXTERN_C_BEGIN

/// The queue message, sent as raw bytes in host order: 12 bytes on a 32-bit target, sizeof the record elsewhere.
typedef struct SEventDataMessage {
    uint32_t eventId;
    void *pData;       ///< Null, the firing caller's pointer, or a copy that the receiving pump frees.
    uint32_t isCopied; ///< Non-zero: pData is such a copy.
} SEventDataMessage;

/// The operations of a task. Each takes the task, a CEventTask, as its first argument.
typedef struct ITask {
    /// Starts the worker and opens its queue "/<user>_<server port>_<name>", cut to 19 bytes. A task whose
    /// earlier worker is still leaving may be created anew. The worker inherits the caller's scheduling.
    /// @param priority     stored as one byte, not used.
    /// @param stackSize    bytes; at most 16384 are asked for, and what the system refuses is ignored.
    /// @param messageSize  ignored: the queue's messages are one SEventDataMessage.
    /// @param createQueue  0: no queue is opened.
    /// @retval eAF_E_TOO_MANY_REGISTRATIONS  null task or name; traced as eAF_E_INVALID_ARGUMENT.
    /// @retval eAF_E_FAILED                  no semaphore, thread or queue; traced. Nothing is undone: after a
    ///                                       failed queue the worker runs.
    EAFResult (*Create)(void *task, const char *name, uint32_t priority, uint32_t stackSize, uint32_t messageSize,
                        uint32_t createQueue);

    /// @return where the worker's handle is kept, in the task. The thread is detached: it can not be joined.
    pthread_t *(*GetThreadHandle)(void *task);

    /// Gives the semaphore. @return eAF_S_OK.
    EAFResult (*Start)(void *task);

    /// Asks the worker to leave and wakes it with a message; blocks while the task's queue is full.
    /// @retval eAF_E_FAILED  the message could not be sent.
    EAFResult (*Stop)(void *task);

    /// @return 1 while the worker is in its main loop, else 0, and 0 from Destroy on. Any thread may ask.
    uint32_t (*IsRunning)(void *task);

    /// Destroys the semaphore, closes the queue and unlinks it, without waiting for the worker, which does the
    /// same when it leaves: whoever comes second fails. The task's memory may be freed afterwards.
    /// @return the unlink's plain result, 0 or -1; a plain number.
    int (*Destroy)(void *task);
} ITask;

/// A task. The caller provides the memory and keeps it until Destroy; the object is its own interface.
typedef struct CEventTask {
    ITask operations;
    pthread_t threadHandle;
    mqd_t queue;        ///< -1 while none is open.
    char queueName[20]; ///< Cut when the name is longer.
    uint8_t priority;
    uint32_t stackSize;   ///< As given to Create.
    uint32_t messageSize; ///< sizeof(SEventDataMessage).
    uint32_t createQueue; ///< As given to Create.
    sem_t semaphore;
    uint32_t running;  ///< 1 while the worker is in its main loop.
    uint32_t runFlag;  ///< 1 from Create until Stop.
    char taskName[10]; ///< At most 9 bytes of Create's name.
} CEventTask;

/// Fills the task's table and hands it out; leaves the rest of the task alone.
/// @param out  receives the task's own address.
/// @retval eAF_E_INVALID_ARGUMENT  null task or out pointer; not traced.
AF_API EAFResult CEventTask_GetInterface(CEventTask *task, ITask **out);

/// Sends the address of the message, not the message, to the task's queue at priority 0: the first bytes sent
/// are the pointer, the others zero, so the worker takes the address for an event id. Any thread may call;
/// blocks while the queue is full. Nothing is traced.
/// @retval eAF_E_FAILED            the send failed.
/// @retval eAF_E_INVALID_ARGUMENT  null task.
AF_API EAFResult CEventTask_HandleEvent(CEventTask *task, SEventDataMessage *message);

AF_EXTERN_C_END
