/// @file
/// Names of message queues.
#pragma once

#include <stdint.h>

#include "AFExport.h"
#include "EAFResult.h"

AF_EXTERN_C_BEGIN

/// Writes "/<user>_<server port>_<suffix>": the name of the queue that belongs to a listener, or with the
/// suffix "EHNP" to the event task. The user is the password entry's name, or UNKNOWN. Any thread may call, but
/// not while the host itself asks getpwuid; traced at eAF_DEBUG.
/// @param size  bytes of the buffer; never more are written, and the text is always terminated.
/// @retval eAF_E_BUFFER_TOO_SMALL  the name was cut; with a size of 0 or less nothing is written or traced.
/// @retval eAF_E_INVALID_ARGUMENT  null buffer or suffix; not traced.
AF_API EAFResult CFrameworkUtils_GetMQueueName(char *buffer, int32_t size, const char *suffix);

AF_EXTERN_C_END
