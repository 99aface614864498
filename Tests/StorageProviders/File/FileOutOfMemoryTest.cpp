// Each allocation of a store, a retrieve or a start fails in turn: a code, no leak, old values intact.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <string>

#include "CFileStorage.h"
#include "FileStoreFixture.h"
#include "RefusedNew.h"
#include "StoredNumbers.h"

namespace {

using storage::Access;
using storage::FileStore;
using storage::StoredValues;
using test::RefusedNew;
using test::RunningProvider;
using test::StoredNumbers;

/// Drops what it is told: a recorder's own memory is no part of the store.
class Silence : public storage::Report {
public:
    void add(storage::Severity /*severity*/, const std::string & /*text*/) override {}
};

class FileOutOfMemoryTest : public test::FileStoreFixture {
protected:
    /// Runs a step with its first allocation refused, its second, and so on.
    /// @return the number of allocations that the step makes.
    template <class Step, class Check>
    static int refuseEachOf(Step step, Check check) {
        for (int allowed = 0;; ++allowed) {
            const std::size_t descriptors = test::openDescriptors();
            bool wasRefused = false;
            {
                const RefusedNew refused(allowed);
                step();
                wasRefused = refused.wasRefused();
            }
            SCOPED_TRACE("allocations allowed: " + std::to_string(allowed));
            EXPECT_EQ(descriptors, test::openDescriptors());
            check(wasRefused);
            if (!wasRefused || HasFailure()) {
                return allowed;
            }
        }
    }
};

TEST_F(FileOutOfMemoryTest, OfAWrite_LeavesTheOldValues) {
    EAFResult code = eAF_S_OK;
    std::int32_t number = 0;
    const int count = refuseEachOf(
        [&] {
            code = eAF_E_OUT_OF_MEMORY;
            try {
                Silence silence;
                FileStore store(file);
                code = store.open(Access::readWrite, silence);
                code = code == eAF_S_OK ? store.write({value(number + 1)}, silence) : code;
            } catch (const std::bad_alloc &) {
                code = eAF_E_OUT_OF_MEMORY;
            }
        },
        [&](bool wasRefused) {
            EXPECT_TRUE(wasRefused ? code == eAF_E_OUT_OF_MEMORY || code == eAF_S_OK : code == eAF_S_OK) << code;
            number += code == eAF_S_OK ? 1 : 0;
            EXPECT_EQ(number == 0 ? -1 : number, readOne());
            EXPECT_EQ(0u, folder.files().count("s.new"));
        });
    EXPECT_GT(count, 20);
}

TEST_F(FileOutOfMemoryTest, OfARetrieveFromADamagedStore_LosesNothing) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    auto damaged = folder.files();
    damaged["s"][60] = static_cast<char>(damaged["s"][60] ^ 1);
    EAFResult code = eAF_S_OK;
    StoredValues values;
    folder.replaceFiles(damaged);
    refuseEachOf(
        [&] {
            try {
                Silence silence;
                FileStore store(file);
                code = store.open(Access::readWrite, silence);
                code = code == eAF_S_OK ? store.read(values, silence) : code;
            } catch (const std::bad_alloc &) {
                code = eAF_E_OUT_OF_MEMORY;
            }
        },
        [&](bool wasRefused) {
            EXPECT_TRUE(wasRefused || code == eAF_S_OK);
            EXPECT_TRUE(code != eAF_S_OK || values == StoredValues{value(1)});
            const auto found = folder.files();
            EXPECT_EQ(damaged["s.1"], found.at("s.1"));
            EXPECT_TRUE(found.count("s") == 1 ? found.at("s") == damaged["s"]
                                              : found.at("s.damaged-1") == damaged["s"]);
            folder.replaceFiles(damaged);
        });
}

TEST_F(FileOutOfMemoryTest, OfTheProvider_IsACodeAndNoException) {
    StoredNumbers region(20);
    std::int32_t onDisk = 1;
    std::fill(region.numbers.begin(), region.numbers.end(), onDisk);
    {
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.store(region));
    }
    EAFResult named = eAF_S_OK;
    EAFResult retrieved = eAF_S_OK;
    EAFResult stored = eAF_S_OK;
    const int count = refuseEachOf(
        [&] {
            named = CFileStorage_SetFile(1, file.c_str());
            retrieved = CFileStorage_GetProvider()->RetrieveAll(1, region.database(), 0);
            for (std::int32_t &number : region.numbers) {
                number = onDisk + 1;
            }
            stored = CFileStorage_GetProvider()->StoreAll(1, region.database(), 0);
            CFileStorage_UnInitialize();
        },
        [&](bool wasRefused) {
            const bool isAnyRefused =
                named == eAF_E_OUT_OF_MEMORY || retrieved == eAF_E_OUT_OF_MEMORY || stored == eAF_E_OUT_OF_MEMORY;
            EXPECT_TRUE(wasRefused || !isAnyRefused);
            EXPECT_TRUE(stored == eAF_S_OK || isAnyRefused) << named << ' ' << retrieved << ' ' << stored;
            onDisk += stored == eAF_S_OK ? 1 : 0;
            RunningProvider provider(file);
            ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
            EXPECT_EQ(onDisk, region.numbers.front());
            EXPECT_EQ(onDisk, region.numbers.back());
        });
    EXPECT_GT(count, 50);
}

} // namespace
