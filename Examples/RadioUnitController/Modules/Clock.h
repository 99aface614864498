/// @file
/// The controller's clock: a module in plain C, against the flat module manager.
#pragma once

#include "Configuration.h"

AF_EXTERN_C_BEGIN

/// Registers the one clock of the process and its subscriptions.
/// @param row  the clock's row of the module table; kept.
EAFResult Clock_Register(const struct SModuleConfiguration *row);

/// Takes it out of the module manager again; harmless when it was never registered.
void Clock_Unregister(void);

AF_EXTERN_C_END
