#include "CFrameworkUtils.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "AfTrace.h"
#include "CApplicationFramework.h"

namespace {

/// getpwuid hands out storage of its own: the name is used before another of our threads asks.
std::mutex passwordEntryLock;

int formatName(char *buffer, std::size_t size, const char *suffix) {
    const std::lock_guard<std::mutex> lock(passwordEntryLock);
    const passwd *entry = getpwuid(getuid());
    const char *user = entry != nullptr && entry->pw_name != nullptr ? entry->pw_name : "UNKNOWN";
    return std::snprintf(buffer, size, "/%s_%d_%s", user, CApplicationFramework_GetServerPort(), suffix);
}

} // namespace

EAFResult CFrameworkUtils_GetMQueueName(char *buffer, int32_t size, const char *suffix) {
    if (size <= 0) {
        return eAF_E_BUFFER_TOO_SMALL;
    }
    if (buffer == nullptr || suffix == nullptr) {
        return eAF_E_INVALID_ARGUMENT;
    }
    const int length = formatName(buffer, static_cast<std::size_t>(size), suffix);
    AF_TRACE(eAF_DEBUG, "  MQueueName = %s", buffer);
    return length >= 0 && length < size ? eAF_S_OK : eAF_E_BUFFER_TOO_SMALL;
}
