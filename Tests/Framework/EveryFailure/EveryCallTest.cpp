// Each call of the system fails once in a host's whole life, with each error of its manual page that can befall the
// library: whoever makes it, the library, a provider, SQLite below it or the event task's worker. The step that meets
// it answers and traces what it is to, leaves no descriptor, no queue and no torn store, and succeeds when it is done
// again; from there on everything is as if nothing had happened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "FailingCalls.h"
#include "Progress.h"
#include "RefusedAllocations.h"
#include "Scenario.h"
#include "TraceRecorder.h"

namespace {

using test::Backend;
using test::FailingCall;
using test::FailingCalls;
using test::isSanitized;
using test::mostMadeForGood;
using test::Scenario;
using test::Step;
using test::TraceRecorder;
using Thread = FailingCalls::Thread;

constexpr unsigned mostDeviations = 10; ///< More of them tell nothing new.

#if defined(ZELAF_EMULATED) || defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t shortForm = 1;
#else
constexpr std::uint64_t shortForm = 2;
#endif

/// An emulator takes a second for a life: there the short form has one error of each call.
bool hasEveryError() {
#ifdef ZELAF_EMULATED
    return std::getenv("ZELAF_EVERY_FAILURE") != nullptr;
#else
    return true;
#endif
}

constexpr std::uint64_t none = ~std::uint64_t{0};

std::vector<test::Maker> makersWith(const Backend &backend) {
    if (!backend.keepsFiles) {
        return {test::host, test::worker};
    }
    return {&backend == &test::sqliteBackend() ? test::sqlite : test::file};
}

/// How many calls of each kind were made when one of these came to be.
class Counts {
public:
    Counts() {
        for (std::size_t call = 0; call < test::failingCalls().size(); ++call) {
            m_made.push_back({FailingCalls::counted(call, Thread::test), FailingCalls::counted(call, Thread::other)});
        }
    }
    std::uint64_t of(std::size_t call, Thread thread) const { return m_made[call][thread == Thread::test ? 0 : 1]; }

private:
    std::vector<std::array<std::uint64_t, 2>> m_made;
};

std::string hex(std::uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "%#x", code);
    return text;
}

std::string nameOf(int error) {
    const char *const name = error != 0 ? strerrorname_np(error) : "nobody";
    return name != nullptr ? name : std::to_string(error);
}

class EveryCall : public testing::TestWithParam<const Backend *> {
protected:
    EveryCall() : scenario(*GetParam(), folder.name()) {}

    const FailingCall &failing() const { return test::failingCalls()[call]; }
    std::string nameOfFailing() const { return std::string(failing().name) + (isOfWorker() ? " (worker)" : ""); }
    bool isOfWorker() const { return thread == Thread::other; }

    void deviates(const Step &step, const std::string &how) {
        ADD_FAILURE() << step.operation << ", " << nameOfFailing() << " number " << number << " fails with "
                      << nameOf(error) << ": " << how;
        ++deviations;
    }

    static const Step::CallFailure *described(const Step &step, const char *name) {
        const auto found =
            std::find_if(step.onFailingCall.begin(), step.onFailingCall.end(),
                         [name](const Step::CallFailure &each) { return std::strcmp(each.call, name) == 0; });
        return found != step.onFailingCall.end() ? &*found : nullptr;
    }

    static bool wasTraced(const std::string &text, std::size_t from) {
        const auto records = TraceRecorder::records();
        return std::any_of(records.begin() + static_cast<std::ptrdiff_t>(std::min(from, records.size())), records.end(),
                           [&](const test::Trace &record) { return record.message == text; });
    }

    /// What is compared with what a step leaves whose call fails.
    struct Before {
        std::string state;
        std::string stored;
    };

    Before before(const Step &step) {
        return {scenario.state(), step.isOfTheStore ? scenario.stored() : std::string()};
    }

    void expectAsAnswered(const Step &step, std::uint32_t code) {
        if (const std::string how = scenario.notAsAnswered(step, code); !how.empty()) {
            deviates(step, how);
        }
    }

    /// What the step answered whose call failed, and what it left.
    void judge(const Step &step, std::uint32_t code, const Before &then, std::size_t tracesBefore) {
        const Step::CallFailure *const failure = described(step, failing().name);
        std::vector<std::uint32_t> allowed = {step.expected};
        if (failure != nullptr) {
            allowed = failure->answers;
        } else if (step.isOfTheStore) {
            allowed.push_back(eAF_E_FAILED);
        }
        if (std::find(allowed.begin(), allowed.end(), code) == allowed.end()) {
            deviates(step, "answered " + hex(code));
        }
        if (failure != nullptr && failure->trace != nullptr) {
            std::string text = failure->trace;
            const std::size_t place = text.find("%m");
            if (place != std::string::npos) {
                text.replace(place, 2, std::strerror(error));
            }
            if (!wasTraced(text, tracesBefore)) {
                deviates(step, "did not trace '" + text + "'");
            }
        }
        if (code != step.expected && code >= eAF_E_FAILED && !step.leavesSomething && scenario.state() != then.state) {
            deviates(step, "changed\n" + then.state + "to\n" + scenario.state());
        }
        if (code != step.expected && step.isLeftAsDescribed && !step.isLeftAsDescribed(false)) {
            deviates(step, "left the host's variables otherwise than described");
        }
        expectAsAnswered(step, code);
        if (step.isOfTheStore) {
            const std::string stored = scenario.stored();
            // Without its lock a variable is left out of a store that is whole in itself.
            const bool isMixed = failure != nullptr && std::strcmp(failure->call, "pthread_mutex_lock") == 0 &&
                                 stored.rfind("mixed: ", 0) == 0 && stored.find("(torn)") == std::string::npos;
            if (!isMixed && stored != then.stored && stored != scenario.inVariables()) {
                deviates(step, "left a store that holds " + stored + ", before " + then.stored);
            }
        }
    }

