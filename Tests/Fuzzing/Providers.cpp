// The storage providers as a host has them: their flat operations and their tables, on locations, files and variables
// of the fuzzer's choice, against a map of what each store holds.
#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CFileStorage.h"
#include "CSqliteStorage.h"
#include "Harness.h"
#include "StoredInput.h"
#include "TraceRecorder.h"
#include "VariableType.h"

namespace {

using fuzz::Bytes;
using fuzz::FuzzInput;

constexpr std::uint32_t noOfLocations = 3;
constexpr std::uint32_t noOfNames = 6;
constexpr std::uint32_t noOfTypes = TYPE_OBJECT;

struct Provider {
    EAFResult (*setFile)(unsigned long locationId, const char *fileName);
    IStorageProvider *(*getProvider)();
    EAFResult (*getStatistics)(unsigned long locationId, SStorageStatistics *statistics);
    EAFResult (*uninitialize)();
    bool isFileOfOne; ///< No two locations may share a file.
};

constexpr Provider providers[] = {
    {CFileStorage_SetFile, CFileStorage_GetProvider, CFileStorage_GetStatistics, CFileStorage_UnInitialize, true},
    {CSqliteStorage_SetFile, CSqliteStorage_GetProvider, CSqliteStorage_GetStatistics, CSqliteStorage_UnInitialize,
     false}};

const fuzz::Folder &folder() {
    static const fuzz::Folder theFolder;
    return theFolder;
}

struct Value {
    EVariableType type = TYPE_INT8;
    std::uint32_t noOfElements = 0;
    Bytes content;

    bool isLike(const Value &other) const { return type == other.type && noOfElements == other.noOfElements; }
    bool operator==(const Value &other) const { return isLike(other) && content == other.content; }
};

using Values = std::map<std::string, Value>;

Bytes contentFrom(FuzzInput &input, std::size_t size) {
    Bytes content = input.bytes(size);
    content.resize(size);
    return content;
}

/// The variables that one firmware has in a location.
class Firmware {
public:
    explicit Firmware(FuzzInput &input) {
        CStorageRegion_Construct(&m_region, "R", 1);
        CStorageObject_Construct(&m_object, "O");
        CDatabase_Construct(&m_database, noOfNames);
        for (std::uint32_t name = 0; name < noOfNames; ++name) {
            if (!input.oneIn(3)) {
                add(input, "V" + std::to_string(name), name);
            }
        }
        FUZZ_CHECK(CStorageRegion_AddObject(&m_region, &m_object) == eAF_S_OK, "AddObject");
        FUZZ_CHECK(CDatabase_AddRegion(&m_database, &m_region) == eAF_S_OK, "AddRegion");
    }
    ~Firmware() {
        CDatabase_Destruct(&m_database);
        CStorageRegion_Destruct(&m_region);
        CStorageObject_Destruct(&m_object);
    }
    Firmware(const Firmware &) = delete;
    Firmware &operator=(const Firmware &) = delete;

    CDatabase *database() { return &m_database; }

    void change(FuzzInput &input) {
        if (!m_variables.empty()) {
            Variable &variable = m_variables[input.below(static_cast<std::uint32_t>(m_variables.size()))];
            const Bytes content = contentFrom(input, variable.content.size());
            std::copy(content.begin(), content.end(), variable.content.begin());
        }
    }

    /// @return what a store of all of them leaves, and how many values it takes; kept is what was there.
    std::uint32_t storeInto(Values &kept) const {
        std::uint32_t noOfChanges = 0;
        for (const Variable &variable : m_variables) {
            const auto found = kept.find(variable.path);
            if (found == kept.end() || !(found->second == variable.value())) {
                kept[variable.path] = variable.value();
                ++noOfChanges;
            }
        }
        return noOfChanges;
    }

    /// Checks what a retrieve has left, and counts what it should have.
    void checkRetrieved(const Values &kept, SStorageStatistics &expected) const {
        std::uint32_t noOfMet = 0;
        for (const Variable &variable : m_variables) {
            const auto found = kept.find(variable.path);
            const bool isThere = found != kept.end();
            const bool isRetrieved = isThere && found->second.isLike(variable.value());
            noOfMet += isThere ? 1 : 0;
            expected.noOfValuesRetrieved += isRetrieved ? 1 : 0;
            expected.noOfValuesMissing += isThere ? 0 : 1;
            expected.noOfValuesMismatched += isThere && !isRetrieved ? 1 : 0;
            FUZZ_CHECK(variable.holds(isRetrieved ? found->second.content : variable.defaults), variable.path);
            FUZZ_CHECK(CVariable_IsRetrieved(variable.record) == 0, variable.path); // the last walk takes it back
        }
        expected.noOfValuesUnknown = static_cast<std::uint32_t>(kept.size()) - noOfMet;
    }

private:
    struct Variable {
        std::string path;
        EVariableType type;
        std::uint32_t noOfElements;
        Bytes content; ///< A byte at least, so that it has an address.
        Bytes defaults;
        std::size_t size;
        CVariable *record;

