#include "Commands.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <utility>

#include "Document.h"
#include "Fault.h"
#include "Output.h"
#include "ValueJson.h"
#include "VariableType.h"

namespace {

using storage::StoredValue;
using storage::StoredValues;

constexpr std::size_t longestShown = 60;

Fault unknownPath(const OpenStore &opened, const std::string &path, const std::string &file,
                  const std::string &advice) {
    if (opened.isUnreadable(path)) {
        return {ExitMisfit, file + ": the value of " + shownPath(path) +
                                " can not be read: \"set\" with --create TYPE --count N replaces it"};
    }
    return {ExitNotFound, file + " holds no " + shownPath(path) + ": " + advice};
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

nlohmann::json parseText(const std::string &text, EVariableType type) {
    if (type == TYPE_STRING && text.rfind("{\"hex\"", 0) != 0) {
        return text;
    }
    try {
        return parseJson(text, "the value");
    } catch (const Fault &) {
        return text; // nan and inf are no JSON
    }
}

std::uint32_t countOf(const nlohmann::json &parsed, EVariableType type) {
    std::size_t count = 1;
    if (type == TYPE_STRING) {
        const auto hex = parsed.is_object() ? parsed.find("hex") : parsed.end();
        const bool isHex = parsed.is_object() && hex != parsed.end() && hex->is_string();
        count = isHex                ? hex->get_ref<const std::string &>().size() / 2
                : parsed.is_string() ? parsed.get_ref<const std::string &>().size()
                                     : 0;
    } else if (storage::isArray(type) && parsed.is_array()) {
        count = parsed.size();
    }
    return static_cast<std::uint32_t>(count);
}

/// @return the value as it is to be stored. @throws Fault where the text does not fit it.
StoredValue wantedValue(const OpenStore &opened, const std::string &path, const std::string &text,
                        const SetOptions &options) {
    const StoredValue *present = opened.find(path);
    if (present == nullptr && options.create.empty()) {
        throw unknownPath(opened, path, opened.store->name(), "--create TYPE adds it");
    }
    StoredValue value = present != nullptr ? *present : newValue(path, options);
    const nlohmann::json parsed = parseText(text, value.type);
    if (present == nullptr && !options.count) {
        value.noOfElements = countOf(parsed, value.type);
    }
    std::string reason;
    if (!storage::fromJson(parsed, value, reason)) {
        throw Fault(ExitMisfit, shownPath(path) + " is " + std::string(storage::typeName(value.type)) + "[" +
                                    std::to_string(value.noOfElements) + "]: " + reason);
    }
    return value;
}

/// @return those of the values that a store does not hold yet.
StoredValues changesOf(const StoredValues &values, const OpenStore &opened) {
    StoredValues changes;
    std::copy_if(values.begin(), values.end(), std::back_inserter(changes), [&opened](const StoredValue &value) {
        const StoredValue *present = opened.find(value.path);
        return present == nullptr || !(*present == value);
    });
    return changes;
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

/// What is shown or copied of a store with faults is not all that it holds.
ExitCode exitCodeFor(const OpenStore &opened) {
    return opened.warnings.empty() ? ExitDone : ExitDiffers;
}

} // namespace

ExitCode listValues(const StoreName &store, const ListOptions &options) {
    const OpenStore opened = openStore(store);
    if (options.isJson) {
        std::printf("%s\n", toDocument(opened.values).dump(2).c_str());
        return exitCodeFor(opened);
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
    return exitCodeFor(opened);
}

ExitCode getValue(const StoreName &store, const std::string &path) {
    const OpenStore opened = openStore(store);
    const StoredValue *value = opened.find(path);
    if (value == nullptr) {
        throw unknownPath(opened, path, store.file, "\"zaf-store list " + store.file + "\" shows what it holds");
    }
    const nlohmann::json shown = storage::toJson(*value);
    std::printf("%s\n", shown.is_string() ? shown.get_ref<const std::string &>().c_str() : shown.dump().c_str());
    return ExitDone;
}

ExitCode setValue(const StoreName &store, const std::string &path, const std::string &text, const SetOptions &options) {
    OpenStore seen = openStore(store, Location::heldOrNew);
    const StoredValue *present = seen.find(path);
    const StoredValue wanted = wantedValue(seen, path, text, options);
    if (present != nullptr && *present == wanted) {
        std::printf("%s is that already\n", shownPath(path).c_str());
        return ExitDone;
    }
    // Decided once more: only now is the store locked.
    OpenStore opened = openToWrite(store, std::move(seen));
    present = opened.find(path);
    const std::string before = present != nullptr          ? shownValue(*present, longestShown)
                               : opened.isUnreadable(path) ? "(unreadable)"
                                                           : "(new)";
    const StoredValue value = wantedValue(opened, path, text, options);
    opened.write({value});
    std::printf("%s: %s -> %s\n", shownPath(path).c_str(), before.c_str(), shownValue(value, longestShown).c_str());
    return ExitDone;
}

ExitCode dump(const StoreName &store, const std::string &file) {
    if (file != "-" && isPartOf(file, store)) {
        throw Fault(ExitUsage, file + " belongs to the store itself: name another file");
    }
    const OpenStore opened = openStore(store);
    const std::string text = toDocument(opened.values).dump(2) + "\n";
    if (file == "-") {
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        writeFile(file, text);
    }
    return exitCodeFor(opened);
}

ExitCode load(const StoreName &store, const std::string &file, std::optional<Kind> kind) {
    const StoredValues values = fromDocument(readFile(file), file);
    std::size_t noOfChanges = values.size();
    if (!isStoreThere(store.file) && !kind) {
        throw Fault(ExitUsage, store.file + ": there is no such store; --kind sqlite or --kind file makes it");
    }
    if (!isThere(store.file) && kind) {
        if (values.empty()) {
            throw Fault(ExitMisfit, file + ": it holds no values, so no store is made");
        }
        makeStore(store, *kind).write(values);
    } else {
        OpenStore seen = openStore(store, Location::heldOrNew);
        noOfChanges = changesOf(values, seen).size();
        if (noOfChanges != 0) {
            OpenStore opened = openToWrite(store, std::move(seen));
            const StoredValues changes = changesOf(values, opened);
            opened.write(changes);
            noOfChanges = changes.size();
        }
    }
    std::printf("%zu value%s read, %zu written\n", values.size(), plural(values.size()), noOfChanges);
    return ExitDone;
}

ExitCode diff(const StoreName &a, const StoreName &b) {
    const OpenStore left = openStore(a);
    const OpenStore right = openStore(b);
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
    return differences == 0 ? std::max(exitCodeFor(left), exitCodeFor(right)) : ExitDiffers;
}

ExitCode verify(const StoreName &store) {
    const OpenStore opened = openStore(store);
    std::printf("%s: %zu value%s, %zu fault%s\n", store.file.c_str(), opened.values.size(),
                plural(opened.values.size()), opened.warnings.size(), plural(opened.warnings.size()));
    return exitCodeFor(opened);
}

ExitCode convert(const StoreName &from, const StoreName &to, Kind kind) {
    if (isPartOf(to.file, from)) {
        throw Fault(ExitUsage, to.file + " belongs to the store itself: name a new store");
    }
    const OpenStore source = openStore(from);
    if (source.values.empty()) {
        throw Fault(ExitMisfit, from.file + ": it holds no values, so no store is made");
    }
    makeStore(to, kind).write(source.values);
    std::printf("%zu value%s written to %s\n", source.values.size(), plural(source.values.size()), to.file.c_str());
    return exitCodeFor(source);
}
