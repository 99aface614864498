// The power goes at every single change of a store: all of the old or all of the new, never a mixture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>
#include <string>

#include "CutDisk.h"
#include "FileStoreFixture.h"
#include "StoredNumbers.h"
#include "SystemCalls.h"

namespace {

using test::Change;
using test::CutDisk;
using test::Names;
using test::RunningProvider;
using test::StoredNumbers;
using test::SystemCalls;
using Files = test::TemporaryFolder::Files;
using Recorded = std::vector<Change>;

constexpr std::size_t noOfNumbers = 150; // several sectors
constexpr std::int32_t untouched = -7;   // what a retrieve did not fill
constexpr std::int32_t nothingStored = 0;

struct Figures {
    unsigned tries = 0;
    unsigned old = 0;
    unsigned fresh = 0;
    unsigned mixed = 0;
    unsigned refused = 0;

    void print(const char *what, unsigned seed) const {
        std::printf("[  FIGURES ] %s, seed %u: tries %u, old %u, new %u, mixed %u, refused %u\n", what, seed, tries,
                    old, fresh, mixed, refused);
    }
};

class FilePowerCutTest : public testing::Test {
protected:
    /// Starts after a power cut of a store that left these files.
    void start(const Files &files, std::int32_t generation, bool isReturned) {
        start(files, generation - 1 == nothingStored ? untouched : generation - 1, generation, isReturned);
    }
    void start(const Files &files, std::int32_t old, std::int32_t generation, bool isReturned) {
        folder.replaceFiles(files);
        std::fill(region.numbers.begin(), region.numbers.end(), untouched);
        RunningProvider provider(file);
        ++figures.tries;
        if (provider.retrieve(region) != eAF_S_OK) {
            ++figures.refused;
            return;
        }
        const bool isNew = isAll(generation);
        if (!isNew && !isAll(old)) {
            ++figures.mixed;
            return;
        }
        ++(isNew ? figures.fresh : figures.old);
        EXPECT_TRUE(isNew || !isReturned) << "a store that returned is durable";
    }

    bool isAll(std::int32_t number) const {
        return std::all_of(region.numbers.begin(), region.numbers.end(),
                           [number](std::int32_t each) { return each == number; });
    }

    /// Stores generations one after the other and cuts the power at each change of each store; each of the starts
    /// is cut in turn.
    void cutEverywhere(Names names, unsigned seed, int linkError = 0) {
        constexpr std::int32_t generations = 4;
        constexpr int imagesOfACut = 10;
        std::mt19937 random(seed);
        for (std::int32_t generation = 1; generation <= generations; ++generation) {
            const Files before = folder.files();
            const Recorded changes = changesOf(linkError, [&] { store(generation); });
            const Files after = folder.files();
            EXPECT_GE(changes.size(), 5u);
            for (std::size_t cut = 0; cut <= changes.size(); ++cut) {
                SCOPED_TRACE("generation " + std::to_string(generation) + ", cut after " + std::to_string(cut) +
                             " of " + std::to_string(changes.size()) + ", seed " + std::to_string(seed));
                CutDisk disk(before);
                std::for_each(changes.begin(), changes.begin() + static_cast<std::ptrdiff_t>(cut),
                              [&](const Change &change) { disk.apply(change); });
                for (int image = 0; image < imagesOfACut; ++image) {
                    const Files found = disk.afterPowerCut(names, random);
                    const bool isReturned = cut == changes.size();
                    const Recorded recovery = changesOf(linkError, [&] { start(found, generation, isReturned); });
                    if (image == 0) {
                        cutRecovery(found, recovery, names, random, generation, isReturned);
                    }
                }
            }
            folder.replaceFiles(after);
        }
        expectNothingBroken();
    }

    void expectNothingBroken() const {
        EXPECT_EQ(0u, figures.mixed);
        EXPECT_EQ(0u, figures.refused);
        EXPECT_GT(figures.old, 0u);
        EXPECT_GT(figures.fresh, 0u);
    }

    template <class Step>
    Recorded changesOf(int linkError, Step step) {
        SystemCalls calls(folder.name());
        if (linkError != 0) {
            calls.failEach("link", linkError);
        }
        step();
        return calls.changes();
    }

    void store(std::int32_t generation) {
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
        std::fill(region.numbers.begin(), region.numbers.end(), generation);
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }

    void cutRecovery(const Files &found, const Recorded &recovery, Names names, std::mt19937 &random,
                     std::int32_t generation, bool isReturned) {
        CutDisk disk(found);
        for (const Change &change : recovery) {
            disk.apply(change);
            const Files again = disk.afterPowerCut(names, random);
            changesOf(0, [&] { start(again, generation, isReturned); });
        }
        // And the store goes on, with the values that were found.
        changesOf(0, [&] { store(generation + 1); });
        changesOf(0, [&] { start(folder.files(), generation + 1, true); });
    }

