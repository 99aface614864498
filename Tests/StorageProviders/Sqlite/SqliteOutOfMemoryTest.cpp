// Each allocation is refused in turn, SQLite's and the store's own: out of memory, nothing changed, nothing lost.
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <new>
#include <tuple>

#include "RefusedMemory.h"
#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValues;
using test::Allocator;
using test::int32Value;
using test::RefusedMemory;
using test::stringValue;
using test::valueOf;

/// Allocates nothing itself: what is refused is the store's.
class SilentReport : public storage::Report {
public:
    void add(storage::Severity severity, const std::string & /*text*/) override {
        errors += severity == storage::Severity::error ? 1 : 0;
    }
    unsigned errors = 0;
};

StoredValues generation(std::int32_t number) {
    return test::sorted({int32Value("Region/Object/Integer", number),
                         stringValue("Region/Object/Text that is longer than a short string", "text"),
                         valueOf<std::int32_t>("Region/Object/Array", TYPE_INT32_ARRAY, {number, 1000000000, -7}),
                         valueOf<double>("Region/Object/Reals", TYPE_DOUBLE_ARRAY, {number + 0.25, 1e300}),
                         stringValue("Region/Object/Large", std::string(20000, static_cast<char>('a' + number)))});
}

using Parameters = std::tuple<Allocator, bool>;

class SqliteOutOfMemoryTest : public test::SqliteStores, public testing::WithParamInterface<Parameters> {
protected:
    static void SetUpTestSuite() { test::replaceSqliteAllocator(); }

    SqliteOutOfMemoryTest() {
        store(generation(1));
        stored(); // what SQLite and the list of files keep for good is there now
    }

    /// Refuses the step's first allocation, then its second, until none is left to refuse.
    /// @param prepare  makes what the step works on; its memory is given back before blocks are counted.
    template <class Step, class Check>
    void refuseEach(unsigned atLeast, Step step, Check check) {
        unsigned refusals = 0;
        for (std::uint32_t allowed = 0;; ++allowed) {
            SCOPED_TRACE("after " + std::to_string(allowed));
            const std::int64_t blocks = test::blocksAlive();
            const sqlite3_int64 sqliteBytes = sqlite3_memory_used();
            const bool isRefused = step(allowed);
            EXPECT_EQ(blocks, test::blocksAlive());
            EXPECT_EQ(sqliteBytes, sqlite3_memory_used());
            check();
            if (!isRefused) {
                break;
            }
            ++refusals;
        }
        std::printf("[  FIGURES ] %u allocations refused\n", refusals);
        EXPECT_GE(refusals, atLeast);
    }

    /// Runs a call under refusal. @return whether an allocation was refused.
    bool refuse(std::uint32_t allowed, const std::function<EAFResult()> &call) {
        EAFResult result = eAF_S_OK;
        const unsigned errors = silent.errors;
        bool isRefused = false;
        {
            const RefusedMemory refusal(std::get<0>(GetParam()), allowed, std::get<1>(GetParam()));
            try {
                result = call();
            } catch (const std::bad_alloc &) {
                result = eAF_E_OUT_OF_MEMORY;
            }
            isRefused = refusal.wasRefused();
        }
        const bool isHarmless = result == eAF_S_OK && (!isRefused || std::get<0>(GetParam()) == Allocator::sqlite);
        EXPECT_TRUE(result == eAF_E_OUT_OF_MEMORY || isHarmless) << std::hex << result;
        EXPECT_EQ(errors, silent.errors) << "out of memory is a code alone";
        m_result = result;
        return isRefused;
    }

    SilentReport silent;
    EAFResult m_result = eAF_S_OK;
};

TEST_P(SqliteOutOfMemoryTest, AStart_ChangesNothing) {
    const std::string before = test::contentsOf(file);
    refuseEach(
        20,
        [&](std::uint32_t allowed) {
            StoredValues values;
            SqliteStore store(file, 1);
            return refuse(allowed, [&] {
                const EAFResult opened = store.open(Access::readWrite, silent);
                return opened >= eAF_E_FAILED ? opened : store.read(values, silent);
            });
        },
        [&] {
            EXPECT_EQ(before, test::contentsOf(file));
            EXPECT_EQ(generation(1), stored());
        });
}

TEST_P(SqliteOutOfMemoryTest, AStore_LeavesTheOldValues) {
    const StoredValues changed = generation(2);
    refuseEach(
        1,
        [&](std::uint32_t allowed) {
            SqliteStore store(file, 1);
            StoredValues values;
            EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, silent));
            EXPECT_EQ(eAF_S_OK, store.read(values, silent));
            return refuse(allowed, [&] { return store.write(changed, silent); });
        },
        [&] {
            EXPECT_EQ(m_result == eAF_S_OK ? generation(2) : generation(1), stored());
            store(generation(1));
        });
}

TEST_P(SqliteOutOfMemoryTest, AFirstStore_LeavesNothing) {
    const StoredValues values = generation(1);
    refuseEach(
        10,
        [&](std::uint32_t allowed) {
            std::filesystem::remove(file);
            SqliteStore store(file, 1);
            EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, silent));
            return refuse(allowed, [&] { return store.write(values, silent); });
        },
        [&] { EXPECT_EQ(m_result == eAF_S_OK ? generation(1) : StoredValues{}, stored()); });
}

TEST_P(SqliteOutOfMemoryTest, SettingAside_LosesNothing) {
    const std::string damaged = test::contentsOf(file).substr(0, 5000);
    refuseEach(
        15,
        [&](std::uint32_t allowed) {
            std::filesystem::remove(file + ".damaged-1");
            std::filesystem::remove(file + ".damaged-1-journal");
            test::writeFile(file, damaged);
            SqliteStore store(file, 1);
            return refuse(allowed, [&] { return store.open(Access::readWrite, silent); });
        },
        [&] {
            const bool isAside = std::filesystem::exists(file + ".damaged-1");
            EXPECT_EQ(damaged, test::contentsOf(isAside ? file + ".damaged-1" : file));
        });
}

INSTANTIATE_TEST_SUITE_P(Refused, SqliteOutOfMemoryTest,
                         testing::Combine(testing::Values(Allocator::cxx, Allocator::sqlite), testing::Bool()),
                         [](const auto &instance) {
                             return std::string(std::get<0>(instance.param) == Allocator::cxx ? "Cxx" : "Sqlite") +
                                    (std::get<1>(instance.param) ? "AllLaterOnes" : "One");
                         });

} // namespace
