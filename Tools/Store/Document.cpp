#include "Document.h"

#include <set>

#include "Fault.h"
#include "Utf8.h"
#include "ValueJson.h"
#include "VariableType.h"

namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using storage::StoredValue;
using storage::StoredValues;

constexpr int documentVersion = 1;
constexpr int deepestNesting = 8;                                 ///< A document's own is 3.
constexpr std::uint64_t largestDocument = std::uint64_t{1} << 30; ///< As much as a store file holds.

/// As a content of its own: the hexadecimal form of bytes that are no text is known there.
StoredValue asString(const std::string &bytes) {
    return {"", TYPE_STRING, static_cast<std::uint32_t>(bytes.size()), {bytes.begin(), bytes.end()}};
}

Fault faultAt(const std::string &file, std::size_t index, const std::string &what) {
    return {ExitMisfit, file + ": variable " + std::to_string(index) + ": " + what};
}

std::string pathFrom(const json &entry, const std::string &file, std::size_t index) {
    const auto path = entry.find("path");
    if (path != entry.end() && path->is_string()) {
        return path->get<std::string>();
    }
    if (path != entry.end() && path->is_object() && path->contains("hex") && (*path)["hex"].is_string()) {
        StoredValue bytes{
            "", TYPE_STRING, static_cast<std::uint32_t>((*path)["hex"].get_ref<const std::string &>().size() / 2), {}};
        std::string reason;
        if (storage::fromJson(*path, bytes, reason)) {
            return {bytes.content.begin(), bytes.content.end()};
        }
    }
    throw faultAt(file, index, "its \"path\" is missing or no text");
}

/// All of the value but its content.
StoredValue describedBy(const json &entry, const std::string &file, std::size_t index) {
    if (!entry.is_object()) {
        throw faultAt(file, index, "it is no object");
    }
    StoredValue value;
    value.path = pathFrom(entry, file, index);
    const auto type = entry.find("type");
    if (type == entry.end() || !type->is_string() ||
        !storage::typeOfName(type->get_ref<const std::string &>(), value.type)) {
        throw faultAt(file, index, shownPath(value.path) + ": its \"type\" is missing or unknown");
    }
    const auto count = entry.find("count");
    if (count == entry.end() || !count->is_number_unsigned() || count->get<std::uint64_t>() > UINT32_MAX) {
        throw faultAt(file, index, shownPath(value.path) + ": its \"count\" is missing or no element count");
    }
    value.noOfElements = count->get<std::uint32_t>();
    return value;
}

void fill(StoredValue &value, const json &entry, const std::string &file, std::size_t index) {
    const auto content = entry.find("value");
    std::string reason = "its \"value\" is missing";
    if (content == entry.end() || !storage::fromJson(*content, value, reason)) {
        throw faultAt(file, index, shownPath(value.path) + ": " + reason);
    }
}

/// Before any of them takes memory.
void checkSizes(const StoredValues &values, const std::string &file) {
    std::uint64_t size = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::uint64_t own = storage::contentSize(values[i].type, values[i].noOfElements);
        size += own <= storage::largestContent ? own : 0; // filling it will tell
        if (size > largestDocument) {
            throw faultAt(file, i,
                          shownPath(values[i].path) + ": with it the values have more than " +
                              std::to_string(largestDocument) + " bytes together");
        }
    }
}

/// The library's text without its own name for the kind of error.
std::string textOf(const json::exception &error) {
    const std::string text = error.what();
    const std::size_t end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

} // namespace

ordered_json toDocument(const StoredValues &values) {
    ordered_json variables = ordered_json::array();
    for (const StoredValue &value : values) {
        const json path = storage::isUtf8(value.path) ? json(value.path) : storage::toJson(asString(value.path));
        variables.push_back({{"path", path},
                             {"type", storage::typeName(value.type)},
                             {"count", value.noOfElements},
                             {"value", storage::toJson(value)}});
    }
    return {{"format", "zaf-store"}, {"version", documentVersion}, {"variables", variables}};
}

json parseJson(const std::string &text, const std::string &file) {
    constexpr int levelOfVariables = 1;
    std::size_t variables = 0;
    const auto follow = [&](int depth, json::parse_event_t event, const json &) {
        if (depth > deepestNesting) {
            throw Fault(ExitMisfit,
                        file + ": no document: it is nested deeper than " + std::to_string(deepestNesting) + " levels");
        }
        if (event == json::parse_event_t::object_start && depth == levelOfVariables + 1) {
            ++variables;
        } else if (event == json::parse_event_t::array_end && depth == levelOfVariables) {
            variables = 0;
        }
        return true;
    };
    try {
        return json::parse(text, follow);
    } catch (const json::parse_error &error) {
        throw Fault(ExitMisfit, file + ": no JSON: " + textOf(error));
    } catch (const json::exception &error) {
        throw variables != 0 ? faultAt(file, variables - 1, textOf(error))
                             : Fault(ExitMisfit, file + ": " + textOf(error));
    }
}

StoredValues fromDocument(const std::string &text, const std::string &file) {
    const json document = parseJson(text, file);
    if (!document.is_object() || document.value("format", json()) != "zaf-store" || !document.contains("variables") ||
        !document["variables"].is_array()) {
        throw Fault(ExitMisfit, file + ": no document of a store; \"dump\" writes one");
    }
    if (document.value("version", json()) != documentVersion) {
        throw Fault(ExitMisfit, file + ": its version is " + document.value("version", json()).dump() + ", known is " +
                                    std::to_string(documentVersion));
    }
    const json &entries = document["variables"];
    StoredValues values;
    std::set<std::string> paths;
    for (const json &entry : entries) {
        values.push_back(describedBy(entry, file, values.size()));
        if (!paths.insert(values.back().path).second) {
            throw faultAt(file, values.size() - 1, shownPath(values.back().path) + " is there twice");
        }
    }
    checkSizes(values, file);
    for (std::size_t i = 0; i < values.size(); ++i) {
        fill(values[i], entries[i], file, i);
    }
    return values;
}

std::string shownValue(const StoredValue &value, std::size_t longest) {
    std::string text = storage::toJson(value).dump();
    if (longest != 0 && text.size() > longest) {
        std::size_t end = longest - 3;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
            --end; // no half of a character
        }
        text.replace(end, std::string::npos, "...");
    }
    return text;
}

std::string shownPath(const std::string &path) {
    const std::string quoted = json(path).dump(-1, ' ', false, json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2) == path ? path : quoted;
}
