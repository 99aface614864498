// The power goes at every single operation of a store: all of the old or all of the new, never a mixture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "SimulatedDisk.h"
#include "SqliteStore.h"
#include "StoreSupport.h"
#include "StoredRegion.h"

namespace {

using test::RunningProvider;
using test::SimulatedDisk;
using test::StoredRegion;
using Survival = SimulatedDisk::Survival;

constexpr std::uint32_t seedsOfACut = 5;

class SqlitePowerCutTest : public testing::Test {
protected:
    struct Figures {
        unsigned tries = 0;
        unsigned old = 0;
        unsigned fresh = 0;
        unsigned mixed = 0;
        unsigned refused = 0;
    };

    /// Contents that are in no generation: what a retrieve did not fill.
    static constexpr std::uint32_t untouched = 200;

    static std::string contentsOf(StoredRegion &region, std::uint32_t generation, std::size_t noOfVariables) {
        region.fill(1);
        region.fill(generation, noOfVariables);
        return region.contents();
    }

    /// Stores generation 1, or nothing, then the second generation of some variables, and cuts the power in there.
    /// @param isFirst  the file is made by the store that is cut.
    void cutEverywhere(const StoredRegion::Shape &shape, std::size_t noOfChanged, bool isFirst = false) {
        StoredRegion region(shape);
        disk.load({});
        {
            RunningProvider provider(file);
            ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
            if (!isFirst) {
                region.fill(1);
                ASSERT_EQ(eAF_S_OK, provider.store(region));
            }
            disk.startLog();
            m_new = contentsOf(region, 2, noOfChanged);
            ASSERT_EQ(eAF_S_OK, provider.store(region));
            operations = disk.log();
        }
        region.fill(untouched);
        m_old = isFirst ? region.contents() : contentsOf(region, 1, 0);
        const SimulatedDisk recorded = disk;
        for (std::size_t cut = 0; cut <= operations.size(); ++cut) {
            for (const Survival survival : {Survival::all, Survival::none, Survival::some, Survival::anyOrder}) {
                const bool isRandom = survival == Survival::some || survival == Survival::anyOrder;
                for (std::uint32_t seed = 0; seed < (isRandom ? seedsOfACut : 1); ++seed) {
                    SCOPED_TRACE("cut after " + std::to_string(cut) + " of " + std::to_string(operations.size()) +
                                 ", survival " + std::to_string(static_cast<int>(survival)) + ", seed " +
                                 std::to_string(seed));
                    startAfter(recorded.afterPowerCut(cut, survival, seed), region, cut == operations.size());
                    if (survival == Survival::anyOrder && seed == 0) {
                        goOn(region, cut == operations.size());
                    }
                }
            }
        }
        std::printf("[  FIGURES ] operations %zu, tries %u, old %u, new %u, mixed %u, refused %u\n", operations.size(),
                    figures.tries, figures.old, figures.fresh, figures.mixed, figures.refused);
        EXPECT_GT(operations.size(), 8u);
        EXPECT_GT(figures.old, 0u);
        EXPECT_GT(figures.fresh, 0u);
        EXPECT_EQ(0u, figures.mixed);
        EXPECT_EQ(0u, figures.refused);
    }

    void startAfter(const SimulatedDisk::Image &image, StoredRegion &region, bool isReturned) {
        disk.load(image);
        disk.startLog();
        check(region, isReturned);
    }

    /// Cuts the rolling back of the start before as well: the start after that finds the same, and the store goes on.
    void goOn(StoredRegion &region, bool isReturned) {
        const SimulatedDisk recovery = disk;
        for (std::size_t cut = 1; cut < recovery.log().size(); ++cut) {
            disk.load(recovery.afterPowerCut(cut, Survival::anyOrder, static_cast<std::uint32_t>(cut)));
            check(region, isReturned);
        }
        RunningProvider provider(file);
        ASSERT_EQ(eAF_S_OK, provider.retrieve(region));
        region.fill(3);
        EXPECT_EQ(eAF_S_OK, provider.store(region));
    }

    void check(StoredRegion &region, bool isReturned) {
        const storage::StoredValues before = isReadFirst ? read() : storage::StoredValues{};
        RunningProvider provider(file);
        region.fill(untouched);
        const EAFResult retrieved = provider.retrieve(region);
        EXPECT_TRUE(!isReadFirst || before == read()) << "a reader finds what the host finds";
        ++figures.tries;
        if (retrieved >= eAF_E_FAILED) {
            ++figures.refused;
            ADD_FAILURE() << std::hex << retrieved;
        } else if (region.contents() == m_new) {
            ++figures.fresh;
        } else if (region.contents() == m_old) {
            ++figures.old;
            EXPECT_FALSE(isReturned) << "a store that returned is durable";
        } else {
            ++figures.mixed;
        }
    }

