// Objects, regions and a database of any shape, with names of any length and none: what is refused, which paths there
// are, what a walk visits, which values become defaults.
#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CDatabase.h"
#include "FuzzInput.h"
#include "Harness.h"
#include "TraceRecorder.h"

namespace {

using fuzz::FuzzInput;

constexpr int deepest = 4;
constexpr std::int32_t defaultValue = 77;

std::string cut(const std::string &text, std::size_t longest) {
    return text.substr(0, longest);
}

/// Short ones that collide, one that is too long for its record, none at all.
std::string nameFrom(FuzzInput &input, const char *letter) {
    const std::uint32_t which = input.below(12);
    if (which == 0) {
        return "";
    }
    const std::string name = letter + std::to_string(which % 6);
    return which == 1 ? name + std::string(input.below(200), 'x') : name;
}

/// What was built, as it should be found again.
struct Object {
    struct Variable {
        std::string name;
        CVariable *record = nullptr; ///< Of a plain one.
        bool hasDefault = false;
        std::vector<const Object *> nested; ///< None for a plain one; null where an array has no element.
        bool isPlain = true;
        std::uint64_t size = 4;
    };
    std::string name;
    CStorageObject record{};
    std::vector<Variable> variables;

    bool has(const std::string &variable) const {
        for (const Variable &each : variables) {
            if (!each.name.empty() && each.name == variable) {
                return true;
            }
        }
        return false;
    }
};

/// What a walk over all of it should do.
struct Walk {
    std::map<std::string, CVariable *> paths;
    std::vector<const Object::Variable *> visited;
    std::vector<std::string> visitedPaths; ///< In that order.
    long count = 0;

