#include "Support/ControllerModule.h"

#include <cassert>
#include <vector>

#include "Support/PhaseCall.h"

namespace radio {

ControllerModule::ControllerModule(uint32_t moduleId) : ControllerModule(*Configuration_FindModule(moduleId)) {}

// Deferred: a module that registered here could be called before its derived part exists.
ControllerModule::ControllerModule(const SModuleConfiguration &row)
    : ModuleInterface(deferred_registration_tag{}, row.id, row.name, row.radioChannel, row.subscriptions[0].batchId,
                      row.subscriptions[0].phases, row.subscriptions[0].phaseCount),
      m_row(row) {
    assert(row.subscriptions[0].priority == NORMAL);
}

EAFResult ControllerModule::subscribe() {
    EAFResult result = RegisterModule();
    for (std::size_t i = 1; i < m_row.subscriptionCount && result < eAF_E_FAILED; ++i) {
        const SSubscription &subscription = m_row.subscriptions[i];
        std::vector<unsigned int> phaseIds(subscription.phases, subscription.phases + subscription.phaseCount);
        result = RegisterCallbackVariant(subscription.priority, subscription.batchId, phaseIds.data(),
                                         subscription.phaseCount);
    }
    return result;
}

EAFResult ControllerModule::onPhaseActivation(unsigned int phaseId, ECallbackPriority priority) {
    const auto handler = [](void *self, uint32_t phase, ECallbackPriority phasePriority) {
        return static_cast<ControllerModule *>(self)->ModuleInterface::onPhaseActivation(phase, phasePriority);
    };
    return PhaseCall_Run(&m_row, phaseId, priority, handler, this);
}

} // namespace radio
