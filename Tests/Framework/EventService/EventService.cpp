#include "EventService.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

#include "CApplicationFramework.h"
#include "Sanitized.h"

namespace test {
namespace {

std::size_t entriesOf(const std::filesystem::path &folder) {
    std::error_code ignored;
    std::size_t count = 0;
    for (std::filesystem::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
        ++count;
    }
    return count;
}

/// The threads before any test made one.
std::size_t threadsOfRuntime() {
#ifdef ZELAF_THREAD_SANITIZED
    // Its runtime adds one of its own with the first that is made.
    std::thread([] {}).join();
    eventually([] { return threadCount() <= 2; });
#endif
    return threadCount();
}

std::string wordOf(const std::string &file) {
    std::string word;
    std::ifstream(file) >> word;
    return word;
}

#ifdef ZELAF_EMULATED
// An emulator's thread sleeps in a call of the machine's own kernel, which knows it by the number of x86-64.
const std::vector<long> sendingCalls{242};
const std::vector<long> receivingCalls{243};
const std::vector<long> waitingCalls{202};
#else
const std::vector<long> sendingCalls{
    SYS_mq_timedsend,
#ifdef SYS_mq_timedsend_time64
    SYS_mq_timedsend_time64,
#endif
};
const std::vector<long> receivingCalls{
    SYS_mq_timedreceive,
#ifdef SYS_mq_timedreceive_time64
    SYS_mq_timedreceive_time64,
#endif
};
const std::vector<long> waitingCalls{
    SYS_futex,
#ifdef SYS_futex_time64
    SYS_futex_time64,
#endif
};
#endif

/// A thread that does not sleep has no number there.
bool sleepsIn(int thread, const std::vector<long> &systemCalls) {
    const std::string now = wordOf("/proc/self/task/" + std::to_string(thread) + "/syscall");
    return std::any_of(systemCalls.begin(), systemCalls.end(), [&](long call) { return now == std::to_string(call); });
}

bool eventuallySleepsIn(int thread, const std::vector<long> &systemCalls) {
    return eventually([&] { return sleepsIn(thread, systemCalls); });
}

} // namespace

std::string expectedQueueName(const std::string &suffix) {
    const passwd *entry = getpwuid(getuid());
    const std::string user = entry != nullptr ? entry->pw_name : "UNKNOWN";
    return "/" + user + "_" + std::to_string(CApplicationFramework_GetServerPort()) + "_" + suffix;
}

std::string expectedTaskQueueName(const std::string &task) {
    return expectedQueueName(task).substr(0, sizeof CEventTask::queueName - 1);
}

std::string errorText(int error) {
    return std::strerror(error);
}

bool isEmulated() {
#ifdef ZELAF_EMULATED
    return true;
#else
    return false;
#endif
}

std::size_t descriptorCount() {
    return entriesOf("/proc/self/fd");
}

std::vector<int> descriptorsOn(const std::string &queueName) {
    std::vector<int> descriptors;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        if (std::filesystem::read_symlink(entry.path(), ignored) == queueName) {
            descriptors.push_back(std::stoi(entry.path().filename()));
        }
    }
    return descriptors;
}

int threadId() {
    return static_cast<int>(syscall(SYS_gettid));
}

std::vector<int> threadsNamed(const std::string &name) {
    std::vector<int> threads;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
        if (wordOf(entry.path() / "comm") == name) {
            threads.push_back(std::stoi(entry.path().filename()));
        }
    }
    return threads;
}

bool blocksSending(int thread) {
    return sleepsIn(thread, sendingCalls);
}

bool eventuallyBlocksSending(int thread) {
    return eventuallySleepsIn(thread, sendingCalls);
}

bool eventuallyBlocksReceiving(int thread) {
    return eventuallySleepsIn(thread, receivingCalls);
}

bool eventuallyWaits(int thread) {
    return eventuallySleepsIn(thread, waitingCalls);
}

bool blocksSignal(int thread, int signalNumber) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    for (std::string word; status >> word;) {
        if (word == "SigBlk:") {
            status >> word;
            return (std::stoull(word, nullptr, 16) >> (signalNumber - 1) & 1) != 0;
        }
    }
    return false;
}

Listener::Listener(std::string name, EAFResult theAnswer)
    : answer(theAnswer), m_name(std::move(name)), m_queue(expectedQueueName(m_name)), m_callback{this, onEvent} {
    mq_unlink(m_queue.c_str());
}

Listener::~Listener() {
    mq_unlink(m_queue.c_str());
}