    /// @return whether it fails.
    bool object(const Object *object, const std::string &region, const std::string &parent) {
        if (object == nullptr || object->name.empty()) {
            return true;
        }
        const std::string path = parent.empty() ? object->name : parent + "/" + object->name;
        bool hasFailed = false;
        for (const Object::Variable &variable : object->variables) {
            if (!variable.isPlain) {
                for (const Object *nested : variable.nested) {
                    hasFailed = this->object(nested, region, path) || hasFailed;
                }
                continue;
            }
            ++count;
            if (variable.name.empty()) {
                return true;
            }
            std::string whole = region;
            whole.append("/").append(path).append("/").append(variable.name);
            paths[cut(whole, 511)] = variable.record;
            visited.push_back(&variable);
            visitedPaths.push_back(cut(whole, 511));
        }
        return hasFailed;
    }
};

/// What a record keeps for others. Nothing is left marked: it is the harness's.
void checkWords(CStorageObject &object, const std::string &name) {
    void *address = &object;
    std::uintptr_t data = 1;
    FUZZ_CHECK(CStorageObject_GetRawObjectContentAddress(&object, &address) == eAF_E_FAILED && address == nullptr,
               name);
    FUZZ_CHECK(CStorageObject_GetApplicationData(&object, &data) == eAF_E_FAILED && data == 0, name);
    FUZZ_CHECK(CStorageObject_SetRawObjectContentAddress(&object, &data) == eAF_S_OK, name);
    CStorageObject_SetApplicationData(&object, 7);
    FUZZ_CHECK(CStorageObject_GetRawObjectContentAddress(&object, &address) == eAF_S_OK && address == &data, name);
    FUZZ_CHECK(CStorageObject_GetApplicationData(&object, &data) == eAF_S_OK && data == 7, name);
    FUZZ_CHECK(CStorageObject_IsWritable(&object) == 1, name);
    CStorageObject_SetWritable(&object, 0);
    FUZZ_CHECK(CStorageObject_IsWritable(&object) == 0, name);
    FUZZ_CHECK(CStorageObject_ReserveSize(&object, 5) == eAF_S_OK && object.reservedSize == 5, name);
    for (const std::uint32_t mark : {1U, 0U}) {
        CStorageObject_SetDynamicallyAllocated(&object, mark);
        FUZZ_CHECK(CStorageObject_IsDynamicallyAllocated(&object) == mark, name);
    }
}

void checkWords(CStorageRegion &region, const std::string &name) {
    char *found = nullptr;
    FUZZ_CHECK(CStorageRegion_GetName(&region, &found) == (name.empty() ? eAF_E_FAILED : eAF_S_OK) && name == found,
               name);
    FUZZ_CHECK(CStorageRegion_GetLocationId(&region) == 1, name);
    unsigned long size = 1;
    FUZZ_CHECK(CStorageRegion_GetReservedSize(&region, &size) == eAF_S_OK && size == 0, name);
    FUZZ_CHECK(CStorageRegion_ReserveSize(&region, 9) == eAF_S_OK, name);
    FUZZ_CHECK(CStorageRegion_GetReservedSize(&region, &size) == eAF_S_OK && size == 9, name);
    for (const std::uint32_t mark : {1U, 0U}) {
        CStorageRegion_SetDynamicallyAllocated(&region, mark);
        FUZZ_CHECK(CStorageRegion_IsDynamicallyAllocated(&region) == mark, name);
    }
}

void checkWords(CVariable &variable, bool hasDefault) {
    void *address = &variable;
    FUZZ_CHECK(CVariable_GetContentAddress(&variable, &address) == eAF_S_OK && address == variable.content,
               variable.name);
    FUZZ_CHECK(CVariable_GetDefaultContentAddress(&variable, &address) == eAF_S_OK &&
                   (address != nullptr) == hasDefault,
               variable.name);
    FUZZ_CHECK(CVariable_GetNoOfElements(&variable) == 1 && CVariable_GetType(&variable) == TYPE_INT32, variable.name);
    const std::uint32_t mark = CVariable_IsDynamicallyAllocated(&variable);
    for (const std::uint32_t each : {1 - mark, mark}) {
        CVariable_SetDynamicallyAllocated(&variable, each);
        FUZZ_CHECK(CVariable_IsDynamicallyAllocated(&variable) == each, variable.name);
    }
}

/// Nothing in place of a record, a name or a place for the answer.
void checkNulls(CStorageObject &object) {
    SVariableDescriptor descriptor{nullptr, TYPE_INT32, 1, "V1", nullptr};
    FUZZ_CHECK(CStorageObject_CreateVariables(nullptr, &descriptor, 1) == eAF_E_INVALID_ARGUMENT, "no object");
    FUZZ_CHECK(CStorageObject_CreateVariables(&object, nullptr, 1) == eAF_E_INVALID_ARGUMENT, "no descriptors");
    CVariable *variable = nullptr;
    FUZZ_CHECK(CStorageObject_GetVariableByName(nullptr, "V1", &variable) == 0 && variable == nullptr, "no object");
    FUZZ_CHECK(CStorageObject_GetVariableByName(&object, nullptr, &variable) == 0 && variable == nullptr, "no name");
    FUZZ_CHECK(CStorageObject_GetVariableByName(&object, "V1", nullptr) == 0, "no place");
    FUZZ_CHECK(CStorageObject_IsDynamicallyAllocated(nullptr) == 0, "no object");
    const char *name = object.name;
    FUZZ_CHECK(CVariable_GetName(nullptr, &name) == eAF_E_INVALID_ARGUMENT && name == object.name, "no variable");
}

/// A parent that only carries the child's address: the child stays what it is.
void checkCarried(Object &child) {
    CStorageObject parent{};
    CStorageObject_Construct(&parent, "parent");
    const EAFResult expected = child.name.empty() ? eAF_E_FAILED : eAF_S_OK;
    FUZZ_CHECK(CStorageObject_AddObject(&parent, &child.record) == expected, child.name);
    CVariable *carrier = nullptr;
    if (expected == eAF_S_OK) {
        FUZZ_CHECK(CStorageObject_AddObject(&parent, &child.record) == eAF_E_NAME_NOT_UNIQUE, child.name);
        FUZZ_CHECK(CStorageObject_GetVariableByName(&parent, child.name.c_str(), &carrier) == 1, child.name);
        CStorageObject *carried = nullptr;
        FUZZ_CHECK(CVariable_GetContent(carrier, &carried) == eAF_S_OK && carried == &child.record, child.name);
    }
    FUZZ_CHECK(CStorageObject_GetNoOfVariables(&parent) == (expected == eAF_S_OK ? 1 : 0), child.name);
    CStorageObject_Destruct(&parent);
    const std::unique_ptr<CVariable[]> memory(carrier); // nobody else's any more
    FUZZ_CHECK(CStorageObject_GetNoOfVariables(&child.record) == child.variables.size(), child.name);
}

class Tree {
public:
    explicit Tree(FuzzInput &input) : m_input(input) {}

