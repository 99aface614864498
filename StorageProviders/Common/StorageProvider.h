/// @file
/// What every provider of this folder does alike: which variables there are, which have changed, what a retrieve
/// fills, and what is said about the rest. How the bytes are kept is the VariableStore's.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "CDatabase.h"
#include "EAFResult.h"
#include "SStorageStatistics.h"
#include "VariableStore.h"
#include "VoxTrace.h"

namespace storage {

/// Lets no exception out: memory that runs out is eAF_E_OUT_OF_MEMORY. One thread at a time, as the storage phases
/// run; each variable's lock is held while its content is copied. Every failure is logged with the file and what to
/// do. What a location stores is kept in memory beside the variables: it tells what has changed.
class StorageProvider {
public:
    using MakeStore = std::function<std::unique_ptr<VariableStore>(unsigned long locationId, const std::string &file)>;

    /// @param trace  the provider's own domain: errors at level 1, warnings at 3, information at 5.
    StorageProvider(VoxTrace &trace, MakeStore makeStore);
    ~StorageProvider();

    /// Names the file of a location, before the location is initialised.
    /// @retval eAF_E_INVALID_ARGUMENT     null or empty name.
    /// @retval eAF_E_ALREADY_INITIALIZED  the location's store is open.
    EAFResult setFile(unsigned long locationId, const char *file);

    /// @return whether another location than this one was given the file.
    bool isAnothersFile(unsigned long locationId, const char *file) const;

    /// Opens the location's store; does nothing when it is open. A failure is tried again by store and retrieve.
    /// @retval eAF_E_UNKNOWN_LOCATION  no file was named.
    /// @return else as VariableStore::open.
    EAFResult initialize(unsigned long locationId);

    /// A store of more bytes than reserved is written all the same, with a warning.
    EAFResult reserve(unsigned long locationId, unsigned long size);

    /// Writes what changed since the last store or retrieve; nothing changed: touches nothing. Of two variables of one
    /// path, cut to 511 bytes, the first is kept. After a write that failed the store is read again before the next one
    /// compares: nobody knows how much of it reached the disk. So it is after another location's retrieve set aside a
    /// file that both share.
    ///
    /// After a retrieve that could not read the store this refuses with eAF_E_NOT_INITIALIZED until one could: the
    /// defaults that stand in would replace values that are still there.
    /// @retval eAF_E_FAILED  also: not every variable could be walked or locked; the others are stored.
    EAFResult storeAll(unsigned long locationId, CDatabase *database);

    /// Fills what the store holds, applies defaults to the rest, also when the store could not be read.
    /// @retval eAF_E_FAILED  also: not every variable could be walked or locked; the others are filled.
    EAFResult retrieveAll(unsigned long locationId, CDatabase *database);

    /// @retval eAF_E_UNKNOWN_LOCATION  no file was named.
    EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) const;

    /// Closes every store and forgets every location.
    void clear();

private:
    struct Location;
    Location *find(unsigned long locationId, Report &report) const;

    VoxTrace &m_trace;
    MakeStore m_makeStore;
    std::map<unsigned long, std::unique_ptr<Location>> m_locations;
};

} // namespace storage
