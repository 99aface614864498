// Each allocation of a host's whole life fails once, wherever the host's thread makes it: in the library, in a
// provider, in what those stand on, in the C library; the workers get no memory at all, and ask for none. Traces are
// silent here: what they take is the platform's affair, whose tests refuse it. The step that meets it answers what it
// is to answer, changes and loses nothing, and succeeds when it is done again; from there on everything is as if
// nothing had happened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "EventQueues.h"
#include "Progress.h"
#include "RefusedAllocations.h"
#include "Scenario.h"

namespace {

using test::Backend;
using test::isSanitized;
using test::mostMadeForGood;
using test::RefusedAllocations;
using test::Scenario;
using test::Step;
using Lasting = RefusedAllocations::Lasting;

enum class Mode {
    once,            ///< One allocation fails.
    untilTheStepEnds ///< It and all that follow in its step.
};

constexpr std::uint64_t none = ~std::uint64_t{0};
constexpr unsigned mostDeviations = 10; ///< More of them tell nothing new.

#ifdef ZELAF_EMULATED
constexpr std::uint64_t shortForm = 30;
#else
constexpr std::uint64_t shortForm = 190;
#endif

std::uint32_t run(const Step &step) {
    errno = 0; // what an earlier call of a host's thread left there is the host's own affair
    try {
        return step.run();
    } catch (const std::bad_alloc &) {
        return test::thrownBadAlloc;
    }
}

std::uint32_t runCounted(const Step &step) {
    const RefusedAllocations::Counted counted;
    return run(step);
}

std::string hex(std::uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "%#x", code);
    return text;
}

bool isError(std::uint32_t code) {
    return code >= eAF_E_FAILED;
}

class EveryAllocation : public testing::TestWithParam<std::tuple<const Backend *, Mode>> {
protected:
    EveryAllocation() : scenario(*std::get<0>(GetParam()), folder.name()) {}

    const Backend &backend() const { return *std::get<0>(GetParam()); }

    void deviates(const Step &step, const std::string &how) {
        ADD_FAILURE() << step.operation << ", allocation " << number << ": " << how;
        ++deviations;
    }

    void expectAsAnswered(const Step &step, std::uint32_t code) {
        if (const std::string how = scenario.notAsAnswered(step, code); !how.empty()) {
            deviates(step, how);
        }
    }

    /// What the step answered whose allocation failed, and what it left.
    void judge(const Step &step, std::uint32_t code, const std::string &before, const std::string &storedBefore) {
        const bool isUsual = code == step.expected;
        std::vector<std::uint32_t> allowed = step.withoutMemory;
        if (step.memory == Step::Memory::ignored) {
            allowed.push_back(step.expected);
        }
        if (step.memory == Step::Memory::none) {
            deviates(step, "an operation that needs no memory asked for some");
        } else if (std::find(allowed.begin(), allowed.end(), code) == allowed.end()) {
            deviates(step, "answered " + hex(code));
        }
        const bool isToldAsMemory = code == eAF_E_OUT_OF_MEMORY || code == test::thrownBadAlloc;
        if (!isUsual && isError(code) && (isToldAsMemory || !step.leavesSomething) &&
            step.memory != Step::Memory::ignored && scenario.state() != before) {
            deviates(step, "changed\n" + before + "to\n" + scenario.state());
        }
        if (!isUsual && step.isLeftAsDescribed && !step.isLeftAsDescribed(true)) {
            deviates(step, "left the host's variables otherwise than described");
        }
        expectAsAnswered(step, code);
        if (step.isOfTheStore) {
            const std::string stored = scenario.stored();
            if (stored != storedBefore && stored != scenario.inVariables()) {
                deviates(step, "left a store that holds " + stored + ", before " + storedBefore);
            }
        }
    }

    /// @return how many allocations the life took.
    std::uint64_t live(std::uint64_t failing, Lasting lasting, std::vector<std::uint64_t> *ends = nullptr) {
        number = failing;
        wasRefused = false;
        RefusedAllocations::refuse(failing, lasting);
        std::size_t index = 0;
        for (const Step &step : scenario.steps()) {
            test::Progress::at(step.operation.c_str());
            if (step.isReady && !step.isReady()) {
                deviates(step, "can not be done: there is nothing to wait for");
                break;
            }
            const bool isExpected =
                index < stepEnds.size() && failing < stepEnds[index] && (index == 0 || failing >= stepEnds[index - 1]);
            const std::string before = isExpected ? scenario.state() : std::string();
            const std::string storedBefore = isExpected && step.isOfTheStore ? scenario.stored() : std::string();
            if (step.losesWhatTheListRefused) {
                test::followBlocks();
            }
            const std::uint64_t refusedBefore = RefusedAllocations::refused();
            const std::uint32_t code = step.settled(runCounted(step));
            if (ends != nullptr) {
                ends->push_back(RefusedAllocations::counted());
            }
            if (RefusedAllocations::refused() == refusedBefore) {
                test::forgetFollowedBlocks();
                if (code != step.expected) {
                    deviates(step, "answered " + hex(code) + " without a failure");
                }
            } else {
                wasRefused = true;
                RefusedAllocations::refuseNone();
                if (step.losesWhatTheListRefused && code == eAF_E_FAILED) {
                    lost += test::freeFollowedBlocks();
                } else {
                    test::forgetFollowedBlocks();
                }
                if (isExpected) {
                    judge(step, code, before, storedBefore);
                } else {
                    deviates(step, "the allocation is met where it was not foretold");
                }
                if (code != step.expected || step.memory == Step::Memory::ignored) {
                    if (step.undo) {
                        step.undo();
                    }
                    const std::uint32_t again = step.settled(run(step));
                    if (again != step.expected) {
                        deviates(step, "answered " + hex(code) + ", and again " + hex(again));
                    }
                    expectAsAnswered(step, again);
                }
            }
            ++index;
        }
        const std::uint64_t counted = RefusedAllocations::counted();
        test::Progress::at("the end");
        const std::string left = scenario.tearDown();
        if (!left.empty()) {
            deviates(scenario.steps().back(), "left " + left);
        }
        return counted;
    }

