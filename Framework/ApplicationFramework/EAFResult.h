/// @file
/// The result codes of every operation.
#pragma once

#include <stdint.h>

/// The one table of codes: name, value, meaning. The enumeration and AfResult::toString are
/// made from it.
///
/// 0x0000 success, 0x0100 information, 0x0800 debug, 0x1000 warnings, 0x8000 errors. A code is an error
/// exactly when it is 0x8000 or more. The debug codes, eAF_I_INFO and eAF_I_LOG_ALWAYS are returned by no
/// operation: they give an informational trace its level.
#define AF_RESULT_TABLE(ROW)                                                                                           \
    ROW(eAF_S_OK, 0x0000, "done")                                                                                      \
    ROW(eAF_S_TRUE, 0x0001, "done, the answer is yes")                                                                 \
    ROW(eAF_S_FALSE, 0x0002, "done, the answer is no")                                                                 \
    ROW(eAF_I_INFO, 0x0100, "trace level of an information")                                                           \
    ROW(eAF_I_ALREADY_CACHED, 0x0101, "the key is in the cache already")                                               \
    ROW(eAF_DEBUG, 0x0800, "trace level of a debug record")                                                            \
    ROW(eAF_DEBUG2, 0x0820, "trace level of a detailed debug record")                                                  \
    ROW(eAF_DEBUG3, 0x0840, "trace level of a very detailed debug record")                                             \
    ROW(eAF_I_LOG_ALWAYS, 0x0900, "trace level of an information that is always logged")                               \
    ROW(eAF_W_WARNING, 0x1000, "warning without a closer name")                                                        \
    ROW(eAF_W_ALREADY_REGISTERED, 0x1001, "registered already, the first record is kept")                              \
    ROW(eAF_W_NO_MATCHING_MODULE, 0x1002, "no module matches")                                                         \
    ROW(eAF_W_DUPLICATE_IGNORED, 0x1003, "a duplicate was ignored")                                                    \
    ROW(eAF_W_NO_MORE_DATA, 0x1004, "no more data follows")                                                            \
    ROW(eAF_W_NOT_ALL_EVENTS_SENT, 0x1005, "at least one listener's queue did not take the event")                     \
    ROW(eAF_W_UNEXPECTED_EVENT, 0x1006, "an event that was not expected")                                              \
    ROW(eAF_W_COULD_NOT_CACHE_EVENT, 0x1007, "the event was not cached")                                               \
    ROW(eAF_W_NOT_SUPPORTED, 0x1008, "not supported")                                                                  \
    ROW(eAF_W_VARIABLE_MISSING_IN_STORAGE, 0x1009, "the store holds no such variable")                                 \
    ROW(eAF_E_FAILED, 0x8000, "failed, without a closer name")                                                         \
    ROW(eAF_E_NOT_IMPLEMENTED, 0x8001, "not implemented")                                                              \
    ROW(eAF_E_STACK_OVERFLOW, 0x8002, "stack overflow")                                                                \
    ROW(eAF_E_STACK_EMPTY, 0x8003, "stack empty")                                                                      \
    ROW(eAF_E_NOT_IN_LIST, 0x8004, "not in the list")                                                                  \
    ROW(eAF_E_OUT_OF_MEMORY, 0x8005, "no memory could be had")                                                         \
    ROW(eAF_E_INVALID_ARGUMENT, 0x8006, "an argument is null or out of its range")                                     \
    ROW(eAF_E_NOT_REGISTERED, 0x8007, "not registered")                                                                \
    ROW(eAF_E_TOO_MANY_REGISTRATIONS, 0x8008, "the registry is full")                                                  \
    ROW(eAF_E_UNKNOWN_BATCH, 0x8009, "no batch has this id")                                                           \
    ROW(eAF_E_UNKNOWN_GROUP, 0x800A, "no group has this id")                                                           \
    ROW(eAF_E_UNKNOWN_PHASE, 0x800B, "no phase has this id")                                                           \
    ROW(eAF_E_UNKNOWN_MODULE, 0x800C, "no module has this id")                                                         \
    ROW(eAF_E_APPLICATION_ERROR_DURING_PHASE_EXECUTION, 0x800D, "a module failed in a phase")                          \
    ROW(eAF_E_UNKNOWN_EVENT, 0x800E, "no event has this id")                                                           \
    ROW(eAF_E_QUEUE_CREATION_FAILED, 0x800F, "the message queue could not be opened")                                  \
    ROW(eAF_E_PUT_TO_QUEUE_FAILED, 0x8010, "the message queue did not take a message")                                 \
    ROW(eAF_E_GET_FROM_QUEUE_FAILED, 0x8011, "the message queue gave no message")                                      \
    ROW(eAF_E_INDEX_OUT_OF_RANGE, 0x8012, "index out of range")                                                        \
    ROW(eAF_E_NO_APPLICATION, 0x8013, "no application is registered")                                                  \
    ROW(eAF_E_NOT_INITIALIZED, 0x8014, "not initialized")                                                              \
    ROW(eAF_E_ALREADY_INITIALIZED, 0x8015, "initialized already")                                                      \
    ROW(eAF_E_UNKNOWN_REGION, 0x8016, "no such storage region")                                                        \
    ROW(eAF_E_UNKNOWN_OBJECT, 0x8017, "no such storage object")                                                        \
    ROW(eAF_E_UNKNOWN_VARIABLE, 0x8018, "no such variable")                                                            \
    ROW(eAF_E_UNKNOWN_LOCATION, 0x8019, "no such storage location")                                                    \
    ROW(eAF_E_UNKNOWN_PROVIDER, 0x801A, "no such storage provider")                                                    \
    ROW(eAF_E_NAME_NOT_UNIQUE, 0x801B, "the name is taken")                                                            \
    ROW(eAF_E_INITIALIZATION_ERROR, 0x801C, "initialization failed")                                                   \
    ROW(eAF_E_VARIABLE_HASH_TABLE_EMPTY, 0x801D, "no variable path is known yet")                                      \
    ROW(eAF_E_COULD_NOT_ADD_TO_VARIABLE_HASH_TABLE, 0x801E, "the variable's path could not be filed")                  \
    ROW(eAF_E_WRONG_ACCESS, 0x801F, "the variable's access type forbids it")                                           \
    ROW(eAF_E_MUTEX_ERROR, 0x8020, "the mutex call failed")                                                            \
    ROW(eAF_E_BUFFER_TOO_SMALL, 0x8021, "the result did not fit the buffer")

#define AF_RESULT_ENUMERATOR(name, value, meaning) name = (value),

#ifdef __cplusplus
enum EAFResult : uint32_t { AF_RESULT_TABLE(AF_RESULT_ENUMERATOR) };
#else
typedef uint32_t EAFResult;
enum { AF_RESULT_TABLE(AF_RESULT_ENUMERATOR) };
#endif

#undef AF_RESULT_ENUMERATOR