    Object *object(int depth) {
        m_objects.emplace_back();
        Object &made = m_objects.back();
        const std::string name = nameFrom(m_input, "O");
        made.name = cut(name, 119);
        CStorageObject_Construct(&made.record, name.c_str());
        for (std::uint32_t left = m_input.below(5); left > 0; --left) {
            switch (m_input.below(depth < deepest ? 5 : 3)) {
            case 0:
            case 1:
                createVariables(made);
                break;
            case 2:
                addVariable(made);
                break;
            case 3:
                addNested(made, depth);
                break;
            default:
                addArray(made, depth);
                break;
            }
        }
        check(made);
        checkWords(made.record, made.name);
        checkNulls(made.record);
        checkCarried(made);
        return &made;
    }

private:
    void createVariables(Object &object) {
        const std::uint32_t count = m_input.below(4);
        std::vector<std::string> names;
        std::vector<SVariableDescriptor> descriptors;
        std::vector<bool> hasDefault;
        static std::int32_t theDefault = defaultValue;
        for (std::uint32_t i = 0; i < count; ++i) {
            names.push_back(nameFrom(m_input, "V"));
            hasDefault.push_back(m_input.oneIn(2));
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            descriptors.push_back(
                {nullptr, TYPE_INT32, 1, names[i].c_str(), hasDefault[i] ? static_cast<void *>(&theDefault) : nullptr});
        }
        EAFResult expected = count == 0 ? eAF_E_INVALID_ARGUMENT : eAF_S_OK;
        const std::size_t before = object.variables.size();
        for (std::uint32_t i = 0; i < count && expected == eAF_S_OK; ++i) {
            // The whole name is looked for, the cut one is kept.
            if (object.has(names[i])) {
                expected = eAF_E_NAME_NOT_UNIQUE;
            } else {
                object.variables.push_back({cut(names[i], 119), nullptr, hasDefault[i], {}});
            }
        }
        const bool isOdd = m_input.oneIn(8);
        FUZZ_CHECK(CStorageObject_CreateVariables(isOdd ? nullptr : &object.record, descriptors.data(), 0) ==
                       eAF_E_INVALID_ARGUMENT,
                   "no variables");
        FUZZ_CHECK(CStorageObject_CreateVariables(&object.record, descriptors.data(), count) == expected,
                   std::to_string(expected));
        attach(object, before);
    }

    /// Finds the records of the variables that were made last, in the order that they are kept in.
    static void attach(Object &object, std::size_t first) {
        CListIterator iterator{};
        EAFResult code = CStorageObject_GetVariableIterator(&object.record, &iterator);
        for (std::size_t i = 0; code == eAF_S_OK; ++i) {
            CVariable *variable = nullptr;
            code = CStorageObject_GetNextVariable(&object.record, &variable, &iterator);
            FUZZ_CHECK(i < object.variables.size() && variable != nullptr, object.name);
            FUZZ_CHECK(code == (i + 1 == object.variables.size() ? eAF_W_NO_MORE_DATA : eAF_S_OK), object.name);
            if (i >= first) {
                object.variables[i].record = variable;
            }
            FUZZ_CHECK(object.variables[i].record == variable && object.variables[i].name == variable->name,
                       object.name);
        }
    }

