/// @file
/// Which objects are being destructed: one that contains itself must not be destructed, nor freed, from within.
#pragma once

#include "CStorageObject.h"

namespace af {

/// By this thread.
bool isBeingDestructed(const CStorageObject *object);

} // namespace af
