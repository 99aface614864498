// Hosts register from one thread. Where several do at once, nothing is lost and nothing is counted twice.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "EventService.h"

namespace {

constexpr std::uint32_t threads = 4;

class ConcurrentRegistration : public test::EventService {
protected:
    /// Calls the work on several threads, each with its number.
    template <class Work>
    static void onEachThread(Work work) {
        std::vector<std::thread> running;
        for (std::uint32_t i = 0; i < threads; ++i) {
            running.emplace_back([work, i] { work(i); });
        }
        for (std::thread &thread : running) {
            thread.join();
        }
    }
};

TEST_F(ConcurrentRegistration, Events_AreAllThere) {
    constexpr std::uint32_t each = 1000;
    initialize(threads * each, 1);
    onEachThread([](std::uint32_t thread) {
        for (std::uint32_t id = thread * each; id < (thread + 1) * each; ++id) {
            EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(id, std::to_string(id).c_str()));
        }
    });
    EXPECT_EQ(threads * each, CEventHandler_GetNumberOfRegisteredEvents());
    for (std::uint32_t id = 0; id < threads * each; ++id) {
        const char *name = nullptr;
        ASSERT_EQ(eAF_S_OK, CEventHandler_GetEventName(id, &name)) << id;
        ASSERT_EQ(std::to_string(id), name);
    }
}

TEST_F(ConcurrentRegistration, Listeners_HaveAHandleAndAQueueEach) {
    constexpr std::uint32_t each = 4;
    initialize(1, threads * each);
    registerEvents({1});
    std::vector<std::unique_ptr<test::Listener>> listeners;
    for (std::uint32_t i = 0; i < threads * each; ++i) {
        listeners.push_back(std::make_unique<test::Listener>("L" + std::to_string(i)));
    }
    onEachThread([&](std::uint32_t thread) {
        for (std::uint32_t i = thread * each; i < (thread + 1) * each; ++i) {
            EXPECT_EQ(eAF_S_OK, listeners[i]->add({1}));
        }
    });
    EXPECT_EQ(eAF_S_OK, CEventHandler_FireEvent(1));
    std::vector<std::uint32_t> handles;
    for (const auto &listener : listeners) {
        handles.push_back(listener->handle());
        ASSERT_EQ(1, listener->waiting()) << listener->name();
        listener->pump();
        EXPECT_EQ((std::vector<std::uint32_t>{1}), listener->ids()) << listener->name();
    }
    std::sort(handles.begin(), handles.end());
    for (std::uint32_t i = 0; i < handles.size(); ++i) {
        EXPECT_EQ(i, handles[i]);
    }
}

} // namespace