        Value value() const {
            const auto end = content.begin() + static_cast<std::ptrdiff_t>(size);
            return {type, noOfElements, Bytes(content.begin(), end)};
        }
        bool holds(const Bytes &expected) const {
            return std::equal(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size), expected.begin());
        }
    };

    /// A name has mostly the type that it has in every firmware; else another, or one of as many bytes.
    void add(FuzzInput &input, const std::string &name, std::uint32_t number) {
        auto type = static_cast<EVariableType>(input.oneIn(8) ? input.below(noOfTypes) : number * 7 % noOfTypes);
        const bool isCounted = storage::isArray(type) || type == TYPE_STRING;
        std::uint32_t noOfElements = isCounted ? input.oneIn(8) ? input.below(20) : 3 : 1;
        const auto size = static_cast<std::size_t>(storage::contentSize(type, noOfElements));
        if (input.oneIn(3)) {
            type = TYPE_UINT8_ARRAY;
            noOfElements = static_cast<std::uint32_t>(size);
        }
        m_variables.push_back({"R/O/" + name, type, noOfElements, contentFrom(input, std::max<std::size_t>(size, 1)),
                               contentFrom(input, std::max<std::size_t>(size, 1)), size, nullptr});
        Variable &variable = m_variables.back();
        SVariableDescriptor descriptor{variable.content.data(), type, noOfElements, name.c_str(),
                                       variable.defaults.data()};
        FUZZ_CHECK(CStorageObject_CreateVariables(&m_object, &descriptor, 1) == eAF_S_OK, name);
        FUZZ_CHECK(CStorageObject_GetVariableByName(&m_object, name.c_str(), &variable.record) == 1, name);
    }

    std::deque<Variable> m_variables;
    CStorageObject m_object{};
    CStorageRegion m_region{};
    CDatabase m_database{};
};

class Walk {
public:
    explicit Walk(FuzzInput &input) : m_input(input), m_provider(input.any(providers)) {
        folder().clear();
        for (Location &location : m_locations) {
            location.firmware = std::make_unique<Firmware>(input);
        }
    }
    ~Walk() { FUZZ_CHECK(m_provider.uninitialize() == eAF_S_OK, "UnInitialize"); }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    void step() {
        const std::uint32_t id = m_input.below(noOfLocations);
        switch (m_input.below(16)) {
        case 0:
        case 1:
            setFile(id);
            break;
        case 2:
            initialize(id);
            break;
        case 3:
        case 4:
        case 5:
            m_locations[id].firmware->change(m_input);
            break;
        case 6:
        case 7:
        case 8:
            store(id);
            break;
        case 9:
        case 10:
            retrieve(id);
            break;
        case 11:
            m_locations[id].firmware = std::make_unique<Firmware>(m_input);
            break;
        case 12:
            FUZZ_CHECK(table().ReserveWritableSpace(id, m_input.word()) == knownOr(id, eAF_S_OK), "Reserve");
            break;
        case 13:
            restart();
            break;
        case 14:
            odd(id);
            break;
        default:
            break;
        }
        checkStatistics(id);
    }

private:
    struct Location {
        std::string file; ///< Empty: none was named.
        bool isOpen = false;
        SStorageStatistics statistics{};
        std::unique_ptr<Firmware> firmware;
    };

    IStorageProvider &table() const { return *m_provider.getProvider(); }
    EAFResult knownOr(std::uint32_t id, EAFResult code) const {
        return m_locations[id].file.empty() ? eAF_E_UNKNOWN_LOCATION : code;
    }
    /// What a store holds. Locations share a database, each with values of its own.
    Values &kept(std::uint32_t id) { return m_kept[{m_locations[id].file, m_provider.isFileOfOne ? 0 : id}]; }

