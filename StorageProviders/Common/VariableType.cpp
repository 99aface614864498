#include "VariableType.h"

#include <iterator>

namespace {

struct PlainType {
    std::string_view name;
    EVariableType type;
    std::uint32_t elementSize;
    bool isArray;
};

constexpr bool isArrayName(std::string_view name) {
    constexpr std::string_view suffix = "_ARRAY";
    return name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}

#define PLAIN_TYPE(type, value, elementSize) {std::string_view(#type).substr(5), type, elementSize, isArrayName(#type)},
constexpr PlainType types[] = {AF_VARIABLE_TYPE_TABLE(PLAIN_TYPE)};
#undef PLAIN_TYPE

constexpr std::uint32_t firstOfObjects = TYPE_OBJECT;
static_assert(std::size(types) == firstOfObjects + 2, "the table's rows stand in the order of their numbers");

} // namespace

namespace storage {

bool isPlain(EVariableType type) {
    return type < firstOfObjects;
}

std::string_view typeName(EVariableType type) {
    return isPlain(type) ? types[type].name : std::string_view();
}

bool typeOfName(std::string_view name, EVariableType &type) {
    for (const PlainType &candidate : types) {
        if (isPlain(candidate.type) && candidate.name == name) {
            type = candidate.type;
            return true;
        }
    }
    return false;
}

std::uint32_t elementSize(EVariableType type) {
    return isPlain(type) ? types[type].elementSize : 0;
}

bool isArray(EVariableType type) {
    return isPlain(type) && types[type].isArray;
}

std::uint64_t contentSize(EVariableType type, std::uint32_t noOfElements) {
    const bool isCounted = isArray(type) || type == TYPE_STRING;
    return std::uint64_t{elementSize(type)} * (isCounted ? noOfElements : 1);
}

} // namespace storage