    /// The step with the failing call in it, as a life without a failure foretells; the number of steps for none.
    std::size_t foretold() const {
        const auto isBehind = [this](const Counts &counts) { return number < counts.of(call, thread); };
        const auto found = std::find_if(ends.begin(), ends.end(), isBehind);
        return found != ends.end() ? static_cast<std::size_t>(found - ends.begin()) : scenario.steps().size();
    }

    /// @return whether the call failed.
    bool live(std::vector<Counts> *stepEnds = nullptr) {
        TraceRecorder::reset(TraceRecorder::everything, 3);
        FailingCalls::fail(call, thread, number, error);
        const std::size_t meeting = foretold();
        std::size_t index = 0;
        for (const Step &step : scenario.steps()) {
            test::Progress::at(step.operation.c_str());
            const std::uint64_t failuresBefore = FailingCalls::failures();
            const std::size_t tracesBefore = index == meeting ? TraceRecorder::records().size() : 0;
            if (step.isReady && !step.isReady()) {
                deviates(step, "can not be done: there is nothing to wait for");
                break;
            }
            const Before then = index == meeting ? before(step) : Before();
            errno = 0; // what an earlier call of a host's thread left there is the host's own affair
            std::uint32_t code = 0;
            {
                const FailingCalls::Counted counted;
                code = step.run();
            }
            const bool isLater = FailingCalls::failures() != failuresBefore && step.unsettledBy != nullptr &&
                                 std::strcmp(step.unsettledBy, failing().name) == 0;
            code = isLater ? code : step.settled(code);
            if (stepEnds != nullptr) {
                stepEnds->emplace_back();
            }
            const bool hasFailed = FailingCalls::failures() != failuresBefore;
            if (hasFailed && index == meeting) {
                judge(step, code, then, tracesBefore);
            } else if (code != step.expected) {
                deviates(step, "answered " + hex(code) + " without a failure of its own");
            }
            if (hasFailed != (index == meeting)) {
                deviates(step, hasFailed ? "the call is met where it was not foretold"
                                         : "the call is not met where it was foretold");
            }
            if (hasFailed && (code != step.expected || (step.hadNoEffect && step.hadNoEffect()))) {
                repeat(step, code);
            }
            ++index;
        }
        test::Progress::at("the end");
        const bool hasFailed = FailingCalls::failures() > 0;
        const std::string left = scenario.tearDown();
        if (!left.empty() && (!hasFailed || std::strcmp(failing().name, "mq_unlink") != 0)) {
            deviates(scenario.steps().back(), "left " + left);
        }
        if (TraceRecorder::openRecords() != 0) {
            deviates(scenario.steps().back(), "left a trace record open");
        }
        return hasFailed;
    }

    void repeat(const Step &step, std::uint32_t code) {
        if (step.undo) {
            step.undo();
        }
        errno = 0;
        const std::uint32_t again = step.settled(step.run());
        if (again != step.expected) {
            deviates(step, "answered " + hex(code) + ", and again " + hex(again));
        }
        expectAsAnswered(step, again);
        const std::string stored = step.isOfTheStore ? scenario.stored() : scenario.inVariables();
        if (stored != scenario.inVariables() && stored != "none") {
            deviates(step, "was done again, and the store holds " + stored);
        }
    }

    void liveWithoutFailure(std::vector<Counts> *stepEnds = nullptr) {
        const std::uint64_t failedNumber = std::exchange(number, none);
        live(stepEnds);
        number = failedNumber;
    }

    /// @param isFirstOnly  of each step.
    std::vector<std::uint64_t> numbersToFail(bool isFirstOnly) const {
        std::vector<std::uint64_t> numbers;
        std::uint64_t begin = 0;
        for (std::size_t index = 0; index < ends.size(); ++index) {
            const std::uint64_t end = ends[index].of(call, thread);
            const bool isTried =
                !failing().failsWhereDescribed || described(scenario.steps()[index], failing().name) != nullptr;
            for (std::uint64_t each = begin; isTried && each < (isFirstOnly ? std::min(begin + 1, end) : end); ++each) {
                numbers.push_back(each);
            }
            begin = end;
        }
        return numbers;
    }

