#include "InterfaceBroker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "TraceRecorder.h"

namespace {

using test::Line;
using test::TraceRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class Published : public IInterface {
public:
    using IInterface::IInterface;
    ~Published() override { ++destroyed; }
    static inline int destroyed = 0;
};

std::string address(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

class InterfaceBrokerTest : public testing::Test {
protected:
    InterfaceBrokerTest() {
        broker.clear();
        TraceRecorder::reset();
    }
    ~InterfaceBrokerTest() override { broker.clear(); }
    InterfaceBrokerTest(const InterfaceBrokerTest &) = delete;
    InterfaceBrokerTest &operator=(const InterfaceBrokerTest &) = delete;

    static Line registering(const std::string &name) {
        return {"registerInterface", "  Register interface " + name, eAF_DEBUG};
    }
    static Line registered(const std::string &name, const IInterface *interface) {
        return {"registerInterface", "  Register interface " + name + " ( pInterface " + address(interface) + " )",
                eAF_DEBUG};
    }

    InterfaceBroker &broker = InterfaceBroker::getInstance();
    Published a{"A"};
    Published b{"B"};
};

TEST_F(InterfaceBrokerTest, IsOneForTheProcess) {
    std::set<InterfaceBroker *> seen;
    std::vector<std::thread> threads;
    std::vector<InterfaceBroker *> found(8);
    for (std::size_t i = 0; i < found.size(); ++i) {
        threads.emplace_back([&found, i] { found[i] = &InterfaceBroker::getInstance(); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::set<InterfaceBroker *>{&broker}, std::set<InterfaceBroker *>(found.begin(), found.end()));
}

TEST_F(InterfaceBrokerTest, RegisterInterface_PublishesAndTraces) {
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("Radio", &a));
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(registering("Radio"), registered("Radio", &a)));
    IInterface *found = nullptr;
    EXPECT_EQ(eAF_S_OK, broker.getInterface("Radio", &found));
    EXPECT_EQ(&a, found);
}

TEST_F(InterfaceBrokerTest, RegisterInterface_UnderTheObjectsOwnName) {
    EXPECT_EQ("A", a.getName());
    EXPECT_EQ(eAF_S_OK, broker.registerInterface(&a));
    IInterface *found = nullptr;
    EXPECT_EQ(eAF_S_OK, broker.getInterface("A", &found));
    EXPECT_EQ(&a, found);
}

TEST_F(InterfaceBrokerTest, TheName_IsTheFirstMemberBehindTheVirtualTable) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(&a);
    EXPECT_EQ(bytes + sizeof(void *), reinterpret_cast<const unsigned char *>(&a.getName()));
}

TEST_F(InterfaceBrokerTest, RegisterInterface_OfATakenName_TracesAnErrorWithTheFirstPointerAndReturnsAWarning) {
    broker.registerInterface("Radio", &a);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, broker.registerInterface("Radio", &b));
    const Line taken{"registerInterface", "Interface Radio is already registered (pInterface " + address(&a) + ")",
                     eAF_E_FAILED};
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(registering("Radio"), taken));
    EXPECT_EQ(test::levelOf(eAF_E_FAILED), TraceRecorder::records().at(1).level);
    TraceRecorder::reset();
    EXPECT_EQ(eAF_W_ALREADY_REGISTERED, broker.registerInterface("Radio", nullptr)) << "asked before the null check";
    EXPECT_THAT(TraceRecorder::lines(), ElementsAre(registering("Radio"), taken));
    IInterface *found = nullptr;
    broker.getInterface("Radio", &found);
    EXPECT_EQ(&a, found);
}

TEST_F(InterfaceBrokerTest, RegisterInterface_OfNull_IsTracedAndAddsNothing) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, broker.registerInterface("Radio", nullptr));
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(registering("Radio"), Line{"registerInterface", "registerInterface called with interface == NULL",
                                               eAF_E_INVALID_ARGUMENT}));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("Radio", &a));
}

TEST_F(InterfaceBrokerTest, RegisterInterface_OfNullWithoutAName_IsRefusedInsteadOfBeingAskedForOne) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, broker.registerInterface(nullptr));
    EXPECT_EQ(eAF_E_FAILED, broker.unregisterInterface("", nullptr));
}

