// Each allocation fails in turn, alone or with all that follow: a code and a trace, no leak, old values intact.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <new>
#include <string>

#include "CFileStorage.h"
#include "FileStoreFixture.h"
#include "LastError.h"
#include "RefusedNew.h"
#include "StoredNumbers.h"
#include "VT_trace.h"

namespace {

using storage::Access;
using storage::FileStore;
using storage::StoredValues;
using test::RefusedNew;
using test::RunningProvider;
using test::StoredNumbers;
using testing::AnyOf;
using testing::Contains;
using testing::Pair;
using Files = test::TemporaryFolder::Files;
using Later = RefusedNew::Later;

/// Takes no memory itself: what is refused is the store's.
class SilentReport : public storage::Report {
public:
    void add(storage::Severity /*severity*/, const std::string & /*text*/) override {}
};

std::string nameOf(const testing::TestParamInfo<Later> &info) {
    return info.param == Later::succeed ? "One" : "AllLaterOnes";
}

class FileMemory : public test::FileStoreFixture, public testing::WithParamInterface<Later> {
protected:
    using Step = std::function<EAFResult()>;

    /// Runs a step with its first allocation refused, its second, and so on, until it gets what it needs.
    template <class Prepare, class Check>
    void refuseEach(int atLeast, Prepare prepare, const Step &step, Check check) {
        for (int allowed = 0;; ++allowed) {
            SCOPED_TRACE("allocations allowed: " + std::to_string(allowed));
            ASSERT_NO_FATAL_FAILURE(prepare());
            const std::int64_t blocks = test::blocksAlive();
            const std::size_t descriptors = test::openDescriptors();
            EAFResult code = eAF_S_OK;
            bool wasRefused = false;
            {
                const RefusedNew refused(allowed, GetParam());
                try {
                    code = step();
                } catch (const std::bad_alloc &) {
                    code = eAF_E_OUT_OF_MEMORY;
                }
                wasRefused = refused.wasRefused();
            }
            EXPECT_EQ(blocks, test::blocksAlive());
            EXPECT_EQ(descriptors, test::openDescriptors());
            EXPECT_EQ(wasRefused ? eAF_E_OUT_OF_MEMORY : expected, code);
            check(code);
            if (!wasRefused) {
                std::printf("[  FIGURES ] %d allocations refused\n", allowed);
                EXPECT_GE(allowed, atLeast);
                return;
            }
            if (HasFailure()) {
                return;
            }
        }
    }

    /// The second generation of a value whose path needs memory of its own.
    StoredValues generation(std::int32_t number) const {
        return {value(number),
                value(number, "Region/An object whose name is no short one/Variable"),
                {"Region/Table", TYPE_UINT8_ARRAY, 3000, std::vector<unsigned char>(3000, 'a')}};
    }
    void prepareTwoGenerations() {
        folder.replaceFiles({});
        ASSERT_EQ(eAF_S_OK, write(generation(1)));
        ASSERT_EQ(eAF_S_OK, write(generation(2)));
        prepared = folder.files();
    }
    /// Damages some of the generations that were prepared.
    void prepareDamaged(const std::vector<std::string> &names) {
        prepareTwoGenerations();
        for (const std::string &name : names) {
            prepared[name][60] = static_cast<char>(prepared[name][60] ^ 1);
        }
        folder.replaceFiles(prepared);
    }
    /// Opens a store, lives no longer than the step.
    EAFResult inStore(const std::function<EAFResult(FileStore &store)> &use) {
        FileStore store(file);
        const EAFResult opened = store.open(Access::readWrite, silent);
        return opened == eAF_S_OK ? use(store) : opened;
    }
    void expectFound(std::int32_t number) {
        EAFResult code = eAF_E_FAILED;
        EXPECT_EQ(generation(number), read(code));
        EXPECT_EQ(eAF_S_OK, code);
    }

