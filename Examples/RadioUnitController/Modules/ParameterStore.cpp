#include "Modules/ParameterStore.h"

#include <CStorageManager.h>
#include <InterfaceBroker.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Support/IGainControl.h"
#include "Support/PhaseCall.h"
#include "Support/StoredValue.h"

namespace radio {
namespace {

// What a unit comes with from the factory. The variables point at these; they are never changed.
std::array<char, 16> defaultSerialNumber{"RU-4711"};
std::array<double, 4> defaultCarriers{3410.0, 3510.0, 3610.0, 3710.0}; // MHz
std::array<float, 4> defaultGains{27.F, 30.F, 30.F, 27.F};             // dB; the outer channels share filters
std::array<unsigned char, 4> defaultFanCurve{20, 40, 70, 100};         // percent at 40, 50, 60, 70 degrees
float defaultLoadLimit = 8.F;
uint32_t defaultMemoryLimit = 64; // MiB
float defaultTilt = -2.F;         // degrees

constexpr const char *parameters[] = {
    "Cfg/Radio/SerialNumber",  "Cfg/Radio/Starts",        "Cfg/Radio/Carriers",
    "Cfg/Radio/Gains",         "Cfg/Radio/Limits/Load",   "Cfg/Radio/Limits/FreeMemory",
    "Cfg/Radio/Antenna1/Tilt", "Cfg/Radio/Antenna2/Tilt", "Cfg/Radio/FanCurve",
};

EAFResult create(CStorageObject &object, std::vector<SVariableDescriptor> variables) {
    return CStorageObject_CreateVariables(&object, variables.data(), variables.size());
}

} // namespace

ParameterStore::ParameterStore(Storage &storage, Arrivals &arrivals, bool withFanCurve)
    : ControllerModule(MODULE_PARAMETER_STORE), m_storage(storage), m_arrivals(arrivals), m_withFanCurve(withFanCurve),
      m_listener(LISTENER_PARAMETER_STORE, {EVENT_STORE_PARAMETERS},
                 [this](uint32_t eventId, const void * /*data*/) { return onEvent(eventId); }) {}

ParameterStore::~ParameterStore() = default;

EAFResult ParameterStore::onModuleRegisterStorageObjects() {
    CStorageRegion_Construct(&m_region, "Cfg", LocationConfiguration);
    CStorageObject_Construct(&m_radio, "Radio");
    CStorageObject_Construct(&m_limits, "Limits");
    for (std::size_t i = 0; i < m_antennas.size(); ++i) {
        CStorageObject_Construct(&m_antennas[i], ("Antenna" + std::to_string(i + 1)).c_str());
        create(m_antennas[i], {{&m_tilts[i], TYPE_FLOAT, 1, "Tilt", &defaultTilt}});
        m_antennaList[i] = &m_antennas[i];
    }
    EAFResult result = create(m_limits, {{&m_loadLimit, TYPE_FLOAT, 1, "Load", &defaultLoadLimit},
                                         {&m_memoryLimit, TYPE_UINT32, 1, "FreeMemory", &defaultMemoryLimit}});
    std::vector<SVariableDescriptor> variables{
        {m_serialNumber.data(), TYPE_STRING, static_cast<uint32_t>(m_serialNumber.size()), "SerialNumber",
         defaultSerialNumber.data()},
        {&m_starts, TYPE_UINT32, 1, "Starts", nullptr},
        {m_carriers.data(), TYPE_DOUBLE_ARRAY, 4, "Carriers", defaultCarriers.data()},
        {m_gains.data(), TYPE_FLOAT_ARRAY, 4, "Gains", defaultGains.data()},
        // The content of an object's variable is the object itself; an array holds their addresses.
        {&m_limits, TYPE_OBJECT, 1, "Limits", nullptr},
        {m_antennaList.data(), TYPE_OBJECT_ARRAY, static_cast<uint32_t>(m_antennaList.size()), "Antennas", nullptr},
    };
    if (m_withFanCurve) {
        variables.push_back({m_fanCurve.data(), TYPE_UINT8_ARRAY, 4, "FanCurve", defaultFanCurve.data()});
    }
    result = result < eAF_E_FAILED ? create(m_radio, variables) : result;
    result = result < eAF_E_FAILED ? CStorageRegion_AddObject(&m_region, &m_radio) : result;
    result = result < eAF_E_FAILED ? CStorageManager_RegisterRegion(&m_region) : result;
    note(result < eAF_E_FAILED ? "region Cfg registered" : "region Cfg was refused; the trace says why");
    return result;
}

EAFResult ParameterStore::onPhaseModuleStorageObjectsRetrieved() {
    const StorageResult result = m_storage.retrieve();
    ++m_starts; // nobody else knows of it yet
    if (!result.isGood) {
        note("the store can not be used, the defaults hold; the trace says why and what to do");
        return eAF_W_WARNING;
    }
    note(std::to_string(result.retrieved) + " values retrieved, " + std::to_string(result.missing) + " by default");
    return eAF_S_OK;
}

EAFResult ParameterStore::onModuleInit() {
    note("listens to StoreParameters");
    const EAFResult result = m_listener.open();
    return result < eAF_E_FAILED ? m_listener.start() : result;
}

EAFResult ParameterStore::onPhaseStop() {
    const EAFResult result = m_listener.stop();
    const StorageResult stored = m_storage.store();
    if (!stored.isGood) {
        note("nothing was stored; the trace says why and what to do");
        return eAF_W_WARNING;
    }
    note(std::to_string(stored.written) + " values stored");
    return result;
}

EAFResult ParameterStore::onEvent(uint32_t eventId) {
    if (eventId != EVENT_STORE_PARAMETERS) {
        m_arrivals.add(m_listener.name(), eventId, "is not for this listener");
        return eAF_W_UNEXPECTED_EVENT;
    }
    const StorageResult stored = m_storage.store();
    m_arrivals.add(m_listener.name(), eventId,
                   stored.isGood ? std::to_string(stored.written) + " values stored" : "nothing was stored");
    return stored.isGood ? eAF_S_OK : eAF_E_FAILED;
}

double ParameterStore::storedGain(uint32_t radioChannel) {
    CVariable *gains = nullptr;
    return CStorageManager_GetVariableByName("Gains", &gains) < eAF_E_FAILED
               ? storedElement<float>(gains, radioChannel - FIRST_RADIO_CHANNEL)
               : 0.0;
}

bool ParameterStore::tune(uint32_t radioChannel, double byDecibel) {
    CVariable *gains = nullptr;
    if (CStorageManager_GetVariableByName("Gains", &gains) >= eAF_E_FAILED) {
        return false;
    }
    IInterface *found = nullptr;
    const std::string name = IGainControl::nameOf(radioChannel);
    auto *amplifier = InterfaceBroker::getInstance().getInterface(name, &found) < eAF_E_FAILED
                          ? dynamic_cast<IGainControl *>(found)
                          : nullptr;
    const double gain = storedElement<float>(gains, radioChannel - FIRST_RADIO_CHANNEL) + byDecibel;
    if (amplifier == nullptr || !amplifier->changeGain(gain)) {
        return false;
    }
    changeStoredElement(gains, radioChannel - FIRST_RADIO_CHANNEL, static_cast<float>(gain));
    return true;
}

void ParameterStore::print() {
    for (const char *path : parameters) {
        CVariable *variable = nullptr;
        if (CStorageManager_GetVariableByPath(path, &variable) >= eAF_E_FAILED) {
            continue; // of a newer firmware
        }
        uint32_t size = 0;
        CVariable_Lock(variable);
        CVariable_FormatText(variable, nullptr, 0, &size);
        std::string text(size, '\0');
        CVariable_FormatText(variable, text.data(), size, nullptr);
        CVariable_UnLock(variable);
        std::printf("    %-28s %s\n", path, text.c_str());
    }
}

} // namespace radio
