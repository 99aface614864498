#include "Stores.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "Fault.h"
#include "FileStore.h"
#include "SqliteStore.h"

namespace {

using storage::Access;

constexpr unsigned long usualLocation = 1;
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::milliseconds pause{20};

/// Keeps warnings until it is known that the attempt counts, and the last error for the fault.
class Messages : public storage::Report {
public:
    void add(storage::Severity severity, const std::string &text) override {
        if (severity == storage::Severity::warning) {
            warnings.push_back(text);
        } else if (severity == storage::Severity::error) {
            error = text;
        }
    }
    std::string error;
    std::vector<std::string> warnings;
};

void show(const std::vector<std::string> &warnings) {
    for (const std::string &warning : warnings) {
        std::fprintf(stderr, "zaf-store: warning: %s\n", warning.c_str());
    }
}

ExitCode exitCodeOf(EAFResult code, ExitCode otherwise) {
    switch (code) {
    case eAF_E_ALREADY_INITIALIZED:
        return ExitInUse;
    case eAF_E_OUT_OF_MEMORY:
        return ExitNotWritten;
    default:
        return otherwise;
    }
}

void check(EAFResult code, const Messages &messages, const std::string &file, ExitCode otherwise) {
    if (code < eAF_E_FAILED) {
        return;
    }
    const std::string unreported =
        file + (code == eAF_E_OUT_OF_MEMORY ? ": no memory could be had" : ": the store could not be used");
    throw Fault(exitCodeOf(code, otherwise), messages.error.empty() ? unreported : messages.error);
}

std::string listOf(const std::vector<unsigned long> &locations) {
    std::string list;
    for (const unsigned long location : locations) {
        list += " " + std::to_string(location);
    }
    return list;
}

unsigned long locationOf(const StoreName &name, Location location) {
    if (name.location && location == Location::heldOrNew) {
        return *name.location;
    }
    Messages messages;
    std::vector<unsigned long> locations;
    check(storage::SqliteStore::locations(name.file, locations, messages), messages, name.file, ExitUnreadable);
    if (name.location) {
        if (std::find(locations.begin(), locations.end(), *name.location) == locations.end()) {
            throw Fault(ExitNotFound, name.file + " holds no location " + std::to_string(*name.location) +
                                          (locations.empty() ? ": it is empty" : ", but" + listOf(locations)));
        }
        return *name.location;
    }
    if (locations.size() > 1) {
        throw Fault(ExitUsage, name.file + " holds the locations" + listOf(locations) + ": say which with --location");
    }
    return locations.empty() ? usualLocation : locations[0];
}

void refuseLocation(const StoreName &name, Kind kind) {
    if (kind == Kind::file && name.location) {
        throw Fault(ExitUsage, name.file + " is a store file, which has no locations: leave the option out");
    }
}

std::unique_ptr<storage::VariableStore> storeOf(const StoreName &name, Kind kind, Location location) {
    refuseLocation(name, kind);
    if (kind == Kind::file) {
        return std::make_unique<storage::FileStore>(name.file);
    }
    const unsigned long id = isThere(name.file) ? locationOf(name, location) : name.location.value_or(usualLocation);
    return std::make_unique<storage::SqliteStore>(name.file, id);
}

/// @param otherwise  what a failure is that says nothing of itself.
OpenStore readStore(const StoreName &name, Kind kind, Access access, Location location, ExitCode otherwise) {
    OpenStore opened;
    opened.kind = kind;
    opened.store = storeOf(name, kind, location);
    Messages messages;
    check(opened.store->open(access, messages), messages, name.file, otherwise);
    check(opened.store->read(opened.values, messages), messages, name.file, otherwise);
    std::sort(opened.values.begin(), opened.values.end(), [](const auto &a, const auto &b) { return a.path < b.path; });
    opened.warnings = std::move(messages.warnings);
    return opened;
}

/// A host that stores without pause leaves a reader little room between: who was unlucky has another go.
OpenStore readPatiently(const StoreName &name, Kind kind, Location location) {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        try {
            return readStore(name, kind, Access::readOnly, location, ExitUnreadable);
        } catch (const Fault &fault) {
            if (fault.exitCode != ExitInUse || std::chrono::steady_clock::now() >= end) {
                throw;
            }
        }
        std::this_thread::sleep_for(pause);
    }
}

std::string resolved(const std::string &file) {
    const storage::ResolvedName name = storage::resolveName(file);
    if (!name.problem.empty()) {
        throw Fault(ExitUnreadable, name.problem);
    }
    return name.file;
}