TEST_F(InterfaceBrokerTest, UnregisterInterface_HandsBackThePointerAndForgetsTheName) {
    broker.registerInterface("Radio", &a);
    TraceRecorder::reset();
    IInterface *handedBack = nullptr;
    EXPECT_EQ(eAF_S_OK, broker.unregisterInterface("Radio", &handedBack));
    EXPECT_EQ(&a, handedBack);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"unregisterInterface",
                                 "  Unregister interface Radio ( pInterface " + address(&a) + " )", eAF_DEBUG}));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("Radio", &b)) << "the name may be published again";
    EXPECT_EQ(eAF_S_OK, broker.unregisterInterface("Radio", nullptr));
    EXPECT_EQ(eAF_E_FAILED, broker.unregisterInterface("Radio", nullptr));
}

TEST_F(InterfaceBrokerTest, UnregisterInterface_OfAnUnknownName_LeavesNullInTheOutPointer) {
    IInterface *handedBack = &a;
    EXPECT_EQ(eAF_E_FAILED, broker.unregisterInterface("Radio", &handedBack));
    EXPECT_EQ(nullptr, handedBack);
    EXPECT_THAT(
        TraceRecorder::lines(),
        ElementsAre(Line{"unregisterInterface", "InterfaceBroker couldn't find [Radio] to unregister", eAF_E_FAILED}));
}

TEST_F(InterfaceBrokerTest, GetInterface_OfAnUnknownName_LeavesNullInTheOutPointer) {
    IInterface *found = &a;
    EXPECT_EQ(eAF_E_FAILED, broker.getInterface("Radio", &found));
    EXPECT_EQ(nullptr, found);
    EXPECT_THAT(TraceRecorder::lines(),
                ElementsAre(Line{"getInterface", "InterfaceBroker couldn't find [Radio]", eAF_E_FAILED}));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, broker.getInterface("Radio", nullptr));
}

TEST_F(InterfaceBrokerTest, Names_DifferByCaseAndMayBePrefixesOfEachOther) {
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("radio", &a));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("Radio", &b));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("Radio1", &b));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("", &b));
    IInterface *found = nullptr;
    broker.getInterface("radio", &found);
    EXPECT_EQ(&a, found);
    broker.getInterface("", &found);
    EXPECT_EQ(&b, found);
}

TEST_F(InterfaceBrokerTest, Clear_ForgetsEveryNameWithoutATraceAndDestroysNothing) {
    broker.registerInterface("Radio", &a);
    broker.registerInterface(&b);
    TraceRecorder::reset();
    Published::destroyed = 0;
    broker.clear();
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    EXPECT_EQ(0, Published::destroyed);
    EXPECT_EQ(eAF_E_FAILED, broker.unregisterInterface("Radio", nullptr));
    EXPECT_EQ(eAF_S_OK, broker.registerInterface("Radio", &b));
}

TEST_F(InterfaceBrokerTest, GetInterface_LeavesTheEntryAndTracesNothing) {
    broker.registerInterface("Radio", &a);
    TraceRecorder::reset();
    for (int times = 0; times < 2; ++times) {
        IInterface *found = nullptr;
        EXPECT_EQ(eAF_S_OK, broker.getInterface("Radio", &found));
        EXPECT_EQ(&a, found);
    }
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, broker.getInterface("Radio", nullptr));
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, broker.getInterface("Unknown", nullptr));
    EXPECT_THAT(TraceRecorder::lines(), IsEmpty());
    EXPECT_EQ(eAF_S_OK, broker.unregisterInterface("Radio", nullptr));
}

TEST_F(InterfaceBrokerTest, UnregisterInterface_LeavesTheOtherNames) {
    for (const char *name : {"", "Radi", "Radio", "Radio1", "radio"}) {
        broker.registerInterface(name, &a);
    }
    EXPECT_EQ(eAF_S_OK, broker.unregisterInterface("Radio", nullptr));
    IInterface *found = nullptr;
    EXPECT_EQ(eAF_E_FAILED, broker.getInterface("Radio", &found));
    for (const char *name : {"", "Radi", "Radio1", "radio"}) {
        EXPECT_EQ(eAF_S_OK, broker.getInterface(name, &found)) << name;
    }
}

/// Registered before the broker is made, so it runs when the broker is gone, as the destructor of a static
/// component would.
void unregisterAtExit() {
    IInterface *handedBack = nullptr;
    const std::string name(100, 'n');
    const EAFResult result = InterfaceBroker::getInstance().unregisterInterface(name, &handedBack);
    std::_Exit(result == eAF_E_FAILED && handedBack == nullptr ? 0 : 1);
}

TEST(InterfaceBrokerAtExit, AComponentThatOutlivesTheBroker_FindsItEmpty) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a process in which nobody has called the broker
    EXPECT_EXIT(
        {
            std::atexit(unregisterAtExit);
            static Published component("C");
            InterfaceBroker::getInstance().registerInterface(std::string(100, 'n'), &component);
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
