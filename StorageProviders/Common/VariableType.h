/// @file
/// Names and sizes of the plain variable types, as stores and tools write them.
#pragma once

#include <cstdint>
#include <string_view>

#include "CVariable.h"

namespace storage {

/// @return the name without its prefix, "INT32_ARRAY"; empty for a type that is not plain.
std::string_view typeName(EVariableType type);

/// @return whether the name is a plain type's. @param type  receives it.
bool typeOfName(std::string_view name, EVariableType &type);

/// @return bytes of one element; 0 for a type that is not plain.
std::uint32_t elementSize(EVariableType type);

/// @return whether the type is one of the 21 that a store keeps.
bool isPlain(EVariableType type);

bool isArray(EVariableType type);

/// @return elementSize(type) * noOfElements for arrays and strings, elementSize(type) for the others.
std::uint64_t contentSize(EVariableType type, std::uint32_t noOfElements);

} // namespace storage
