/// @file
/// The owner of a module's registration.
#pragma once

#include "AFExport.h"
#include "CModuleManager_c.h"

class ModuleInterface;

/// Picks the constructor that leaves the registration to a later call.
struct deferred_registration_tag {};

/// Holds the fact that a module is registered, and undoes it when it dies. Its results are logged at level 5
/// of the trace domain "ZEL.AF.MOD".
class AF_API CModuleManagerRegistrator {
public:
    /// Registers at once; the result is only logged.
    explicit CModuleManagerRegistrator(ModuleInterface &module);

    /// Registers nothing yet.
    CModuleManagerRegistrator(ModuleInterface &module, deferred_registration_tag);

    /// Takes the registration over; the other one holds none afterwards.
    CModuleManagerRegistrator(CModuleManagerRegistrator &&other) noexcept;

    /// Swaps: the other one now owns, and undoes when it dies, what this one held.
    CModuleManagerRegistrator &operator=(CModuleManagerRegistrator &&other) noexcept;

    CModuleManagerRegistrator(const CModuleManagerRegistrator &) = delete;
    CModuleManagerRegistrator &operator=(const CModuleManagerRegistrator &) = delete;

    /// Unregisters; lets no exception out.
    ~CModuleManagerRegistrator();

    /// Registers the module, once.
    /// @return as CModuleManager::RegisterModule.
    /// @retval eAF_W_ALREADY_REGISTERED  registered through this object already; the manager is not called.
    EAFResult Register();

    /// Unregisters what was registered through this object. A failed unregistration leaves the module counted as
    /// registered.
    /// @return as CModuleManager::UnRegisterModule.
    /// @retval eAF_E_NOT_REGISTERED  nothing is registered through this object; the manager is not called.
    EAFResult Unregister();

    /// Registers a further callback of the module.
    /// @return as CModuleManager::RegisterCallbackVariant; neither asks nor changes what Register did.
    EAFResult RegisterCallbackVariant(ECallbackPriority priority, unsigned int batchId, unsigned int *phaseFilter,
                                      unsigned int noOfPhaseFilterElements);

private:
    ModuleInterface *m_module;
    bool m_registered;
};
