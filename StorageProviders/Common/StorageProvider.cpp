#include "StorageProvider.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "KnownWalk.h"
#include "VariableType.h"

namespace storage {

namespace {

bool isError(EAFResult code) {
    return code >= eAF_E_FAILED;
}

template <class Step>
EAFResult guarded(Step step) {
    try {
        return step();
    } catch (const std::bad_alloc &) {
        return eAF_E_OUT_OF_MEMORY;
    } catch (const std::length_error &) {
        return eAF_E_OUT_OF_MEMORY;
    }
}

void log(VoxTrace &trace, Severity severity, const char *operation, const char *text) {
    const VoxTraceLevel level = severity == Severity::error ? 1 : severity == Severity::warning ? 3 : 5;
    if (trace.isEnabled(level)) {
        const VoxTraceHeader header = {__FILE__, __LINE__, operation};
        trace.logMsg(level, header, text);
    }
}

/// A whole operation: what ran out of memory is said without any.
template <class Step>
EAFResult guarded(VoxTrace &trace, const char *operation, unsigned long locationId, Step step) {
    const EAFResult result = guarded(step);
    if (result == eAF_E_OUT_OF_MEMORY) {
        std::array<char, 120> text{};
        std::snprintf(text.data(), text.size(), "memory ran out for the storage location %lu: free some and try again",
                      locationId);
        log(trace, Severity::error, operation, text.data());
    }
    return result;
}

/// Logs what a store or this file has to say, under the operation's name.
class TraceReport : public Report {
public:
    TraceReport(VoxTrace &trace, const char *operation) : m_trace(trace), m_operation(operation) {}

