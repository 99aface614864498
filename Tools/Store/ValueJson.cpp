#include "ValueJson.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

#include "Number.h"
#include "Utf8.h"
#include "VariableType.h"

namespace storage {

namespace {

using nlohmann::json;

/// A number that reads well and back as itself.
double readable(float value) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size() - 1, value);
    *end.ptr = '\0';
    const double candidate = std::strtod(text.data(), nullptr);
    return static_cast<float>(candidate) == value ? candidate : static_cast<double>(value);
}

double readable(double value) {
    return value;
}

template <class Element>
json toJson(const void *place) {
    const auto element = numberAt<Element>(place);
    if constexpr (std::is_floating_point_v<Element>) {
        if (std::isfinite(element)) {
            return readable(element);
        }
        std::string text;
        appendNumber<Element>(text, place);
        return text;
    } else {
        return element;
    }
}

template <class Element>
bool integerFromJson(const json &number, Element &element) {
    if (number.is_boolean()) {
        element = number.get<bool>() ? 1 : 0;
        return true;
    }
    if (number.is_number_unsigned()) {
        const auto value = number.get<std::uint64_t>();
        element = static_cast<Element>(value);
        return value <= static_cast<std::uint64_t>(std::numeric_limits<Element>::max());
    }
    if (number.is_number_integer()) {
        const auto value = number.get<std::int64_t>();
        element = static_cast<Element>(value);
        return value >= static_cast<std::int64_t>(std::numeric_limits<Element>::min()) && value <= 0;
    }
    return false;
}

template <class Element>
bool realFromJson(const json &number, void *place) {
    if (number.is_string()) {
        return parseNumber<Element>(number.get_ref<const std::string &>(), place) &&
               !std::isfinite(numberAt<Element>(place));
    }
    if (!number.is_number()) {
        return false;
    }
    const auto element = static_cast<Element>(number.get<double>());
    std::memcpy(place, &element, sizeof element);
    return std::isfinite(element);
}

template <class Element>
bool fromJson(const json &found, void *place) {
    if constexpr (std::is_floating_point_v<Element>) {
        return realFromJson<Element>(found, place);
    } else {
        Element element{};
        const bool isOne = integerFromJson(found, element);
        std::memcpy(place, &element, sizeof element);
        return isOne;
    }
}

std::string toHex(const std::vector<unsigned char> &content) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(content.size() * 2);
    for (const unsigned char byte : content) {
        hex += digits[byte >> 4];
        hex += digits[byte & 0xF];
    }
    return hex;
}

bool bytesFromHex(const std::string &hex, std::size_t size, std::vector<unsigned char> &content) {
    if (hex.size() != size * 2) {
        return false;
    }
    content.assign(size, 0);
    for (std::size_t i = 0; i < content.size(); ++i) {
        const char *begin = hex.data() + 2 * i;
        const auto read = std::from_chars(begin, begin + 2, content[i], 16);
        if (read.ec != std::errc() || read.ptr != begin + 2) {
            return false;
        }
    }
    return true;
}

bool stringFromJson(const json &found, std::size_t size, StoredValue &value, std::string &reason) {
    if (found.is_string()) {
        const auto &text = found.get_ref<const std::string &>();
        if (text.size() > size) {
            reason =
                "the text is " + std::to_string(text.size()) + " bytes long, there is room for " + std::to_string(size);
            return false;
        }
        value.content.assign(size, 0);
        std::copy(text.begin(), text.end(), value.content.begin());
        return true;
    }
    const auto hex = found.is_object() ? found.find("hex") : found.end();
    if (!found.is_object() || hex == found.end() || !hex->is_string() ||
        !bytesFromHex(hex->get_ref<const std::string &>(), size, value.content)) {
        reason = "expected is a text, or {\"hex\": ...} of " + std::to_string(size) + " bytes";
        return false;
    }
    return true;
}

std::string shown(const json &found) {
    std::string text = found.dump(-1, ' ', false, json::error_handler_t::replace);
    constexpr std::size_t longest = 60;
    if (text.size() > longest) {
        text.replace(longest, std::string::npos, "...");
    }
    return text;
}

} // namespace

json toJson(const StoredValue &value) {
    if (value.type == TYPE_STRING) {
        std::string_view text;
        if (isText({reinterpret_cast<const char *>(value.content.data()), value.content.size()}, text)) {
            return text;
        }
        return json{{"hex", toHex(value.content)}};
    }
    return withElementOf(value.type, [&value](auto element) {
        json array = json::array();
        for (std::size_t i = 0; i < value.content.size(); i += sizeof element) {
            json number = toJson<decltype(element)>(value.content.data() + i);
            if (!isArray(value.type)) {
                return number;
            }
            array.push_back(std::move(number));
        }
        return array;
    });
}

bool fromJson(const nlohmann::json &json, StoredValue &value, std::string &reason) {
    const std::uint64_t size = contentSize(value.type, value.noOfElements);
    if (!isPlain(value.type) || size > largestContent) {
        reason = "its type is unknown or it has more than " + std::to_string(largestContent) + " bytes";
        return false;
    }
    if (isArray(value.type) && (!json.is_array() || json.size() != value.noOfElements)) {
        reason = "found is " + (json.is_array() ? "an array of " + std::to_string(json.size()) : shown(json)) +
                 ", expected an array of " + std::to_string(value.noOfElements);
        return false;
    }
    // Memory is taken for what is there, not for what a document says is there.
    if (value.type == TYPE_STRING) {
        return stringFromJson(json, static_cast<std::size_t>(size), value, reason);
    }
    value.content.assign(static_cast<std::size_t>(size), 0);
    return withElementOf(value.type, [&](auto element) {
        for (std::size_t i = 0; i < value.content.size(); i += sizeof element) {
            const nlohmann::json &found = isArray(value.type) ? json[i / sizeof element] : json;
            if (!fromJson<decltype(element)>(found, value.content.data() + i)) {
                reason = shown(found) + " is no value of " + std::string(typeName(value.type));
                return false;
            }
        }
        return true;
    });
}

} // namespace storage