    /// @return how many blocks a life with the failure kept.
    std::int64_t keptBy(std::uint64_t theNumber) {
        number = theNumber;
        TraceRecorder::reset(TraceRecorder::everything, 3);
        const std::int64_t before = test::blocksAlive();
        wasMet = live();
        if (!wasMet) {
            deviates(scenario.steps().back(), "the call was never met");
        }
        TraceRecorder::reset(TraceRecorder::everything, 3);
        return test::blocksAlive() - before;
    }

    /// A life with the failure, which has to happen and must leave nothing.
    void fail(std::uint64_t theNumber, int with) {
        number = theNumber;
        error = with;
        test::Progress::failing((nameOfFailing() + " with " + nameOf(with) + ", number").c_str(), number);
        const std::size_t descriptors = test::openDescriptors();
        std::int64_t kept = keptBy(theNumber);
        // What the C library makes for good when it takes a path for the first time is not made again.
        if (!isSanitized && kept != 0 && madeForGood < mostMadeForGood) {
            ++madeForGood;
            kept = keptBy(theNumber);
        }
        if (!isSanitized && kept != 0) {
            deviates(scenario.steps().back(), std::to_string(kept) + " blocks are lost");
        }
        if (test::openDescriptors() != descriptors) {
            deviates(scenario.steps().back(),
                     "left " + std::to_string(test::openDescriptors() - descriptors) + " descriptors");
        }
        failures += wasMet ? 1 : 0;
    }

    /// Every number and every error of one call.
    void failEach(std::size_t theCall, Thread ofThread) {
        call = theCall;
        thread = ofThread;
        const unsigned deviationsBefore = deviations;
        const std::uint64_t failuresBefore = failures;
        std::vector<std::uint64_t> numbers = numbersToFail(false);
        auto stride = static_cast<std::size_t>(test::strideOf(numbers.size(), shortForm));
        if (stride > 1 && failing().failsWhereDescribed) {
            numbers = numbersToFail(true);
            stride = 1;
        }
        for (std::size_t each = 0; each < numbers.size() && deviations < mostDeviations; each += stride) {
            const auto &errors = failing().errors;
            for (std::size_t with = 0; with < (hasEveryError() ? errors.size() : 1); ++with) {
                fail(numbers[each], errors[with]);
            }
            liveWithoutFailure();
        }
        std::printf("[  FIGURES ] %-7s %-28s %5llu calls, %5llu failures, %u deviations\n", GetParam()->name,
                    nameOfFailing().c_str(), static_cast<unsigned long long>(ends.back().of(call, thread)),
                    static_cast<unsigned long long>(failures - failuresBefore), deviations - deviationsBefore);
    }

    /// A call that nobody makes any more is not tried; one that somebody makes after all would be forgotten.
    /// @return whether it is made and fails.
    bool isTried(const FailingCall &each, test::Maker maker, std::uint64_t made) {
        const bool isExpected = (each.makers & maker) != 0;
        if (isExpected != (made > 0) && (isExpected || !isSanitized)) {
            ADD_FAILURE() << each.name << (maker == test::worker ? " (worker)" : "") << " is made " << made
                          << " times with " << GetParam()->name << ", and listed as made "
                          << (isExpected ? "there" : "elsewhere") << (each.reason != nullptr ? ": " : "")
                          << (each.reason != nullptr ? each.reason : "");
            ++deviations;
        }
        return isExpected && made > 0;
    }

    test::Progress progress;
    test::StoreFolder folder;
    Scenario scenario;
    std::vector<Counts> ends; ///< How many calls were made when each step was done.
    std::size_t call = 0;
    Thread thread = Thread::test;
    std::uint64_t number = none;
    int error = 0;
    bool wasMet = false;
    std::uint64_t failures = 0;
    unsigned madeForGood = 0; ///< Tries that kept something, and nothing when they were made again.
    unsigned deviations = 0;
};

TEST_P(EveryCall, ThatFails_IsAnsweredLeavesNothingAndTheLifeGoesOn) {
    liveWithoutFailure();
    std::vector<Counts> stepEnds;
    liveWithoutFailure(&stepEnds);
    ASSERT_EQ(0u, deviations) << "nothing fails";
    ends = stepEnds;
    for (std::size_t each = 0; each < test::failingCalls().size() && deviations < mostDeviations; ++each) {
        const FailingCall &theCall = test::failingCalls()[each];
        for (const test::Maker maker : makersWith(*GetParam())) {
            if ((theCall.possibleMakers & maker) == 0) {
                continue;
            }
            const Thread ofThread = maker == test::worker ? Thread::other : Thread::test;
            if (isTried(theCall, maker, ends.back().of(each, ofThread))) {
                failEach(each, ofThread);
            }
        }
    }
    std::printf("[  FIGURES ] %-7s every call: %llu failures, %u deviations\n", GetParam()->name,
                static_cast<unsigned long long>(failures), deviations);
    EXPECT_GT(failures, 10u);
}

INSTANTIATE_TEST_SUITE_P(Of, EveryCall,
                         testing::Values(&test::memoryBackend(), &test::sqliteBackend(), &test::fileBackend()),
                         [](const auto &backend) { return std::string(backend.param->name); });

} // namespace