    void setFile(std::uint32_t id) {
        static constexpr const char *names[] = {"a", "b", "c", "a.1", "b.new", "c.lock"};
        const std::string file = folder().file(m_input.any(names));
        const bool isBeside = file.find('.', file.rfind('/')) != std::string::npos;
        const bool isTaken = m_provider.isFileOfOne && isAnothers(id, file.substr(0, file.find('.', file.rfind('/'))));
        if (isBeside && !isTaken) {
            return; // what a store has left beside itself there is no store of its own
        }
        Location &location = m_locations[id];
        const EAFResult expected = isTaken           ? eAF_E_INVALID_ARGUMENT
                                   : location.isOpen ? eAF_E_ALREADY_INITIALIZED
                                                     : eAF_S_OK;
        FUZZ_CHECK(m_provider.setFile(id, file.c_str()) == expected, file);
        if (expected == eAF_S_OK) {
            location.file = file;
            location.statistics = {};
        }
    }

    bool isAnothers(std::uint32_t id, const std::string &file) const {
        for (std::uint32_t other = 0; other < noOfLocations; ++other) {
            if (other != id && m_locations[other].file == file) {
                return true;
            }
        }
        return false;
    }

    void initialize(std::uint32_t id) {
        FUZZ_CHECK(table().Initialize(id) == knownOr(id, eAF_S_OK), std::to_string(id));
        m_locations[id].isOpen = !m_locations[id].file.empty();
    }

    void store(std::uint32_t id) {
        Location &location = m_locations[id];
        FUZZ_CHECK(table().StoreAll(id, location.firmware->database(), m_input.byte()) == knownOr(id, eAF_S_OK),
                   std::to_string(id));
        if (!location.file.empty()) {
            location.isOpen = true;
            location.statistics.noOfValuesWritten = location.firmware->storeInto(kept(id));
        }
    }

    void retrieve(std::uint32_t id) {
        Location &location = m_locations[id];
        FUZZ_CHECK(table().RetrieveAll(id, location.firmware->database(), m_input.byte()) == knownOr(id, eAF_S_OK),
                   std::to_string(id));
        SStorageStatistics retrieved{};
        if (location.file.empty()) {
            location.firmware->checkRetrieved({}, retrieved); // every variable has its default all the same
            return;
        }
        location.isOpen = true;
        retrieved.noOfValuesWritten = location.statistics.noOfValuesWritten;
        location.firmware->checkRetrieved(kept(id), retrieved);
        location.statistics = retrieved;
    }

    /// As after the end of the process and a new start, which names the files anew.
    void restart() {
        FUZZ_CHECK(m_provider.uninitialize() == eAF_S_OK, "UnInitialize");
        for (Location &location : m_locations) {
            location.file.clear();
            location.isOpen = false;
            location.statistics = {};
        }
    }

    void odd(std::uint32_t id) const {
        FUZZ_CHECK(m_provider.setFile(id, nullptr) == eAF_E_INVALID_ARGUMENT, "no file");
        FUZZ_CHECK(m_provider.setFile(id, "") == eAF_E_INVALID_ARGUMENT, "no file");
        FUZZ_CHECK(m_provider.getStatistics(id, nullptr) == eAF_E_INVALID_ARGUMENT, "no statistics");
        FUZZ_CHECK(table().StoreAll(id, nullptr, 0) == eAF_E_INVALID_ARGUMENT, "no database");
        FUZZ_CHECK(table().RetrieveAll(id, nullptr, 0) == eAF_E_INVALID_ARGUMENT, "no database");
        FUZZ_CHECK(m_provider.getProvider() == &table(), "another table");
    }

    void checkStatistics(std::uint32_t id) const {
        SStorageStatistics found{9, 9, 9, 9, 9};
        FUZZ_CHECK(m_provider.getStatistics(id, &found) == knownOr(id, eAF_S_OK), std::to_string(id));
        const SStorageStatistics &expected = m_locations[id].statistics;
        FUZZ_CHECK(m_locations[id].file.empty() || shown(found) == shown(expected),
                   shown(found) + ", expected " + shown(expected));
    }
    static std::string shown(const SStorageStatistics &counted) {
        return std::to_string(counted.noOfValuesWritten) + " written, " + std::to_string(counted.noOfValuesRetrieved) +
               " retrieved, " + std::to_string(counted.noOfValuesMismatched) + " mismatched, " +
               std::to_string(counted.noOfValuesMissing) + " missing, " + std::to_string(counted.noOfValuesUnknown) +
               " unknown";
    }

    FuzzInput &m_input;
    const Provider m_provider;
    std::array<Location, noOfLocations> m_locations;
    std::map<std::pair<std::string, std::uint32_t>, Values> m_kept;
};

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    test::TraceRecorder::reset(0, 0);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    Walk walk(input);
    for (int steps = 0; steps < 100 && !input.isAtEnd(); ++steps) {
        walk.step();
    }
    return 0;
}
