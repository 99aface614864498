/// @file
/// Keeps two processes from writing one store.
#pragma once

#include <string>

#include "EAFResult.h"
#include "Report.h"

namespace storage {

/// A lock on "<store>.lock", which holds the owner's process id. It belongs to the open file: it goes with the process,
/// however that ends, unless a child that it forked meanwhile, and that called no exec, has the file open too. The file
/// stays.
class StoreLock {
public:
    StoreLock() = default;
    ~StoreLock();

    StoreLock(const StoreLock &) = delete;
    StoreLock &operator=(const StoreLock &) = delete;

    /// @param storeFile  from the root on.
    /// @retval eAF_S_OK                    held from now on, or already.
    /// @retval eAF_W_WARNING               the folder takes no file: nothing is locked, nothing was reported.
    /// @retval eAF_E_ALREADY_INITIALIZED   another process, or another lock of this one, holds it; reported.
    /// @retval eAF_E_INITIALIZATION_ERROR  the folder is missing or the lock file can not be opened; reported.
    EAFResult acquire(const std::string &storeFile, Report &report);

    void release();
    bool isHeld() const { return m_descriptor != -1; }

private:
    int m_descriptor = -1;
};

} // namespace storage
