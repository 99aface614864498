#include "Host/Framework.h"

#include <AfResult.h>
#include <CApplicationFramework.h>
#include <CEventHandler.h>

#include <stdexcept>
#include <string>

#include "Configuration.h"

namespace radio {
namespace {

constexpr uint32_t maxNoOfListeners = 4;

void require(EAFResult result, const std::string &what) {
    if (result >= eAF_E_FAILED) {
        throw std::runtime_error(what + ": " + AfResult::toString(result) + "; the trace says why");
    }
}

} // namespace

Framework::Framework(int32_t port) {
    // The port first: the event service opens its own queue when it is initialized, and its name holds the port.
    require(CApplicationFramework_SetServerPort(port), "server port " + std::to_string(port));
    require(CModuleManager_Initialize(), "module manager");
    const EAFResult result = CEventHandler_Initialize(static_cast<uint32_t>(events().size()), maxNoOfListeners);
    if (result >= eAF_E_FAILED) {
        CEventHandler_UnInitialize();
    }
    require(result, "event service");
    CApplicationFramework_Initialize();
}

Framework::~Framework() {
    // Takes the event service down too.
    CApplicationFramework_UnInitialize();
    CModuleManager_UnInitialize();
}

void Framework::registerConfiguration() {
    for (const SNamedId &group : groups()) {
        require(CModuleManager_RegisterGroup(group.id, group.name), std::string("group ") + group.name);
    }
    for (const SNamedId &batch : batches()) {
        require(CModuleManager_RegisterBatch(batch.id, batch.name), std::string("batch ") + batch.name);
    }
    for (const SNamedId &phase : phases()) {
        require(CModuleManager_RegisterPhase(phase.id, phase.name), std::string("phase ") + phase.name);
    }
    // Before any module subscribes: a callback reaches only the phases that its batch holds by then.
    for (const SPhaseLink &link : phaseLinks()) {
        require(CModuleManager_InsertPhaseIntoBatch(link.phaseId, link.groupId, link.batchId),
                std::string("link of phase ") + findName(phases(), link.phaseId));
    }
    // Before any listener is added: one without a filter hears only what is registered by then.
    for (const SNamedId &event : events()) {
        require(CEventHandler_RegisterEvent(event.id, event.name), std::string("event ") + event.name);
    }
}

} // namespace radio
