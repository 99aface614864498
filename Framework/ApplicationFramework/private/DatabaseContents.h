/// @file
/// What the storage manager needs of a database beyond its interface.
#pragma once

#include "CDatabase.h"

namespace af {

/// CDatabase_Construct, with its outcome.
/// @retval eAF_E_OUT_OF_MEMORY  the table of paths holds nothing and takes nothing.
EAFResult constructDatabase(CDatabase &database, unsigned long hashTableSize);

/// Whether any database ever gave up a region: paths may lead to variables that are no more.
bool wereRegionsRemoved();

/// @return whether the regions lead to the variable. Compares addresses only: it may be freed.
bool leadsTo(const CDatabase &database, const CVariable *variable);

} // namespace af
