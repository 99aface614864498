/// @file
/// The module manager as ModuleInterface objects see it.
#pragma once

#include "AFExport.h"
#include "CModuleManager_c.h"

class ModuleInterface;

/// Turns a ModuleInterface into calls of CModuleManager_c.h; keeps nothing itself.
class AF_API CModuleManager {
public:
    /// The one instance, made on first use by whichever thread comes first.
    static CModuleManager &GetInstance();

    /// Registers the module, then its callback "<name>OnPhaseActivation" at priority NORMAL for the module's
    /// channel, batch and phases. When the callback is refused the module stays registered.
    /// @return the callback registration's code, or the module registration's error.
    /// @retval eAF_E_INVALID_ARGUMENT  null module; traced.
    EAFResult RegisterModule(ModuleInterface *module);

    /// Takes the module and its callbacks out of the registry.
    /// @return as CModuleManager_UnregisterModule.
    /// @retval eAF_E_INVALID_ARGUMENT  null module; not traced.
    EAFResult UnRegisterModule(ModuleInterface *module);

    /// Registers a further callback of a registered module for another priority, batch and list of phases.
    /// @return as CModuleManager_RegisterCallback.
    /// @retval eAF_E_INVALID_ARGUMENT  null module; traced.
    EAFResult RegisterCallbackVariant(ModuleInterface *module, ECallbackPriority priority, unsigned int batchId,
                                      unsigned int *phaseFilter, unsigned int noOfPhaseFilterElements);

    CModuleManager(const CModuleManager &) = delete;
    CModuleManager &operator=(const CModuleManager &) = delete;

private:
    CModuleManager() = default;
    ~CModuleManager() = default;
};
