/// @file
/// What the storage manager needs of a database beyond its interface.
#pragma once

#include "CDatabase.h"

namespace af {

/// CDatabase_Construct, with its outcome.
/// @retval eAF_E_OUT_OF_MEMORY  the table of paths holds nothing and takes nothing.
EAFResult constructDatabase(CDatabase &database, unsigned long hashTableSize);

/// Whether a path of any database may lead to a variable that was freed with its region.
bool wereVariablesFreed();

/// @param isFreed  receives whether the path leads to such a variable.
/// @return whether the table knows the path.
bool find(const CDatabase &database, const char *path, bool &isFreed);

} // namespace af
