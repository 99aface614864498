// The pumps read errno after a receive without having cleared it: what an earlier call left there counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "EventService.h"

namespace {

using test::Lines;
using test::Listener;
using testing::ElementsAre;
using testing::IsEmpty;

class StaleErrno : public test::EventService {
protected:
    StaleErrno() {
        initialize();
        registerEvents({1});
        m_listener.add();
        forgetTraces();
    }

    Listener m_listener{"A"};
};

TEST_F(StaleErrno, AnEintrLeftBehind_DropsTheMessageThatPumpEventReceived) {
    CEventHandler_FireEvent(1);
    errno = EINTR;
    CEventHandler_PumpEvent(m_listener.handle());
    EXPECT_EQ(0, m_listener.waiting()) << "received";
    EXPECT_THAT(m_listener.ids(), IsEmpty());
    EXPECT_EQ(0u, statistics().noOfPumpedEvents);
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(StaleErrno, AnEintrLeftBehind_DropsTheMessageThatPumpEventIfAvailableReceived) {
    CEventHandler_FireEvent(1);
    errno = EINTR;
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(m_listener.handle()));
    EXPECT_EQ(0, m_listener.waiting());
    EXPECT_THAT(m_listener.ids(), IsEmpty());
    EXPECT_EQ(0u, statistics().noOfPumpedEvents);
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(StaleErrno, AnEintrLeftBehind_StaysAndDropsEveryFurtherMessage) {
    CEventHandler_FireEvent(1);
    CEventHandler_FireEvent(1);
    errno = EINTR;
    CEventHandler_PumpEvent(m_listener.handle());
    EXPECT_EQ(EINTR, errno) << "the pump does not clear it";
    CEventHandler_PumpEvent(m_listener.handle());
    EXPECT_THAT(m_listener.ids(), IsEmpty());
    errno = 0;
    CEventHandler_FireEvent(1);
    CEventHandler_PumpEvent(m_listener.handle());
    EXPECT_THAT(m_listener.ids(), ElementsAre(1));
}

TEST_F(StaleErrno, AnEintrLeftBehind_ComesBeforeTheEmptyMessage) {
    CEventHandler_SendEmptyMessage(m_listener.handle());
    CEventHandler_SendEmptyMessage(m_listener.handle());
    errno = EINTR;
    CEventHandler_PumpEvent(m_listener.handle());
    EXPECT_EQ(0u, CEventHandler_PumpEventIfAvailable(m_listener.handle()));
    EXPECT_EQ(0, m_listener.waiting());
    EXPECT_EQ(Lines{}, traced());
}

TEST_F(StaleErrno, AnEintrLeftBehind_DropsACopyWithoutLeakingIt) {
    CEventHandler_FireEventWithCopiedData(1, "copy", 4);
    errno = EINTR;
    CEventHandler_PumpEvent(m_listener.handle());
    EXPECT_THAT(m_listener.ids(), IsEmpty());
}

TEST_F(StaleErrno, AnEintrLeftBehind_MattersNotToAnIllegalHandle) {
    errno = EINTR;
    CEventHandler_PumpEvent(99);
    EXPECT_EQ((Lines{{"CEventHandler_PumpEventInternal", "Illegal listener handle (63)", 0x8000}}), traced());
}

TEST_F(StaleErrno, AnyOtherErrorLeftBehind_DropsNothing) {
    for (const int error : {EAGAIN, EBADF, ENOENT}) {
        CEventHandler_FireEvent(1);
        errno = error;
        CEventHandler_PumpEvent(m_listener.handle());
        CEventHandler_FireEvent(1);
        errno = error;
        EXPECT_EQ(1u, CEventHandler_PumpEventIfAvailable(m_listener.handle()));
    }
    EXPECT_EQ(6u, m_listener.deliveries.size());
}

} // namespace
