/// @file
/// The unit of persistent data: a named, typed value of one or more elements. A plain record; the caller
/// provides its memory, here or through CStorageObject_CreateVariables.
#pragma once

#include <pthread.h>

#include <stdint.h>

#include "AFExport.h"
#include "EAFResult.h"

/// The kinds of value: name, number, bytes of one element in a variable's content. A single kind is followed by
/// its array. TYPE_STRING counts bytes; TYPE_OBJECT and TYPE_OBJECT_ARRAY count CStorageObject pointers.
#define AF_VARIABLE_TYPE_TABLE(ROW)                                                                                    \
    ROW(TYPE_INT8, 0, 1)                                                                                               \
    ROW(TYPE_INT8_ARRAY, 1, 1)                                                                                         \
    ROW(TYPE_INT16, 2, 2)                                                                                              \
    ROW(TYPE_INT16_ARRAY, 3, 2)                                                                                        \
    ROW(TYPE_INT32, 4, 4)                                                                                              \
    ROW(TYPE_INT32_ARRAY, 5, 4)                                                                                        \
    ROW(TYPE_UINT8, 6, 1)                                                                                              \
    ROW(TYPE_UINT8_ARRAY, 7, 1)                                                                                        \
    ROW(TYPE_UINT16, 8, 2)                                                                                             \
    ROW(TYPE_UINT16_ARRAY, 9, 2)                                                                                       \
    ROW(TYPE_UINT32, 10, 4)                                                                                            \
    ROW(TYPE_UINT32_ARRAY, 11, 4)                                                                                      \
    ROW(TYPE_BOOL, 12, 4)                                                                                              \
    ROW(TYPE_BOOL_ARRAY, 13, 4)                                                                                        \
    ROW(TYPE_CHAR, 14, 1)                                                                                              \
    ROW(TYPE_CHAR_ARRAY, 15, 1)                                                                                        \
    ROW(TYPE_STRING, 16, 1)                                                                                            \
    ROW(TYPE_FLOAT, 17, 4)                                                                                             \
    ROW(TYPE_FLOAT_ARRAY, 18, 4)                                                                                       \
    ROW(TYPE_DOUBLE, 19, 8)                                                                                            \
    ROW(TYPE_DOUBLE_ARRAY, 20, 8)                                                                                      \
    ROW(TYPE_OBJECT, 21, sizeof(void *))                                                                               \
    ROW(TYPE_OBJECT_ARRAY, 22, sizeof(void *))

#define AF_VARIABLE_TYPE_ENUMERATOR(name, value, elementSize) name = (value),

#ifdef __cplusplus
enum EVariableType : uint32_t { AF_VARIABLE_TYPE_TABLE(AF_VARIABLE_TYPE_ENUMERATOR) };
enum EAccessType : uint32_t {
    ByReference = 0, ///< The content block is its creator's.
    ByValue = 1      ///< The variable made its content block, owns it, and allows Set- and GetContent.
};
#else
typedef uint32_t EVariableType;
enum { AF_VARIABLE_TYPE_TABLE(AF_VARIABLE_TYPE_ENUMERATOR) };
typedef uint32_t EAccessType;
enum { ByReference = 0, ByValue = 1 };
#endif

#undef AF_VARIABLE_TYPE_ENUMERATOR

AF_EXTERN_C_BEGIN

typedef struct CVariable {
    uint32_t dynamicallyAllocated; ///< 1: its owner frees the record, with delete[], after CVariable_Destruct.
    void *content;
    EVariableType type;
    uint32_t noOfElements;
    char name[120];       ///< At most 119 bytes of the name given.
    char path[512];       ///< Empty until the database files the variable.
    void *defaultContent; ///< Borrowed, never copied; 0: the variable has no default.
    uint32_t retrieved;   ///< Set by a storage provider that filled the content.
    EAccessType accessType;
    pthread_mutex_t mutex; ///< Not recursive.
} CVariable;

/// Makes a variable in the caller's record.
/// @param contentAddress         block of CVariable_GetSizeInBytes bytes that stays the caller's (ByReference); 0: the
///                               variable makes a zeroed block of its own (ByValue).
/// @param defaultContentAddress  block of the same size that outlives the variable, or 0.
/// An unknown type without a block is traced at warning level, and gets one byte.
/// @retval eAF_E_MUTEX_ERROR    no mutex could be had; traced. The record is filled all the same.
/// @retval eAF_E_OUT_OF_MEMORY  no content block could be had; the record is as before.
AF_API EAFResult CVariable_Construct(CVariable *variable, void *contentAddress, EVariableType type,
                                     uint32_t noOfElements, const char *name, void *defaultContentAddress);

