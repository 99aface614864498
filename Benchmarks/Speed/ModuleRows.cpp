// Runs of a group: what calling the modules costs, and how it grows.
#include <glib.h>

#include <algorithm>
#include <array>
#include <boost/signals2.hpp>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "CModuleManager_c.h"
#include "Comparison.h"
#include "EventService.h"

using namespace speed;

namespace {

constexpr std::uint32_t group = 5;
constexpr std::uint32_t batch = 1;

/// What a run is made of.
struct Shape {
    std::uint32_t phases;
    std::uint32_t modules;
    std::uint32_t callbacksOfModule; ///< In each phase.
    bool isShuffled;                 ///< Whether the callbacks are registered in another order than the modules.

    bool operator==(const Shape &other) const {
        return phases == other.phases && modules == other.modules && callbacksOfModule == other.callbacksOfModule &&
               isShuffled == other.isShuffled;
    }
    std::uint64_t callbacks() const { return std::uint64_t{phases} * modules * callbacksOfModule; }
};

struct Module {
    SModuleCallback callback{};
    std::uint64_t calls = 0;
    std::uint64_t sum = 0;
};

/// Every column's callback.
EAFResult called(void *context, std::uint32_t phase, ECallbackPriority priority) {
    auto *module = static_cast<Module *>(context);
    ++module->calls;
    module->sum += phase + priority;
    return eAF_S_OK;
}

std::vector<Module> makeModules(std::uint32_t count) {
    std::vector<Module> modules(count);
    for (Module &module : modules) {
        module.callback = {&module, called};
    }
    return modules;
}

/// In which order the callbacks of a phase are registered, and called, as indexes of modules.
std::vector<std::uint32_t> callOrder(const Shape &shape) {
    std::vector<std::uint32_t> order;
    for (std::uint32_t i = 0; i < shape.callbacksOfModule; ++i) {
        for (std::uint32_t module = 0; module < shape.modules; ++module) {
            order.push_back(module);
        }
    }
    if (shape.isShuffled) {
        std::shuffle(order.begin(), order.end(),
                     std::mt19937(1)); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    }
    return order;
}

void requireCalls(benchmark::State &state, const std::vector<Module> &modules, const Shape &shape,
                  std::uint64_t before) {
    const std::uint64_t calls =
        std::accumulate(modules.begin(), modules.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const Module &module) { return sum + module.calls; });
    if (calls - before != static_cast<std::uint64_t>(state.iterations()) * shape.callbacks()) {
        state.SkipWithError("not every callback was called once");
    }
}

/// The module manager with the modules of a shape. It stays between the turns of a row: some take longer to register
/// than to run a hundred times.
class Registry {
public:
    static Registry &of(const Shape &shape) {
        static std::unique_ptr<Registry> current;
        if (current == nullptr || !(current->m_shape == shape)) {
            current.reset();
            current = std::make_unique<Registry>(shape);
        }
        return *current;
    }

    explicit Registry(const Shape &shape) : m_shape(shape), modules(makeModules(shape.modules)) {
        CModuleManager_UnInitialize();
        require("module manager", CModuleManager_Initialize());
        require("group", CModuleManager_RegisterGroup(group, "Speed"));
        require("batch", CModuleManager_RegisterBatch(batch, "Speed"));
        for (std::uint32_t phase = 0; phase < shape.phases; ++phase) {
            require("phase", CModuleManager_RegisterPhase(firstPhase + phase, "Phase"));
            require("phase of the batch", CModuleManager_InsertPhaseIntoBatch(firstPhase + phase, group, batch));
        }
        for (std::uint32_t module = 0; module < shape.modules; ++module) {
            require("module", CModuleManager_RegisterModule(firstModule + module, "Module"));
        }
        for (const std::uint32_t module : callOrder(shape)) {
            require("callback",
                    CModuleManager_RegisterCallback(firstModule + module, "ModuleOnPhaseActivation", ALL_RADIO_CHANNELS,
                                                    &modules[module].callback, NORMAL, batch, nullptr, 0));
        }
    }
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;
    ~Registry() { CModuleManager_UnInitialize(); }

    static constexpr std::uint32_t firstPhase = 100;
    static constexpr std::uint32_t firstModule = 1000;

private:
    Shape m_shape;

public:
    std::vector<Module> modules;
};

Body runGroup(const Shape &shape) {
    return [shape](benchmark::State &state) {
        Registry &registry = Registry::of(shape);
        const std::uint64_t before =
            std::accumulate(registry.modules.begin(), registry.modules.end(), std::uint64_t{0},
                            [](std::uint64_t sum, const Module &module) { return sum + module.calls; });
        for (auto _ : state) {
            CModuleManager_RunGroup(group, ALL_RADIO_CHANNELS);
        }
        requireCalls(state, registry.modules, shape, before);
    };
}

