// ModuleInterface and the registrator that each of them embeds; the two share one trace object.
#include "ModuleInterface.h"

#include <new>
#include <utility>

#include "AfResult.h"
#include "AfTrace.h"
#include "CModuleManager.h"
#include "DomainTrace.h"

namespace {

constexpr VoxTraceLevel unimplementedHandlerLevel = 1;
constexpr VoxTraceLevel registrationResultLevel = 5;

VoxTrace moduleTrace("ZEL.AF.MOD", 3, 256);

bool isModuleTraceGone = false;
const af::TraceEnd moduleTraceEnd{isModuleTraceGone};

/// Logs a text and, where there is one, a result.
void log(VoxTraceLevel level, const VoxTraceHeader &header, const char *text, const EAFResult *result) {
    af::logTo(moduleTrace, isModuleTraceGone, level, header, [text, result](std::ostream &message) {
        message << text;
        if (result != nullptr) {
            message << AfResult::toString(*result);
        }
    });
}

EAFResult unimplementedHandler(const VoxTraceHeader &header) {
    log(unimplementedHandlerLevel, header, "subscription to phase without implementation", nullptr);
    return eAF_E_NOT_IMPLEMENTED;
}

std::vector<unsigned int> copyOfFilter(const unsigned int *phaseFilter, unsigned int noOfPhaseFilterElements) {
    if (phaseFilter == nullptr) {
        return {};
    }
    return {phaseFilter, phaseFilter + noOfPhaseFilterElements};
}

} // namespace

// CModuleManagerRegistrator

CModuleManagerRegistrator::CModuleManagerRegistrator(ModuleInterface &module) : m_module(&module), m_registered(false) {
    Register();
}

CModuleManagerRegistrator::CModuleManagerRegistrator(ModuleInterface &module, deferred_registration_tag)
    : m_module(&module), m_registered(false) {}

CModuleManagerRegistrator::CModuleManagerRegistrator(CModuleManagerRegistrator &&other) noexcept
    : m_module(std::exchange(other.m_module, nullptr)), m_registered(std::exchange(other.m_registered, false)) {}

CModuleManagerRegistrator &CModuleManagerRegistrator::operator=(CModuleManagerRegistrator &&other) noexcept {
    std::swap(m_module, other.m_module);
    std::swap(m_registered, other.m_registered);
    return *this;
}

CModuleManagerRegistrator::~CModuleManagerRegistrator() {
    Unregister();
}

EAFResult CModuleManagerRegistrator::Register() {
    EAFResult result = eAF_W_ALREADY_REGISTERED;
    if (!m_registered) {
        result = CModuleManager::GetInstance().RegisterModule(m_module);
        m_registered = !af::isError(result);
    }
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    log(registrationResultLevel, header, "CModuleManagerRegistrator::Register() AfResult: ", &result);
    return result;
}

EAFResult CModuleManagerRegistrator::Unregister() {
    EAFResult result = eAF_E_NOT_REGISTERED;
    if (m_registered) {
        result = CModuleManager::GetInstance().UnRegisterModule(m_module);
        m_registered = af::isError(result);
    }
    static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};
    // The destructor's name stands here on every path; log readers look for it.
    log(registrationResultLevel, header, "~CModuleManagerRegistrator() AfResult: ", &result);
    return result;
}

EAFResult CModuleManagerRegistrator::RegisterCallbackVariant(ECallbackPriority priority, unsigned int batchId,
                                                             unsigned int *phaseFilter,
                                                             unsigned int noOfPhaseFilterElements) {
    return CModuleManager::GetInstance().RegisterCallbackVariant(m_module, priority, batchId, phaseFilter,
                                                                 noOfPhaseFilterElements);
}

// ModuleInterface

ModuleInterface::ModuleInterface(unsigned int id, const std::string &name, unsigned int radioChannelId,
                                 unsigned int batchId, const unsigned int *phaseFilter,
                                 unsigned int noOfPhaseFilterElements)
    : m_id(id), m_name(name), m_radioChannelId(radioChannelId), m_batchId(batchId),
      m_phaseFilter(copyOfFilter(phaseFilter, noOfPhaseFilterElements)), m_callback{this, &onPhaseActivationWrapper},
      m_registrator(*this) {}

ModuleInterface::ModuleInterface(deferred_registration_tag deferred, unsigned int id, const std::string &name,
                                 unsigned int radioChannelId, unsigned int batchId, const unsigned int *phaseFilter,
                                 unsigned int noOfPhaseFilterElements)
    : m_id(id), m_name(name), m_radioChannelId(radioChannelId), m_batchId(batchId),
      m_phaseFilter(copyOfFilter(phaseFilter, noOfPhaseFilterElements)), m_callback{this, &onPhaseActivationWrapper},
      m_registrator(*this, deferred) {}

ModuleInterface::~ModuleInterface() = default;

EAFResult ModuleInterface::onPhaseActivationWrapper(void *context, unsigned int phaseId, ECallbackPriority priority) {
    if (context == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "Phase activation called with null pointer.");
        return eAF_E_INVALID_ARGUMENT;
    }
    return static_cast<ModuleInterface *>(context)->onPhaseActivation(phaseId, priority);
}

