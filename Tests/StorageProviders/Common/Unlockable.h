/// @file
/// A variable whose lock can not be had.
#pragma once

#include <pthread.h>

#include "CVariable.h"

namespace test {

/// Holds a variable so that CVariable_Lock fails at once, on this thread, instead of waiting for ever.
class Unlockable {
public:
    explicit Unlockable(CVariable *variable) : m_variable(variable) {
        replaceMutex(PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_lock(&m_variable->mutex);
    }
    ~Unlockable() {
        pthread_mutex_unlock(&m_variable->mutex);
        replaceMutex(PTHREAD_MUTEX_DEFAULT);
    }
    Unlockable(const Unlockable &) = delete;
    Unlockable &operator=(const Unlockable &) = delete;

private:
    void replaceMutex(int type) {
        pthread_mutexattr_t attributes;
        pthread_mutex_destroy(&m_variable->mutex);
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, type);
        pthread_mutex_init(&m_variable->mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }

    CVariable *m_variable;
};

} // namespace test
