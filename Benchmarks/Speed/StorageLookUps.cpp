// Looking variables up by path and by name.
#include <algorithm>
#include <cstring>
#include <list>
#include <random>
#include <stdexcept>

#include "CStorageManager.h"
#include "Comparison.h"
#include "StorageModel.h"
#include "StorageRows.h"
#include "StorageTables.h"
#include "TraceSites.h"
#include "VT_trace.h"

namespace speed {

namespace {

/// What is asked for, in an order in which no two variables that lie side by side follow each other. The texts are the
/// caller's, who has just made them or knows them: they lie as they are asked.
class Questions {
public:
    void add(const char *text) {
        m_offsets.push_back(m_texts.size());
        m_texts.insert(m_texts.end(), text, text + std::strlen(text) + 1);
    }
    std::size_t size() const { return m_offsets.size(); }
    const char *operator[](std::size_t place) const { return m_texts.data() + m_offsets[place]; }

private:
    std::vector<char> m_texts;
    std::vector<std::size_t> m_offsets;
};

/// A table for each location, asked in the order of registration as the library asks its own.
template <class Map>
struct Tables {
    std::vector<Map> maps{};
    std::size_t heap = 0;
};

struct Model {
    StorageModel::Shape shape{};
    unsigned serial = 0; ///< Of the StorageModel that it is of.
    Questions present{};
    Questions absent{};
    std::vector<const CVariable *> answers{}; ///< To those that are present.
    Tables<FlatMap> flat{};
    Tables<UnorderedMap> unordered{};
    Tables<GlibMap> glib{};
    Tables<OrderedMap> ordered{};
    std::vector<CVariable> records{};                  ///< Contiguous, for the scan.
    std::list<std::unique_ptr<CVariable>> scattered{}; ///< The same, as a list that takes them one by one has them.
    std::vector<std::string> names{};
};
std::unique_ptr<Model> theModel;

/// The last character, a digit, becomes a letter: as long and as far as the others, and not there.
std::string absentOne(const char *text) {
    std::string absent = text;
    absent.back() = 'x';
    return absent;
}

template <class Map, class Insert>
void fill(Tables<Map> &tables, StorageModel &model, Insert insert) {
    const std::size_t before = allocatedBytes();
    tables.maps.reserve(model.locations());
    for (std::size_t location = 0; location < model.locations(); ++location) {
        const bool isLast = location + 1 == model.locations();
        const std::size_t first = location * model.variablesPerLocation();
        const std::size_t end = isLast ? model.variables().size() : first + model.variablesPerLocation();
        tables.maps.emplace_back();
        for (std::size_t i = first; i < end; ++i) {
            insert(tables.maps.back(), StorageModel::pathOf(model.variables()[i]), model.variables()[i], end - first);
        }
    }
    tables.heap = allocatedBytes() - before;
}

void fillTables(Model &tables, StorageModel &model) {
    fill(tables.flat, model, [](FlatMap &map, const char *path, CVariable *variable, std::size_t size) {
        map.reserve(size);
        map.emplace(path, variable);
    });
    fill(tables.unordered, model, [](UnorderedMap &map, const char *path, CVariable *variable, std::size_t size) {
        map.reserve(size);
        map.insert(path, variable);
    });
    fill(tables.glib, model,
         [](GlibMap &map, const char *path, CVariable *variable, std::size_t /*size*/) { map.insert(path, variable); });
    fill(tables.ordered, model, [](OrderedMap &map, const char *path, CVariable *variable, std::size_t /*size*/) {
        map.emplace(path, variable);
    });
}

/// @return the model of that shape with everything that is asked of it; only one is there at a time.
Model &modelOf(const StorageModel::Shape &shape) {
    if (theModel != nullptr && !(theModel->shape == shape)) {
        theModel.reset(); // before the next one is made: two of a million do not fit
    }
    StorageModel &filed = StorageModel::of(shape);
    if (theModel != nullptr && theModel->serial == filed.serial()) {
        return *theModel;
    }
    theModel.reset();
    auto model = std::make_unique<Model>();
    model->shape = shape;
    model->serial = filed.serial();
    fillTables(*model, filed);
    std::vector<CVariable *> order = filed.variables();
    std::shuffle(order.begin(), order.end(),
                 std::mt19937(1)); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same order in every run
    for (CVariable *variable : order) {
        const char *path = StorageModel::pathOf(variable);
        model->present.add(path);
        model->absent.add(absentOne(path).c_str());
        model->answers.push_back(variable);
    }
    theModel = std::move(model);
    return *theModel;
}

// One look-up each. None is inlined into the loop that asks, and none is a template: a compiler that inlines the find
// of one and not of another would be what is measured.

using LookUp = const CVariable *(*)(const char *path);

[[gnu::noinline]] const CVariable *findInFlatMap(const char *path) {
    const FlatMap &map = theModel->flat.maps.front();
    const auto found = map.find(viewOf(path));
    return found == map.end() ? nullptr : found->second;
}

/// What the library has to ask beside: whether the access is to be logged, and whether the miss is to be traced.
[[gnu::noinline]] const CVariable *askAndFindInFlatMap(const char *path) {
    traceAsLibrary(path);
    const FlatMap &map = theModel->flat.maps.front();
    const auto found = map.find(viewOf(path));
    if (found != map.end()) {
        return found->second;
    }
    traceAsLibrary(path);
    return nullptr;
}

/// The path is hashed once, whatever the number of tables.
[[gnu::noinline]] const CVariable *findInFlatMaps(const char *path) {
    const absl::string_view key = viewOf(path);
    const std::vector<FlatMap> &maps = theModel->flat.maps;
    const std::size_t hash = maps.front().hash_function()(key);
    for (const FlatMap &map : maps) {
        const auto found = map.find(key, hash);
        if (found != map.end()) {
            return found->second;
        }
    }
    return nullptr;
}

[[gnu::noinline]] const CVariable *findByLibrary(const char *path) {
    CVariable *variable = nullptr;
    return CStorageManager_GetVariableByPath(path, &variable) < eAF_E_FAILED ? variable : nullptr;
}

[[gnu::noinline]] const CVariable *findInUnorderedMaps(const char *path) {
    for (const UnorderedMap &map : theModel->unordered.maps) {
        if (const CVariable *found = map.find(path)) {
            return found;
        }
    }
    return nullptr;
}

[[gnu::noinline]] const CVariable *findInGlibMaps(const char *path) {
    for (const GlibMap &map : theModel->glib.maps) {
        if (const CVariable *found = map.find(path)) {
            return found;
        }
    }
    return nullptr;
}

[[gnu::noinline]] const CVariable *findInOrderedMaps(const char *path) {
    for (const OrderedMap &map : theModel->ordered.maps) {
        const auto found = map.find(std::string_view(path));
        if (found != map.end()) {
            return found->second;
        }
    }
    return nullptr;
}

enum class Expected { hit, miss };

/// A figure of wrong answers would be worth nothing.
void check(const Model &model, LookUp lookUp, Expected expected) {
    const std::size_t step = 1 + model.present.size() / 1000;
    for (std::size_t i = 0; i < model.present.size(); i += step) {
        const bool isHit = expected == Expected::hit;
        if (lookUp(isHit ? model.present[i] : model.absent[i]) != (isHit ? model.answers[i] : nullptr)) {
            throw std::runtime_error(std::string("a wrong answer to ") + (isHit ? model.present[i] : model.absent[i]));
        }
    }
}

/// Each turn goes on where the one before ended: the first questions are not asked again before the last.
Body asking(const StorageModel::Shape &shape, Expected expected, LookUp lookUp, std::size_t (*heap)(const Model &)) {
    return [=, place = std::size_t{0}, checked = 0U](benchmark::State &state) mutable {
        const Model &model = modelOf(shape);
        if (std::exchange(checked, model.serial) != model.serial) {
            check(model, lookUp, expected);
        }
        const Questions &questions = expected == Expected::hit ? model.present : model.absent;
        std::size_t next = place % questions.size();
        for (auto _ : state) {
            benchmark::DoNotOptimize(lookUp(questions[next]));
            next = next + 1 == questions.size() ? 0 : next + 1;
        }
        place = next;
        state.counters["heap"] = static_cast<double>(heap(model));
    };
}

void addPathRow(std::uint32_t variables, std::uint32_t locations, Expected expected) {
    Work work;
    work.group = "storage";
    work.name = std::string("a variable by its path, ") + (expected == Expected::hit ? "hit" : "miss") + ", " +
                std::to_string(locations) + (locations == 1 ? " location" : " locations");
    work.size = variables;
    work.sizeUnit = "variables";
    work.aim = locations == 1 ? 1.3 : 0;
    const StorageModel::Shape shape{variables, locations};
    const auto add = [&](Role role, const char *who, LookUp lookUp, std::size_t (*heap)(const Model &)) {
        compare(work, role, who, asking(shape, expected, lookUp, heap));
    };
    add(Role::limit, "absl::flat_hash_map", locations == 1 ? findInFlatMap : findInFlatMaps,
        [](const Model &model) { return model.flat.heap; });
    add(Role::library, "CStorageManager_GetVariableByPath", findByLibrary,
        [](const Model &model) { return StorageModel::of(model.shape).heapOfPaths(); });
    if (locations == 1) {
        add(Role::peer, "absl::flat_hash_map and the disabled traces", askAndFindInFlatMap,
            [](const Model &model) { return model.flat.heap; });
    }
    add(Role::peer, "std::unordered_map", findInUnorderedMaps, [](const Model &model) { return model.unordered.heap; });
    add(Role::peer, "GHashTable", findInGlibMaps, [](const Model &model) { return model.glib.heap; });
    add(Role::peer, "std::map", findInOrderedMaps, [](const Model &model) { return model.ordered.heap; });
}

// By name: a scan.

/// The records that the interface lays down, one behind the other, and nothing but the comparison.
[[gnu::noinline]] const CVariable *scanRecords(const char *name) {
    for (const CVariable &record : theModel->records) {
        if (std::strcmp(record.name, name) == 0) {
            return &record;
        }
    }
    return nullptr;
}

[[gnu::noinline]] const CVariable *scanList(const char *name) {
    for (const std::unique_ptr<CVariable> &record : theModel->scattered) {
        if (std::strcmp(record->name, name) == 0) {
            return record.get();
        }
    }
    return nullptr;
}

[[gnu::noinline]] const CVariable *scanByLibrary(const char *name) {
    CVariable *variable = nullptr;
    return CStorageManager_GetVariableByName(name, &variable) < eAF_E_FAILED ? variable : nullptr;
}

/// What a user would write who keeps names of his own.
[[gnu::noinline]] const CVariable *scanStrings(const char *name) {
    const std::string_view wanted = name;
    const std::vector<std::string> &names = theModel->names;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == wanted) {
            return &theModel->records[i];
        }
    }
    return nullptr;
}