/// Frees what the variable owns, never the record. A TYPE_OBJECT variable's content is taken for the nested
/// CStorageObject itself, a TYPE_OBJECT_ARRAY variable's for pointers to such: each is destructed, and freed with
/// delete[] when it is marked dynamically allocated. A TYPE_OBJECT variable without content is traced.
/// @retval eAF_E_MUTEX_ERROR  the mutex could not be destroyed; traced.
AF_API EAFResult CVariable_Destruct(CVariable *variable);

/// @return the content's size; for an unknown type 1, with a trace at warning level. 0xFFFFFFFF where 32 bits do
///         not hold it.
AF_API uint32_t CVariable_GetSizeInBytes(CVariable *variable);

/// Copies the whole content in or out. Takes no lock: whoever shares the variable holds CVariable_Lock.
/// @retval eAF_E_WRONG_ACCESS      the content is its creator's; traced. Asked before the other block is looked at.
/// @retval eAF_E_NOT_INITIALIZED   the variable was destructed.
/// @retval eAF_E_INVALID_ARGUMENT  null argument, but for an array of no elements.
AF_API EAFResult CVariable_SetContent(CVariable *variable, const void *source);
AF_API EAFResult CVariable_GetContent(CVariable *variable, void *destination);

/// Tell where the content and its default lie.
/// @param out  receives the block's address, 0 when there is no default. @return eAF_S_OK.
AF_API EAFResult CVariable_GetContentAddress(CVariable *variable, void **out);
AF_API EAFResult CVariable_GetDefaultContentAddress(CVariable *variable, void **out);

/// Tells the variable's name.
/// @param out  receives the record's own text, null where the name is empty; left alone without a variable.
/// @retval eAF_E_FAILED            the name is empty; not traced.
/// @retval eAF_E_INVALID_ARGUMENT  null argument; traced.
AF_API EAFResult CVariable_GetName(CVariable *variable, const char **out);

/// Tells the full path under which the database filed the variable.
/// @param out  receives the record's own text, empty until the variable is filed. @return eAF_S_OK.
AF_API EAFResult CVariable_GetPath(CVariable *variable, const char **out);

/// Sets the path to "a/b/c", cut to 511 bytes. @return eAF_S_OK.
AF_API EAFResult CVariable_SetPath(CVariable *variable, const char *a, const char *b, const char *c);

/// What the variable was constructed with; 0 for null.
AF_API uint32_t CVariable_GetNoOfElements(CVariable *variable);
AF_API EVariableType CVariable_GetType(CVariable *variable);
AF_API EAccessType CVariable_GetAccessType(CVariable *variable);

/// The flags of the record: filled by a storage provider; freed, with delete[], by its owner.
AF_API void CVariable_SetRetrieved(CVariable *variable, uint32_t flag);
AF_API uint32_t CVariable_IsRetrieved(CVariable *variable);
AF_API void CVariable_SetDynamicallyAllocated(CVariable *variable, uint32_t flag);
AF_API uint32_t CVariable_IsDynamicallyAllocated(CVariable *variable);

/// Guards the content; any thread. A thread that locks twice waits for itself for ever. Traced at debug level.
/// @retval eAF_E_MUTEX_ERROR  the mutex call failed; traced.
AF_API EAFResult CVariable_Lock(CVariable *variable);
AF_API EAFResult CVariable_UnLock(CVariable *variable);

/// Renders the content as this library always has: each integer as the 32-bit word that begins at it, with a
/// stride of four bytes in arrays, whatever the type's width; "[1 ,2]" for arrays. The caller's own content block
/// must hold those words; of a block that the variable made, bytes past the end count as zero. Nothing is traced.
///
/// The buffer must hold the whole text: an array's pieces are each bounded by @p size, not by the space left.
/// CVariable_FormatText is the safe one.
/// @param size  of the buffer. A TYPE_STRING that fills it is not terminated, a shorter one is padded with NUL.
/// @retval eAF_E_INVALID_ARGUMENT  null variable or buffer, or size 0.
/// @retval eAF_E_NOT_INITIALIZED   the variable has no content.
AF_API EAFResult CVariable_ToString(CVariable *variable, char *buffer, uint32_t size);

/// Renders the content with each element in its own width and sign; the form is CVariable_ToString's. Never
/// writes past @p size and always terminates. Nothing is traced; the variable's lock is not taken.
/// @param buffer  may be null when size is 0.
/// @param needed  receives the size of the whole text with its NUL; may be null.
/// @retval eAF_E_BUFFER_TOO_SMALL  the text was cut.
/// @retval eAF_E_INVALID_ARGUMENT  null variable, or null buffer with a size.
/// @retval eAF_E_NOT_INITIALIZED   the variable has no content.
AF_API EAFResult CVariable_FormatText(CVariable *variable, char *buffer, uint32_t size, uint32_t *needed);

AF_EXTERN_C_END
