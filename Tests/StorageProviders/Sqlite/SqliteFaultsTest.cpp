// Every SQLite call and every operation on the disk fails in turn: a code and a text, and the old values are there.
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "SimulatedDisk.h"
#include "SqliteCalls.h"
#include "SqliteStore.h"
#include "StoreSupport.h"

namespace {

using storage::Access;
using storage::SqliteStore;
using storage::StoredValues;
using test::FailingCall;
using test::int32Value;
using test::ReportRecorder;
using test::SimulatedDisk;
using test::stringValue;
using test::valueOf;
using testing::HasSubstr;

/// @return eAF_E_OUT_OF_MEMORY also where an exception says so.
EAFResult resultOf(const std::function<EAFResult()> &step) {
    try {
        return step();
    } catch (const std::bad_alloc &) {
        return eAF_E_OUT_OF_MEMORY;
    }
}

StoredValues generation(std::int32_t number) {
    using namespace std::literals;
    return test::sorted({int32Value("R/Integer", number), valueOf<double>("R/Real", TYPE_DOUBLE, {number + 0.5}),
                         stringValue("R/Text", "text " + std::to_string(number)),
                         stringValue("R/Blob\xff", "\xff\0\1"s + std::to_string(number)),
                         valueOf<std::int32_t>("R/Array", TYPE_INT32_ARRAY, {number, 2, 3})});
}

struct Fault {
    int code;
    EAFResult result;
};

constexpr Fault faults[] = {{SQLITE_NOMEM, eAF_E_OUT_OF_MEMORY},   {SQLITE_IOERR_WRITE, eAF_E_FAILED},
                            {SQLITE_FULL, eAF_E_FAILED},           {SQLITE_BUSY, eAF_E_ALREADY_INITIALIZED},
                            {SQLITE_READONLY, eAF_E_WRONG_ACCESS}, {SQLITE_CORRUPT, eAF_E_FAILED},
                            {SQLITE_MISUSE, eAF_E_FAILED},         {SQLITE_IOERR_NOMEM, eAF_E_OUT_OF_MEMORY}};

class SqliteCallFaultsTest : public test::SqliteStores, public testing::WithParamInterface<bool> {
protected:
    /// Runs a step with the first call failing, then the second, until none is left to fail.
    template <class Step, class Check>
    void failEachCall(const Fault &fault, Step step, Check check) {
        for (std::size_t call = 0;; ++call) {
            report.lines.clear();
            EAFResult result = eAF_S_OK;
            std::string name;
            {
                const FailingCall failing(call, fault.code, GetParam());
                result = resultOf(step);
                name = failing.failures() > 0 ? failing.name() : "";
            }
            if (name.empty()) {
                EXPECT_EQ(eAF_S_OK, result);
                EXPECT_GT(call, 10u);
                return;
            }
            SCOPED_TRACE("code " + std::to_string(fault.code) + ", call " + std::to_string(call) + ": " + name);
            check(result);
            if (fault.result != eAF_E_OUT_OF_MEMORY && result >= eAF_E_FAILED) {
                EXPECT_THAT(report.errors(), HasSubstr(file)) << "it is said";
            }
        }
    }

    void clear() const {
        for (const char *end : {"", "-journal", ".damaged-1", ".damaged-1-journal"}) {
            std::filesystem::remove(file + end);
        }
    }
    void reset() {
        clear();
        store(generation(1));
    }