    /// A whole life with one failure in it.
    /// @return how many blocks it kept.
    std::int64_t liveWith(std::uint64_t failing, Lasting lasting) {
        const std::int64_t before = test::blocksAlive();
        live(failing, lasting);
        return test::blocksAlive() - before;
    }

    /// The same, and a life without a failure after that.
    void liveTwice(std::uint64_t failing, Lasting lasting) {
        const auto meeting =
            static_cast<std::size_t>(std::upper_bound(stepEnds.begin(), stepEnds.end(), failing) - stepEnds.begin());
        const Step &step = scenario.steps()[meeting];
        test::Progress::failing(("allocation of " + step.operation + " (" + backend().name + "), number").c_str(),
                                failing);
        const std::size_t descriptors = test::openDescriptors();
        std::int64_t kept = liveWith(failing, lasting);
        refusals += wasRefused ? 1 : 0;
        // What the C library makes for good when it takes a path for the first time is not made again.
        if (!isSanitized && kept != 0 && madeForGood < mostMadeForGood) {
            ++madeForGood;
            kept = liveWith(failing, lasting);
        }
        if (!isSanitized && kept != 0) {
            deviates(step, std::to_string(kept) + " blocks are lost");
        }
        if (test::openDescriptors() != descriptors) {
            deviates(step, "left " + std::to_string(test::openDescriptors() - descriptors) + " descriptors");
        }
        live(none, Lasting::once);
    }

    test::Progress progress;
    test::StoreFolder folder;
    Scenario scenario;
    std::vector<std::uint64_t> stepEnds; ///< How many allocations were made when each step was done.
    std::uint64_t number = none;
    bool wasRefused = false;
    std::uint64_t refusals = 0;
    std::uint64_t lost = 0;   ///< Blocks that the description gives up.
    unsigned madeForGood = 0; ///< Tries that kept something, and nothing when they were made again.
    unsigned deviations = 0;
};

TEST_P(EveryAllocation, ThatFails_IsAnsweredLosesNothingAndTheLifeGoesOn) {
    test::refuseOtherThreads(!isSanitized);
    const Lasting lasting = std::get<1>(GetParam()) == Mode::once ? Lasting::once : Lasting::fromThenOn;
    live(none, Lasting::once); // what is made once and for good
    live(none, Lasting::once);
    std::vector<std::uint64_t> ends;
    ends.reserve(scenario.steps().size());
    const std::uint64_t needed = live(none, Lasting::once, &ends);
    ASSERT_EQ(0u, deviations) << "nothing fails";
    ASSERT_GT(needed, 100u);
    stepEnds = ends;
    const std::uint64_t stride = test::strideOf(needed, shortForm);
    std::uint64_t tries = 0;
    for (std::uint64_t failing = 0; failing < needed && deviations < mostDeviations; failing += stride) {
        liveTwice(failing, lasting);
        ++tries;
    }
    std::printf("[  FIGURES ] %s: %llu allocations, %llu tries, %llu refused, %u deviations, %llu blocks given up as "
                "described\n",
                backend().name, static_cast<unsigned long long>(needed), static_cast<unsigned long long>(tries),
                static_cast<unsigned long long>(refusals), deviations, static_cast<unsigned long long>(lost));
    EXPECT_EQ(0u, test::refusedToOtherThreads()) << "asked for by workers";
    test::refuseOtherThreads(false);
    EXPECT_EQ(tries, refusals) << "a failure that never happened shows nothing";
}

std::string nameOf(const testing::TestParamInfo<EveryAllocation::ParamType> &info) {
    return std::string(std::get<0>(info.param)->name) + (std::get<1>(info.param) == Mode::once ? "_Once" : "_Lasting");
}

INSTANTIATE_TEST_SUITE_P(Of, EveryAllocation,
                         testing::Combine(testing::Values(&test::memoryBackend(), &test::sqliteBackend(),
                                                          &test::fileBackend()),
                                          testing::Values(Mode::once, Mode::untilTheStepEnds)),
                         nameOf);

} // namespace
