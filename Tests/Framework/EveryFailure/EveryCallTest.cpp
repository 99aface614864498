// Each call of the system fails once in a host's whole life, with each error of its manual page that can befall the
// library: whoever makes it, the library, a provider, SQLite below it or the event task's worker. The step that meets
// it answers and traces what it is to, leaves no descriptor, no queue and no torn store, and succeeds when it is done
// again; from there on everything is as if nothing had happened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "FailingCalls.h"
#include "Progress.h"
#include "Scenario.h"
#include "TraceRecorder.h"

namespace {

using test::Backend;
using test::FailingCall;
using test::FailingCalls;
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

/// So many of a worker's calls of one kind: it makes few, and those in turn.
constexpr std::uint64_t mostOfWorker = 4;

std::string hex(std::uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "%#x", code);
    return text;
}

std::string nameOf(int error) {
    const char *const name = error != 0 ? strerrorname_np(error) : "nobody";
    return name != nullptr ? name : std::to_string(error);
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

class EveryCall : public testing::TestWithParam<const Backend *> {
protected:
    EveryCall() : scenario(*GetParam(), folder.name()) {}

    const FailingCall &failing() const { return test::failingCalls()[call]; }

    void deviates(const Step &step, const std::string &how) {
        ADD_FAILURE() << step.operation << ", " << failing().name << (thread == Thread::test ? "" : " of the worker")
                      << " number " << number << " fails with " << nameOf(error) << ": " << how;
        ++deviations;
    }

    static const Step::CallFailure *described(const Step &step, const char *name) {
        const auto found =
            std::find_if(step.onFailingCall.begin(), step.onFailingCall.end(),
                         [name](const Step::CallFailure &each) { return std::strcmp(each.call, name) == 0; });
        return found != step.onFailingCall.end() ? &*found : nullptr;
    }

    bool wasTraced(const std::string &text, std::size_t from) const {
        const auto lines = TraceRecorder::lines();
        return std::any_of(lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size())), lines.end(),
                           [&](const test::Line &line) { return line.message == text; });
    }

    /// What the step answered whose call failed, and what it left.
    void judge(const Step &step, std::uint32_t code, const std::string &storedBefore, std::size_t tracesBefore) {
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
            const std::string text = std::strcmp(failure->trace, "%m") == 0 ? std::strerror(error) : failure->trace;
            if (!wasTraced(text, tracesBefore)) {
                deviates(step, "did not trace '" + text + "'");
            }
        }
        if (step.isOfTheStore) {
            const std::string stored = scenario.stored();
            if (stored != storedBefore && stored != scenario.inVariables()) {
                deviates(step, "left a store that holds " + stored + ", before " + storedBefore);
            }
        }
    }

    /// @return whether the call failed.
    bool live(std::vector<std::uint64_t> *ends = nullptr) {
        TraceRecorder::reset(TraceRecorder::everything, 3);
        FailingCalls::fail(call, thread, number, error);
        bool hasFailed = false;
        std::size_t index = 0;
        for (const Step &step : scenario.steps()) {
            test::Progress::at(step.operation.c_str());
            if (step.isReady && !step.isReady()) {
                deviates(step, "can not be done: there is nothing to wait for");
                break;
            }
            const bool isExpected = step.isOfTheStore && thread == Thread::test && index < stepEnds.size() &&
                                    number < stepEnds[index] && (index == 0 || number >= stepEnds[index - 1]);
            const std::string storedBefore = isExpected ? scenario.stored() : std::string();
            const std::size_t tracesBefore = thread == Thread::test ? TraceRecorder::lines().size() : 0;
            const std::uint64_t failuresBefore = FailingCalls::failures();
            errno = 0; // what an earlier call of a host's thread left there is the host's own affair
            std::uint32_t code = 0;
            {
                const FailingCalls::Counted counted;
                code = step.run();
            }
            if (ends != nullptr) {
                ends->push_back(FailingCalls::counted(call, thread));
            }
            if (thread == Thread::other || FailingCalls::failures() == failuresBefore) {
                if (code != step.expected) {
                    deviates(step, "answered " + hex(code) + " without a failure of its own");
                }
            } else {
                hasFailed = true;
                judge(step, code, isExpected ? storedBefore : scenario.inVariables(), tracesBefore);
                if (code != step.expected || (step.hadNoEffect && step.hadNoEffect())) {
                    if (step.undo) {
                        step.undo();
                    }
                    errno = 0;
                    const std::uint32_t again = step.run();
                    if (again != step.expected) {
                        deviates(step, "answered " + hex(code) + ", and again " + hex(again));
                    }
                }
            }
            ++index;
        }
        test::Progress::at("the end");
        const std::string left = scenario.tearDown();
        hasFailed = hasFailed || FailingCalls::failures() > 0;
        if (!left.empty() && (!hasFailed || std::strcmp(failing().name, "mq_unlink") != 0)) {
            deviates(scenario.steps().back(), "left " + left);
        }
        if (TraceRecorder::openRecords() != 0) {
            deviates(scenario.steps().back(), "left a trace record open");
        }
        return hasFailed;
    }

    void liveWithoutFailure() {
        const std::size_t failedCall = call;
        call = test::failingCalls().size() - 1; // an error of none: nothing fails
        const std::uint64_t failedNumber = number;
        number = ~std::uint64_t{0};
        live();
        call = failedCall;
        number = failedNumber;
    }

    std::vector<std::uint64_t> numbersToFail(std::uint64_t made) const {
        std::vector<std::uint64_t> numbers;
        const std::uint64_t most = thread == Thread::test ? made : std::min(made, mostOfWorker);
        for (std::uint64_t each = 0; each < most; ++each) {
            const auto meeting =
                static_cast<std::size_t>(std::upper_bound(stepEnds.begin(), stepEnds.end(), each) - stepEnds.begin());
            const bool isDescribed = meeting < stepEnds.size() && thread == Thread::test &&
                                     described(scenario.steps()[meeting], failing().name) != nullptr;
            if (isDescribed || !failing().failsWhereDescribed) {
                numbers.push_back(each);
            }
        }
        return numbers;
    }

    /// Every number and every error of one call.
    void failEach(std::size_t theCall, Thread ofThread) {
        call = theCall;
        thread = ofThread;
        error = 0;
        number = ~std::uint64_t{0};
        stepEnds.clear();
        std::vector<std::uint64_t> ends;
        live(&ends);
        stepEnds = ends;
        const std::uint64_t made = FailingCalls::counted(call, thread);
        const unsigned before = deviations;
        std::uint64_t failures = 0;
        const std::vector<std::uint64_t> numbers = numbersToFail(made);
        const auto stride = static_cast<std::size_t>(test::strideOf(numbers.size(), shortForm));
        for (std::size_t each = 0; each < numbers.size() && deviations < mostDeviations; each += stride) {
            for (const int with : failing().errors) {
                number = numbers[each];
                error = with;
                test::Progress::failing((std::string(failing().name) + " with " + nameOf(with) + ", number").c_str(),
                                        number);
                const std::size_t descriptors = openDescriptors();
                failures += live() ? 1 : 0;
                if (openDescriptors() != descriptors) {
                    deviates(scenario.steps().back(),
                             "left " + std::to_string(openDescriptors() - descriptors) + " descriptors");
                }
                if (!hasEveryError()) {
                    break;
                }
            }
            liveWithoutFailure();
        }
        if (made > 0) {
            std::printf("[  FIGURES ] %-7s %-28s %5llu calls, %5llu failures, %u deviations\n", GetParam()->name,
                        (std::string(failing().name) + (thread == Thread::test ? "" : " (worker)")).c_str(),
                        static_cast<unsigned long long>(made), static_cast<unsigned long long>(failures),
                        deviations - before);
        }
        tries += failures;
    }

    test::Progress progress;
    test::StoreFolder folder;
    Scenario scenario;
    std::vector<std::uint64_t> stepEnds; ///< How many calls were made when each step was done.
    std::size_t call = 0;
    Thread thread = Thread::test;
    std::uint64_t number = ~std::uint64_t{0};
    int error = 0;
    std::uint64_t tries = 0;
    unsigned deviations = 0;
};

TEST_P(EveryCall, ThatFails_IsAnsweredLeavesNothingAndTheLifeGoesOn) {
    liveWithoutFailure();
    ASSERT_EQ(0u, deviations) << "nothing fails";
    for (std::size_t each = 0; each < test::failingCalls().size() && deviations < mostDeviations; ++each) {
        if (test::failingCalls()[each].isOfFiles != GetParam()->keepsFiles) {
            continue;
        }
        failEach(each, Thread::test);
        if (!GetParam()->keepsFiles) {
            failEach(each, Thread::other);
        }
    }
    std::printf("[  FIGURES ] %-7s every call: %llu failures, %u deviations\n", GetParam()->name,
                static_cast<unsigned long long>(tries), deviations);
    EXPECT_GT(tries, 10u);
}

INSTANTIATE_TEST_SUITE_P(Of, EveryCall,
                         testing::Values(&test::memoryBackend(), &test::sqliteBackend(), &test::fileBackend()),
                         [](const auto &backend) { return std::string(backend.param->name); });

} // namespace
