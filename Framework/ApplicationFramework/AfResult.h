/// @file
/// Result codes as text.
#pragma once

#include <string>

#include "AFExport.h"
#include "EAFResult.h"

namespace AfResult {

/// The code's name exactly as in EAFResult.h, "Unknown" for a value that is not in its table. Reentrant.
AF_API std::string toString(EAFResult code);

} // namespace AfResult