void fillRecords(Model &model) {
    if (!model.records.empty()) {
        return;
    }
    for (CVariable *variable : StorageModel::of(model.shape).variables()) {
        CVariable record{};
        std::memcpy(record.name, variable->name, sizeof record.name);
        model.records.push_back(record);
        model.scattered.push_back(std::make_unique<CVariable>(record));
        model.names.emplace_back(variable->name);
    }
}

/// A name that is not there is traced as an error: that record is another matter than the search.
class Silence {
public:
    Silence() : m_level(std::exchange(AF_trace.level, -1)) {}
    ~Silence() { AF_trace.level = m_level; }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

private:
    std::int32_t m_level;
};

Body scanning(const StorageModel::Shape &shape, Expected expected, LookUp lookUp) {
    return [=](benchmark::State &state) {
        const Silence silence;
        Model &model = modelOf(shape);
        fillRecords(model);
        CVariable *last = StorageModel::of(shape).variables().back();
        std::string name = StorageModel::nameOf(last);
        if (expected == Expected::miss) {
            name = absentOne(name.c_str());
        }
        const CVariable *answer = lookUp(name.c_str());
        const bool isRight = expected == Expected::hit ? answer != nullptr && name == answer->name : answer == nullptr;
        if (!isRight) {
            throw std::runtime_error("a wrong answer to " + name);
        }
        for (auto _ : state) {
            const char *asked = name.c_str();
            benchmark::DoNotOptimize(asked);
            benchmark::DoNotOptimize(lookUp(asked));
        }
    };
}

