#include "CApplicationFramework.h"

#include <atomic>
#include <cstddef>
#include <cstring>

#include "AfTrace.h"
#include "CEventHandler.h"
#include "CList.h"
#include "CModuleManager_c.h"
#include "ListAnswers.h"

namespace {

constexpr std::uint32_t startGroup = 0;
constexpr std::uint32_t stopGroup = 1;

std::uint32_t applicationCount;
CList applications;
bool initialized;

/// Counts the lists that there were, so that a start notices an application that took its list away.
std::uint32_t listsMade;

// Written by the control thread, read by every thread that names a queue.
std::atomic<std::int32_t> serverPort;

/// @return whether the application's own initialization succeeded.
bool initialize(const SApplicationDescriptor &application) {
    const EAFResult result = application.initialize != nullptr ? application.initialize() : eAF_E_INVALID_ARGUMENT;
    if (!af::isError(result)) {
        return true;
    }
    const char *name = application.getName != nullptr ? application.getName() : nullptr;
    if (name != nullptr) {
        AF_TRACE_AS("CApplicationFramework_Start", result, "Failed to initialize application %s\n", name);
    }
    return false;
}

/// Newest first, every one of them, whatever fails.
/// @return whether all could be reached and succeeded.
bool initializeApplications() {
    const std::uint32_t ownList = listsMade;
    CListIterator iterator{};
    std::uint32_t step = CList_StartIterationFromHead(&applications, &iterator);
    bool allSucceeded = true;
    bool more = step != af::listLastElement;
    while (more && !af::isError(step)) {
        void *element = nullptr;
        step = CList_GetNext(&applications, &element, &iterator);
        if (!af::isError(step)) {
            allSucceeded = initialize(*static_cast<const SApplicationDescriptor *>(element)) && allSucceeded;
            more = step != af::listLastElement;
            if (listsMade != ownList) {
                step = eAF_E_FAILED;
            }
        }
    }
    if (af::isError(step)) {
        AF_TRACE_AS("CApplicationFramework_Start", eAF_E_FAILED, "Could not iterate application list");
        return false;
    }
    return allSucceeded;
}

} // namespace

EAFResult CApplicationFramework_Initialize(void) {
    applicationCount = 0;
    ++listsMade;
    if (initialized) {
        // The list is built anew; what the old one held is forgotten, its nodes are not leaked.
        CList_Destruct(&applications);
    }
    CList_Construct(&applications);
    initialized = true;
    return eAF_S_OK;
}

EAFResult CApplicationFramework_UnInitialize(void) {
    CEventHandler_UnInitialize();
    ++listsMade;
    CList_Destruct(&applications);
    initialized = false;
    return eAF_S_OK;
}

EAFResult CApplicationFramework_RegisterApplication(SApplicationDescriptor *descriptor) {
    if (!initialized) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "Application is not initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    if (descriptor == nullptr) {
        AF_TRACE(eAF_E_INVALID_ARGUMENT, "Invalid argument");
        return eAF_E_INVALID_ARGUMENT;
    }
    CList_PushHead(&applications, descriptor);
    ++applicationCount;
    return eAF_S_OK;
}

EAFResult CApplicationFramework_Start(void) {
    if (!initialized) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "Application is not initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    if (applicationCount == 0) {
        AF_TRACE(eAF_E_NO_APPLICATION, "No applications");
        return eAF_E_NO_APPLICATION;
    }
    if (!initializeApplications()) {
        AF_TRACE(eAF_E_FAILED, "Could not initialize all applications");
        return eAF_E_FAILED;
    }
    const EAFResult result = CModuleManager_RunGroup(startGroup, ALL_RADIO_CHANNELS);
    if (af::isError(result)) {
        // The trace says that the start failed, the caller learns the runner's own code.
        AF_TRACE(eAF_E_FAILED, "One or more application start phases indicates errors");
        return result;
    }
    return eAF_S_OK;
}

EAFResult CApplicationFramework_Stop(void) {
    if (!initialized) {
        AF_TRACE(eAF_E_NOT_INITIALIZED, "Application is not initialized");
        return eAF_E_NOT_INITIALIZED;
    }
    if (applicationCount == 0) {
        AF_TRACE(eAF_E_NO_APPLICATION, "No applications");
        return eAF_E_NO_APPLICATION;
    }
    if (af::isError(CModuleManager_RunGroup(stopGroup, ALL_RADIO_CHANNELS))) {
        AF_TRACE(eAF_E_FAILED, "Application stop failed");
        return eAF_E_FAILED;
    }
    return eAF_S_OK;
}

EAFResult CApplicationFramework_SetServerPort(int32_t port) {
    constexpr std::int32_t portLimit = 0x10000;
    if (port >= portLimit) {
        return eAF_E_INVALID_ARGUMENT;
    }
    serverPort.store(port, std::memory_order_relaxed);
    return eAF_S_OK;
}

int32_t CApplicationFramework_GetServerPort(void) {
    return serverPort.load(std::memory_order_relaxed);
}

EAFResult CApplicationFramework_FinalInitialization(const void *hostConfiguration) {
    constexpr std::size_t portWord = 8;
    if (hostConfiguration == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    std::int32_t port = 0;
    std::memcpy(&port, static_cast<const unsigned char *>(hostConfiguration) + portWord * sizeof port, sizeof port);
    serverPort.store(port, std::memory_order_relaxed);
    return eAF_S_OK;
}