    /// A record of the harness's own, refused or taken.
    bool add(Object &object, const Object::Variable &described, EVariableType type, std::uint32_t count,
             void *content) {
        m_variables.emplace_back();
        CVariable *variable = &m_variables.back();
        FUZZ_CHECK(CVariable_Construct(variable, content, type, count, described.name.c_str(), nullptr) == eAF_S_OK,
                   described.name);
        Object::Variable kept = described;
        kept.name = cut(described.name, 119);
        kept.record = variable;
        const EAFResult expected = kept.name.empty()       ? eAF_E_FAILED
                                   : object.has(kept.name) ? eAF_E_NAME_NOT_UNIQUE
                                                           : eAF_S_OK;
        FUZZ_CHECK(CStorageObject_AddVariable(&object.record, variable) == expected, described.name);
        if (expected == eAF_S_OK) {
            object.variables.push_back(kept);
        } else {
            CVariable_Destruct(variable);
        }
        return expected == eAF_S_OK;
    }

    void addVariable(Object &object) {
        FUZZ_CHECK(CStorageObject_AddVariable(&object.record, nullptr) == eAF_E_INVALID_ARGUMENT, "no variable");
        Object::Variable described;
        described.name = nameFrom(m_input, "V");
        add(object, described, TYPE_INT32, 1, nullptr);
    }

    void addNested(Object &object, int depth) {
        Object::Variable described;
        described.name = nameFrom(m_input, "N");
        described.isPlain = false;
        described.size = sizeof(void *);
        Object *child = this->object(depth + 1);
        described.nested = {child};
        add(object, described, TYPE_OBJECT, 1, &child->record); // refused, it goes with its variable
    }

    void addArray(Object &object, int depth) {
        Object::Variable described;
        described.name = nameFrom(m_input, "A");
        described.isPlain = false;
        const std::uint32_t count = m_input.below(4);
        described.size = sizeof(void *) * std::uint64_t{count};
        m_arrays.emplace_back(4, nullptr);
        std::vector<CStorageObject *> &elements = m_arrays.back();
        for (std::uint32_t i = 0; i < count; ++i) {
            Object *element = m_input.oneIn(6) ? nullptr : this->object(depth + 1);
            described.nested.push_back(element);
            elements[i] = element != nullptr ? &element->record : nullptr;
        }
        add(object, described, TYPE_OBJECT_ARRAY, count, elements.data());
    }

    void check(Object &object) {
        FUZZ_CHECK(CStorageObject_GetNoOfVariables(&object.record) == object.variables.size(), object.name);
        FUZZ_CHECK((CStorageObject_IsEmpty(&object.record) != 0) == object.variables.empty(), object.name);
        std::uint64_t size = 0;
        for (const Object::Variable &variable : object.variables) {
            size += variable.size;
        }
        unsigned long found = 1;
        FUZZ_CHECK(CStorageObject_GetSizeInBytes(&object.record, &found) == eAF_S_OK && found == size, object.name);
        const std::string wanted = nameFrom(m_input, "V");
        CVariable *variable = nullptr;
        const bool isThere = CStorageObject_GetVariableByName(&object.record, wanted.c_str(), &variable) == 1;
        FUZZ_CHECK(isThere == object.has(wanted) && isThere == (variable != nullptr), wanted);
        char *name = nullptr;
        FUZZ_CHECK(CStorageObject_GetName(&object.record, &name) == (object.name.empty() ? eAF_E_FAILED : eAF_S_OK) &&
                       object.name == name,
                   object.name);
    }

