/// @file
/// The process's directory from name to interface: one component publishes an object, another takes it by name.
#pragma once

#include <map>
#include <string>

#include "AFExport.h"
#include "EAFResult.h"
#include "IInterface.h"

/// Stores and hands back plain pointers and never destroys what they point to. A published object must live until
/// it is unregistered and until every component that took it is done with it: the broker tells nobody that it went.
///
/// No lock: filled and emptied by one thread at start and stop, or under the callers' own lock; look-ups may run side
/// by side while nobody registers or unregisters. Names are compared byte by byte. Out of memory is the allocator's
/// exception.
class AF_API InterfaceBroker {
public:
    /// The one broker of the process, made on first use. It is emptied when the process ends, and still answers then.
    static InterfaceBroker &getInstance();

    /// Publishes an object under a name. Traced at debug level.
    /// @retval eAF_W_ALREADY_REGISTERED  the name is taken and keeps its pointer; traced as the error eAF_E_FAILED.
    /// @retval eAF_E_INVALID_ARGUMENT    null interface under a free name; traced.
    EAFResult registerInterface(const std::string &name, IInterface *pInterface);

    /// Publishes under the object's own name; a null one has the empty name.
    EAFResult registerInterface(IInterface *pInterface);

    /// Takes a name out of the directory.
    /// @param ppInterface  receives the pointer, null when there is none; may be null. Traced at debug level.
    /// @retval eAF_E_FAILED  nothing is published under that name; traced.
    EAFResult unregisterInterface(const std::string &name, IInterface **ppInterface);

    /// Looks a name up.
    /// @param ppInterface  receives the pointer, null when there is none.
    /// @retval eAF_E_FAILED            nothing is published under that name; traced.
    /// @retval eAF_E_INVALID_ARGUMENT  null @p ppInterface; not traced.
    EAFResult getInterface(const std::string &name, IInterface **ppInterface);

    /// Forgets every name; not traced.
    void clear();

    ~InterfaceBroker();

    InterfaceBroker(const InterfaceBroker &) = delete;
    InterfaceBroker &operator=(const InterfaceBroker &) = delete;

private:
    InterfaceBroker();

    std::map<std::string, IInterface *> interfaces;
};