EAFResult Listener::add(std::vector<std::uint32_t> filter) {
    m_filter = std::move(filter);
    return CEventHandler_AddListener(&m_callback, m_filter.empty() ? nullptr : m_filter.data(),
                                     static_cast<std::uint32_t>(m_filter.size()), m_name.c_str(), &m_handle);
}

void Listener::pump(int times) const {
    for (int i = 0; i < times; ++i) {
        CEventHandler_PumpEvent(m_handle);
    }
}

void Listener::pumpAll() const {
    while (waiting() > 0) {
        CEventHandler_PumpEvent(m_handle);
    }
}

std::vector<std::uint32_t> Listener::ids() const {
    std::vector<std::uint32_t> ids;
    for (const Delivery &delivery : deliveries) {
        ids.push_back(delivery.eventId);
    }
    return ids;
}

EAFResult Listener::onEvent(void *context, std::uint32_t eventId, void *data, SListenerCallback *self) {
    auto *listener = static_cast<Listener *>(context);
    Delivery delivery{context, eventId, data, self, {}};
    if (listener->bytesToKeep != 0 && data != nullptr) {
        delivery.copy.assign(static_cast<const char *>(data), listener->bytesToKeep);
    }
    listener->deliveries.push_back(std::move(delivery));
    return listener->answer;
}

EventService::EventService() : m_threadsBefore(threadsOfRuntime()) {
    useOwnServerPort();
    mq_unlink(expectedTaskQueueName().c_str());
    TraceRecorder::reset();
}

EventService::~EventService() {
    CEventHandler_UnInitialize();
    EXPECT_TRUE(eventually([this] { return workerHasLeft(); })) << "the event task's worker stays";
    mq_unlink(expectedTaskQueueName().c_str());
}

void EventService::initialize(std::uint32_t maxNoOfEvents, std::uint32_t maxNoOfListeners) {
    ASSERT_EQ(eAF_S_OK, CEventHandler_Initialize(maxNoOfEvents, maxNoOfListeners));
    forgetTraces();
}

void EventService::unInitialize() {
    ASSERT_EQ(eAF_S_OK, CEventHandler_UnInitialize());
    ASSERT_TRUE(eventually([this] { return workerHasLeft(); }));
    forgetTraces();
}

void EventService::registerEvents(std::initializer_list<std::uint32_t> ids) {
    for (const std::uint32_t id : ids) {
        ASSERT_EQ(eAF_S_OK, CEventHandler_RegisterEvent(id, ("event " + std::to_string(id)).c_str()));
    }
}

std::vector<Line> EventService::traced() {
    const std::vector<Line> all = TraceRecorder::lines();
    const std::size_t seen = std::exchange(m_tracesSeen, all.size());
    return {all.begin() + static_cast<std::ptrdiff_t>(std::min(seen, all.size())), all.end()};
}

SEventHandlerStatistics EventService::statistics() {
    SEventHandlerStatistics statistics{};
    EXPECT_EQ(eAF_S_OK, CEventHandler_GetStatistics(&statistics));
    return statistics;
}

bool EventService::workerHasLeft() const {
    return threadCount() <= m_threadsBefore;
}

bool EventService::workerTraced(const std::string &message) {
    const std::vector<Line> lines = TraceRecorder::workerLines();
    return std::any_of(lines.begin(), lines.end(), [&](const Line &line) { return line.message == message; });
}

SEventDataMessage RawMessage::message() const {
    SEventDataMessage message{};
    std::memcpy(&message, bytes.data(), std::min(bytes.size(), sizeof message));
    return message;
}

RawQueue::RawQueue(const std::string &name) : m_queue(mq_open(name.c_str(), O_RDWR | O_CLOEXEC)) {
    EXPECT_NE(-1, m_queue) << name << ": " << errorText(errno);
}

RawQueue::~RawQueue() {
    mq_close(m_queue);
}

bool RawQueue::send(const SEventDataMessage &message, unsigned int priority) const {
    return mq_send(m_queue, reinterpret_cast<const char *>(&message), sizeof message, priority) == 0;
}

RawMessage RawQueue::receive() const {
    std::array<char, 256> buffer{};
    RawMessage raw;
    const ssize_t received = mq_receive(m_queue, buffer.data(), buffer.size(), &raw.priority);
    EXPECT_GE(received, 0) << errorText(errno);
    raw.bytes.assign(buffer.data(), received > 0 ? static_cast<std::size_t>(received) : 0);
    return raw;
}

} // namespace test