EAFResult ModuleInterface::onPhaseActivation(unsigned int phaseId, ECallbackPriority /*priority*/) {
    // The three warm-restart handlers have no phase id: derived dispatchers alone reach them.
    switch (phaseId) {
    case 0:
        return onModuleRegisterStorageObjects();
    case 5:
        return onPhaseModuleStorageObjectsRetrieved();
    case 11:
        return onModuleInit();
    case 13:
        return onPhaseStart();
    case 16:
        return onPhaseStop();
    case 18:
        return onPhasePreFrameformatLoad();
    case 19:
        return onPhaseFrameformatLoad();
    case 20:
        return onPhasePostFrameformatLoad();
    case 21:
        return onPhaseEndFrameformatLoad();
    case 22:
        return onPhaseRestartTickScheduler();
    case 23:
        return onPhaseSuppressErrors();
    case 24:
        return onModuleRegisterImTi();
    case 26:
        return onPhaseSetRadioChannelNearEndFinished();
    case 27:
        return onPhasePreRadioRestartCold();
    case 28:
        return onPhasePreRadioRestartWarm();
    case 29:
        return onPhasePostRadioRestartCold();
    case 30:
        return onPhasePostRadioRestartWarm();
    case 31:
        return onPhaseDisableAlarmThread();
    case 32:
        return onPhasePreDspRecovery();
    case 33:
        return onPhaseDspRecoveryReloadFw();
    case 34:
        return onPhaseDspRecoveryReloadFf();
    case 35:
        return onPhaseDspRecoveryReconfig();
    case 36:
        return onPhasePostDspRecovery();
    case 37:
        return onPhaseEnableAlarmThread();
    default:
        return eAF_S_OK;
    }
}

#define AF_UNIMPLEMENTED_HANDLER(handler)                                                                              \
    EAFResult ModuleInterface::handler() {                                                                             \
        static const VoxTraceHeader header = {__FILE__, __LINE__, __func__};                                           \
        return unimplementedHandler(header);                                                                           \
    }

AF_UNIMPLEMENTED_HANDLER(onModuleRegisterStorageObjects)
AF_UNIMPLEMENTED_HANDLER(onModuleInit)
AF_UNIMPLEMENTED_HANDLER(onPhaseModuleStorageObjectsRetrieved)
AF_UNIMPLEMENTED_HANDLER(onPhasePostFrameformatLoad)
AF_UNIMPLEMENTED_HANDLER(onPhaseEndFrameformatLoad)
AF_UNIMPLEMENTED_HANDLER(onPhaseRestartTickScheduler)
AF_UNIMPLEMENTED_HANDLER(onModuleRegisterImTi)
AF_UNIMPLEMENTED_HANDLER(onWarmRestartWaitForHw)
AF_UNIMPLEMENTED_HANDLER(onWarmRestartInit)
AF_UNIMPLEMENTED_HANDLER(onWarmRestartWaitForSetInitCompleteRequest)
AF_UNIMPLEMENTED_HANDLER(onPhaseStart)
AF_UNIMPLEMENTED_HANDLER(onPhaseStop)
AF_UNIMPLEMENTED_HANDLER(onPhaseFrameformatLoad)
AF_UNIMPLEMENTED_HANDLER(onPhasePreFrameformatLoad)
AF_UNIMPLEMENTED_HANDLER(onPhaseSuppressErrors)
AF_UNIMPLEMENTED_HANDLER(onPhaseSetRadioChannelNearEndFinished)
AF_UNIMPLEMENTED_HANDLER(onPhasePreRadioRestartCold)
AF_UNIMPLEMENTED_HANDLER(onPhasePreRadioRestartWarm)
AF_UNIMPLEMENTED_HANDLER(onPhasePostRadioRestartCold)
AF_UNIMPLEMENTED_HANDLER(onPhasePostRadioRestartWarm)
AF_UNIMPLEMENTED_HANDLER(onPhaseDisableAlarmThread)
AF_UNIMPLEMENTED_HANDLER(onPhasePreDspRecovery)
AF_UNIMPLEMENTED_HANDLER(onPhaseDspRecoveryReloadFw)
AF_UNIMPLEMENTED_HANDLER(onPhaseDspRecoveryReloadFf)
AF_UNIMPLEMENTED_HANDLER(onPhaseDspRecoveryReconfig)
AF_UNIMPLEMENTED_HANDLER(onPhasePostDspRecovery)
AF_UNIMPLEMENTED_HANDLER(onPhaseEnableAlarmThread)

#undef AF_UNIMPLEMENTED_HANDLER

unsigned int ModuleInterface::getId() const {
    return m_id;
}

const std::string &ModuleInterface::getName() const {
    return m_name;
}

unsigned int ModuleInterface::getRadioChannelId() const {
    return m_radioChannelId;
}

unsigned int ModuleInterface::getBatchId() const {
    return m_batchId;
}

unsigned int *ModuleInterface::getPhaseFilter() {
    return m_phaseFilter.empty() ? nullptr : m_phaseFilter.data();
}

unsigned int ModuleInterface::getNoOfPhaseFilterElements() const {
    return static_cast<unsigned int>(m_phaseFilter.size());
}

SModuleCallback *ModuleInterface::getCallback() {
    return &m_callback;
}

EAFResult ModuleInterface::RegisterModule() {
    return m_registrator.Register();
}

EAFResult ModuleInterface::UnregisterModule() {
    return m_registrator.Unregister();
}

EAFResult ModuleInterface::RegisterCallbackVariant(ECallbackPriority priority, unsigned int batchId,
                                                   unsigned int *phaseFilter, unsigned int noOfPhaseFilterElements) {
    return m_registrator.RegisterCallbackVariant(priority, batchId, phaseFilter, noOfPhaseFilterElements);
}
