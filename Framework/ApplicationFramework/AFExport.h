/// @file
/// Linkage and visibility of the exported interface, and the conventions that every header here shares.
///
/// Result codes   An operation returns an EAFResult; below 0x8000 it succeeded, warnings included.
/// Null           Unless an operation allows it, a null argument gives eAF_E_INVALID_ARGUMENT; nothing is written.
/// Ownership      Records handed in by pointer stay the caller's and must outlive their registration.
///                Names are copied unless an operation says otherwise.
/// Threads        Where nothing is said, one thread at a time: the host's control thread.
/// Memory         Where memory runs out an operation gives eAF_E_OUT_OF_MEMORY, untraced, and changes nothing,
///                unless it says otherwise.
/// Exceptions     None leaves a flat operation but the one that CModuleManager_RegisterCallback names. Callbacks
///                must not throw: what they throw passes through the operation that called them.
/// Tracing        "Traced" means one record: the message, then the line "      code: %#lx\n".
#pragma once

#define AF_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define AF_EXTERN_C_BEGIN extern "C" {
#define AF_EXTERN_C_END }
#else
#define AF_EXTERN_C_BEGIN
#define AF_EXTERN_C_END
#endif
