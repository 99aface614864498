// Everything at once: eight firing threads, more event ids than the cache holds, sixteen listeners that share ids, each
// pumped by a thread of its own. Every delivery is held against the one that it has to be.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "EventService.h"
#include "Sanitized.h"
#include "SoakTraffic.h"

// Copies are the arrays that are asked for without an exception. ThreadSanitizer brings operators that can not be
// replaced.
#ifndef ZELAF_THREAD_SANITIZED
namespace {

std::atomic<std::uint64_t> copiesMade;
std::atomic<std::uint64_t> copiesFreed;

/// Lies before every array.
struct alignas(std::max_align_t) ArrayHead {
    bool isCopy;
};

void *makeArray(std::size_t size, bool isCopy) noexcept {
    auto *head = static_cast<ArrayHead *>(std::malloc(sizeof(ArrayHead) + size));
    if (head == nullptr) {
        return nullptr;
    }
    head->isCopy = isCopy;
    copiesMade += isCopy ? 1 : 0;
    return head + 1;
}

void freeArray(void *block) noexcept {
    if (block != nullptr) {
        ArrayHead *head = static_cast<ArrayHead *>(block) - 1;
        copiesFreed += head->isCopy ? 1 : 0;
        std::free(head);
    }
}

} // namespace

void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return makeArray(size, true);
}
void *operator new[](std::size_t size) {
    if (void *block = makeArray(size, false)) {
        return block;
    }
    throw std::bad_alloc{};
}
void operator delete[](void *block) noexcept {
    freeArray(block);
}
void operator delete[](void *block, std::size_t /*size*/) noexcept {
    freeArray(block);
}
void operator delete[](void *block, const std::nothrow_t & /*tag*/) noexcept {
    freeArray(block);
}
#endif

namespace {

using test::noOfSenders;
using test::noOfSoakListeners;

/// How many deliveries are asked for; "./run soak-events" asks for more.
std::uint64_t deliveriesWanted() {
    if (const char *asked = std::getenv("ZELAF_SOAK_DELIVERIES")) {
        return std::strtoull(asked, nullptr, 10);
    }
    return test::isEmulated() ? 50000 : 1000000;
}

/// The fewest firings of each sender that make that many deliveries.
std::uint32_t firingsFor(std::uint64_t deliveries) {
    std::uint64_t made = 0;
    std::uint32_t firings = 0;
    for (; made < deliveries; ++firings) {
        for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
            for (std::uint32_t listener = 0; listener < noOfSoakListeners; ++listener) {
                made += test::timesHeard(listener, test::firingOf(sender, firings).eventId);
            }
        }
    }
    return firings;
}

struct Expected {
    std::uint64_t deliveries = 0;
    std::uint64_t copies = 0;
};

Expected expectedOf(std::uint32_t listener, std::uint32_t firings) {
    Expected expected;
    for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
        for (std::uint32_t number = 0; number < firings; ++number) {
            const test::SoakFiring firing = test::firingOf(sender, number);
            const std::uint32_t times = test::timesHeard(listener, firing.eventId);
            expected.deliveries += times;
            expected.copies += firing.kind == test::FiringKind::withCopiedData ? times : 0;
        }
    }
    return expected;
}

using Listeners = std::vector<std::unique_ptr<test::SoakListener>>;

std::uint64_t deliveriesOf(const Listeners &listeners) {
    std::uint64_t sum = 0;
    for (const auto &listener : listeners) {
        sum += listener->deliveries();
    }
    return sum;
}

/// Ends the program with a word on who waits for whom when nothing has been delivered for a long time, far longer
/// than anything here takes.
class DeadlockWatch {
public:
    DeadlockWatch(const Listeners &listeners, const test::SoakProgress &progress)
        : m_listeners(listeners), m_progress(progress), m_thread([this] { watch(); }) {}
    ~DeadlockWatch() {
        {
            const std::lock_guard<std::mutex> lock(m_lock);
            m_isOver = true;
        }
        m_over.notify_one();
        m_thread.join();
    }
    DeadlockWatch(const DeadlockWatch &) = delete;
    DeadlockWatch &operator=(const DeadlockWatch &) = delete;

private:
    void watch() {
        std::unique_lock<std::mutex> lock(m_lock);
        for (std::uint64_t seen = 0;;) {
            if (m_over.wait_for(lock, std::chrono::seconds(90), [this] { return m_isOver; })) {
                return;
            }
            const std::uint64_t now = deliveriesOf(m_listeners);
            if (now == seen) {
                report();
                std::abort();
            }
            seen = now;
        }
    }
    void report() const {
        std::printf("nothing was delivered for 90 seconds\n");
        for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
            std::printf("  sender %u: %s%s\n", sender, m_progress.isDone(sender) ? "done" : "fires",
                        test::blocksSending(m_progress.threadOf(sender)) ? ", its queue is full" : "");
        }
        for (const auto &listener : m_listeners) {
            std::printf("  %s: %" PRIu64 " deliveries, %ld wait\n", listener->name().c_str(), listener->deliveries(),
                        listener->waiting());
        }
        std::fflush(stdout);
    }

    const Listeners &m_listeners;
    const test::SoakProgress &m_progress;
    std::mutex m_lock;
    std::condition_variable m_over;
    bool m_isOver = false;
    std::thread m_thread;
};

