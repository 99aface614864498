/// @file
/// Takes the place of the system's calls, and of the library's own calls between its parts, in a test program.
///
/// Linking Interposed into a program is enough: its definitions come before every shared library's. Each call is
/// forwarded unless a test tells it to fail, and kept in a log.
#pragma once

#include <mqueue.h>
#include <pthread.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CEventTask.h"
#include "EAFResult.h"

namespace test {

enum class Call : std::uint32_t {
    setRlimit,
    mqOpen,
    mqSend,
    mqReceive,
    mqClose,
    mqUnlink,
    semInit,
    semTrywait,
    semDestroy,
    pthreadCreate,
    getpwuid,
    count
};

/// While it lives, a call fails with an error number; pthread_create returns it, getpwuid finds nobody.
class Failing {
public:
    /// @param goodOnes  calls that are let through first.
    Failing(Call call, int error, int goodOnes = 0);
    ~Failing();
    Failing(const Failing &) = delete;
    Failing &operator=(const Failing &) = delete;
    /// How many calls failed so far: a failure that never happened shows nothing.
    int times() const;

private:
    Call m_call;
};

/// A test's own answer to a call between the library's parts, for whatever thread calls; none forwards.
template <class Signature>
class Replacement {
public:
    using Function = std::function<Signature>;
    Replacement &operator=(Function function) {
        const std::lock_guard<std::mutex> lock(m_lock);
        m_function = std::move(function);
        return *this;
    }
    Function get() const {
        const std::lock_guard<std::mutex> lock(m_lock);
        return m_function;
    }

private:
    mutable std::mutex m_lock;
    Function m_function;
};

struct Replacements {
    Replacement<EAFResult(CEventTask *, ITask **)> getInterface;
    Replacement<EAFResult(std::uint32_t key, std::uint32_t value)> cacheAdd;
    Replacement<EAFResult(SEventDataMessage *)> fireFromMessage;
    Replacement<void(mqd_t)> beforeReceive; ///< The receive goes to the system after it.
    Replacement<void(mqd_t)> beforeSend;    ///< Likewise; what it sends itself comes here too.
    Replacement<void()> beforeThread;       ///< pthread_create goes to the system after it.
    Replacement<void()> beforeUserName;     ///< Likewise getpwuid.
};
Replacements &replacements();
void forwardEverything();

/// The calls of this program since forgetCalls, in their order, as "mq_unlink /name", "mq_send 5", "sem_init 0 1".
std::vector<std::string> calls();
/// The same, of the event task's worker only or of all others.
std::vector<std::string> callsOfWorker();
std::vector<std::string> callsOfOthers();
void forgetCalls();

struct LimitCall {
    int resource = -1;
    std::uint64_t soft = 0;
    std::uint64_t hard = 0;
};
/// The last setrlimit; it is never forwarded, and succeeds unless told to fail.
LimitCall lastLimitCall();

struct OpenCall {
    std::string name;
    int flags = 0;
    mode_t mode = 0;
    mode_t umask = 0; ///< As it was during the call.
    mq_attr attributes{};
};
OpenCall lastOpenCall();

/// What pthread_attr_setstacksize was last asked for. Never forwarded: tests run on the default stack.
std::size_t lastStackSize();
/// What it answers.
void setStackSizeAnswer(int answer);
/// Thread attributes that this thread made and did not destroy.
int threadAttributesAlive();

} // namespace test
