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

StoredValue valueFrom(const json &entry, const std::string &file, std::size_t index) {
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
    const auto content = entry.find("value");
    std::string reason = "its \"value\" is missing";
    if (content == entry.end() || !storage::fromJson(*content, value, reason)) {
        throw faultAt(file, index, shownPath(value.path) + ": " + reason);
    }
    return value;
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

StoredValues fromDocument(const std::string &text, const std::string &file) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error &error) {
        throw Fault(ExitMisfit, file + ": no JSON: " + error.what());
    }
    if (!document.is_object() || document.value("format", json()) != "zaf-store" || !document.contains("variables") ||
        !document["variables"].is_array()) {
        throw Fault(ExitMisfit, file + ": no document of a store; \"dump\" writes one");
    }
    if (document.value("version", json()) != documentVersion) {
        throw Fault(ExitMisfit, file + ": its version is " + document.value("version", json()).dump() + ", known is " +
                                    std::to_string(documentVersion));
    }
    StoredValues values;
    std::set<std::string> paths;
    for (const json &entry : document["variables"]) {
        values.push_back(valueFrom(entry, file, values.size()));
        if (!paths.insert(values.back().path).second) {
            throw faultAt(file, values.size() - 1, shownPath(values.back().path) + " is there twice");
        }
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
        text = text.substr(0, end) + "...";
    }
    return text;
}

std::string shownPath(const std::string &path) {
    const std::string quoted = json(path).dump(-1, ' ', false, json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2) == path ? path : quoted;
}