    EAFResult expected = eAF_S_OK; ///< What the step returns when it gets what it needs.
    Files prepared;
    SilentReport silent;
};
INSTANTIATE_TEST_SUITE_P(Refused, FileMemory, testing::Values(Later::succeed, Later::failToo), nameOf);

TEST_P(FileMemory, OfAStartAndARetrieve_ChangesNothing) {
    refuseEach(
        20, [this] { prepareTwoGenerations(); },
        [this] {
            return inStore([this](FileStore &store) {
                StoredValues values;
                return store.read(values, silent);
            });
        },
        [this](EAFResult /*code*/) {
            EXPECT_EQ(prepared, folder.files());
            expectFound(2);
        });
}

TEST_P(FileMemory, OfAStore_LeavesEveryFileAsItWas) {
    const StoredValues changed = generation(3);
    refuseEach(
        25, [this] { prepareTwoGenerations(); },
        [&] { return inStore([&](FileStore &store) { return store.write(changed, silent); }); },
        [this](EAFResult code) {
            if (code == eAF_S_OK) {
                EXPECT_EQ(prepared["s"], folder.files()["s.1"]);
                expectFound(3);
            } else {
                EXPECT_EQ(prepared, folder.files());
                expectFound(2);
            }
        });
}

TEST_P(FileMemory, OfTheFirstStore_LeavesNoFile) {
    const StoredValues values = generation(1);
    refuseEach(
        10, [this] { folder.replaceFiles({}); },
        [&] { return inStore([&](FileStore &store) { return store.write(values, silent); }); },
        [this](EAFResult code) { EXPECT_EQ(code == eAF_S_OK ? 1u : 0u, folder.files().size()); });
}

TEST_P(FileMemory, OfSettingTheNewestAside_LosesNeitherOfTheGenerations) {
    const StoredValues changed = generation(3);
    refuseEach(
        40, [this] { prepareDamaged({"s"}); },
        [&] { return inStore([&](FileStore &store) { return store.write(changed, silent); }); },
        [this](EAFResult code) {
            EXPECT_THAT(folder.files(), Contains(Pair(AnyOf("s", "s.damaged-1"), prepared["s"])));
            EXPECT_EQ(prepared["s.1"], folder.files()["s.1"]);
            expectFound(code == eAF_S_OK ? 3 : 1);
        });
}

TEST_P(FileMemory, OfSettingBothAside_LosesNeither) {
    refuseEach(
        20,
        [this] {
            prepareDamaged({"s", "s.1"});
        },
        [this] {
            return inStore([this](FileStore &store) {
                StoredValues values;
                return store.read(values, silent);
            });
        },
        [this](EAFResult /*code*/) {
            EXPECT_EQ(2u, folder.files().size());
            EXPECT_THAT(folder.files(), Contains(Pair(AnyOf("s", "s.damaged-1"), prepared["s"])));
            EXPECT_THAT(folder.files(), Contains(Pair(AnyOf("s.1", "s.damaged-2"), prepared["s.1"])));
        });
}

TEST_P(FileMemory, OfSayingThatAStoreFailed_LeavesEveryFileAsItWas) {
    const StoredValues changed = generation(3);
    expected = eAF_E_FAILED;
    std::unique_ptr<FileStore> store;
    refuseEach(
        10,
        [&] {
            store.reset();
            std::filesystem::remove_all(in("s.new"));
            prepareTwoGenerations();
            store = std::make_unique<FileStore>(file);
            ASSERT_EQ(eAF_S_OK, store->open(Access::readWrite, silent));
            std::filesystem::create_directories(in("s.new/in the way"));
        },
        [&] { return store->write(changed, silent); },
        [&](EAFResult /*code*/) {
            EXPECT_EQ(prepared, folder.files());
            StoredValues found;
            EXPECT_EQ(eAF_S_OK, store->read(found, silent));
            EXPECT_EQ(generation(2), found);
        });
    store.reset();
    std::filesystem::remove_all(in("s.new"));
}

/// The provider as it is shipped: an operation runs out of memory, and says so.
class FileProviderMemory : public FileMemory {
protected:
    FileProviderMemory() { AF_trace.level = 0; } // the framework's own traces take memory, and say nothing of interest
    ~FileProviderMemory() override { CFileStorage_UnInitialize(); }

    template <class Prepare, class Check>
    void refuseEachOf(int atLeast, Prepare prepare, const Step &step, Check check) {
        refuseEach(
            atLeast,
            [&] {
                prepare();
                test::forgetLastError();
            },
            step,
            [&](EAFResult code) {
                const std::string error = test::lastError();
                EXPECT_EQ(code != eAF_S_OK, error.find("memory ran out for") != std::string::npos) << error;
                EXPECT_EQ(code == eAF_S_OK, error.empty()) << error;
                check(code);
            });
    }

    /// One number in every variable, stored by a provider that is started and stopped.
    void prepareStored(std::int32_t number) {
        CFileStorage_UnInitialize();
        folder.replaceFiles({});
        for (const std::int32_t each : {number - 1, number}) {
            RunningProvider provider(file);
            ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
            setAll(each);
            ASSERT_EQ(eAF_S_OK, provider.store(region));
        }
        setAll(0);
        prepared = folder.files();
    }
    /// From naming the file to letting go of it, so that every block made in between is given back.
    EAFResult inProvider(const Step &use) const {
        const EAFResult named = CFileStorage_SetFile(1, file.c_str());
        const EAFResult code = named == eAF_S_OK ? use() : named;
        CFileStorage_UnInitialize();
        return code;
    }
    void setAll(std::int32_t number) { std::fill(region.numbers.begin(), region.numbers.end(), number); }
    void expectStored(std::int32_t number) {
        CFileStorage_UnInitialize();
        setAll(0);
        RunningProvider provider(file);
        EXPECT_EQ(eAF_S_OK, provider.retrieve(region));
        EXPECT_THAT(region.numbers, testing::Each(number));
    }

    IStorageProvider *table = CFileStorage_GetProvider();
    StoredNumbers region{5};
};
INSTANTIATE_TEST_SUITE_P(Refused, FileProviderMemory, testing::Values(Later::succeed, Later::failToo), nameOf);

TEST_P(FileProviderMemory, OfSetFile_IsSaidAndNamesNoFile) {
    refuseEachOf(
        5, [] { CFileStorage_UnInitialize(); },
        [this] {
            const EAFResult code = CFileStorage_SetFile(1, file.c_str());
            SStorageStatistics statistics;
            const bool isNamed = CFileStorage_GetStatistics(1, &statistics) == eAF_S_OK;
            CFileStorage_UnInitialize();
            return isNamed == (code == eAF_S_OK) ? code : eAF_E_FAILED;
        },
        [](EAFResult /*code*/) {});
}

TEST_P(FileProviderMemory, OfARetrieve_IsSaidAndTheStoreStaysAsItIs) {
    refuseEachOf(
        30, [this] { prepareStored(5); },
        [this] { return inProvider([this] { return table->RetrieveAll(1, region.database(), 0); }); },
        [this](EAFResult /*code*/) {
            EXPECT_EQ(prepared, folder.files());
            expectStored(5);
        });
}

TEST_P(FileProviderMemory, OfAStore_IsSaidAndLeavesTheOldValues) {
    refuseEachOf(
        40,
        [this] {
            prepareStored(5);
            setAll(6);
        },
        [this] { return inProvider([this] { return table->StoreAll(1, region.database(), 0); }); },
        [this](EAFResult code) {
            EXPECT_TRUE(code == eAF_S_OK || prepared == folder.files());
            expectStored(code == eAF_S_OK ? 6 : 5);
        });
}

} // namespace