    /// @param hasOthers  whether a fault that a check finds may be that of a table of others: the values are whole
    /// then.
    void failEachCallOfAStart(bool hasOthers) {
        for (const Fault &fault : faults) {
            StoredValues values;
            const auto start = [&] {
                values.clear();
                SqliteStore store(file, 1);
                const EAFResult opened = store.open(Access::readWrite, report);
                return opened >= eAF_E_FAILED ? opened : store.read(values, report);
            };
            failEachCall(fault, start, [&](EAFResult result) {
                if (std::filesystem::exists(file + ".damaged-1")) {
                    EXPECT_EQ(SQLITE_CORRUPT, fault.code);
                    EXPECT_THAT(report.warnings(), HasSubstr("it is kept as"));
                    EXPECT_FALSE(std::filesystem::exists(file));
                    EXPECT_EQ(StoredValues{}, values);
                    std::filesystem::rename(file + ".damaged-1", file);
                    std::filesystem::remove(file + ".damaged-1-journal");
                } else if (hasOthers && fault.code == SQLITE_CORRUPT && result == eAF_S_OK) {
                    EXPECT_EQ(generation(1), test::sorted(values));
                } else {
                    EXPECT_EQ(fault.result, result);
                }
                EXPECT_EQ(generation(1), stored());
            });
        }
    }
};

TEST_P(SqliteCallFaultsTest, AStart_FailsWithACodeOrSetsTheStoreAside) {
    reset();
    failEachCallOfAStart(false);
}

// Which makes a start look at the table of variables for itself.
TEST_P(SqliteCallFaultsTest, AStartBesideATableThatOnlyOthersCanCheck_DoesTheSame) {
    reset();
    test::sqlite3Program(file,
                         "CREATE TABLE notes(t); CREATE INDEX ni ON notes(sha3(t)); INSERT INTO notes VALUES('a')");
    failEachCallOfAStart(true);
}

TEST_P(SqliteCallFaultsTest, AListOfLocations_FailsWithACode) {
    reset();
    for (const Fault &fault : faults) {
        std::vector<unsigned long> found;
        failEachCall(
            fault, [&] { return SqliteStore::locations(file, found, report); },
            [&](EAFResult result) {
                EXPECT_EQ(fault.result, result);
                ReportRecorder ignored;
                EXPECT_EQ(eAF_S_OK, SqliteStore::locations(file, found, ignored));
                EXPECT_EQ(std::vector<unsigned long>{1}, found);
            });
    }
}

TEST_P(SqliteCallFaultsTest, AFirstStore_FailsWithACodeAndLeavesNothing) {
    for (const Fault &fault : faults) {
        const auto first = [&] {
            SqliteStore store(file, 1);
            const EAFResult opened = store.open(Access::readWrite, report);
            return opened >= eAF_E_FAILED ? opened : store.write(generation(1), report);
        };
        failEachCall(fault, first, [&](EAFResult result) {
            EXPECT_TRUE(result == fault.result || (fault.code == SQLITE_CORRUPT && result == eAF_S_OK)) << result;
            if (result >= eAF_E_FAILED) {
                EXPECT_EQ(StoredValues{}, stored());
            }
            clear();
        });
        clear();
    }
}

TEST_P(SqliteCallFaultsTest, AStore_FailsWithACodeAndLeavesTheOldValues) {
    SimulatedDisk &disk = SimulatedDisk::instance(); // from here on: nothing is set aside, and it syncs in no time
    store(generation(1));
    const SimulatedDisk::Image image = disk.image();
    for (const Fault &fault : faults) {
        for (std::size_t call = 0;; ++call) {
            disk.load(image);
            report.lines.clear();
            SqliteStore store(file, 1);
            StoredValues values;
            ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
            ASSERT_EQ(eAF_S_OK, store.read(values, report));
            EAFResult result = eAF_S_OK;
            std::string name;
            {
                const FailingCall failing(call, fault.code, GetParam());
                result = resultOf([&] { return store.write(generation(2), report); });
                name = failing.failures() > 0 ? failing.name() : "";
            }
            SCOPED_TRACE("code " + std::to_string(fault.code) + ", call " + std::to_string(call) + ": " + name);
            if (name.empty()) {
                EXPECT_EQ(eAF_S_OK, result);
                EXPECT_GT(call, 40u);
                break;
            }
            EXPECT_EQ(fault.result, result);
            EXPECT_TRUE(fault.result == eAF_E_OUT_OF_MEMORY || !report.errors().empty());
            ASSERT_EQ(eAF_S_OK, store.read(values, report)) << report.errors();
            EXPECT_EQ(generation(1), test::sorted(values));
            EXPECT_EQ(eAF_S_OK, store.write(generation(2), report)) << "and the next one goes on";
            EXPECT_EQ(eAF_S_OK, store.read(values, report));
            EXPECT_EQ(generation(2), test::sorted(values));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OneCallOrAllLaterOnes, SqliteCallFaultsTest, testing::Bool(),
                         [](const auto &instance) { return instance.param ? "AllLaterOnes" : "OneCall"; });

class SqliteDiskFaultsTest : public test::SqliteStores, public testing::WithParamInterface<bool> {
protected:
    SqliteDiskFaultsTest() { disk.load({}); }

    SimulatedDisk &disk = SimulatedDisk::instance();
};

TEST_P(SqliteDiskFaultsTest, AStore_IsOldOrNewAfterAnyOperationOnTheDiskFailed) {
    const Fault diskFaults[] = {{SQLITE_FULL, eAF_E_FAILED}, {SQLITE_IOERR_WRITE, eAF_E_FAILED}};
    store(generation(1));
    const SimulatedDisk::Image image = disk.image();
    for (const Fault &fault : diskFaults) {
        for (std::size_t operation = 0;; ++operation) {
            SCOPED_TRACE("code " + std::to_string(fault.code) + ", operation " + std::to_string(operation));
            disk.load(image);
            report.lines.clear();
            EAFResult result = eAF_S_OK;
            std::size_t failures = 0;
            {
                SqliteStore store(file, 1);
                StoredValues values;
                ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
                ASSERT_EQ(eAF_S_OK, store.read(values, report));
                disk.failAfter(operation, fault.code, GetParam());
                result = store.write(generation(2), report);
                failures = disk.failures();
                disk.failNever();
            }
            if (failures == 0) {
                EXPECT_EQ(eAF_S_OK, result);
                EXPECT_GT(operation, 8u);
                break;
            }
            // A store whose very last sync failed is on the disk, but says that it may not be.
            const StoredValues values = stored();
            if (result == eAF_S_OK) {
                EXPECT_EQ(generation(2), values);
            } else {
                EXPECT_TRUE(values == generation(1) || values == generation(2));
                EXPECT_THAT(report.errors(), HasSubstr(file));
            }
            EXPECT_TRUE(result == fault.result || result == eAF_S_OK || result == eAF_E_INITIALIZATION_ERROR) << result;
            store(generation(3));
            EXPECT_EQ(generation(3), stored());
        }
    }
}

TEST_P(SqliteDiskFaultsTest, AFullDisk_IsSaidWithTheFileAndWhatToDo) {
    store(generation(1));
    SqliteStore store(file, 1);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report));
    disk.failAfter(0, SQLITE_FULL, true);
    EXPECT_EQ(eAF_E_FAILED, store.write(generation(2), report));
    disk.failNever();
    EXPECT_THAT(report.errors(), HasSubstr(file + ": the disk is full"));
    EXPECT_THAT(report.errors(), HasSubstr("make room and store again"));
}

INSTANTIATE_TEST_SUITE_P(OneOperationOrAllLaterOnes, SqliteDiskFaultsTest, testing::Bool(),
                         [](const auto &instance) { return instance.param ? "AllLaterOnes" : "OneOperation"; });

} // namespace