void addNameRow(std::uint32_t variables, Expected expected) {
    Work work;
    work.group = "storage";
    work.name =
        expected == Expected::hit ? "a variable by its name, hit, the last one" : "a variable by its name, miss";
    work.size = variables;
    work.sizeUnit = "variables";
    work.aim = 1.5;
    const StorageModel::Shape shape{variables, 1};
    compare(work, Role::limit, "records side by side, strcmp", scanning(shape, expected, scanRecords));
    compare(work, Role::library, "CStorageManager_GetVariableByName", scanning(shape, expected, scanByLibrary));
    compare(work, Role::peer, "records behind a list, strcmp", scanning(shape, expected, scanList));
    compare(work, Role::peer, "std::vector of std::string", scanning(shape, expected, scanStrings));
}

} // namespace

void endLookUps() {
    theModel.reset();
}

void addLookUpRows() {
    for (const Expected expected : {Expected::hit, Expected::miss}) {
        for (const std::uint32_t variables : {100U, 1'000U, 10'000U}) {
            addNameRow(variables, expected);
        }
    }
    for (const std::uint32_t locations : {1U, 8U}) {
        for (const std::uint32_t variables : {1'000U, 10'000U, 100'000U, 1'000'000U}) {
            for (const Expected expected : {Expected::hit, Expected::miss}) { // of one model: it takes a while to make
                addPathRow(variables, locations, expected);
            }
        }
    }
}

} // namespace speed
