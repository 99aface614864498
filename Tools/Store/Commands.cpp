#include "Commands.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

#include "Document.h"
#include "Fault.h"
#include "ValueJson.h"
#include "VariableType.h"

namespace {

using storage::Access;
using storage::StoredValue;

constexpr std::size_t longestShown = 60;

Fault unknownPath(const std::string &path, const std::string &file) {
    return {ExitNotFound,
            file + " holds no " + shownPath(path) + ": \"zaf-store list " + file + "\" shows what it holds"};
}

StoredValue newValue(const std::string &path, const SetOptions &options) {
    StoredValue value;
    value.path = path;
    if (!storage::typeOfName(options.create, value.type)) {
        throw Fault(ExitUsage, "there is no type " + options.create +
                                   "; types are INT8, UINT32_ARRAY, STRING, DOUBLE and the like");
    }
    value.noOfElements = options.count.value_or(1);
    return value;
}

nlohmann::json parseText(const std::string &text, const StoredValue &value) {
    if (value.type == TYPE_STRING && text.rfind("{\"hex\"", 0) != 0) {
        return text;
    }
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    return parsed.is_discarded() ? nlohmann::json(text) : parsed; // nan and inf are no JSON
}

std::string readFile(const std::string &file) {
    if (file == "-") {
        return {std::istreambuf_iterator<char>(std::cin), {}};
    }
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw Fault(ExitNotFound, file + ": it can not be read");
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

void printDifference(char sign, const StoredValue &value) {
    std::printf("%c %s %s[%u] %s\n", sign, shownPath(value.path).c_str(),
                std::string(storage::typeName(value.type)).c_str(), value.noOfElements,
                shownValue(value, longestShown).c_str());
}

const char *plural(std::size_t number) {
    return number == 1 ? "" : "s";
}

} // namespace

ExitCode listValues(const StoreName &store, const ListOptions &options) {
    const OpenStore opened = openStore(store, Access::readOnly);
    if (options.isJson) {
        std::printf("%s\n", toDocument(opened.values).dump(2).c_str());
        return ExitDone;
    }
    std::size_t pathWidth = 4;
    std::size_t typeWidth = 4;
    for (const StoredValue &value : opened.values) {
        pathWidth = std::max(pathWidth, shownPath(value.path).size());
        typeWidth = std::max(typeWidth, storage::typeName(value.type).size());
    }
    std::printf("%-*s  %-*s  %7s  %s\n", static_cast<int>(pathWidth), "PATH", static_cast<int>(typeWidth), "TYPE",
                "COUNT", "VALUE");
    for (const StoredValue &value : opened.values) {
        std::printf("%-*s  %-*s  %7u  %s\n", static_cast<int>(pathWidth), shownPath(value.path).c_str(),
                    static_cast<int>(typeWidth), std::string(storage::typeName(value.type)).c_str(), value.noOfElements,
                    shownValue(value, options.isWhole ? 0 : longestShown).c_str());
    }
    return ExitDone;
}

ExitCode getValue(const StoreName &store, const std::string &path) {
    const OpenStore opened = openStore(store, Access::readOnly);
    const StoredValue *value = opened.find(path);
    if (value == nullptr) {
        throw unknownPath(path, store.file);
    }
    const nlohmann::json shown = storage::toJson(*value);
    std::printf("%s\n", shown.is_string() ? shown.get_ref<const std::string &>().c_str() : shown.dump().c_str());
    return ExitDone;
}

ExitCode setValue(const StoreName &store, const std::string &path, const std::string &text, const SetOptions &options) {
    OpenStore opened = openStore(store, Access::readWrite);
    const StoredValue *present = opened.find(path);
    if (present == nullptr && options.create.empty()) {
        throw Fault(ExitNotFound, store.file + " holds no " + shownPath(path) + ": --create TYPE adds it");
    }
    StoredValue value = present != nullptr ? *present : newValue(path, options);
    const nlohmann::json parsed = parseText(text, value);
    if (present == nullptr && !options.count) {
        const bool isCounted = storage::isArray(value.type) && parsed.is_array();
        const std::size_t length = value.type == TYPE_STRING ? text.size() : isCounted ? parsed.size() : 1;
        value.noOfElements = static_cast<std::uint32_t>(length);
    }
    std::string reason;
    if (!storage::fromJson(parsed, value, reason)) {
        throw Fault(ExitMisfit, shownPath(path) + " is " + std::string(storage::typeName(value.type)) + "[" +
                                    std::to_string(value.noOfElements) + "]: " + reason);
    }
    if (present != nullptr && *present == value) {
        std::printf("%s is that already\n", shownPath(path).c_str());
        return ExitDone;
    }
    const std::string before = present != nullptr ? shownValue(*present, longestShown) : "(new)";
    opened.write({value});
    std::printf("%s: %s -> %s\n", shownPath(path).c_str(), before.c_str(), shownValue(value, longestShown).c_str());
    return ExitDone;
}

ExitCode dump(const StoreName &store, const std::string &file) {
    const std::string text = toDocument(openStore(store, Access::readOnly).values).dump(2) + "\n";
    if (file == "-") {
        std::fwrite(text.data(), 1, text.size(), stdout);
        return ExitDone;
    }
    std::ofstream stream(file, std::ios::binary);
    stream << text << std::flush;
    if (!stream) {
        throw Fault(ExitNotWritten, file + ": it can not be written");
    }
    return ExitDone;
}

ExitCode load(const StoreName &store, const std::string &file, std::optional<Kind> kind) {
    const storage::StoredValues values = fromDocument(readFile(file), file);
    const bool isNew = !isThere(store.file) && !isThere(store.file + ".1");
    if (isNew && !kind) {
        throw Fault(ExitUsage, store.file + ": there is no such store; --kind sqlite or --kind file makes it");
    }
    OpenStore opened = isNew ? makeStore(store, *kind) : openStore(store, Access::readWrite);
    storage::StoredValues changes;
    std::copy_if(values.begin(), values.end(), std::back_inserter(changes), [&opened](const StoredValue &value) {
        const StoredValue *present = opened.find(value.path);
        return present == nullptr || !(*present == value);
    });
    opened.write(changes);
    std::printf("%zu value%s read, %zu written\n", values.size(), plural(values.size()), changes.size());
    return ExitDone;
}

ExitCode diff(const StoreName &a, const StoreName &b) {
    const OpenStore left = openStore(a, Access::readOnly);
    const OpenStore right = openStore(b, Access::readOnly);
    std::size_t differences = 0;
    for (const StoredValue &value : left.values) {
        const StoredValue *other = right.find(value.path);
        if (other == nullptr || !(*other == value)) {
            ++differences;
            printDifference('-', value);
            if (other != nullptr) {
                printDifference('+', *other);
            }
        }
    }
    for (const StoredValue &value : right.values) {
        if (left.find(value.path) == nullptr) {
            ++differences;
            printDifference('+', value);
        }
    }
    if (differences == 0) {
        std::printf("no difference in %zu value%s\n", left.values.size(), plural(left.values.size()));
    }
    return differences == 0 ? ExitDone : ExitDiffers;
}

ExitCode verify(const StoreName &store) {
    const OpenStore opened = openStore(store, Access::readOnly);
    std::printf("%s: %zu value%s, %u fault%s\n", store.file.c_str(), opened.values.size(), plural(opened.values.size()),
                opened.noOfWarnings, plural(opened.noOfWarnings));
    return opened.noOfWarnings == 0 ? ExitDone : ExitDiffers;
}

ExitCode convert(const StoreName &from, const StoreName &to, Kind kind) {
    const OpenStore source = openStore(from, Access::readOnly);
    OpenStore target = makeStore(to, kind);
    target.write(source.values);
    std::printf("%zu value%s written to %s\n", source.values.size(), plural(source.values.size()), to.file.c_str());
    return ExitDone;
}
