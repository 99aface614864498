/// @file
/// The base of this controller's modules written as classes.
#pragma once

#include <ModuleInterface.h>

#include "Configuration.h"

namespace radio {

/// Takes its id, name, channel and subscriptions from the module table, and shows each call in the timeline.
/// A derived class overrides the handler of each phase that its row of the table lists.
class ControllerModule : public ModuleInterface {
public:
    /// Registers the module and its subscriptions; called once the object is complete.
    EAFResult subscribe();

    EAFResult onPhaseActivation(unsigned int phaseId, ECallbackPriority priority) final;

protected:
    /// @param moduleId  one of the table's.
    explicit ControllerModule(uint32_t moduleId);

private:
    explicit ControllerModule(const SModuleConfiguration &row);

    const SModuleConfiguration &m_row;
};

} // namespace radio
