// The lists of the registry, which grow with each listener.
#include "EventRegistry.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

class EventRegistryTest : public testing::Test {
protected:
    EventRegistryTest() {
        EXPECT_TRUE(EventRegistry::open(2, 2));
        const RegistryPin registry;
        registry->addEvent(7, "Seven");
    }
    ~EventRegistryTest() override { EventRegistry::close(); }
};

TEST_F(EventRegistryTest, AListOfMoreThanCanBeCounted_IsRefusedAndStaysAsItWas) {
    const RegistryPin registry;
    SListenerDescriptor listener{};
    ASSERT_TRUE(registry->reserve(0, 1));
    registry->listen(0, listener);
    const SEventListenerList before = registry->eventListeners[0];
    EXPECT_FALSE(registry->reserve(0, UINT32_MAX)) << "with the one that is there 2^32";
    EXPECT_EQ(before.listeners, registry->eventListeners[0].listeners);
    EXPECT_EQ(before.capacity, registry->eventListeners[0].capacity);
    EXPECT_EQ(&listener, registry->eventListeners[0].listeners[0]);
    EXPECT_TRUE(registry->reserve(0, 2)) << "and grows all the same";
    EXPECT_LE(3u, registry->eventListeners[0].capacity);
    EXPECT_EQ(&listener, registry->eventListeners[0].listeners[0]);
}

} // namespace
