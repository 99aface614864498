#include "Stores.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Fault.h"
#include "FileStore.h"
#include "SqliteStore.h"

namespace {

constexpr unsigned long usualLocation = 1;

/// Shows warnings at once and keeps the last error for the fault.
class Messages : public storage::Report {
public:
    void add(storage::Severity severity, const std::string &text) override {
        if (severity == storage::Severity::warning) {
            std::fprintf(stderr, "zaf-store: warning: %s\n", text.c_str());
            ++noOfWarnings;
        } else if (severity == storage::Severity::error) {
            error = text;
        }
    }
    std::string error;
    unsigned noOfWarnings = 0;
};

ExitCode exitCodeOf(EAFResult code, ExitCode otherwise) {
    switch (code) {
    case eAF_E_ALREADY_INITIALIZED:
        return ExitInUse;
    case eAF_E_WRONG_ACCESS:
        return ExitNotWritten;
    default:
        return otherwise;
    }
}

void check(EAFResult code, const Messages &messages, const std::string &file, ExitCode otherwise) {
    if (code >= eAF_E_FAILED) {
        throw Fault(exitCodeOf(code, otherwise),
                    messages.error.empty() ? file + ": the store could not be used" : messages.error);
    }
}

unsigned long locationOf(const StoreName &name) {
    if (name.location) {
        return *name.location;
    }
    Messages messages;
    std::vector<unsigned long> locations;
    check(storage::SqliteStore::locations(name.file, locations, messages), messages, name.file, ExitUnreadable);
    if (locations.size() > 1) {
        std::string list;
        for (const unsigned long location : locations) {
            list += " " + std::to_string(location);
        }
        throw Fault(ExitUsage, name.file + " holds the locations" + list + ": say which with --location");
    }
    return locations.empty() ? usualLocation : locations[0];
}

std::unique_ptr<storage::VariableStore> storeOf(const StoreName &name, Kind kind) {
    if (kind == Kind::file) {
        return std::make_unique<storage::FileStore>(name.file);
    }
    const unsigned long location = isThere(name.file) ? locationOf(name) : name.location.value_or(usualLocation);
    return std::make_unique<storage::SqliteStore>(name.file, location);
}

OpenStore readStore(const StoreName &name, Kind kind, storage::Access access) {
    OpenStore opened;
    opened.store = storeOf(name, kind);
    Messages messages;
    check(opened.store->open(access, messages), messages, name.file, ExitUnreadable);
    check(opened.store->read(opened.values, messages), messages, name.file, ExitUnreadable);
    std::sort(opened.values.begin(), opened.values.end(), [](const auto &a, const auto &b) { return a.path < b.path; });
    opened.noOfWarnings = messages.noOfWarnings;
    return opened;
}

} // namespace

const storage::StoredValue *OpenStore::find(const std::string &path) const {
    const auto found =
        std::lower_bound(values.begin(), values.end(), path,
                         [](const auto &value, const std::string &wanted) { return value.path < wanted; });
    return found != values.end() && found->path == path ? &*found : nullptr;
}

void OpenStore::write(const storage::StoredValues &changes) {
    Messages messages;
    check(store->write(changes, messages), messages, store->name(), ExitNotWritten);
}

bool isThere(const std::string &file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0;
}

Kind kindOf(const std::string &file) {
    if (!isThere(file)) {
        if (isThere(file + ".1")) {
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
    if (length == begin.size() && std::memcmp(begin.data(), "SQLite format 3", 16) == 0) {
        return Kind::sqlite;
    }
    if ((length >= 8 && std::memcmp(begin.data(), "ZAFSTORE", 8) == 0) || isThere(file + ".1")) {
        return Kind::file;
    }
    throw Fault(ExitUnreadable, file + ": neither an SQLite database nor a store file");
}

OpenStore openStore(const StoreName &name, storage::Access access) {
    const Kind kind = kindOf(name.file);
    OpenStore opened = readStore(name, kind, storage::Access::readOnly);
    if (access == storage::Access::readWrite) {
        opened.store.reset();
        opened = readStore(name, kind, access);
    }
    return opened;
}

OpenStore makeStore(const StoreName &name, Kind kind) {
    if (isThere(name.file)) {
        throw Fault(ExitUsage, name.file + " is there already: name a new store");
    }
    return readStore(name, kind, storage::Access::readWrite);
}
