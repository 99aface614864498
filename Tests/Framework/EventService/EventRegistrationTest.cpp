#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "EventService.h"

namespace {

using test::Lines;

class EventRegistration : public test::EventService {
protected:
    static const char *nameOf(std::uint32_t eventId) {
        const char *name = "untouched";
        const EAFResult result = CEventHandler_GetEventName(eventId, &name);
        EXPECT_EQ(name != nullptr ? eAF_S_OK : eAF_E_UNKNOWN_EVENT, result);
        return name;
    }
};

TEST_F(EventRegistration, RegisterEvent_BeforeInitialize_IsNotInitializedAndTraced) {
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, CEventHandler_RegisterEvent(1, "one"));
    EXPECT_EQ((Lines{{"CEventHandler_RegisterEvent", "CEventHandler has not been initialized", 0x8014}}), traced());
}

TEST_F(EventRegistration, RegisterEvent_CountsAndTracesNothing) {
    initialize();
    EXPECT_EQ(0u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "one"));
    EXPECT_EQ(1u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(2, "two"));
    EXPECT_EQ(2u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(EventRegistration, RegisterEvent_BeyondTheCapacity_IsRefusedWithoutATrace) {
    initialize(2, 1);
    registerEvents({1, 2});
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, CEventHandler_RegisterEvent(3, "three"));
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, CEventHandler_RegisterEvent(1, "one again"));
    EXPECT_EQ(2u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ(nullptr, nameOf(3));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(EventRegistration, RegisterEvent_WithRoomForNone_IsRefused) {
    initialize(0, 0);
    EXPECT_EQ(eAF_E_TOO_MANY_REGISTRATIONS, CEventHandler_RegisterEvent(1, "one"));
}

TEST_F(EventRegistration, RegisterEvent_WithATakenId_IsAcceptedAndTheFirstIsFound) {
    initialize();
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "first"));
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(1, "second"));
    EXPECT_EQ(2u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_STREQ("first", nameOf(1));
}

TEST_F(EventRegistration, RegisterEvent_TakesAnyIdAndAnyName) {
    initialize();
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(0, ""));
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(EVENT_ID_STOP, "stop"));
    EXPECT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(5, nullptr));
    EXPECT_STREQ("", nameOf(0));
    EXPECT_STREQ("stop", nameOf(EVENT_ID_STOP));
    EXPECT_STREQ("", nameOf(5));
}

TEST_F(EventRegistration, AnEventName_KeepsAtMost49Bytes) {
    initialize();
    const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    CEventHandler_RegisterEvent(48, letters.substr(0, 48).c_str());
    CEventHandler_RegisterEvent(49, letters.substr(0, 49).c_str());
    CEventHandler_RegisterEvent(50, letters.substr(0, 50).c_str());
    CEventHandler_RegisterEvent(52, letters.c_str());
    EXPECT_EQ(letters.substr(0, 48), nameOf(48));
    EXPECT_EQ(letters.substr(0, 49), nameOf(49));
    EXPECT_EQ(letters.substr(0, 49), nameOf(50));
    EXPECT_EQ(letters.substr(0, 49), nameOf(52));
}

TEST_F(EventRegistration, AnEventName_IsACopyOfTheCallers) {
    initialize();
    std::string name = "mine";
    CEventHandler_RegisterEvent(1, name.c_str());
    name = "gone";
    EXPECT_STREQ("mine", nameOf(1));
    EXPECT_NE(name.c_str(), nameOf(1));
}

TEST_F(EventRegistration, GetEventName_HandsOutTheRegistrysOwnText) {
    initialize();
    registerEvents({1, 2});
    const char *first = nameOf(2);
    EXPECT_STREQ("event 2", first);
    registerEvents({3});
    EXPECT_EQ(first, nameOf(2)) << "not a copy made for the caller";
}

TEST_F(EventRegistration, GetEventName_OfAnUnknownId_SetsNullWithoutATrace) {
    EXPECT_EQ(nullptr, nameOf(1)) << "not initialized, and not asked whether it is";
    initialize();
    EXPECT_EQ(nullptr, nameOf(0)) << "no events at all, though unused records read as id 0";
    registerEvents({1});
    EXPECT_EQ(nullptr, nameOf(2));
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(EventRegistration, GetNumberOfRegisteredEvents_BeforeInitialize_IsTheCodeItself) {
    EXPECT_EQ(32788u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ((Lines{{"CEventHandler_GetNumberOfRegisteredEvents", "CEventHandler has not been initialized", 0x8014}}),
              traced());
}

TEST_F(EventRegistration, AfterUnInitialize_NoEventIsLeft) {
    initialize();
    registerEvents({1});
    unInitialize();
    EXPECT_EQ(nullptr, nameOf(1));
    initialize();
    EXPECT_EQ(0u, CEventHandler_GetNumberOfRegisteredEvents());
    EXPECT_EQ(nullptr, nameOf(1));
}

TEST_F(EventRegistration, ManyEvents_AreAllFound) {
    initialize(1000, 1);
    for (std::uint32_t id = 0; id < 1000; ++id) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(id * 7, std::to_string(id).c_str()));
    }
    for (std::uint32_t id = 0; id < 1000; ++id) {
        ASSERT_EQ(std::to_string(id), nameOf(id * 7));
    }
    EXPECT_EQ(nullptr, nameOf(1));
}

} // namespace
