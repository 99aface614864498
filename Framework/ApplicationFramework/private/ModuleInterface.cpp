// ModuleInterface and the registrator that each of them embeds; the two share one trace object.
#include "ModuleInterface.h"

#include <utility>

#include "AfTrace.h"
#include "CModuleManager.h"
#include "DomainTrace.h"

namespace {

constexpr VoxTraceLevel unimplementedHandlerLevel = 1;
constexpr VoxTraceLevel registrationResultLevel = 5;

VoxTrace moduleTrace("ZEL.AF.MOD", 3, 256);

bool isModuleTraceGone = false;
const af::TraceEnd moduleTraceEnd{isModuleTraceGone};

void logResult(const VoxTraceHeader &header, const char *text, EAFResult result) {
    af::logTo(moduleTrace, isModuleTraceGone, registrationResultLevel, header, text, &result);
}

EAFResult unimplementedHandler(const VoxTraceHeader &header) {
    af::logTo(moduleTrace, isModuleTraceGone, unimplementedHandlerLevel, header,
              "subscription to phase without implementation");
    return eAF_E_NOT_IMPLEMENTED;
}

struct PhaseHandler {
    unsigned int phaseId;
    EAFResult (ModuleInterface::*handler)();
};

// The three warm-restart handlers have no phase id: derived dispatchers alone reach them.
constexpr PhaseHandler phaseHandlers[] = {
    {0, &ModuleInterface::onModuleRegisterStorageObjects},
    {5, &ModuleInterface::onPhaseModuleStorageObjectsRetrieved},
    {11, &ModuleInterface::onModuleInit},
    {13, &ModuleInterface::onPhaseStart},
    {16, &ModuleInterface::onPhaseStop},
    {18, &ModuleInterface::onPhasePreFrameformatLoad},
    {19, &ModuleInterface::onPhaseFrameformatLoad},
    {20, &ModuleInterface::onPhasePostFrameformatLoad},
    {21, &ModuleInterface::onPhaseEndFrameformatLoad},
    {22, &ModuleInterface::onPhaseRestartTickScheduler},
    {23, &ModuleInterface::onPhaseSuppressErrors},
    {24, &ModuleInterface::onModuleRegisterImTi},
    {26, &ModuleInterface::onPhaseSetRadioChannelNearEndFinished},
    {27, &ModuleInterface::onPhasePreRadioRestartCold},
    {28, &ModuleInterface::onPhasePreRadioRestartWarm},
    {29, &ModuleInterface::onPhasePostRadioRestartCold},
    {30, &ModuleInterface::onPhasePostRadioRestartWarm},
    {31, &ModuleInterface::onPhaseDisableAlarmThread},
    {32, &ModuleInterface::onPhasePreDspRecovery},
    {33, &ModuleInterface::onPhaseDspRecoveryReloadFw},
    {34, &ModuleInterface::onPhaseDspRecoveryReloadFf},
    {35, &ModuleInterface::onPhaseDspRecoveryReconfig},
    {36, &ModuleInterface::onPhasePostDspRecovery},
    {37, &ModuleInterface::onPhaseEnableAlarmThread},
};

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
    logResult(header, "CModuleManagerRegistrator::Register() AfResult: ", result);
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
    logResult(header, "~CModuleManagerRegistrator() AfResult: ", result);
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
    for (const PhaseHandler &each : phaseHandlers) {
        if (each.phaseId == phaseId) {
            return (this->*each.handler)();
        }
    }
    return eAF_S_OK;
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
