#include "WorkerReceives.h"

#include <mqueue.h>
#include <sys/types.h>
#include <unistd.h>

#include <dlfcn.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<unsigned> noOfWaiting{0};
std::atomic<std::uint64_t> noOfReceived{0};
std::atomic<bool> areHeld{false};

constexpr mqd_t noQueue = -1;

using Receive = ssize_t(mqd_t, char *, std::size_t, unsigned *);

} // namespace

extern "C" ssize_t zelaf_mq_receive(mqd_t queue, char *bytes, std::size_t size,
                                    unsigned *priority) __asm__("mq_receive");
ssize_t zelaf_mq_receive(mqd_t queue, char *bytes, std::size_t size, unsigned *priority) {
    static auto *const next = reinterpret_cast<Receive *>(dlsym(RTLD_NEXT, "mq_receive"));
    // A worker that is faster than its queue is opened asks for nothing, as often as it likes.
    if (queue != noQueue && test::receiveFails != nullptr && test::receiveFails()) {
        return -1;
    }
    if (queue == noQueue || gettid() == getpid()) {
        return next(queue, bytes, size, priority);
    }
    ++noOfWaiting;
    const ssize_t received = next(queue, bytes, size, priority);
    const int error = errno;
    while (areHeld) {
        usleep(100);
    }
    --noOfWaiting;
    noOfReceived += received >= 0 ? 1 : 0;
    errno = error;
    return received;
}

namespace test {

unsigned WorkerReceives::waiting() {
    return noOfWaiting;
}

std::uint64_t WorkerReceives::received() {
    return noOfReceived;
}

WorkerReceives::Held::Held() {
    areHeld = true;
}

WorkerReceives::Held::~Held() {
    areHeld = false;
}

} // namespace test
