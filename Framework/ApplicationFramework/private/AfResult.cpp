#include "AfResult.h"

namespace {

const char *textOf(EAFResult code) {
#define AF_RESULT_CASE(name, value, meaning)                                                                           \
    case name:                                                                                                         \
        return #name;
    switch (code) { AF_RESULT_TABLE(AF_RESULT_CASE) }
#undef AF_RESULT_CASE
    return "Unknown";
}

} // namespace

std::string AfResult::toString(EAFResult code) {
    return textOf(code);
}
