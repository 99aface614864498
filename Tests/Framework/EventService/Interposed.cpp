#include "Interposed.h"

#include <fcntl.h>
#include <pwd.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <mutex>
#include <utility>

#include "CEventCache.h"
#include "CEventHandler.h"

// Where a sanitizer's runtime is part of the program itself, the next definition in search order is not its own.
extern "C" {
__attribute__((weak)) int __interceptor_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
__attribute__((weak)) int __interceptor_sem_init(sem_t *, int, unsigned int);
__attribute__((weak)) int __interceptor_sem_trywait(sem_t *);
__attribute__((weak)) int __interceptor_sem_destroy(sem_t *);
__attribute__((weak)) passwd *__interceptor_getpwuid(uid_t);
}

namespace test {
namespace {

struct Fault {
    std::atomic<bool> isArmed{false};
    std::atomic<int> error{0};
    std::atomic<int> goodOnes{0};
    std::atomic<int> times{0};
};

struct LoggedCall {
    std::string text;
    bool isWorkers;
};

/// Never destroyed: workers may outlive main.
struct State {
    std::array<Fault, static_cast<std::size_t>(Call::count)> faults;
    Replacements replacements;
    std::mutex lock;
    std::vector<LoggedCall> calls;
    LimitCall limitCall;
    OpenCall openCall;
    std::atomic<std::size_t> stackSize{0};
    std::atomic<int> stackSizeAnswer{0};
};

State &state() {
    static State &state = *new State;
    return state;
}

/// A sanitizer makes some of its own in each thread that begins.
thread_local int attributesAlive = 0;

Fault &faultOf(Call call) {
    return state().faults.at(static_cast<std::size_t>(call));
}

/// @return the error to fail with, or 0.
int faultNow(Call call) {
    Fault &fault = faultOf(call);
    if (!fault.isArmed || fault.goodOnes-- > 0) {
        return 0;
    }
    ++fault.times;
    return fault.error;
}

void log(const std::string &text) {
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    const std::lock_guard<std::mutex> lock(state().lock);
    state().calls.push_back({text, std::string(name.data()) == "dm-af-eventtsk"});
}

template <class Keep>
std::vector<std::string> callsThat(Keep keep) {
    const std::lock_guard<std::mutex> lock(state().lock);
    std::vector<std::string> texts;
    for (const LoggedCall &call : state().calls) {
        if (keep(call)) {
            texts.push_back(call.text);
        }
    }
    return texts;
}

template <class Function>
Function next(const char *name, Function inSanitizer = nullptr) {
    return inSanitizer != nullptr ? inSanitizer : reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int failWith(int error) {
    errno = error;
    return -1;
}

} // namespace

Failing::Failing(Call call, int error, int goodOnes) : m_call(call) {
    Fault &fault = faultOf(call);
    fault.error = error;
    fault.goodOnes = goodOnes;
    fault.times = 0;
    fault.isArmed = true;
}

Failing::~Failing() {
    faultOf(m_call).isArmed = false;
}

int Failing::times() const {
    return faultOf(m_call).times;
}

Replacements &replacements() {
    return state().replacements;
}

void forwardEverything() {
    replacements().getInterface = nullptr;
    replacements().cacheAdd = nullptr;
    replacements().fireFromMessage = nullptr;
    replacements().beforeReceive = nullptr;
    replacements().beforeSend = nullptr;
    replacements().beforeThread = nullptr;
    replacements().beforeUserName = nullptr;
}

std::vector<std::string> calls() {
    return callsThat([](const LoggedCall &) { return true; });
}

std::vector<std::string> callsOfWorker() {
    return callsThat([](const LoggedCall &call) { return call.isWorkers; });
}

std::vector<std::string> callsOfOthers() {
    return callsThat([](const LoggedCall &call) { return !call.isWorkers; });
}

void forgetCalls() {
    const std::lock_guard<std::mutex> lock(state().lock);
    state().calls.clear();
}

LimitCall lastLimitCall() {
    const std::lock_guard<std::mutex> lock(state().lock);
    return state().limitCall;
}

OpenCall lastOpenCall() {
    const std::lock_guard<std::mutex> lock(state().lock);
    return state().openCall;
}

std::size_t lastStackSize() {
    return state().stackSize;
}

void setStackSizeAnswer(int answer) {
    state().stackSizeAnswer = answer;
}

int threadAttributesAlive() {
    return attributesAlive;
}

} // namespace test

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names
using namespace test;

int setrlimit(__rlimit_resource_t resource, const rlimit *limits) noexcept {
    if (resource != RLIMIT_MSGQUEUE) {
        // A sanitizer's, while it prepares itself.
        return prlimit(0, static_cast<__rlimit_resource>(resource), limits, nullptr);
    }
    log("setrlimit");
    {
        const std::lock_guard<std::mutex> lock(state().lock);
        state().limitCall = {static_cast<int>(resource), limits->rlim_cur, limits->rlim_max};
    }
    const int error = faultNow(Call::setRlimit);
    return error != 0 ? failWith(error) : 0;
}

mqd_t mq_open(const char *name, int flags, ...) noexcept {
    OpenCall call;
    call.name = name;
    call.flags = flags;
    const mq_attr *attributes = nullptr;
    if ((flags & O_CREAT) != 0) {
        std::va_list arguments;
        va_start(arguments, flags);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see through va_start here
        call.mode = va_arg(arguments, mode_t);
        attributes = va_arg(arguments, const mq_attr *);
        va_end(arguments);
        log("mq_open " + call.name);
    }
    if (attributes != nullptr) {
        call.attributes = *attributes;
        call.umask = umask(0);
        umask(call.umask);
        const std::lock_guard<std::mutex> lock(state().lock);
        state().openCall = call;
    }
    const int error = attributes != nullptr ? faultNow(Call::mqOpen) : 0;
    if (error != 0) {
        return failWith(error);
    }
    static const auto forward = next<mqd_t (*)(const char *, int, mode_t, const mq_attr *)>("mq_open");
    return forward(name, flags, call.mode, attributes);
}

int mq_send(mqd_t queue, const char *bytes, std::size_t size, unsigned int priority) {
    if (const auto before = replacements().beforeSend.get()) {
        before(queue);
    }
    log("mq_send " + std::to_string(queue));
    if (const int error = faultNow(Call::mqSend)) {
        return failWith(error);
    }
    static const auto forward = next<int (*)(mqd_t, const char *, std::size_t, unsigned int)>("mq_send");
    return forward(queue, bytes, size, priority);
}

ssize_t mq_receive(mqd_t queue, char *bytes, std::size_t size, unsigned int *priority) {
    if (const auto before = replacements().beforeReceive.get()) {
        before(queue);
    }
    if (const int error = faultNow(Call::mqReceive)) {
        return failWith(error);
    }
    static const auto forward = next<ssize_t (*)(mqd_t, char *, std::size_t, unsigned int *)>("mq_receive");
    return forward(queue, bytes, size, priority);
}

int mq_close(mqd_t queue) noexcept {
    log("mq_close " + std::to_string(queue));
    static const auto forward = next<int (*)(mqd_t)>("mq_close");
    if (const int error = faultNow(Call::mqClose)) {
        forward(queue);
        return failWith(error);
    }
    return forward(queue);
}

int mq_unlink(const char *name) noexcept {
    log(std::string("mq_unlink ") + name);
    if (const int error = faultNow(Call::mqUnlink)) {
        return failWith(error);
    }
    static const auto forward = next<int (*)(const char *)>("mq_unlink");
    return forward(name);
}

int sem_init(sem_t *semaphore, int isShared, unsigned int value) noexcept {
    log("sem_init " + std::to_string(isShared) + " " + std::to_string(value));
    if (const int error = faultNow(Call::semInit)) {
        return failWith(error);
    }
    static const auto forward = next<int (*)(sem_t *, int, unsigned int)>("sem_init", __interceptor_sem_init);
    return forward(semaphore, isShared, value);
}

int sem_trywait(sem_t *semaphore) noexcept {
    if (const int error = faultNow(Call::semTrywait)) {
        return failWith(error);
    }
    static const auto forward = next<int (*)(sem_t *)>("sem_trywait", __interceptor_sem_trywait);
    return forward(semaphore);
}

int sem_destroy(sem_t *semaphore) noexcept {
    log("sem_destroy");
    static const auto forward = next<int (*)(sem_t *)>("sem_destroy", __interceptor_sem_destroy);
    if (const int error = faultNow(Call::semDestroy)) {
        forward(semaphore);
        return failWith(error);
    }
    return forward(semaphore);
}

int pthread_attr_init(pthread_attr_t *attributes) noexcept {
    static const auto forward = next<int (*)(pthread_attr_t *)>("pthread_attr_init");
    ++attributesAlive;
    return forward(attributes);
}

int pthread_attr_destroy(pthread_attr_t *attributes) noexcept {
    static const auto forward = next<int (*)(pthread_attr_t *)>("pthread_attr_destroy");
    --attributesAlive;
    return forward(attributes);
}

int pthread_attr_setstacksize(pthread_attr_t * /*attributes*/, std::size_t size) noexcept {
    state().stackSize = size;
    return state().stackSizeAnswer;
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                   void *argument) noexcept(true) {
    log("pthread_create");
    if (const auto first = replacements().beforeThread.get()) {
        first();
    }
    if (const int error = faultNow(Call::pthreadCreate)) {
        return error;
    }
    using Forward = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const auto forward = next<Forward>("pthread_create", __interceptor_pthread_create);
    return forward(thread, attributes, run, argument);
}

passwd *getpwuid(uid_t user) {
    if (const auto first = replacements().beforeUserName.get()) {
        first();
    }
    if (faultNow(Call::getpwuid) != 0) {
        return nullptr;
    }
    static const auto forward = next<passwd *(*)(uid_t)>("getpwuid", __interceptor_getpwuid);
    return forward(user);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

EAFResult CEventTask_GetInterface(CEventTask *task, ITask **out) {
    if (const auto replacement = replacements().getInterface.get()) {
        return replacement(task, out);
    }
    static const auto forward = next<decltype(&CEventTask_GetInterface)>("CEventTask_GetInterface");
    return forward(task, out);
}

EAFResult CEventCache_Add(CEventCache *cache, std::uint32_t key, std::uint32_t value) {
    if (const auto replacement = replacements().cacheAdd.get()) {
        return replacement(key, value);
    }
    static const auto forward = next<decltype(&CEventCache_Add)>("CEventCache_Add");
    return forward(cache, key, value);
}

EAFResult CEventHandler_FireEventFromMessageInternal(SEventDataMessage *message) {
    if (const auto replacement = replacements().fireFromMessage.get()) {
        return replacement(message);
    }
    static const auto forward =
        next<decltype(&CEventHandler_FireEventFromMessageInternal)>("CEventHandler_FireEventFromMessageInternal");
    return forward(message);
}