    storage::StoredValues read() {
        storage::SqliteStore reader(file, 1);
        storage::StoredValues values;
        test::ReportRecorder report;
        EXPECT_EQ(eAF_S_OK, reader.open(storage::Access::readOnly, report)) << report.errors();
        EXPECT_EQ(eAF_S_OK, reader.read(values, report)) << report.errors();
        return test::sorted(values);
    }

    std::size_t syncs() const {
        return static_cast<std::size_t>(std::count_if(operations.begin(), operations.end(), [](const auto &operation) {
            return operation.kind == SimulatedDisk::Operation::Kind::sync;
        }));
    }

    SimulatedDisk &disk = SimulatedDisk::instance();
    test::TemporaryFolder folder; // for the lock; the store itself is on the simulated disk
    std::string file = folder.file("store.db");
    std::vector<SimulatedDisk::Operation> operations;
    Figures figures;
    bool isReadFirst = false; ///< Somebody looks at the store before the host starts again.

private:
    std::string m_old;
    std::string m_new;
};

TEST_F(SqlitePowerCutTest, TheFirstStore_IsThereOrNot) {
    cutEverywhere({60, 2, 3000}, SIZE_MAX, true);
}

TEST_F(SqlitePowerCutTest, OneChangedValueOfMany_IsOldOrNew) {
    cutEverywhere({150, 0, 0}, 1);
}

TEST_F(SqlitePowerCutTest, EveryValueChanged_IsAllOldOrAllNew) {
    cutEverywhere({100, 2, 2500}, SIZE_MAX);
}

TEST_F(SqlitePowerCutTest, MoreThanSqliteHasMemoryFor_IsAllOldOrAllNew) {
    sqlite3_soft_heap_limit64(1); // pages reach the file before the commit, as they do when a store is large
    cutEverywhere({100, 2, 2500}, SIZE_MAX);
    EXPECT_GT(syncs(), 4u) << "the journal was synced in between";
}

TEST_F(SqlitePowerCutTest, AReaderThatComesBeforeTheHost_FindsOldOrNew) {
    isReadFirst = true;
    cutEverywhere({20, 1, 2000}, SIZE_MAX);
}

TEST_F(SqlitePowerCutTest, AReaderAfterACutFirstStore_FindsItOrNothing) {
    isReadFirst = true;
    cutEverywhere({20, 0, 0}, SIZE_MAX, true);
}

TEST_F(SqlitePowerCutTest, TheModel_FindsWhatAStoreWithoutSyncsLoses) {
    // The same disk under a connection that never syncs: if no cut broke that, the cuts above would show nothing.
    disk.load({});
    sqlite3 *database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open("/unsynced.db", &database));
    const auto run = [&database](const std::string &sql) {
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr)) << sql;
    };
    run("PRAGMA synchronous=OFF; CREATE TABLE t(v); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n "
        "WHERE i<2000) INSERT INTO t SELECT 'old value' FROM n;");
    disk.startLog();
    run("UPDATE t SET v='new value';");
    ASSERT_EQ(SQLITE_OK, sqlite3_close(database));
    const SimulatedDisk recorded = disk;
    unsigned broken = 0;
    for (std::size_t cut = 0; cut <= recorded.log().size(); ++cut) {
        disk.load(recorded.afterPowerCut(cut, Survival::anyOrder, static_cast<std::uint32_t>(cut)));
        ASSERT_EQ(SQLITE_OK, sqlite3_open("/unsynced.db", &database));
        std::string answer;
        const int code = sqlite3_exec(
            database, "SELECT count(*)||' '||min(v)||' '||max(v) FROM t NOT INDEXED",
            [](void *text, int, char **columns, char **) {
                *static_cast<std::string *>(text) = columns[0] != nullptr ? columns[0] : "";
                return 0;
            },
            &answer, nullptr);
        const bool isWhole = answer == "2000 old value old value" || answer == "2000 new value new value";
        broken += code != SQLITE_OK || !isWhole ? 1 : 0;
        ASSERT_EQ(SQLITE_OK, sqlite3_close(database));
    }
    std::printf("[  FIGURES ] broken without syncs: %u of %zu\n", broken, recorded.log().size() + 1);
    EXPECT_GT(broken, 0u);
}

} // namespace
