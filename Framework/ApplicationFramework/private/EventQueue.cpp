#include "EventQueue.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

namespace {

// The kernel's lock on a queue orders what the sender wrote before what the receiver reads, pData's target
// included. ThreadSanitizer does not know that of a queue, so it is told.
#if defined(__SANITIZE_THREAD__)
#define AF_TELL_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define AF_TELL_THREAD_SANITIZER 1
#endif
#endif

#ifdef AF_TELL_THREAD_SANITIZER
extern "C" void __tsan_acquire(void *address);
extern "C" void __tsan_release(void *address);

char orderOfQueue[1024];

void tellSend(mqd_t queue) {
    __tsan_release(&orderOfQueue[static_cast<unsigned>(queue) % sizeof orderOfQueue]);
}
void tellReceive(mqd_t queue) {
    __tsan_acquire(&orderOfQueue[static_cast<unsigned>(queue) % sizeof orderOfQueue]);
}
#else
void tellSend(mqd_t) {}
void tellReceive(mqd_t) {}
#endif

} // namespace

mqd_t af::openEventQueue(const char *name, mode_t mode) {
    mq_attr attributes{};
    attributes.mq_maxmsg = af::queueLength;
    attributes.mq_msgsize = sizeof(SEventDataMessage);
    return mq_open(name, O_RDWR | O_CREAT, mode, &attributes);
}

SEventDataMessage af::makeAddressMessage(const SEventDataMessage *message) {
    SEventDataMessage addressMessage;
    std::memset(&addressMessage, 0, sizeof addressMessage);
    std::memcpy(&addressMessage, &message, sizeof message);
    return addressMessage;
}

bool af::sendMessage(mqd_t queue, const SEventDataMessage &message, unsigned int priority) {
    tellSend(queue);
    return mq_send(queue, reinterpret_cast<const char *>(&message), sizeof message, priority) == 0;
}

ssize_t af::receiveMessage(mqd_t queue, SEventDataMessage &message) {
    std::memset(&message, 0, sizeof message);
    const ssize_t received = mq_receive(queue, reinterpret_cast<char *>(&message), sizeof message, nullptr);
    tellReceive(queue);
    return received;
}

bool af::discardMessage(mqd_t queue) {
    SEventDataMessage message;
    const timespec alreadyPast{};
    ssize_t received =
        mq_timedreceive(queue, reinterpret_cast<char *>(&message), sizeof message, nullptr, &alreadyPast);
    if (received < 0 && errno == EMSGSIZE) {
        mq_attr attributes{};
        const bool isSizeKnown = mq_getattr(queue, &attributes) == 0;
        const auto size = static_cast<std::size_t>(attributes.mq_msgsize);
        const std::unique_ptr<char[]> larger(isSizeKnown ? new (std::nothrow) char[size] : nullptr);
        if (larger == nullptr) {
            return true; // it stays, and its sender may wait: it is asked for again
        }
        received = mq_timedreceive(queue, larger.get(), size, nullptr, &alreadyPast);
    }
    const bool isInterrupted = received < 0 && errno == EINTR;
    tellReceive(queue);
    return received >= 0 || isInterrupted;
}

void af::wakeReceiver(mqd_t queue) {
    const SEventDataMessage message = makeMessage(EVENT_ID_STOP, nullptr, 0);
    const timespec alreadyPast{};
    tellSend(queue);
    if (mq_timedsend(queue, reinterpret_cast<const char *>(&message), sizeof message, normalPriority, &alreadyPast) !=
            0 &&
        errno == EMSGSIZE) {
        mq_timedsend(queue, "", 0, normalPriority, &alreadyPast);
    }
}
