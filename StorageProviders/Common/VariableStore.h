/// @file
/// One store of values: the seam between what every provider does alike and how a back end keeps its bytes.
#pragma once

#include "EAFResult.h"
#include "Report.h"
#include "StoredValue.h"
#include "ValueView.h"

namespace storage {

enum class Access {
    readOnly, ///< Changes no value on the disk; goes beside a host that has the store open.
    readWrite ///< Keeps others from writing while the object lives; sets a damaged store aside.
};

/// Each operation tells the report what it met, and returns
///   eAF_E_INITIALIZATION_ERROR  the folder is missing, the name can not be followed, or the file can not be opened
///   eAF_E_INVALID_ARGUMENT      the file is not such a store; it is left alone
///   eAF_E_WRONG_ACCESS          the file or its disk is read-only
///   eAF_E_ALREADY_INITIALIZED   another process holds the store
///   eAF_E_OUT_OF_MEMORY         nothing has changed
///   eAF_E_FAILED                anything else: disk full, input or output error
/// Throws std::bad_alloc at most. One thread at a time.
class VariableStore {
public:
    virtual ~VariableStore() = default;

    /// A file that is not there is no failure: the store is empty, and the first write makes it. A file that can
    /// not be written, though asked for readWrite, is opened for reading with a warning; writing it fails then. A
    /// damaged one is set aside under a new name (readWrite, with a warning: the store is empty then) or answered with
    /// eAF_E_FAILED (readOnly). May be called again after a failure, and does nothing when the store is open.
    virtual EAFResult open(Access access, Report &report) = 0;

    /// @param values  receives every value, no two of one path, in an order of the store's own: that in which they were
    ///                added is the one that a provider finds them in at once.
    /// What was there before is cleared.
    virtual EAFResult read(ValueSink &values, Report &report) = 0;
    EAFResult read(StoredValues &values, Report &report) {
        ValueList list(values);
        return read(list, report);
    }

    /// Adds or replaces values by path, all or none, and leaves every other value as it is; durable when it returns.
    /// An empty list touches nothing.
    virtual EAFResult writeViews(const ValueViews &values, Report &report) = 0;
    EAFResult write(const StoredValues &values, Report &report) {
        return writeViews(ValueViews(values.begin(), values.end()), report);
    }

    /// @return whether what the file holds is known no more: it was set aside, replaced or removed since this store was
    ///         read or written. Another location may share it, or somebody have had a hand in it.
    virtual bool isStale() const { return false; }

    /// @return the file's name, for texts.
    virtual const std::string &name() const = 0;
};

} // namespace storage
