// Each allocation of zaf-store fails once, or it and all that follow: it ends by itself, says why, and the store holds
// what it held or what it was to hold.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "StoreTool.h"

namespace storetool {
namespace {

/// ZELAF_EVERY_FAILURE: another number, or all.
std::uint64_t strideOf(std::uint64_t allocations) {
    const char *const form = std::getenv("ZELAF_EVERY_FAILURE");
    if (form != nullptr && std::string(form) == "all") {
        return 1;
    }
    const std::uint64_t tries = form != nullptr ? std::strtoull(form, nullptr, 10) : 12;
    return allocations / std::max<std::uint64_t>(tries, 1) + 1;
}

class StoreToolMemory : public StoreTool, public testing::WithParamInterface<bool> {
protected:
    bool isSqlite = GetParam();
    std::string kind = GetParam() ? "sqlite" : "file";

    Outcome refused(std::uint64_t allocation, bool isLasting, const std::string &arguments) const {
        return run("LD_PRELOAD='" REFUSED_MALLOC "' ZELAF_ALLOCATIONS=.count ZELAF_REFUSED_ALLOCATION=" +
                   std::to_string(allocation) + " ZELAF_REFUSED_LASTING=" + (isLasting ? "1" : "") + " zaf-store " +
                   arguments);
    }

    void make() {
        for (const char *left : {"s", "s-journal", "s.1"}) {
            std::filesystem::remove(in(left));
        }
        StoreTool::make("s", isSqlite, radio());
    }

    /// Each allocation of a command that leaves the values as they are, or makes them those of `after`.
    void refuseEach(const std::string &arguments, const StoredValues &after) {
        make();
        const Outcome usual = refused(0, false, arguments);
        ASSERT_EQ(0, usual.exitCode) << usual.err;
        const std::uint64_t allocations = std::strtoull(bytesOf(in(".count")).c_str(), nullptr, 10);
        ASSERT_GT(allocations, 50u);
        std::uint64_t tries = 0;
        std::uint64_t told = 0;
        for (std::uint64_t each = 1; each <= allocations; each += strideOf(allocations)) {
            for (const bool isLasting : {false, true}) {
                SCOPED_TRACE(arguments + ", allocation " + std::to_string(each) + (isLasting ? " and later" : ""));
                make();
                const Outcome outcome = refused(each, isLasting, arguments);
                ++tries;
                told += outcome.exitCode != 0 ? 1 : 0;
                if (outcome.exitCode == 0) {
                    EXPECT_EQ(usual.out, outcome.out) << "what it could do without is no failure";
                } else {
                    EXPECT_EQ(7, outcome.exitCode) << outcome.err;
                    EXPECT_NE("", outcome.err);
                }
                const StoredValues found = valuesIn("s", isSqlite);
                EXPECT_TRUE(sorted(found) == sorted(radio()) || sorted(found) == sorted(after));
                if (HasFailure()) {
                    return;
                }
            }
        }
        std::printf("[  FIGURES ] %s %s: %llu allocations, %llu tries, %llu told\n", kind.c_str(), arguments.c_str(),
                    static_cast<unsigned long long>(allocations), static_cast<unsigned long long>(tries),
                    static_cast<unsigned long long>(told));
        EXPECT_GT(told, 0u);
    }

    static StoredValues sorted(StoredValues values) {
        std::sort(values.begin(), values.end(),
                  [](const StoredValue &a, const StoredValue &b) { return a.path < b.path; });
        return values;
    }
};
INSTANTIATE_TEST_SUITE_P(Kinds, StoreToolMemory, testing::Bool(),
                         [](const auto &kind) { return kind.param ? std::string("Sqlite") : std::string("File"); });

TEST_P(StoreToolMemory, OfAList_EndsItWithAMessageAndTheStoreIntact) {
    refuseEach("list s", radio());
}

TEST_P(StoreToolMemory, OfASet_LeavesTheOldValueOrTheNewOne) {
    StoredValues changed = radio();
    changed[0] = single<std::int32_t>(changed[0].path, TYPE_INT32, -5);
    refuseEach("set s " + changed[0].path + " -5", changed);
}

} // namespace
} // namespace storetool
