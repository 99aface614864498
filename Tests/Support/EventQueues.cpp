#include "EventQueues.h"

#include <fcntl.h>
#include <unistd.h>

#include <sched.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>

#include "CApplicationFramework.h"
#include "CEventTask.h"
#include "CFrameworkUtils.h"

namespace {

constexpr char taskSuffix[] = "EHNP";

} // namespace

std::int32_t test::ownServerPort(std::int32_t process) {
    // The configuration record takes any 32-bit port. The event task's queue loses the end of its name where the user's
    // is long: neighbours differ in the first digits. Six are more than the examples' programs take.
    constexpr int fewestDigits = 6;
    std::int32_t port = 1 + process % 9; // never 0, so that none is left out
    int digits = 1;
    for (process /= 9; process > 0 || digits < fewestDigits; process /= 10) {
        port = port * 10 + process % 10;
        ++digits;
    }
    return port;
}

void test::useOwnServerPort() {
    std::array<std::int32_t, 9> configuration{};
    configuration[8] = test::ownServerPort(getpid());
    CApplicationFramework_FinalInitialization(configuration.data());
}

std::string test::queueName(const std::string &suffix) {
    std::array<char, 512> name{};
    CFrameworkUtils_GetMQueueName(name.data(), static_cast<std::int32_t>(name.size()), suffix.c_str());
    return name.data();
}

std::string test::taskQueueName() {
    return queueName(taskSuffix).substr(0, sizeof CEventTask::queueName - 1);
}

test::QueueCleaner::QueueCleaner(std::vector<std::string> suffixes) : m_suffixes(std::move(suffixes)) {
    unlinkAll();
}

test::QueueCleaner::~QueueCleaner() {
    unlinkAll();
}

void test::QueueCleaner::unlinkAll() const {
    for (const std::string &suffix : m_suffixes) {
        mq_unlink((suffix == taskSuffix ? taskQueueName() : queueName(suffix)).c_str());
    }
}

bool test::queueExists(const std::string &name) {
    return messagesIn(name) >= 0;
}

long test::messagesIn(const std::string &name) {
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
    if (queue == -1) {
        return -1;
    }
    mq_attr attributes{};
    mq_getattr(queue, &attributes);
    mq_close(queue);
    return attributes.mq_curmsgs;
}

bool test::eventually(const std::function<bool()> &condition) {
    constexpr int milliseconds = 60'000;
    // Counted by what it slept, not by the clock: a process that was stopped meanwhile has not had that time.
    for (int slept = 0; slept < milliseconds; ++slept) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}