    void add(Severity severity, const std::string &text) override { log(m_trace, severity, m_operation, text.c_str()); }

private:
    VoxTrace &m_trace;
    const char *m_operation;
};

/// The walk hands its action no context. One walk runs at a time in the process.
struct RunningWalk {
    void *visit;
    bool ranOutOfMemory;
};
RunningWalk *runningWalk;

template <class Visit>
EAFResult visitVariable(CDatabase * /*database*/, CVariable *variable, const char *fullPath,
                        const char * /*regionName*/, const char * /*objectPath*/, const char * /*variableName*/) {
    const EAFResult visited = guarded([&] {
        (*static_cast<Visit *>(runningWalk->visit))(*variable, fullPath);
        return eAF_S_OK;
    });
    runningWalk->ranOutOfMemory = runningWalk->ranOutOfMemory || isError(visited);
    return visited;
}

/// @param visit  takes a variable and its path. @throws std::bad_alloc when a visit did.
template <class Visit>
EAFResult walk(CDatabase *database, Visit visit) {
    RunningWalk running{&visit, false};
    runningWalk = &running;
    const EAFResult result = CDatabase_DoVariableOperation(database, visitVariable<Visit>);
    runningWalk = nullptr;
    if (running.ranOutOfMemory || result == eAF_E_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    return result;
}

/// Holds a variable's lock.
class Locked {
public:
    explicit Locked(CVariable &variable) : m_variable(variable), m_isHeld(!isError(CVariable_Lock(&variable))) {}
    ~Locked() {
        if (m_isHeld) {
            CVariable_UnLock(&m_variable);
        }
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
    bool isHeld() const { return m_isHeld; }

private:
    CVariable &m_variable;
    bool m_isHeld;
};

std::string describe(EVariableType type, std::uint32_t noOfElements) {
    return std::string(typeName(type)) + "[" + std::to_string(noOfElements) + "]";
}

} // namespace

/// What a store is to be told, and where it will be known.
struct Changes {
    ValueTable values;
    std::vector<std::size_t> places; ///< Each value's among the known ones, or KnownWalk::unknown.
};

struct StorageProvider::Location {
    std::string file;
    std::unique_ptr<VariableStore> store;
    bool isOpen = false;
    bool isRead = false;        ///< `known` is what the store holds.
    bool isUnreadable = false;  ///< By the last retrieve: what stands in the variables must not be stored.
    ValueTable known;           ///< In the order of the last walk, those that it did not meet behind.
    unsigned long reserved = 0; ///< 0: no limit was given.
    SStorageStatistics statistics{};

    EAFResult open(Report &report) {
        if (!isOpen) {
            const EAFResult result = store->open(Access::readWrite, report);
            if (isError(result)) {
                return result;
            }
            isOpen = true;
        }
        return eAF_S_OK;
    }

    EAFResult read(Report &report) {
        isRead = false;
        known.clear();
        const EAFResult opened = open(report);
        if (isError(opened)) {
            return opened;
        }
        const EAFResult result = store->read(known, report);
        if (isError(result)) {
            known.clear();
            return result;
        }
        isRead = true;
        return eAF_S_OK;
    }

    EAFResult collectChanges(CDatabase *database, Changes &changes, Report &report);
    EAFResult writeChanges(CDatabase *database, Report &report);
    EAFResult storeChanges(CDatabase *database, Report &report);
    EAFResult fill(CDatabase *database, Report &report);
};

/// @return whether the variable has the stored value.
static bool holds(const CVariable &variable, const ValueView &stored, std::uint64_t size) {
    return stored.type == variable.type && stored.noOfElements == variable.noOfElements && stored.size == size &&
           (size == 0 || std::memcmp(stored.content, variable.content, stored.size) == 0);
}

/// @param place  receives where the variable's value is known, or that it is not.
/// @return whether a store can keep the variable; says so when not.
static bool canBeKept(const CVariable &variable, const char *path, KnownWalk &known, std::size_t &place,
                      Report &report) {
    if (!isPlain(variable.type) || variable.content == nullptr) {
        report.add(Severity::warning, std::string("the variable ") + path + " has " +
                                          (variable.content == nullptr ? "no content" : "an unknown type") +
                                          ": it is neither stored nor retrieved");
        return false;
    }
    place = known.meet(path);
    if (place == KnownWalk::again) {
        report.add(Severity::warning, std::string("a second variable has the path ") + path +
                                          ": only the first is kept, give it another name");
        return false;
    }
    return true;
}

EAFResult StorageProvider::Location::collectChanges(CDatabase *database, Changes &changes, Report &report) {
    KnownWalk variables(known);
    bool isWhole = true;
    std::uint64_t bytes = 0;
    const EAFResult walked = walk(database, [&](CVariable &variable, const char *path) {
        std::size_t place = KnownWalk::unknown;
        if (!canBeKept(variable, path, variables, place, report)) {
            return;
        }
        const std::uint64_t size = contentSize(variable.type, variable.noOfElements);
        bytes += size;
        const Locked lock(variable);
        if (!lock.isHeld()) {
            report.add(Severity::error, std::string("the variable ") + path +
                                            " could not be locked: its earlier value stays in " + file);
            isWhole = false;
        } else if (place == KnownWalk::unknown || !holds(variable, known[place], size)) {
            changes.values.add({path, variable.type, variable.noOfElements,
                                static_cast<const unsigned char *>(variable.content), static_cast<std::size_t>(size)});
            changes.places.push_back(place);
        }
    });
    if (reserved != 0 && bytes > reserved) {
        report.add(Severity::warning, "the variables of " + file + " take " + std::to_string(bytes) +
                                          " bytes, reserved were " + std::to_string(reserved) + ": reserve more");
    }
    if (isError(walked)) {
        report.add(Severity::error,
                   "not every variable of " + file +
                       " could be walked: those that could are stored, see the traces before this one");
        return walked;
    }
    return isWhole ? eAF_S_OK : eAF_E_FAILED;
}

EAFResult StorageProvider::Location::writeChanges(CDatabase *database, Report &report) {
    Changes changes;
    const EAFResult collected = collectChanges(database, changes, report);
    const ValueViews values = changes.values.views();
    if (values.empty()) {
        return collected;
    }
    // Read again before the next store compares unless this write succeeds: one that failed may have reached the disk
    // all the same, and a store that went away meanwhile takes values only after that. What is stored is noted in room
    // made beforehand, so that it can be whatever memory is left.
    isRead = false;
    known.makeRoomFor(values, changes.places);
    const EAFResult written = store->writeViews(values, report);
    if (isError(written)) {
        return written;
    }
    for (std::size_t i = 0; i < values.size(); ++i) {
        known.put(values[i], changes.places[i]);
    }
    statistics.noOfValuesWritten = static_cast<std::uint32_t>(values.size());
    isRead = true;
    return collected;
}

/// Compared with what the store holds, which is read first unless it is known.
EAFResult StorageProvider::Location::storeChanges(CDatabase *database, Report &report) {
    const EAFResult compared = isRead && !store->isStale() ? eAF_S_OK : read(report);
    return isError(compared) ? compared : writeChanges(database, report);
}

EAFResult StorageProvider::Location::fill(CDatabase *database, Report &report) {
    KnownWalk variables(known);
    bool isWhole = true;
    const EAFResult walked = walk(database, [&](CVariable &variable, const char *path) {
        std::size_t place = KnownWalk::unknown;
        if (!canBeKept(variable, path, variables, place, report)) {
            return;
        }
        if (place == KnownWalk::unknown) {
            ++statistics.noOfValuesMissing;
            return;
        }
        const ValueView stored = known[place];
        if (stored.type != variable.type || stored.noOfElements != variable.noOfElements) {
            ++statistics.noOfValuesMismatched;
            report.add(Severity::warning, std::string("the variable ") + path + " is stored in " + file + " as " +
                                              describe(stored.type, stored.noOfElements) + ", expected is " +
                                              describe(variable.type, variable.noOfElements) +
                                              ": its default holds, the stored one stays until the next store");
            return;
        }
        const Locked lock(variable);
        if (!lock.isHeld()) {
            report.add(Severity::error,
                       std::string("the variable ") + path + " could not be locked: its default holds");
            isWhole = false;
            return;
        }
        if (stored.size != 0) {
            std::memcpy(variable.content, stored.content, stored.size);
        }
        CVariable_SetRetrieved(&variable, 1);
        ++statistics.noOfValuesRetrieved;
    });
    statistics.noOfValuesUnknown = static_cast<std::uint32_t>(known.size() - variables.noOfMet());
    if (statistics.noOfValuesUnknown != 0) {
        report.add(Severity::information, file + " holds " + std::to_string(statistics.noOfValuesUnknown) +
                                              " values of variables that are not registered: they are kept");
    }
    if (isError(walked)) {
        report.add(Severity::error,
                   "not every variable of " + file +
                       " could be walked: those that could are retrieved, see the traces before this one");
    }
    isUnreadable = !isWhole;
    return isError(walked) ? walked : isWhole ? eAF_S_OK : eAF_E_FAILED;
}

StorageProvider::StorageProvider(VoxTrace &trace, MakeStore makeStore)
    : m_trace(trace), m_makeStore(std::move(makeStore)) {}

StorageProvider::~StorageProvider() = default;

StorageProvider::Location *StorageProvider::find(unsigned long locationId, Report &report) const {
    const auto found = m_locations.find(locationId);
    if (found == m_locations.end()) {
        report.add(Severity::error, "no file was named for the storage location " + std::to_string(locationId) +
                                        ": name one before the providers are initialised");
        return nullptr;
    }
    return found->second.get();
}

EAFResult StorageProvider::setFile(unsigned long locationId, const char *file) {
    if (file == nullptr || file[0] == '\0') {
        log(m_trace, Severity::error, "SetFile", "no file name was given: name the file of the location");
        return eAF_E_INVALID_ARGUMENT;
    }
    return guarded(m_trace, "SetFile", locationId, [&] {
        TraceReport report(m_trace, "SetFile");
        const auto present = m_locations.find(locationId);
        if (present != m_locations.end() && present->second->isOpen) {
            report.add(Severity::error, "the storage location " + std::to_string(locationId) + " has " +
                                            present->second->file + " open: name " + file +
                                            " before it is initialised");
            return eAF_E_ALREADY_INITIALIZED;
        }
        auto location = std::make_unique<Location>();
        location->file = file;
        location->store = m_makeStore(locationId, location->file);
        m_locations.insert_or_assign(locationId, std::move(location));
        return eAF_S_OK;
    });
}

bool StorageProvider::isAnothersFile(unsigned long locationId, const char *file) const {
    for (const auto &[id, location] : m_locations) {
        if (id != locationId && file != nullptr && location->file == file) {
            return true;
        }
    }
    return false;
}

EAFResult StorageProvider::initialize(unsigned long locationId) {
    return guarded(m_trace, "Initialize", locationId, [&] {
        TraceReport report(m_trace, "Initialize");
        Location *location = find(locationId, report);
        return location != nullptr ? location->open(report) : eAF_E_UNKNOWN_LOCATION;
    });
}

EAFResult StorageProvider::reserve(unsigned long locationId, unsigned long size) {
    return guarded(m_trace, "ReserveWritableSpace", locationId, [&] {
        TraceReport report(m_trace, "ReserveWritableSpace");
        Location *location = find(locationId, report);
        if (location == nullptr) {
            return eAF_E_UNKNOWN_LOCATION;
        }
        location->reserved = size;
        return eAF_S_OK;
    });
}

EAFResult StorageProvider::storeAll(unsigned long locationId, CDatabase *database) {
    if (database == nullptr) {
        log(m_trace, Severity::error, "StoreAll", "no database was given: register the location first");
        return eAF_E_INVALID_ARGUMENT;
    }
    return guarded(m_trace, "StoreAll", locationId, [&] {
        TraceReport report(m_trace, "StoreAll");
        Location *location = find(locationId, report);
        if (location == nullptr) {
            return eAF_E_UNKNOWN_LOCATION;
        }
        location->statistics.noOfValuesWritten = 0;
        if (location->isUnreadable) {
            report.add(Severity::error, "nothing is stored in " + location->file +
                                            ", because it could not be read before: retrieve it first, or the defaults "
                                            "would replace what it holds");
            return eAF_E_NOT_INITIALIZED;
        }
        const EAFResult stored = location->storeChanges(database, report);
        // Found while writing: once more, against what is there now.
        return isError(stored) && location->store->isStale() ? location->storeChanges(database, report) : stored;
    });
}

EAFResult StorageProvider::retrieveAll(unsigned long locationId, CDatabase *database) {
    if (database == nullptr) {
        log(m_trace, Severity::error, "RetrieveAll", "no database was given: register the location first");
        return eAF_E_INVALID_ARGUMENT;
    }
    const EAFResult cleared = CDatabase_SetAsNotRetrieved(database);
    Location *location = nullptr;
    const EAFResult retrieved = guarded(m_trace, "RetrieveAll", locationId, [&] {
        TraceReport report(m_trace, "RetrieveAll");
        location = find(locationId, report);
        if (location == nullptr) {
            return eAF_E_UNKNOWN_LOCATION;
        }
        location->statistics = {location->statistics.noOfValuesWritten, 0, 0, 0, 0};
        location->isUnreadable = true;
        if (cleared == eAF_E_OUT_OF_MEMORY) {
            throw std::bad_alloc();
        }
        const EAFResult read = location->read(report);
        if (isError(read)) {
            report.add(Severity::error, location->file + " could not be read: the defaults hold, and nothing is stored "
                                                         "until a retrieve succeeds");
            return read;
        }
        return location->fill(database, report);
    });
    const EAFResult defaults = guarded(m_trace, "RetrieveAll", locationId,
                                       [database] { return CDatabase_SetNotRetrievedVariablesToDefault(database); });
    if (location != nullptr && defaults == eAF_E_OUT_OF_MEMORY) {
        location->isUnreadable = true;
    }
    return isError(retrieved) ? retrieved : isError(defaults) ? defaults : eAF_S_OK;
}

EAFResult StorageProvider::statistics(unsigned long locationId, SStorageStatistics *statistics) const {
    if (statistics == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const auto found = m_locations.find(locationId);
    if (found == m_locations.end()) {
        return eAF_E_UNKNOWN_LOCATION;
    }
    *statistics = found->second->statistics;
    return eAF_S_OK;
}

void StorageProvider::clear() {
    m_locations.clear();
}

} // namespace storage