    test::TemporaryFolder folder;
    std::string file = folder.file("s");
    StoredNumbers region{noOfNumbers};
    Figures figures;
};

class FilePowerCuts : public FilePowerCutTest, public testing::WithParamInterface<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Seeds, FilePowerCuts, testing::Range(1U, 5U));

TEST_P(FilePowerCuts, AtEveryChange_LeaveTheOldOrTheNewHoweverNamesAreLeft) {
    cutEverywhere(Names::anyOfEach, GetParam());
    figures.print("each name on its own", GetParam());
}

TEST_P(FilePowerCuts, AtEveryChange_LeaveTheOldOrTheNewWhenOperationsAreWhole) {
    cutEverywhere(Names::anyOperation, GetParam());
    figures.print("whole operations in any order", GetParam());
}

TEST_P(FilePowerCuts, WithoutHardLinks_LeaveTheOldOrTheNewWhenOperationsAreWhole) {
    cutEverywhere(Names::anyOperation, GetParam(), EPERM);
    figures.print("no hard links", GetParam());
}

TEST_P(FilePowerCuts, WhileADamagedGenerationIsSetAsideAndReplaced_LeaveTheOneBeforeOrTheNew) {
    store(1);
    store(2);
    Files damaged = folder.files();
    damaged["s"][100] = static_cast<char>(damaged["s"][100] ^ 1);
    std::mt19937 random(GetParam());
    for (const Names names : {Names::anyOfEach, Names::anyOperation}) {
        folder.replaceFiles(damaged);
        const Recorded changes = changesOf(0, [&] { store(3); });
        EXPECT_GE(changes.size(), 6u) << "setting aside is one more";
        CutDisk disk(damaged);
        for (std::size_t cut = 0; cut <= changes.size(); ++cut) {
            for (int image = 0; image < 10; ++image) {
                const Files found = disk.afterPowerCut(names, random);
                changesOf(0, [&] { start(found, 1, 3, cut == changes.size()); });
            }
            if (cut < changes.size()) {
                disk.apply(changes[cut]);
            }
        }
    }
    expectNothingBroken();
    figures.print("over a damaged one", GetParam());
}

TEST_F(FilePowerCutTest, AKilledStoreWhoseNamesWereNotSynced_IsNotTakenForDurableBeforeTheyAre) {
    store(1);
    const Files before = folder.files();
    Recorded changes = changesOf(0, [&] { store(2); });
    ASSERT_EQ(Change::syncFolder, changes.back().kind);
    changes.pop_back(); // killed right before
    // The host starts again, finds its values there and has nothing to write.
    const Recorded afterwards = changesOf(0, [&] { store(2); });
    changes.insert(changes.end(), afterwards.begin(), afterwards.end());
    CutDisk disk(before);
    for (const Change &change : changes) {
        disk.apply(change);
    }
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same cuts in every run
    for (int image = 0; image < 20; ++image) {
        start(disk.afterPowerCut(Names::anyOfEach, random), 2, true);
    }
    EXPECT_EQ(20u, figures.fresh);
}

/// If the cuts broke none of these, those above would show nothing.
class FilePowerCutModel : public FilePowerCutTest {
protected:
    /// Stores a second generation with one kind of change left out, and counts what cuts break.
    unsigned brokenWithout(Change::Kind kind) {
        store(1);
        const Files before = folder.files();
        Recorded changes = changesOf(0, [&] { store(2); });
        changes.erase(std::remove_if(changes.begin(), changes.end(),
                                     [kind](const Change &change) { return change.kind == kind; }),
                      changes.end());
        std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same cuts in every run
        CutDisk disk(before);
        unsigned lost = 0;
        for (const Change &change : changes) {
            disk.apply(change);
        }
        for (int image = 0; image < 50; ++image) {
            folder.replaceFiles(disk.afterPowerCut(Names::anyOfEach, random));
            changesOf(0, [&] {
                std::fill(region.numbers.begin(), region.numbers.end(), untouched);
                RunningProvider provider(file);
                lost += provider.retrieve(region) != eAF_S_OK || !isAll(2) ? 1 : 0;
            });
        }
        std::printf("[  FIGURES ] lost without it: %u of 50\n", lost);
        return lost;
    }
};

TEST_F(FilePowerCutModel, AStoreWithoutSyncsOfItsFile_IsLost) {
    EXPECT_GT(brokenWithout(Change::syncFile), 0u);
}

TEST_F(FilePowerCutModel, AStoreWithoutSyncsOfItsFolder_IsLost) {
    EXPECT_GT(brokenWithout(Change::syncFolder), 0u);
}

} // namespace
