#include <CEventTask.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "NamedQueue.h"

namespace {

using test::ChildProgram;
using test::NamedQueue;

constexpr long messageSize = sizeof(SEventDataMessage);

std::vector<std::string> arguments(std::vector<std::string> more) {
    more.insert(more.begin(), {"--port", std::to_string(test::port())});
    return more;
}

TEST(PostEventTest, Post_OfANumber_PutsOneNormalMessageOnTheQueue) {
    const NamedQueue queue(test::queueName("AlarmCollector"), messageSize);
    ChildProgram postEvent(POST_EVENT,
                           arguments({"--listener", "AlarmCollector", "--event", "AlarmAcknowledged", "--data", "7"}));

    EXPECT_EQ(postEvent.exitCode(), 0) << postEvent.errors();

    unsigned int priority = 1;
    const std::string bytes = queue.receive(priority);
    SEventDataMessage message{};
    ASSERT_EQ(bytes.size(), sizeof message);
    std::memcpy(&message, bytes.data(), sizeof message);
    EXPECT_EQ(priority, 0U);
    EXPECT_EQ(message.eventId, 12U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(message.pData), 7U);
    EXPECT_EQ(message.isCopied, 0U);
    EXPECT_TRUE(queue.receive(priority).empty());
}

TEST(PostEventTest, Post_Urgent_UsesTheHighestPriority) {
    const NamedQueue queue(test::queueName("BoardSupervision"), messageSize);
    ChildProgram postEvent(POST_EVENT,
                           arguments({"--listener", "BoardSupervision", "--event", "SampleBoard", "--urgent"}));

    EXPECT_EQ(postEvent.exitCode(), 0) << postEvent.errors();

    unsigned int priority = 0;
    EXPECT_EQ(queue.receive(priority).size(), sizeof(SEventDataMessage));
    EXPECT_EQ(priority, 32767U);
}

TEST(PostEventTest, Post_WithoutTheQueue_NamesItAndFails) {
    const std::string name = test::queueName("AlarmCollector");
    ChildProgram postEvent(POST_EVENT, arguments({"--listener", "AlarmCollector", "--event", "SampleBoard"}));

    EXPECT_EQ(postEvent.exitCode(), 1);

    EXPECT_EQ(postEvent.errors(), "PostEvent: there is no queue " + name +
                                      "; is the controller running, as this user and with this port?\n");
    EXPECT_EQ(postEvent.output(), "");
    EXPECT_FALSE(test::queueExists(name)) << "PostEvent must not make the queue";
}

TEST(PostEventTest, Post_OnAFullQueue_SaysSoAndFails) {
    const NamedQueue queue(test::queueName("AlarmCollector"), messageSize);
    queue.fill();
    ChildProgram postEvent(POST_EVENT, arguments({"--listener", "AlarmCollector", "--event", "SampleBoard"}));

    EXPECT_EQ(postEvent.exitCode(), 1);

    EXPECT_EQ(postEvent.errors(), "PostEvent: queue " + queue.name() +
                                      " is full (2 messages wait); its listener does not pump, try again later\n");
}

TEST(PostEventTest, Post_OnAQueueOfOtherMessages_SaysSoAndFails) {
    const NamedQueue queue(test::queueName("SomeoneElse"), messageSize + 8);
    ChildProgram postEvent(POST_EVENT, arguments({"--listener", "SomeoneElse", "--event", "SampleBoard"}));

    EXPECT_EQ(postEvent.exitCode(), 1);

    EXPECT_EQ(postEvent.errors(), "PostEvent: queue " + queue.name() + " takes messages of " +
                                      std::to_string(messageSize + 8) + " bytes, not of " +
                                      std::to_string(messageSize) +
                                      "; it is no listener's, or the controller was built for another target\n");
}

struct BadCommandLine {
    const char *name;
    std::vector<std::string> arguments;
    const char *message;
};

void PrintTo(const BadCommandLine &line, std::ostream *out) {
    *out << line.name;
}

class PostEventCommandLineTest : public testing::TestWithParam<BadCommandLine> {};

TEST_P(PostEventCommandLineTest, Post_WithABadCommandLine_SaysWhatIsWrongAndPostsNothing) {
    const NamedQueue queue(test::queueName("AlarmCollector"), messageSize);
    ChildProgram postEvent(POST_EVENT, arguments(GetParam().arguments));

    EXPECT_EQ(postEvent.exitCode(), 2);

    EXPECT_NE(postEvent.errors().find(GetParam().message), std::string::npos) << postEvent.errors();
    unsigned int priority = 0;
    EXPECT_TRUE(queue.receive(priority).empty());
}

INSTANTIATE_TEST_SUITE_P(
    , PostEventCommandLineTest,
    testing::Values(
        BadCommandLine{"NoListener", {"--event", "SampleBoard"}, "--listener is required"},
        BadCommandLine{"NoEvent", {"--listener", "AlarmCollector"}, "--event is required"},
        BadCommandLine{"UnknownEvent",
                       {"--listener", "AlarmCollector", "--event", "Lunch"},
                       "--event Lunch: there is no such event; there are: FrameFormatActive, PowerAmplifierOn, "
                       "PowerAmplifierOff, AlarmAcknowledged, SampleBoard"},
        BadCommandLine{"EventWithMemory",
                       {"--listener", "AlarmCollector", "--event", "AlarmRaised", "--data", "1"},
                       "--event AlarmRaised: it carries memory of the controller's own process; post one of: "},
        BadCommandLine{"NumberMissing",
                       {"--listener", "AlarmCollector", "--event", "AlarmAcknowledged"},
                       "--event AlarmAcknowledged: it carries a number; give it with --data"},
        BadCommandLine{"NumberNotWanted",
                       {"--listener", "AlarmCollector", "--event", "SampleBoard", "--data", "1"},
                       "--event SampleBoard: it carries no data; leave --data out"},
        BadCommandLine{"NumberIsNoNumber",
                       {"--listener", "AlarmCollector", "--event", "AlarmAcknowledged", "--data", "one"},
                       "Could not convert: --data = one"}),
    [](const auto &test) { return std::string(test.param.name); });

TEST(PostEventTest, Post_WithAPortTooLarge_SaysWhatIsAllowed) {
    ChildProgram postEvent(POST_EVENT, {"--port", "65536", "--listener", "AlarmCollector", "--event", "SampleBoard"});

    EXPECT_EQ(postEvent.exitCode(), 2);

    EXPECT_EQ(postEvent.errors(),
              "--port: Value 65536 not in range 0 to 65535\nRun with --help for more information.\n");
}

TEST(PostEventTest, Help_ListsTheEventsThatCanBePosted) {
    ChildProgram postEvent(POST_EVENT, {"--help"});

    EXPECT_EQ(postEvent.exitCode(), 0);

    EXPECT_NE(postEvent.output().find("AlarmAcknowledged, SampleBoard"), std::string::npos) << postEvent.output();
}

} // namespace
