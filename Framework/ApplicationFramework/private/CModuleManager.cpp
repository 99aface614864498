#include "CModuleManager.h"

#include <string>

#include "AfTrace.h"
#include "ModuleInterface.h"
#include "OutOfMemory.h"

namespace {

std::string callbackName(const ModuleInterface &module) {
    return module.getName() + "OnPhaseActivation";
}

} // namespace

CModuleManager &CModuleManager::GetInstance() {
    static CModuleManager instance;
    return instance;
}

EAFResult CModuleManager::RegisterModule(ModuleInterface *module) {
    if (module == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "Try to register null pointer");
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([module] {
        // Made first, and the module taken back below: running out of memory changes nothing. Any other refusal of
        // the callback leaves the module registered.
        const std::string name = callbackName(*module);
        const EAFResult result = CModuleManager_RegisterModule(module->getId(), module->getName().c_str());
        if (af::isError(result)) {
            return result;
        }
        const EAFResult added = CModuleManager_RegisterCallback(
            module->getId(), name.c_str(), module->getRadioChannelId(), module->getCallback(), NORMAL,
            module->getBatchId(), module->getPhaseFilter(), module->getNoOfPhaseFilterElements());
        if (added == eAF_E_OUT_OF_MEMORY && result == eAF_S_OK) {
            CModuleManager_UnregisterModule(module->getId());
        }
        return added;
    });
}

EAFResult CModuleManager::UnRegisterModule(ModuleInterface *module) {
    if (module == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    return CModuleManager_UnregisterModule(module->getId());
}

EAFResult CModuleManager::RegisterCallbackVariant(ModuleInterface *module, ECallbackPriority priority,
                                                  unsigned int batchId, unsigned int *phaseFilter,
                                                  unsigned int noOfPhaseFilterElements) {
    if (module == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "Try to register null pointer");
        return eAF_E_INVALID_ARGUMENT;
    }
    return af::withOutOfMemoryAsCode([&] {
        return CModuleManager_RegisterCallback(module->getId(), callbackName(*module).c_str(),
                                               module->getRadioChannelId(), module->getCallback(), priority, batchId,
                                               phaseFilter, noOfPhaseFilterElements);
    });
}