    FuzzInput &m_input;
    std::deque<Object> m_objects;
    std::deque<CVariable> m_variables;
    std::deque<std::vector<CStorageObject *>> m_arrays;
};

struct Region {
    std::string name;
    CStorageRegion record{};
    std::vector<const Object *> objects;
    bool isFiled = false;
};

void fill(Region &region, Tree &tree, FuzzInput &input) {
    const std::string name = nameFrom(input, "R");
    region.name = cut(name, 39);
    CStorageRegion_Construct(&region.record, name.c_str(), 1);
    for (std::uint32_t left = input.below(4); left > 0; --left) {
        Object *object = tree.object(0);
        EAFResult expected = object->name.empty() ? eAF_E_FAILED : eAF_S_OK;
        for (const Object *present : region.objects) {
            expected = present->name == object->name ? eAF_W_ALREADY_REGISTERED : expected;
        }
        FUZZ_CHECK(CStorageRegion_AddObject(&region.record, &object->record) == expected, object->name);
        if (expected == eAF_S_OK) {
            region.objects.push_back(object);
        } else {
            CStorageObject_Destruct(&object->record);
        }
    }
    FUZZ_CHECK(CStorageRegion_GetNoOfObjects(&region.record) == region.objects.size(), region.name);
    FUZZ_CHECK(CStorageRegion_IsEmpty(&region.record) == (region.objects.empty() ? 1 : 0), region.name);
    unsigned long size = 1;
    std::uint64_t expectedSize = 0;
    for (const Object *object : region.objects) {
        for (const Object::Variable &variable : object->variables) {
            expectedSize += variable.size;
        }
    }
    FUZZ_CHECK(CStorageRegion_GetSizeInBytes(&region.record, &size) == eAF_S_OK && size == expectedSize, region.name);
    checkWords(region.record, region.name);
}

/// The regions by name, and the variables that top-level objects hold: the first of each name.
void checkNames(CDatabase &database, const std::deque<Region> &regions) {
    std::map<std::string, const CStorageRegion *> byName;
    std::map<std::string, const CVariable *> variables;
    for (const Region &region : regions) {
        if (region.isFiled) {
            byName[region.name] = &region.record; // no two of one name are filed
        }
        for (const Object *object : region.isFiled ? region.objects : std::vector<const Object *>()) {
            for (const Object::Variable &variable : object->variables) {
                variables.try_emplace(variable.name, variable.record);
            }
        }
    }
    FUZZ_CHECK(CDatabase_GetNoOfRegions(&database) == byName.size(), std::to_string(byName.size()));
    for (const char *name : {"R0", "R1", "R2", "R3", "R4", "R5"}) {
        byName.try_emplace(name, nullptr);
    }
    for (const auto &[name, expected] : byName) {
        CStorageRegion *found = nullptr;
        FUZZ_CHECK(CDatabase_GetRegionByName(&database, name.c_str(), &found) ==
                           (expected != nullptr ? eAF_S_OK : eAF_E_UNKNOWN_REGION) &&
                       found == expected,
                   name);
    }
    for (const char *name : {"V0", "V1", "N1", "A1"}) {
        variables.try_emplace(name, nullptr);
    }
    variables.erase(""); // nobody asks for one without a name
    for (const auto &[name, expected] : variables) {
        CVariable *found = nullptr;
        FUZZ_CHECK(CDatabase_GetVariableByName(&database, name.c_str(), &found) ==
                           (expected != nullptr ? eAF_S_OK : eAF_E_UNKNOWN_VARIABLE) &&
                       found == expected,
                   name);
    }
}

std::vector<std::pair<const CVariable *, std::string>> met;

/// Fails now and then, which the walk takes no notice of.
EAFResult meet(CDatabase * /*database*/, CVariable *variable, const char *fullPath, const char *regionName,
               const char *objectPath, const char *variableName) {
    met.emplace_back(variable, fullPath);
    const std::string whole = std::string(regionName) + "/" + objectPath + "/" + variableName;
    FUZZ_CHECK(cut(whole, 511) == fullPath, whole);
    return met.size() % 3 == 0 ? eAF_E_FAILED : eAF_S_OK;
}

void checkVisits(CDatabase &database, const Walk &walk, EAFResult expected) {
    met.clear();
    FUZZ_CHECK(CDatabase_DoVariableOperation(&database, meet) == expected, "DoVariableOperation");
    FUZZ_CHECK(met.size() == walk.visited.size(), std::to_string(met.size()));
    for (std::size_t i = 0; i < met.size(); ++i) {
        FUZZ_CHECK(met[i].first == walk.visited[i]->record && met[i].second == walk.visitedPaths[i], met[i].second);
        checkWords(*walk.visited[i]->record, walk.visited[i]->hasDefault);
    }
}

void checkWalks(CDatabase &database, const std::deque<Region> &regions) {
    Walk walk;
    bool hasFailed = false;
    for (const Region &region : regions) {
        for (const Object *object : region.isFiled ? region.objects : std::vector<const Object *>()) {
            hasFailed = walk.object(object, region.name, "") || hasFailed;
        }
    }
    const EAFResult expected = hasFailed ? eAF_E_FAILED : eAF_S_OK;
    FUZZ_CHECK(CDatabase_UpdatePathHashTable(&database) == expected, "UpdatePathHashTable");
    FUZZ_CHECK(database.noOfVariablesProcessed == walk.count, std::to_string(walk.count));
    for (const auto &[path, variable] : walk.paths) {
        CVariable *found = nullptr;
        FUZZ_CHECK(CDatabase_GetVariableByPath(&database, path.c_str(), &found) == eAF_S_OK && found == variable, path);
        FUZZ_CHECK(path == variable->path, path);
    }
    CVariable *none = nullptr;
    FUZZ_CHECK(CDatabase_GetVariableByPath(&database, "R1/O1", &none) ==
                   (walk.paths.empty() ? eAF_E_VARIABLE_HASH_TABLE_EMPTY : eAF_E_UNKNOWN_VARIABLE),
               "no variable's path");

    checkVisits(database, walk, expected);

    for (const Object::Variable *variable : walk.visited) {
        *static_cast<std::int32_t *>(variable->record->content) = 5;
        CVariable_SetRetrieved(variable->record, 1);
    }
    FUZZ_CHECK(CDatabase_SetAsNotRetrieved(&database) == expected, "SetAsNotRetrieved");
    std::size_t i = 0;
    for (const Object::Variable *variable : walk.visited) {
        FUZZ_CHECK(CVariable_IsRetrieved(variable->record) == 0, variable->name);
        CVariable_SetRetrieved(variable->record, ++i % 3 == 0 ? 1 : 0);
    }
    FUZZ_CHECK(CDatabase_SetNotRetrievedVariablesToDefault(&database) == expected, "SetToDefault");
    i = 0;
    for (const Object::Variable *variable : walk.visited) {
        const bool isDefault = ++i % 3 != 0 && variable->hasDefault;
        FUZZ_CHECK(*static_cast<std::int32_t *>(variable->record->content) == (isDefault ? defaultValue : 5),
                   variable->name);
        FUZZ_CHECK(CVariable_IsRetrieved(variable->record) == 0, variable->name);
    }
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    test::TraceRecorder::reset(test::levelOf(eAF_W_WARNING));
    FuzzInput input(data, size);
    Tree tree(input);
    std::deque<Region> regions;
    CDatabase database{};
    CDatabase_Construct(&database, 8);
    for (std::uint32_t left = input.below(4); left > 0; --left) {
        regions.emplace_back();
        Region &region = regions.back();
        fill(region, tree, input);
        EAFResult expected = region.name.empty() ? eAF_E_FAILED : eAF_S_OK;
        for (const Region &present : regions) {
            expected = present.isFiled && present.name == region.name ? eAF_W_ALREADY_REGISTERED : expected;
        }
        FUZZ_CHECK(CDatabase_AddRegion(&database, &region.record) == expected, region.name);
        region.isFiled = expected == eAF_S_OK;
    }
    checkWalks(database, regions);
    checkNames(database, regions);
    const std::string gone = nameFrom(input, "R");
    EAFResult expected = eAF_E_UNKNOWN_REGION;
    for (Region &region : regions) {
        if (region.isFiled && region.name == gone) {
            region.isFiled = false;
            region.objects.clear();
            expected = eAF_S_OK;
        }
    }
    FUZZ_CHECK(CDatabase_RemoveRegion(&database, gone.c_str()) == expected, gone);
    CDatabase_Destruct(&database);
    for (Region &region : regions) {
        if (!region.isFiled) {
            CStorageRegion_Destruct(&region.record); // empty by now, where the database had it
        }
    }
    FUZZ_CHECK(test::TraceRecorder::openRecords() == 0, "a trace was left open");
    return 0;
}
