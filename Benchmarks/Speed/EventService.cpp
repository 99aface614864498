#include "EventService.h"

#include <mqueue.h>
#include <unistd.h>

#include <sched.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "AfResult.h"
#include "CApplicationFramework.h"
#include "CFrameworkUtils.h"

namespace {

std::string queueName(const std::string &suffix) {
    std::array<char, 256> name{};
    speed::require("queue name",
                   CFrameworkUtils_GetMQueueName(name.data(), static_cast<std::int32_t>(name.size()), suffix.c_str()));
    return name.data();
}

} // namespace

void speed::require(const char *step, EAFResult result) {
    if (result >= eAF_W_WARNING) {
        throw std::runtime_error(std::string(step) + " answers " + AfResult::toString(result) +
                                 "; VOXTRACE_LEVEL=warning tells more");
    }
}

std::size_t speed::threadCount() {
    // The kernel's own count: a list of the threads ends early where the one that it stands at has just left.
    std::ifstream status("/proc/self/status");
    std::size_t count = 0;
    for (std::string word; status >> word;) {
        if (word == "Threads:") {
            status >> count;
            break;
        }
    }
    return count;
}

void speed::waitForThreads(std::size_t most) {
    while (threadCount() > most) {
        sched_yield();
    }
}

void speed::closeQueue(const std::string &name) {
    std::vector<int> found;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone);
        if (target == name || target == name + " (deleted)") {
            const std::string number = entry.path().filename();
            std::from_chars(number.data(), number.data() + number.size(), found.emplace_back());
        }
    }
    for (const int descriptor : found) {
        close(descriptor);
    }
}

speed::EventService::EventService(std::uint32_t noOfEvents, std::uint32_t noOfListeners)
    : m_threadsBefore(threadCount()) {
    // Keeps the queues apart from those of other hosts.
    require("server port", CApplicationFramework_SetServerPort(static_cast<std::int32_t>(getpid() % 0x10000)));
    require("event service", CEventHandler_Initialize(noOfEvents, noOfListeners));
    for (std::uint32_t event = 0; event < noOfEvents; ++event) {
        require("event", CEventHandler_RegisterEvent(firstEvent + event, "Event"));
    }
}

speed::EventService::~EventService() {
    CEventHandler_UnInitialize();
    waitForThreads(m_threadsBefore);
    // The service leaves them to the next listeners of those names; the next service here has its own.
    for (const std::string &queue : m_queues) {
        mq_unlink(queue.c_str());
        closeQueue(queue);
    }
}

std::uint32_t speed::EventService::add(SListenerCallback &callback, const std::vector<std::uint32_t> &filter) {
    const std::string name = "Listener" + std::to_string(m_queues.size());
    m_queues.push_back(queueName(name));
    std::uint32_t handle = 0;
    require("listener", CEventHandler_AddListener(&callback, filter.empty() ? nullptr : filter.data(),
                                                  static_cast<std::uint32_t>(filter.size()), name.c_str(), &handle));
    return handle;
}