/// The generation before, which lies beside the file itself where the name is a link.
std::string beforeOf(const std::string &file) {
    return resolved(file) + ".1";
}

/// Opening a pipe would wait for its other end.
void checkRegular(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Fault(ExitUnreadable, file + ": it is no regular file, so it is no store");
    }
}

Kind kindOf(const std::string &file) {
    const std::string before = beforeOf(file);
    checkRegular(file);
    checkRegular(before);
    if (!isThere(file)) {
        if (isThere(before)) {
            return Kind::file; // the newest generation is missing, the one before it is there
        }
        throw Fault(ExitNotFound, file + ": there is no such store");
    }
    std::array<char, 16> begin{};
    std::FILE *stream = std::fopen(file.c_str(), "rbe");
    if (stream == nullptr) {
        throw Fault(ExitUnreadable, file + ": " + std::strerror(errno));
    }
    const std::size_t length = std::fread(begin.data(), 1, begin.size(), stream);
    std::fclose(stream);
    const bool isSqlite = length == begin.size() && std::memcmp(begin.data(), "SQLite format 3", 16) == 0;
    if (isSqlite || (length == 0 && isThere(file + "-journal"))) { // also what a first store cut short has left
        return Kind::sqlite;
    }
    if ((length >= 8 && std::memcmp(begin.data(), "ZAFSTORE", 8) == 0) || isThere(before)) {
        return Kind::file;
    }
    throw Fault(ExitUnreadable, file + ": neither an SQLite database nor a store file");
}

} // namespace

const storage::StoredValue *OpenStore::find(const std::string &path) const {
    const auto found =
        std::lower_bound(values.begin(), values.end(), path,
                         [](const auto &value, const std::string &wanted) { return value.path < wanted; });
    return found != values.end() && found->path == path ? &*found : nullptr;
}

bool OpenStore::isUnreadable(const std::string &path) const {
    // A store only tells of what it could not read; it tells the path and, behind it, the row.
    return std::any_of(warnings.begin(), warnings.end(), [&path](const std::string &warning) {
        return warning.find(": " + path + " (row ") != std::string::npos;
    });
}

void OpenStore::write(const storage::StoredValues &changes) {
    Messages messages;
    const EAFResult code = store->write(changes, messages);
    show(messages.warnings);
    check(code, messages, store->name(), ExitNotWritten);
}

bool isThere(const std::string &file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0;
}

bool isStoreThere(const std::string &file) {
    return isThere(file) || isThere(beforeOf(file));
}

/// @return whether both are there, and are one file.
bool isSameFile(const std::string &one, const std::string &other) {
    struct stat first {};
    struct stat second {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

bool isPartOf(const std::string &file, const StoreName &store) {
    const std::string path = resolved(file);
    for (const std::string &name : {store.file, resolved(store.file)}) {
        for (const char *suffix : {"", ".1", ".new", ".lock", "-journal", "-wal", "-shm"}) {
            const std::string part = name + suffix;
            // A part whose own name is too long is not there.
            if (path == storage::resolveName(part).file || isSameFile(file, part)) {
                return true;
            }
        }
    }
    return false;
}

OpenStore openStore(const StoreName &name, Location location) {
    OpenStore opened = readPatiently(name, kindOf(name.file), location);
    show(opened.warnings);
    return opened;
}

OpenStore openToWrite(const StoreName &name, OpenStore seen) {
    if (seen.kind == Kind::file && !seen.warnings.empty()) {
        throw Fault(ExitUnreadable, name.file + ": nothing was written, because the store is damaged; \"convert\" "
                                                "copies what can be read of it into a new one, the host's next start "
                                                "mends it");
    }
    seen.store.reset();
    OpenStore opened = readStore(name, seen.kind, Access::readWrite, Location::heldOrNew, ExitNotWritten);
    for (const std::string &warning : opened.warnings) {
        if (std::find(seen.warnings.begin(), seen.warnings.end(), warning) == seen.warnings.end()) {
            show({warning});
        }
    }
    return opened;
}

OpenStore makeStore(const StoreName &name, Kind kind) {
    if (isThere(name.file)) {
        throw Fault(ExitUsage, name.file + " is there already: name a new store");
    }
    const std::string before = beforeOf(name.file);
    if (isThere(before)) {
        throw Fault(ExitUsage, before + " is there, the rest of another store: move it away, or name a new store");
    }
    OpenStore opened = readStore(name, kind, Access::readWrite, Location::heldOrNew, ExitNotWritten);
    show(opened.warnings);
    return opened;
}
