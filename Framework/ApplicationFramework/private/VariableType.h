/// @file
/// What kinds of content there are.
#pragma once

#include "CVariable.h"

/// @return whether the content is a row of numbers, truth values or characters; a string is none.
inline bool isArrayOfItems(EVariableType type) {
    switch (type) {
    case TYPE_INT8_ARRAY:
    case TYPE_INT16_ARRAY:
    case TYPE_INT32_ARRAY:
    case TYPE_UINT8_ARRAY:
    case TYPE_UINT16_ARRAY:
    case TYPE_UINT32_ARRAY:
    case TYPE_BOOL_ARRAY:
    case TYPE_CHAR_ARRAY:
    case TYPE_FLOAT_ARRAY:
    case TYPE_DOUBLE_ARRAY:
        return true;
    default:
        return false;
    }
}

/// @return whether the element count enters the size.
inline bool isCounted(EVariableType type) {
    return isArrayOfItems(type) || type == TYPE_STRING || type == TYPE_OBJECT_ARRAY;
}
