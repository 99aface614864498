#include "InterfaceBroker.h"

#include <new>

#include "AfTrace.h"

IInterface::IInterface(const std::string &name) : m_name(name) {}

IInterface::~IInterface() = default;

const std::string &IInterface::getName() const {
    return m_name;
}

InterfaceBroker::InterfaceBroker() = default;

InterfaceBroker::~InterfaceBroker() = default;

InterfaceBroker &InterfaceBroker::getInstance() {
    // Emptied at the end of the process, not destroyed: components that end later still take their names back.
    alignas(InterfaceBroker) static unsigned char memory[sizeof(InterfaceBroker)];
    static InterfaceBroker *const broker = new (memory) InterfaceBroker;
    static const struct Emptied {
        ~Emptied() { broker->clear(); }
    } emptied;
    return *broker;
}

EAFResult InterfaceBroker::registerInterface(const std::string &name, IInterface *pInterface) {
    AF_TRACE(eAF_DEBUG, "  Register interface %s", name.c_str());
    const auto present = interfaces.find(name);
    if (present != interfaces.end()) {
        // Logged as an error, answered as a success with a remark: the first one keeps serving.
        AF_TRACE(eAF_E_FAILED, "Interface %s is already registered (pInterface %p)", name.c_str(),
                 static_cast<void *>(present->second));
        return eAF_W_ALREADY_REGISTERED;
    }
    if (pInterface == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "registerInterface called with interface == NULL");
        return eAF_E_INVALID_ARGUMENT;
    }
    interfaces.emplace(name, pInterface);
    AF_TRACE(eAF_DEBUG, "  Register interface %s ( pInterface %p )", name.c_str(), static_cast<void *>(pInterface));
    return eAF_S_OK;
}

EAFResult InterfaceBroker::registerInterface(IInterface *pInterface) {
    static const std::string noName;
    return registerInterface(pInterface != nullptr ? pInterface->m_name : noName, pInterface);
}

EAFResult InterfaceBroker::unregisterInterface(const std::string &name, IInterface **ppInterface) {
    if (ppInterface != nullptr) {
        *ppInterface = nullptr;
    }
    const auto present = interfaces.find(name);
    if (present == interfaces.end()) {
        AF_TRACE(eAF_E_FAILED, "InterfaceBroker couldn't find [%s] to unregister", name.c_str());
        return eAF_E_FAILED;
    }
    if (ppInterface != nullptr) {
        *ppInterface = present->second;
    }
    AF_TRACE(eAF_DEBUG, "  Unregister interface %s ( pInterface %p )", name.c_str(),
             static_cast<void *>(present->second));
    interfaces.erase(present);
    return eAF_S_OK;
}

EAFResult InterfaceBroker::getInterface(const std::string &name, IInterface **ppInterface) {
    if (ppInterface == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    *ppInterface = nullptr;
    const auto present = interfaces.find(name);
    if (present == interfaces.end()) {
        AF_TRACE(eAF_E_FAILED, "InterfaceBroker couldn't find [%s]", name.c_str());
        return eAF_E_FAILED;
    }
    *ppInterface = present->second;
    return eAF_S_OK;
}

void InterfaceBroker::clear() {
    interfaces.clear();
}
