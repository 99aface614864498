// Storing and retrieving a location's variables, by the library's providers, their limits and what a user would take.
#include <array>
#include <map>
#include <memory>
#include <stdexcept>

#include "Comparison.h"
#include "ProviderFlushes.h"
#include "ProviderKeepers.h"
#include "StorageRows.h"
#include "StoreFolder.h"

namespace speed {

namespace {

/// A column with its own values, so that what another one changes is no change to it.
struct Kept {
    explicit Kept(std::size_t count) : values(count) {}

    Values values;
    StoreFolder folder;
    std::unique_ptr<Keeper> keeper;
};

/// The columns of one provider's rows of one size. They stay from row to row, and go before the next ones come.
struct Stand {
    std::string provider;
    std::size_t size = 0;
    std::map<MakeKeeper, std::unique_ptr<Kept>> kept;
    std::map<std::string, std::uint64_t> flushesOfLimit; ///< By what is done.
};
Stand theStand;

Kept &keptBy(const std::string &provider, std::size_t size, MakeKeeper make) {
    if (theStand.provider != provider || theStand.size != size) {
        theStand = Stand{provider, size, {}, {}};
    }
    std::unique_ptr<Kept> &kept = theStand.kept[make];
    if (kept == nullptr) {
        endLookUps();
        kept = std::make_unique<Kept>(size);
        kept->keeper = make(kept->values, kept->folder.path());
        kept->keeper->store();
    }
    return *kept;
}

/// What lies on the disk is what was stored.
void checkStored(Kept &kept) {
    const std::vector<unsigned char> stored = kept.values.contents();
    kept.values.clear();
    kept.keeper->retrieve();
    if (kept.values.contents() != stored) {
        throw std::runtime_error("what was retrieved is not what was stored");
    }
}

struct Change {
    const char *name;
    void (Values::*make)();
};

/// Without a change no flush, with one as many as the limit needs: a store that flushes less would be no store.
void checkFlushes(const Change &change, Role role, std::uint64_t flushes, std::uint64_t stores) {
    const auto told = [&](const std::string &what) {
        throw std::runtime_error(std::string(change.name) + ": " + std::to_string(flushes) + " flushes in " +
                                 std::to_string(stores) + " stores, " + what);
    };
    if (change.make == &Values::changeNone) {
        if (flushes != 0) {
            told("though nothing had changed");
        }
        return;
    }
    if (flushes == 0 || flushes % stores != 0) {
        told("which is not the same number, above 0, for each");
    }
    std::uint64_t &ofLimit = theStand.flushesOfLimit[change.name];
    if (role == Role::limit) {
        ofLimit = flushes / stores;
    } else if (role == Role::library && ofLimit != 0 && flushes != ofLimit * stores) {
        told("the limit needs " + std::to_string(ofLimit) + " for each");
    }
}

Body storing(const std::string &provider, std::size_t size, const Change &change, Role role, MakeKeeper make) {
    return [=](benchmark::State &state) {
        Kept &kept = keptBy(provider, size, make);
        const DiskWork before = diskWork();
        for (auto _ : state) {
            (kept.values.*change.make)();
            timed(state, [&] { kept.keeper->store(); });
        }
        const DiskWork after = diskWork();
        kept.keeper->settle();
        const auto stores = static_cast<std::uint64_t>(state.iterations());
        if (role != Role::peer) {
            checkFlushes(change, role, after.flushes - before.flushes, stores);
        }
        checkStored(kept);
        state.counters["flushes"] = static_cast<double>(after.flushes - before.flushes) / static_cast<double>(stores);
        state.counters["bytes"] = static_cast<double>(after.bytes - before.bytes) / static_cast<double>(stores);
    };
}

/// A store that stands open has been looked at, and what it holds is known; one that is opened is read and checked.
enum class Begin { open, closed };

Body retrieving(const std::string &provider, std::size_t size, MakeKeeper make, Begin begin) {
    return [=](benchmark::State &state) {
        Kept &kept = keptBy(provider, size, make);
        const std::vector<unsigned char> stored = kept.values.contents();
        for (auto _ : state) {
            kept.values.clear();
            if (begin == Begin::closed) {
                kept.keeper->close();
            }
            timed(state, [&] {
                if (begin == Begin::closed) {
                    kept.keeper->open();
                }
                kept.keeper->retrieve();
            });
            if (kept.values.contents() != stored) {
                throw std::runtime_error("what was retrieved is not what was stored");
            }
        }
    };
}

struct Candidate {
    Role role;
    const char *who;
    MakeKeeper make;
};

const std::vector<Candidate> sqliteColumns{{Role::limit, "bare SQLite", makeBareSqlite},
                                           {Role::library, "libZelStorageSqlite", makeSqliteProvider},
                                           {Role::peer, "LMDB", makeLmdb},
                                           {Role::peer, "LevelDB", makeLevelDb},
                                           {Role::peer, "JSON file", makeJson},
                                           {Role::peer, "GKeyFile", makeKeyFile}};
const std::vector<Candidate> fileColumns{{Role::limit, "packed and put in place", makeBareFile},
                                         {Role::library, "libZelStorageFile", makeFileProvider},
                                         {Role::peer, "LMDB", makeLmdb},
                                         {Role::peer, "LevelDB", makeLevelDb},
                                         {Role::peer, "JSON file", makeJson},
                                         {Role::peer, "GKeyFile", makeKeyFile}};

void addRows(const std::string &provider, const std::vector<Candidate> &columns, std::uint32_t size, double aim) {
    Work work;
    work.group = "providers";
    work.size = size;
    work.sizeUnit = "variables";
    for (const Change &change :
         {Change{"store, all changed", &Values::changeAll}, Change{"store, one changed", &Values::changeOne},
          Change{"store, none changed", &Values::changeNone}}) {
        work.name = provider + ": " + change.name;
        // What remains without a change is the comparison: that nothing is flushed is the aim.
        work.aimsAtNoFlush = change.make == &Values::changeNone;
        work.aim = work.aimsAtNoFlush ? 0 : aim;
        for (const Candidate &column : columns) {
            compare(work, column.role, column.who, storing(provider, size, change, column.role, column.make),
                    Clock::manual);
        }
    }
    work.aimsAtNoFlush = false;
    work.name = provider + ": retrieve";
    work.aim = aim;
    for (const Candidate &column : columns) {
        compare(work, column.role, column.who, retrieving(provider, size, column.make, Begin::open), Clock::manual);
    }
    work.name = provider + ": open and retrieve";
    work.aim = 0;
    for (const Candidate &column : columns) {
        if (column.role != Role::peer) {
            compare(work, column.role, column.who, retrieving(provider, size, column.make, Begin::closed),
                    Clock::manual);
        }
    }
}

} // namespace

void endProviders() {
    theStand = {};
}

void addProviderRows() {
    for (const std::uint32_t size : {100U, 1'000U, 10'000U}) {
        addRows("SQLite", sqliteColumns, size, 1.10);
    }
    for (const std::uint32_t size : {100U, 1'000U, 10'000U}) {
        addRows("file", fileColumns, size, 1.3);
    }
}

} // namespace speed
