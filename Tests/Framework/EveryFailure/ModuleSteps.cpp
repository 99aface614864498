// The framework, the module manager and the classes above it.
#include <cstring>

#include "ScenarioParts.h"
#include "WorkerReceives.h"

namespace test {
namespace {

std::uint32_t applicationsInitialized;

EAFResult initializeApplication() {
    ++applicationsInitialized;
    return eAF_S_OK;
}

const char *nameOfApplication() {
    return "Application";
}

EAFResult initializeOther() {
    ++applicationsInitialized;
    return eAF_S_OK;
}

SApplicationDescriptor firstApplication = {initializeApplication, nameOfApplication};
SApplicationDescriptor secondApplication = {initializeOther, nameOfApplication};

EAFResult performSystemReset(std::uint32_t /*first*/, std::uint32_t /*second*/, std::uint32_t /*third*/) {
    return eAF_S_OK;
}

EAFResult getSystemResetInfo(void *first, void *second, std::uint32_t third) {
    *static_cast<std::uint32_t *>(first) = third;
    *static_cast<std::uint32_t *>(second) = third;
    return eAF_S_OK;
}

std::uint32_t isColdReset(SResetProvider * /*self*/) {
    return 77;
}

EAFResult onPhase(void *context, std::uint32_t phaseId, ECallbackPriority priority) {
    static_cast<CallLog *>(context)->add(5000 + phaseId * 10 + priority);
    return eAF_S_OK;
}

/// What a step answers whose text was to be this one.
std::uint32_t isText(const char *text, const char *expected) {
    return text != nullptr && std::strcmp(text, expected) == 0 ? eAF_S_OK : wrongEffect;
}

/// A registering constructor answers nothing: the registry tells.
std::uint32_t isRegistered(std::uint32_t moduleId) {
    std::uint32_t state = 0;
    return CModuleManager_QueryModuleState(moduleId, &state) == eAF_S_OK ? eAF_S_OK : eAF_E_OUT_OF_MEMORY;
}

constexpr unsigned int allPhases[] = {13, 16};

} // namespace

ScenarioModule::ScenarioModule(std::uint32_t id, CallLog &log)
    : ModuleInterface(id, longName, ALL_RADIO_CHANNELS, 1, allPhases, 2), m_log(log) {}

ScenarioModule::ScenarioModule(deferred_registration_tag tag, std::uint32_t id, CallLog &log)
    : ModuleInterface(tag, id, longName, ALL_RADIO_CHANNELS, 1, allPhases, 2), m_log(log) {}

EAFResult ScenarioModule::onPhaseStart() {
    m_log.add(getId() * 100 + 13);
    return eAF_S_OK;
}

EAFResult ScenarioModule::onPhaseStop() {
    m_log.add(getId() * 100 + 16);
    return eAF_S_OK;
}

void Scenario::addFramework() {
    add("CApplicationFramework_SetServerPort", [] { return CApplicationFramework_SetServerPort(4711); });
    add("CApplicationFramework_GetServerPort", [] {
        return static_cast<std::uint32_t>(CApplicationFramework_GetServerPort());
    }).answers(4711);
    add("CApplicationFramework_FinalInitialization",
        [this] { return CApplicationFramework_FinalInitialization(m_parts->configuration.data()); });
    add("CApplicationFramework_Initialize", [] {
        applicationsInitialized = 0;
        return CApplicationFramework_Initialize();
    });
    // What the list answers is dropped: an application that it could not take is missing when the host starts.
    for (SApplicationDescriptor *application : {&firstApplication, &secondApplication}) {
        add("CApplicationFramework_RegisterApplication", [application] {
            return CApplicationFramework_RegisterApplication(application);
        }).ignores();
    }
    add("AfResult::toString", [] {
        return isText(AfResult::toString(eAF_E_APPLICATION_ERROR_DURING_PHASE_EXECUTION).c_str(),
                      "eAF_E_APPLICATION_ERROR_DURING_PHASE_EXECUTION");
    }).needs({thrownBadAlloc});
}

void Scenario::addModules() {
    Parts &p = *m_parts;
    add("CModuleManager_Initialize", [] { return CModuleManager_Initialize(); });
    add("CModuleManager_Start", [] { return CModuleManager_Start(); });
    add("CModuleManager_Stop", [] { return CModuleManager_Stop(); });
    for (const std::uint32_t id : {5u, 6u}) {
        add("CModuleManager_RegisterModule", [id] {
            return CModuleManager_RegisterModule(id, longName.c_str());
        }).needs();
    }
    add("CModuleManager_RegisterModule", [] {
        return CModuleManager_RegisterModule(5, "Other");
    }).answers(eAF_W_ALREADY_REGISTERED);
    for (const std::uint32_t id : {0u, 1u}) {
        add("CModuleManager_RegisterGroup", [id] {
            return CModuleManager_RegisterGroup(id, longName.c_str());
        }).needs();
    }
    add("CModuleManager_RegisterBatch", [] { return CModuleManager_RegisterBatch(1, longName.c_str()); }).needs();
    for (const std::uint32_t id : {13u, 16u}) {
        add("CModuleManager_RegisterPhase", [id] {
            return CModuleManager_RegisterPhase(id, longName.c_str());
        }).needs();
        add("CModuleManager_InsertPhaseIntoBatch", [id] {
            return CModuleManager_InsertPhaseIntoBatch(id, id == 13 ? 0 : 1, 1);
        }).needs();
    }
    add("CModuleManager_RegisterCallback", [&p] {
        p.callback = {&p.phases, onPhase};
        return CModuleManager_RegisterCallback(5, longName.c_str(), ALL_RADIO_CHANNELS, &p.callback, HIGH, 1,
                                               p.filter.data(), 2);
    }).needs();
    add("CModuleManager_RegisterCallback", [&p] {
        return CModuleManager_RegisterCallback(6, longName.c_str(), 2, &p.callback, LOWEST, 1, nullptr, 0);
    }).needs();
    add("CModuleManager_UnregisterModule", [] { return CModuleManager_UnregisterModule(6); });
    add("CModuleManager_GetNumberOfRegisteredModules", [] {
        return CModuleManager_GetNumberOfRegisteredModules();
    }).answers(1);
    add("CModuleManager_GetPhaseName", [] {
        const char *name = nullptr;
        const EAFResult result = CModuleManager_GetPhaseName(16, &name);
        return result != eAF_S_OK ? result : isText(name, longName.c_str());
    });
    add("CModuleManager_GetPriorityName", [] {
        const char *name = nullptr;
        const EAFResult result = CModuleManager_GetPriorityName(LOWER_THAN_NORMAL, &name);
        return result != eAF_S_OK ? result : isText(name, "LOWER_THAN_NORMAL");
    });
    add("getECallbackPriorityName", [] {
        return isText(getECallbackPriorityName(LOWER_THAN_NORMAL).c_str(), "LOWER_THAN_NORMAL");
    }).needs({thrownBadAlloc});
    add("CModuleManager_PerformSystemReset", [] {
        return CModuleManager_PerformSystemReset(1, 2, 3);
    }).answers(eAF_E_NOT_REGISTERED);
    add("CModuleManager_RegisterResetProvider", [&p] {
        p.resetProvider = {performSystemReset, getSystemResetInfo, isColdReset};
        return CModuleManager_RegisterResetProvider(&p.resetProvider);
    });
    add("CModuleManager_PerformSystemReset", [] { return CModuleManager_PerformSystemReset(1, 2, 3); });
    add("CModuleManager_GetSystemResetInfo", [] {
        std::uint32_t first = 0;
        std::uint32_t second = 0;
        const EAFResult result = CModuleManager_GetSystemResetInfo(&first, &second, 41);
        return result != eAF_S_OK || (first == 41 && second == 41) ? result : wrongEffect;
    });
    add("CModuleManager_IsColdReset", [] { return CModuleManager_IsColdReset(); }).answers(77);
    add("CModuleManager_GetStatistics", [] {
        return CModuleManager_GetStatistics(nullptr);
    }).answers(eAF_E_NOT_IMPLEMENTED);
    add("CModuleManager_GetModuleStatisticsByIndex", [] {
        return CModuleManager_GetModuleStatisticsByIndex(0, nullptr);
    }).answers(eAF_E_NOT_IMPLEMENTED);
    add("CModuleManager_GetModuleStatisticsByName", [] {
        return CModuleManager_GetModuleStatisticsByName("Fan", nullptr);
    }).answers(eAF_E_NOT_IMPLEMENTED);
    add("CModuleManager_ResetStatistics", [] { return CModuleManager_ResetStatistics(); });
}

void Scenario::addModuleClasses() {
    Parts &p = *m_parts;
    add("ModuleInterface::ModuleInterface",
        [&p] {
            p.module.emplace(21, p.phases);
            return isRegistered(21);
        })
        .needs({thrownBadAlloc, eAF_E_OUT_OF_MEMORY})
        .undoneBy([&p] { p.module.reset(); });
    add("ModuleInterface::ModuleInterface", [&p] {
        p.deferred.emplace(deferred_registration_tag{}, 22, p.phases);
        return eAF_S_OK;
    }).needs({thrownBadAlloc});
    add("ModuleInterface::RegisterModule", [&p] { return p.deferred->RegisterModule(); }).needs();
    add("ModuleInterface::RegisterModule", [&p] {
        return p.deferred->RegisterModule();
    }).answers(eAF_W_ALREADY_REGISTERED);
    add("ModuleInterface::RegisterCallbackVariant", [&p] {
        return p.deferred->RegisterCallbackVariant(LOWEST, 1, p.filter.data(), 1);
    }).needs();
    add("CModuleManager::RegisterCallbackVariant", [&p] {
        return CModuleManager::GetInstance().RegisterCallbackVariant(&*p.module, HIGHEST, 1, p.filter.data(), 1);
    }).needs();
    add("CModuleManager_RunGroup", [&p] {
        p.phases.count = 0;
        const EAFResult result = CModuleManager_RunGroup(0, 3);
        // HIGHEST to LOWEST, and as registered within each.
        return result != eAF_S_OK || p.phases.isExactly({2113, 5131, 2113, 2213, 2213}) ? result : wrongEffect;
    });
    add("CModuleManager_RunGroupWithReturnOption", [&p] {
        p.phases.count = 0;
        const EAFResult result = CModuleManager_RunGroupWithReturnOption(1, ALL_RADIO_CHANNELS, 1);
        return result != eAF_S_OK || p.phases.isExactly({5161, 2116, 2216}) ? result : wrongEffect;
    });
    add("ModuleInterface::getId", [&p] { return p.module->getId(); }).answers(21);
    add("ModuleInterface::getName", [&p] { return p.module->getName() == longName ? eAF_S_OK : wrongEffect; });
    add("ModuleInterface::getRadioChannelId",
        [&p] { return p.module->getRadioChannelId() == ALL_RADIO_CHANNELS ? eAF_S_OK : wrongEffect; });
    add("ModuleInterface::getBatchId", [&p] { return p.module->getBatchId(); }).answers(1);
    add("ModuleInterface::getNoOfPhaseFilterElements, ModuleInterface::getPhaseFilter", [&p] {
        return p.module->getNoOfPhaseFilterElements() == 2 && p.module->getPhaseFilter()[1] == 16 ? eAF_S_OK
                                                                                                  : wrongEffect;
    });
    add("ModuleInterface::getCallback", [&p] {
        return p.module->getCallback()->function == &ModuleInterface::onPhaseActivationWrapper ? eAF_S_OK : wrongEffect;
    });
    add("CModuleManager_QueryModuleState", [] {
        std::uint32_t state = 0;
        const EAFResult result = CModuleManager_QueryModuleState(22, &state);
        return result != eAF_S_OK || state == MODULE_STATE_PHASE_OK ? result : wrongEffect;
    });
    add("CModuleManager_SetModuleState", [] { return CModuleManager_SetModuleState(22, 42); });
    add("ModuleInterface::UnregisterModule", [&p] { return p.deferred->UnregisterModule(); });
    add("ModuleInterface::onPhaseActivationWrapper", [&p] {
        return ModuleInterface::onPhaseActivationWrapper(static_cast<ModuleInterface *>(&*p.deferred), 12, NORMAL) ==
                           eAF_S_OK &&
                       ModuleInterface::onPhaseActivationWrapper(static_cast<ModuleInterface *>(&*p.deferred), 37,
                                                                 NORMAL) == eAF_E_NOT_IMPLEMENTED
                   ? eAF_S_OK
                   : wrongEffect;
    });
    add("CModuleManager::GetInstance, CModuleManager::RegisterModule", [&p] {
        return CModuleManager::GetInstance().RegisterModule(&*p.deferred);
    }).needs();
    add("CModuleManager::UnRegisterModule",
        [&p] { return CModuleManager::GetInstance().UnRegisterModule(&*p.deferred); });
    add("CModuleManagerRegistrator::CModuleManagerRegistrator", [&p] {
        p.registrator.emplace(*p.deferred, deferred_registration_tag{});
        return eAF_S_OK;
    });
    add("CModuleManagerRegistrator::Register", [&p] { return p.registrator->Register(); }).needs();
    add("CModuleManagerRegistrator::RegisterCallbackVariant", [&p] {
        return p.registrator->RegisterCallbackVariant(LOW, 1, p.filter.data(), 2);
    }).needs();
    add("CModuleManagerRegistrator::CModuleManagerRegistrator", [&p] {
        p.movedTo.emplace(std::move(*p.registrator));
        return p.registrator->Unregister();
    }).answers(eAF_E_NOT_REGISTERED);
    add("CModuleManagerRegistrator::operator=", [&p] {
        *p.registrator = std::move(*p.movedTo);
        return p.movedTo->Unregister();
    }).answers(eAF_E_NOT_REGISTERED);
    add("CModuleManagerRegistrator::Unregister", [&p] { return p.registrator->Unregister(); });
    add("CModuleManagerRegistrator::CModuleManagerRegistrator",
        [&p] {
            p.movedTo.emplace(*p.deferred); // registers
            return isRegistered(22);
        })
        .needs()
        .undoneBy([&p] { p.movedTo.reset(); });
    add("CModuleManagerRegistrator::~CModuleManagerRegistrator", [&p] {
        p.movedTo.reset();
        return isRegistered(22);
    }).answers(eAF_E_OUT_OF_MEMORY); // it is registered no more
}

void Scenario::addEnd() {
    Parts &p = *m_parts;
    add("CApplicationFramework_Start", [&p] {
        p.phases.count = 0;
        const EAFResult result = CApplicationFramework_Start();
        return result != eAF_S_OK || (p.phases.count == 3 && applicationsInitialized == 2) ? result : wrongEffect;
    });
    add("CApplicationFramework_Stop", [] { return CApplicationFramework_Stop(); });
    // The task's end, of which the worker makes a part, comes in one order.
    add("CEventHandler_UnInitialize", [] {
        const WorkerReceives::Held held;
        return CEventHandler_UnInitialize();
    }).settles([] {
          return workersAre(0);
      }).onCall("mq_send", {eAF_S_OK}, "Could not stop the EventTask. Continuing anyway.");
    add("CApplicationFramework_UnInitialize", [] { return CApplicationFramework_UnInitialize(); });
    add("CApplicationFramework_Start", [] { return CApplicationFramework_Start(); }).answers(eAF_E_NOT_INITIALIZED);
    add("ModuleInterface::~ModuleInterface", [&p] {
        p.module.reset();
        return CModuleManager_GetNumberOfRegisteredModules();
    }).answers(1);
    add("CModuleManager_UnInitialize", [] { return CModuleManager_UnInitialize(); });
    add("CModuleManager_GetNumberOfRegisteredModules", [] {
        return CModuleManager_GetNumberOfRegisteredModules();
    }).answers(0);
}

} // namespace test
