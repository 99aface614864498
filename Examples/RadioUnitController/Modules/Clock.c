/* clock_gettime and gmtime_r are POSIX; C11 alone does not declare them. */
#define _POSIX_C_SOURCE 200809L

#include "Modules/Clock.h"

#include <stddef.h>
#include <time.h>

#include "Support/PhaseCall.h"

enum { NANOSECONDS_OF_MILLISECOND = 1000000, NANOSECONDS_OF_MICROSECOND = 1000, NOTE_SIZE = 96 };

/* A board without a battery wakes up in 1970. */
static const time_t earliestTime = 1577836800; /* 2020-01-01T00:00:00Z */

struct SClock {
    const struct SModuleConfiguration *row;
    SModuleCallback callback;
    struct timespec started;
};

static EAFResult onPhase(void *context, uint32_t phaseId, ECallbackPriority priority);

/* The module manager keeps the callback by its address. */
static struct SClock theClock = {NULL, {&theClock, onPhase}, {0, 0}};

static EAFResult fail(const char *what) {
    PhaseCall_Note(what);
    return eAF_E_FAILED;
}

static EAFResult init(void) {
    struct timespec resolution;
    if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0) {
        return fail("CLOCK_MONOTONIC has no resolution; is this kernel built without it?");
    }
    if (resolution.tv_sec > 0 || resolution.tv_nsec > NANOSECONDS_OF_MILLISECOND) {
        return fail("CLOCK_MONOTONIC is coarser than 1 ms; switch on high-resolution timers");
    }
    PhaseCall_Note("monotonic clock is finer than 1 ms");
    return eAF_S_OK;
}

static EAFResult start(struct SClock *clock) {
    struct timespec now;
    struct tm date;
    if (clock_gettime(CLOCK_MONOTONIC, &clock->started) != 0 || clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return fail("the system clocks can not be read");
    }
    if (now.tv_sec < earliestTime || gmtime_r(&now.tv_sec, &date) == NULL) {
        PhaseCall_Note("the date is not set; set it before certificates and logs are needed");
        return eAF_W_WARNING;
    }
    char text[NOTE_SIZE];
    if (strftime(text, sizeof text, "date %Y-%m-%dT%H:%M:%SZ", &date) == 0) {
        return fail("the date does not fit its note");
    }
    PhaseCall_Note(text);
    return eAF_S_OK;
}

static EAFResult stop(const struct SClock *clock) {
    struct timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return fail("CLOCK_MONOTONIC can not be read");
    }
    const long long microseconds = (long long)(now.tv_sec - clock->started.tv_sec) * 1000000 +
                                   (now.tv_nsec - clock->started.tv_nsec) / NANOSECONDS_OF_MICROSECOND;
    PhaseCall_NoteNumber("ran for", microseconds, "us");
    return eAF_S_OK;
}

static EAFResult work(void *context, uint32_t phaseId, ECallbackPriority priority) {
    struct SClock *clock = context;
    (void)priority;
    switch (phaseId) {
    case PHASE_INIT:
        return init();
    case PHASE_START:
        return start(clock);
    case PHASE_STOP:
        return stop(clock);
    default:
        return fail("the module table lists a phase that the clock does not serve");
    }
}

static EAFResult onPhase(void *context, uint32_t phaseId, ECallbackPriority priority) {
    const struct SClock *clock = context;
    return PhaseCall_Run(clock->row, phaseId, priority, work, context);
}

EAFResult Clock_Register(const struct SModuleConfiguration *row) {
    theClock.row = row;
    EAFResult result = CModuleManager_RegisterModule(row->id, row->name);
    for (size_t i = 0; i < row->subscriptionCount && result < eAF_E_FAILED; ++i) {
        const struct SSubscription *subscription = &row->subscriptions[i];
        result = CModuleManager_RegisterCallback(row->id, "ClockOnPhase", row->radioChannel, &theClock.callback,
                                                 subscription->priority, subscription->batchId, subscription->phases,
                                                 subscription->phaseCount);
    }
    return result;
}

void Clock_Unregister(void) {
    if (theClock.row != NULL) {
        (void)CModuleManager_UnregisterModule(theClock.row->id);
        theClock.row = NULL;
    }
}