class ThreadStress : public test::EventService {};

TEST_F(ThreadStress, EveryListenerGetsExactlyWhatItsFilterAsks) {
    const std::uint32_t firings = firingsFor(deliveriesWanted());
    test::SoakProgress progress(firings);
    initialize(test::noOfSoakEvents + 1, noOfSoakListeners);
    for (std::uint32_t id = 0; id < test::noOfSoakEvents; ++id) {
        registerEvents({id});
    }
    registerEvents({test::endEvent});
    Listeners listeners;
    for (std::uint32_t i = 0; i < noOfSoakListeners; ++i) {
        listeners.push_back(std::make_unique<test::SoakListener>(i, progress));
        ASSERT_EQ(eAF_S_OK, listeners.back()->add());
    }
    forgetTraces();
#ifndef ZELAF_THREAD_SANITIZED
    const std::uint64_t madeBefore = copiesMade;
    const std::uint64_t freedBefore = copiesFreed;
#endif

    std::array<std::uint32_t, noOfSenders> bad{};
    {
        const DeadlockWatch watch(listeners, progress);
        std::vector<std::thread> pumps;
        pumps.reserve(listeners.size());
        for (std::uint32_t i = 0; i < noOfSoakListeners; ++i) {
            // One that hears a third and one that hears everything stop pumping for a while.
            const bool stalls = i == 4 || i == noOfSoakListeners - 1;
            pumps.emplace_back([&, i, stalls] { listeners[i]->pumpToTheEnd(stalls ? 500 : 0); });
        }
        std::vector<std::thread> senders;
        for (std::uint32_t sender = 0; sender < noOfSenders; ++sender) {
            senders.emplace_back([&, sender] { bad.at(sender) = progress.fireAll(sender); });
        }
        for (std::thread &sender : senders) {
            sender.join();
        }
        // Behind everything that was sent before, so what is missing by then is lost.
        EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(test::endEvent));
        for (std::thread &pump : pumps) {
            pump.join();
        }
    }

    EXPECT_EQ((std::array<std::uint32_t, noOfSenders>{}), bad);
    Expected all;
    std::uint64_t faults = 0;
    for (std::uint32_t i = 0; i < noOfSoakListeners; ++i) {
        const test::SoakListener &listener = *listeners[i];
        const Expected expected = expectedOf(i, firings);
        EXPECT_EQ(0u, listener.faults().sum()) << listener.firstFault();
        EXPECT_TRUE(listener.hasEverything()) << listener.name();
        EXPECT_EQ(expected.deliveries, listener.deliveries()) << listener.name();
        EXPECT_EQ(expected.copies, listener.copies()) << listener.name();
        all.deliveries += expected.deliveries;
        all.copies += expected.copies;
        faults += listener.faults().sum();
    }
    EXPECT_GT(listeners[4]->sendersHeldUp(), 0u);
    EXPECT_GT(listeners[noOfSoakListeners - 1]->sendersHeldUp(), 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(all.deliveries + noOfSoakListeners), statistics().noOfPumpedEvents);
    EXPECT_EQ(0u, statistics().noOfErrorResponses);
    EXPECT_GE(statistics().noOfCacheMisses, test::noOfSoakEvents)
        << "each id at least once, and the cache is too small";
    EXPECT_EQ(test::Lines{}, traced());
    EXPECT_EQ(0, test::SharedPayload::alive);
#ifndef ZELAF_THREAD_SANITIZED
    EXPECT_EQ(all.copies, copiesMade - madeBefore);
    EXPECT_EQ(all.copies, copiesFreed - freedBefore);
#endif
    std::printf("%" PRIu64 " deliveries of %u firings, %" PRIu64 " copies: %" PRIu64 " faults\n", all.deliveries,
                firings * noOfSenders, all.copies, faults);
}

TEST_F(ThreadStress, ListenersThatComeWhileEventsFlow_AreServedWholeOrNotAtAll) {
    initialize(4, 12);
    registerEvents({1, 2, 3});
    constexpr std::uint32_t late = 10;
    std::vector<std::unique_ptr<test::Listener>> listeners;
    for (std::uint32_t i = 0; i < late; ++i) {
        listeners.push_back(std::make_unique<test::Listener>("L" + std::to_string(i)));
    }
    std::array<std::uint32_t, 2> bad{};
    std::vector<std::thread> senders;
    for (std::uint32_t sender = 0; sender < 2; ++sender) {
        senders.emplace_back([&bad, sender] {
            for (std::uint32_t firing = 0; firing < 4; ++firing) {
                bad.at(sender) += CEventHandler_FireEvent(2) != eAF_S_OK ? 1u : 0u;
                std::this_thread::yield();
            }
        });
    }
    for (const auto &listener : listeners) {
        ASSERT_EQ(eAF_S_OK, listener->add({2, 1}));
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    ASSERT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    for (const auto &listener : listeners) {
        EXPECT_LE(listener->waiting(), 9);
        listener->pumpAll();
        EXPECT_EQ(1u, listener->ids().back());
    }
    EXPECT_EQ((std::array<std::uint32_t, 2>{}), bad);
}

} // namespace