/// The limit: the same calls, one after the other.
Body callDirectly(const Shape &shape) {
    return [shape](benchmark::State &state) {
        std::vector<Module> modules = makeModules(shape.modules);
        std::vector<const SModuleCallback *> callbacks;
        for (const std::uint32_t module : callOrder(shape)) {
            callbacks.push_back(&modules[module].callback);
        }
        for (auto _ : state) {
            for (std::uint32_t phase = 0; phase < shape.phases; ++phase) {
                for (const SModuleCallback *callback : callbacks) {
                    callback->function(callback->context, Registry::firstPhase + phase, NORMAL);
                }
            }
        }
        requireCalls(state, modules, shape, 0);
    };
}

Body emitSignals(const Shape &shape) {
    return [shape](benchmark::State &state) {
        using Signal = boost::signals2::signal<void(std::uint32_t, ECallbackPriority)>;
        std::vector<Module> modules = makeModules(shape.modules);
        std::vector<Signal> phases(shape.phases);
        for (Signal &phase : phases) {
            for (const std::uint32_t module : callOrder(shape)) {
                const SModuleCallback *callback = &modules[module].callback;
                phase.connect([callback](std::uint32_t id, ECallbackPriority priority) {
                    callback->function(callback->context, id, priority);
                });
            }
        }
        for (auto _ : state) {
            for (std::uint32_t phase = 0; phase < shape.phases; ++phase) {
                phases[phase](Registry::firstPhase + phase, NORMAL);
            }
        }
        requireCalls(state, modules, shape, 0);
    };
}

/// GLib's hooks take one argument: the phase stands beside the callback.
struct Hook {
    const SModuleCallback *callback;
    std::uint32_t phase;
};

void callHook(void *data) {
    const auto *hook = static_cast<const Hook *>(data);
    hook->callback->function(hook->callback->context, hook->phase, NORMAL);
}

Body invokeHooks(const Shape &shape) {
    return [shape](benchmark::State &state) {
        std::vector<Module> modules = makeModules(shape.modules);
        const std::vector<std::uint32_t> order = callOrder(shape);
        std::vector<Hook> hooks;
        hooks.reserve(order.size() * shape.phases); // they are pointed to
        std::vector<GHookList> phases(shape.phases);
        for (std::uint32_t phase = 0; phase < shape.phases; ++phase) {
            g_hook_list_init(&phases[phase], sizeof(GHook));
            for (const std::uint32_t module : order) {
                hooks.push_back({&modules[module].callback, Registry::firstPhase + phase});
                GHook *hook = g_hook_alloc(&phases[phase]);
                hook->data = &hooks.back();
                hook->func = reinterpret_cast<void *>(callHook);
                g_hook_append(&phases[phase], hook);
            }
        }
        for (auto _ : state) {
            for (GHookList &phase : phases) {
                g_hook_list_invoke(&phase, FALSE);
            }
        }
        for (GHookList &phase : phases) {
            g_hook_list_clear(&phase);
        }
        requireCalls(state, modules, shape, 0);
    };
}

Work workOf(const std::string &name, const Shape &shape, double aimNanoseconds) {
    Work work{"modules", name};
    work.parts = shape.callbacks();
    work.partUnit = "callback";
    work.aimNanoseconds = aimNanoseconds;
    return work;
}

void addRun(const std::string &name, const Shape &shape, double aimNanoseconds) {
    const Work work = workOf(name, shape, aimNanoseconds);
    compare(work, Role::limit, "direct loop", callDirectly(shape));
    compare(work, Role::library, "library", runGroup(shape));
    compare(work, Role::peer, "Boost.Signals2", emitSignals(shape));
    compare(work, Role::peer, "GHookList", invokeHooks(shape));
}

void addGrowth(const std::string &name, std::uint32_t size, const std::string &unit, const Shape &shape) {
    Work work = workOf(name, shape, 0);
    work.size = size;
    work.sizeUnit = unit;
    compare(work, Role::limit, "direct loop", callDirectly(shape));
    compare(work, Role::library, "library", runGroup(shape));
}

} // namespace

void speed::addModuleRows() {
    constexpr double aimNanoseconds = 100;
    addRun("a run of 10 phases, 100 modules with one callback in each", {10, 100, 1, false}, aimNanoseconds);
    addRun("the same, callbacks registered in another order than modules", {10, 100, 1, true}, 0);
    constexpr std::array<std::uint32_t, 4> sizes{10, 100, 1000, 10000};
    for (const std::uint32_t size : sizes) {
        addGrowth("one phase, growing with modules of one callback", size, "modules", {1, size, 1, false});
    }
    for (const std::uint32_t size : sizes) {
        addGrowth("one phase, 10 modules, growing with their callbacks", size, "callbacks", {1, 10, size / 10, false});
    }
    for (const std::uint32_t size : sizes) {
        addGrowth("10 modules of one callback, growing with phases", size, "phases", {size, 10, 1, false});
    }
}
