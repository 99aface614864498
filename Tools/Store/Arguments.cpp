#include "Arguments.h"

#include <algorithm>
#include <utility>

namespace {

bool isLongOption(const std::string &argument) {
    return argument.size() > 2 && argument.compare(0, 2, "--") == 0;
}

} // namespace

std::vector<std::string> withValueMarked(std::vector<std::string> arguments) {
    constexpr unsigned namesBefore = 2; // the store's and the path
    if (arguments.empty() || arguments[0] != "set") {
        return arguments;
    }
    unsigned names = 0;
    for (auto argument = arguments.begin() + 1; argument != arguments.end(); ++argument) {
        if (*argument == "--") {
            return arguments;
        }
        if (isLongOption(*argument)) {
            // Each but --help has a value, in an argument of its own or behind "=".
            const bool isAlone = *argument == "--help" || argument->find('=') != std::string::npos;
            if (!isAlone && argument + 1 != arguments.end()) {
                ++argument;
            }
        } else if (names < namesBefore) {
            if (argument->size() > 1 && argument->front() == '-') {
                return arguments;
            }
            ++names;
        } else {
            // To the end, because all that is behind the mark is no option.
            std::rotate(argument, argument + 1, arguments.end());
            arguments.insert(arguments.end() - 1, "--");
            return arguments;
        }
    }
    return arguments;
}
