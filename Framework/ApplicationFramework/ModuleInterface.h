/// @file
/// The base of modules written as classes.
#pragma once

#include <string>
#include <vector>

#include "AFExport.h"
#include "CModuleManagerRegistrator.h"
#include "CModuleManager_c.h"

/// A module registers itself for its lifetime and overrides the handler of each phase in its filter. A
/// handler that is listed and not overridden fails its phase with eAF_E_NOT_IMPLEMENTED, logged at level 1 of
/// the trace domain "ZEL.AF.MOD". Handlers run on the thread that runs the group.
class AF_API ModuleInterface {
public:
    /// Registers before it returns, so a group that runs meanwhile meets a half-built module: derived classes
    /// with state of their own use the deferred constructor. The result is only traced.
    /// @param radioChannelId  1 to 4 or ALL_RADIO_CHANNELS.
    /// @param phaseFilter     phase ids, copied; not read when the count is 0. An empty filter means every
    ///                        phase of the batch; null counts as empty.
    ModuleInterface(unsigned int id, const std::string &name, unsigned int radioChannelId, unsigned int batchId,
                    const unsigned int *phaseFilter, unsigned int noOfPhaseFilterElements);

    /// The same without registering: the derived class calls RegisterModule when it is ready.
    ModuleInterface(deferred_registration_tag, unsigned int id, const std::string &name, unsigned int radioChannelId,
                    unsigned int batchId, const unsigned int *phaseFilter, unsigned int noOfPhaseFilterElements);

    ModuleInterface(const ModuleInterface &) = delete;
    ModuleInterface &operator=(const ModuleInterface &) = delete;

    /// Unregisters first, then frees name and filter.
    virtual ~ModuleInterface();

    /// Hands the phase to its handler, without the priority. A phase without a handler gives eAF_S_OK.
    /// The number beside each handler below is its phase id.
    virtual EAFResult onPhaseActivation(unsigned int phaseId, ECallbackPriority priority);

    virtual EAFResult onModuleRegisterStorageObjects();             ///< 0
    virtual EAFResult onModuleInit();                               ///< 11
    virtual EAFResult onPhaseModuleStorageObjectsRetrieved();       ///< 5
    virtual EAFResult onPhasePostFrameformatLoad();                 ///< 20
    virtual EAFResult onPhaseEndFrameformatLoad();                  ///< 21
    virtual EAFResult onPhaseRestartTickScheduler();                ///< 22
    virtual EAFResult onModuleRegisterImTi();                       ///< 24
    virtual EAFResult onWarmRestartWaitForHw();                     ///< none: for derived dispatchers only
    virtual EAFResult onWarmRestartInit();                          ///< none: for derived dispatchers only
    virtual EAFResult onWarmRestartWaitForSetInitCompleteRequest(); ///< none: for derived dispatchers only
    virtual EAFResult onPhaseStart();                               ///< 13
    virtual EAFResult onPhaseStop();                                ///< 16
    virtual EAFResult onPhaseFrameformatLoad();                     ///< 19
    virtual EAFResult onPhasePreFrameformatLoad();                  ///< 18
    virtual EAFResult onPhaseSuppressErrors();                      ///< 23
    virtual EAFResult onPhaseSetRadioChannelNearEndFinished();      ///< 26
    virtual EAFResult onPhasePreRadioRestartCold();                 ///< 27
    virtual EAFResult onPhasePreRadioRestartWarm();                 ///< 28
    virtual EAFResult onPhasePostRadioRestartCold();                ///< 29
    virtual EAFResult onPhasePostRadioRestartWarm();                ///< 30
    virtual EAFResult onPhaseDisableAlarmThread();                  ///< 31
    virtual EAFResult onPhasePreDspRecovery();                      ///< 32
    virtual EAFResult onPhaseDspRecoveryReloadFw();                 ///< 33
    virtual EAFResult onPhaseDspRecoveryReloadFf();                 ///< 34
    virtual EAFResult onPhaseDspRecoveryReconfig();                 ///< 35
    virtual EAFResult onPhasePostDspRecovery();                     ///< 36
    virtual EAFResult onPhaseEnableAlarmThread();                   ///< 37

    /// What the module was constructed with.
    unsigned int getId() const;
    const std::string &getName() const;
    unsigned int getRadioChannelId() const;
    unsigned int getBatchId() const;
    unsigned int *getPhaseFilter(); ///< The stored ids; null when the filter is empty.
    unsigned int getNoOfPhaseFilterElements() const;
    SModuleCallback *getCallback(); ///< The record that the registry keeps by address; this object's own.

    /// Registers the module with its callback.
    /// @return as CModuleManagerRegistrator::Register.
    EAFResult RegisterModule();

    /// Takes the module and its callbacks out of the registry.
    /// @return as CModuleManagerRegistrator::Unregister.
    EAFResult UnregisterModule();

    /// Registers a further callback of the module.
    /// @return as CModuleManagerRegistrator::RegisterCallbackVariant.
    EAFResult RegisterCallbackVariant(ECallbackPriority priority, unsigned int batchId, unsigned int *phaseFilter,
                                      unsigned int noOfPhaseFilterElements);

    /// What the registry calls: context is the module.
    /// @retval eAF_E_INVALID_ARGUMENT  null context; traced.
    static EAFResult onPhaseActivationWrapper(void *context, unsigned int phaseId, ECallbackPriority priority);

private:
    unsigned int m_id;
    std::string m_name;
    unsigned int m_radioChannelId;
    unsigned int m_batchId;
    std::vector<unsigned int> m_phaseFilter;
    SModuleCallback m_callback;
    // Last: it registers with all of the above in place, and unregisters before any of it goes.
    CModuleManagerRegistrator m_registrator;
};
