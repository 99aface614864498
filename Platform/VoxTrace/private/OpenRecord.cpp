#include "OpenRecord.h"

#include <pthread.h>

#include <atomic>
#include <new>

namespace voxtrace {

namespace {

// A pthread key, not a thread_local object: those of the main thread are destroyed before the destructors that
// run at exit, which may trace, and the first access to one ends the process when memory is short.
pthread_key_t recordKey;
bool keyMade = false;

// An out-of-memory report is the one that must not fail for want of memory: one thread at a time may use this.
alignas(OpenRecord) unsigned char reserveStorage[sizeof(OpenRecord)];
OpenRecord *reserve = nullptr;
std::atomic_flag reserveTaken = ATOMIC_FLAG_INIT;

void release(OpenRecord *record) noexcept {
    if (record == reserve) {
        record->lines.clear();
        record->origin.reset();
        reserveTaken.clear(std::memory_order_release);
    } else {
        delete record;
    }
}

void threadEnds(void *record) {
    release(static_cast<OpenRecord *>(record));
}

OpenRecord *reserveIfFree() noexcept {
    return reserveTaken.test_and_set(std::memory_order_acquire) ? nullptr : reserve;
}

} // namespace

void prepareOpenRecords() noexcept {
    reserve = new (reserveStorage) OpenRecord;
    keyMade = pthread_key_create(&recordKey, threadEnds) == 0;
    if (!keyMade) {
        complain("no thread-specific key is left for the open records; procedural traces are not emitted");
    }
}

OpenRecord *openRecord() noexcept {
    return keyMade ? static_cast<OpenRecord *>(pthread_getspecific(recordKey)) : nullptr;
}

OpenRecord *openRecordMade() noexcept {
    if (auto *const record = openRecord()) {
        return record;
    }
    if (!keyMade) {
        return nullptr;
    }
    auto *record = new (std::nothrow) OpenRecord;
    if (record == nullptr) {
        record = reserveIfFree();
    }
    if (record != nullptr && pthread_setspecific(recordKey, record) != 0) {
        release(record);
        record = nullptr;
    }
    return record;
}

void recordClosed(OpenRecord &record) noexcept {
    record.origin.reset();
    record.lines.clear();
    if (&record == reserve) {
        pthread_setspecific(recordKey, nullptr);
        release(&record);
    }
}

} // namespace voxtrace
