// Filing the path of every variable.
#include <cstring>
#include <stdexcept>

#include "CStorageManager.h"
#include "Comparison.h"
#include "StorageModel.h"
#include "StorageRows.h"
#include "StorageTables.h"

namespace speed {

namespace {

/// The paths as they are when somebody has composed them already, in the order of registration.
class Paths {
public:
    explicit Paths(const StorageModel &model) : m_variables(model.variables()) {
        for (CVariable *variable : m_variables) {
            const char *path = StorageModel::pathOf(variable);
            m_texts.insert(m_texts.end(), path, path + std::strlen(path) + 1);
        }
    }

    template <class Visit>
    void visit(Visit visit) const {
        const char *path = m_texts.data();
        for (CVariable *variable : m_variables) {
            visit(path, variable);
            path += std::strlen(path) + 1;
        }
    }

private:
    const std::vector<CVariable *> &m_variables;
    std::vector<char> m_texts;
};

/// Of the model that stands.
const Paths &pathsOf(const StorageModel &model) {
    static std::unique_ptr<Paths> paths;
    static unsigned serial = 0;
    if (std::exchange(serial, model.serial()) != model.serial()) {
        paths = std::make_unique<Paths>(model);
    }
    return *paths;
}

StorageModel &modelOf(std::uint32_t variables) {
    endLookUps();
    return StorageModel::of({variables, 1});
}

void requireWhole(bool isWhole) {
    if (!isWhole) {
        throw std::runtime_error("not every path was filed");
    }
}

/// @param insert  files one path.
template <class Map, class Insert>
Body building(std::uint32_t variables, Insert insert) {
    return [=](benchmark::State &state) {
        const Paths &paths = pathsOf(modelOf(variables));
        std::size_t heap = 0;
        for (auto _ : state) {
            const std::size_t before = allocatedBytes();
            Map map;
            if constexpr (!std::is_same_v<Map, GlibMap> && !std::is_same_v<Map, OrderedMap>) {
                map.reserve(variables);
            }
            timed(state,
                  [&] { paths.visit([&](const char *path, CVariable *variable) { insert(map, path, variable); }); });
            heap = allocatedBytes() - before;
            benchmark::DoNotOptimize(&map);
        }
        state.counters["heap"] = static_cast<double>(heap);
    };
}

/// The library's table is as empty as after the registration of its location.
Body buildingByLibrary(std::uint32_t variables) {
    return [=](benchmark::State &state) {
        StorageModel &model = modelOf(variables);
        CHashTable &table = model.database(0).pathHashTable;
        std::size_t heap = 0;
        for (auto _ : state) {
            CHashTable_Destruct(&table);
            const std::size_t before = allocatedBytes();
            requireWhole(CHashTable_Construct(&table, variables) == GCL_OK);
            timed(state, [] { requireNoError("filing the paths", CStorageManager_UpdatePathHashTable()); });
            heap = allocatedBytes() - before;
            requireWhole(CHashTable_Count(&table) == variables);
        }
        state.counters["heap"] = static_cast<double>(heap);
    };
}

/// What a user's own walk would cost who keeps such records: each path is composed, and kept in its record too.
Body composingAndBuilding(std::uint32_t variables) {
    return [=](benchmark::State &state) {
        const StorageModel &model = modelOf(variables);
        std::vector<std::string> prefixes; // of each object
        for (std::size_t i = 0; i < model.variables().size(); i += StorageModel::variablesPerObject) {
            const std::string path = StorageModel::pathOf(model.variables()[i]);
            prefixes.push_back(path.substr(0, path.rfind('/') + 1));
        }
        for (auto _ : state) {
            FlatMap map;
            map.reserve(variables);
            timed(state, [&] {
                std::size_t i = 0;
                std::string path;
                for (CVariable *variable : model.variables()) {
                    path.assign(prefixes[i++ / StorageModel::variablesPerObject]).append(variable->name);
                    std::memcpy(variable->path, path.c_str(), path.size() + 1);
                    map.emplace(path, variable);
                }
            });
            requireWhole(map.size() == variables);
        }
    };
}

} // namespace

void addPathTableRows() {
    for (const std::uint32_t variables : {10'000U, 100'000U, 1'000'000U}) {
        Work work;
        work.group = "storage";
        work.name = "the path of every variable filed";
        work.size = variables;
        work.sizeUnit = "variables";
        work.aim = 2;
        const auto add = [&](Role role, const char *who, Body body) {
            compare(work, role, who, std::move(body), Clock::manual);
        };
        add(Role::limit, "absl::flat_hash_map of ready paths",
            building<FlatMap>(
                variables, [](FlatMap &map, const char *path, CVariable *variable) { map.emplace(path, variable); }));
        add(Role::library, "CStorageManager_UpdatePathHashTable", buildingByLibrary(variables));
        add(Role::peer, "absl::flat_hash_map, paths composed", composingAndBuilding(variables));
        add(Role::peer, "std::unordered_map of ready paths",
            building<UnorderedMap>(variables, [](UnorderedMap &map, const char *path, CVariable *variable) {
                map.insert(path, variable);
            }));
        add(Role::peer, "GHashTable of ready paths",
            building<GlibMap>(variables,
                              [](GlibMap &map, const char *path, CVariable *variable) { map.insert(path, variable); }));
        add(Role::peer, "std::map of ready paths",
            building<OrderedMap>(variables, [](OrderedMap &map, const char *path, CVariable *variable) {
                map.emplace(path, variable);
            }));
    }
}

} // namespace speed
