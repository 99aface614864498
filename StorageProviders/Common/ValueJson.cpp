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

#include "VariableType.h"

namespace storage {

namespace {

using nlohmann::json;

template <class Element>
using BitsOf = std::conditional_t<sizeof(Element) == 4, std::uint32_t, std::uint64_t>;

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
json elementToJson(const unsigned char *bytes) {
    Element element;
    std::memcpy(&element, bytes, sizeof element);
    if constexpr (std::is_floating_point_v<Element>) {
        if (std::isnan(element)) {
            BitsOf<Element> bits;
            std::memcpy(&bits, bytes, sizeof bits);
            std::array<char, 32> text{};
            std::snprintf(text.data(), text.size(), "nan(0x%llx)", static_cast<unsigned long long>(bits));
            return text.data();
        }
        if (std::isinf(element)) {
            return element > 0 ? "inf" : "-inf";
        }
        return readable(element);
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
bool realFromText(const std::string &text, Element &element) {
    if (text == "inf" || text == "-inf") {
        element = text == "inf" ? std::numeric_limits<Element>::infinity() : -std::numeric_limits<Element>::infinity();
        return true;
    }
    constexpr std::string_view prefix = "nan(0x";
    unsigned long long read = 0;
    const char *end = text.data() + text.size();
    if (text.compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    const auto parsed = std::from_chars(text.data() + prefix.size(), end, read, 16);
    if (parsed.ec != std::errc() || parsed.ptr + 1 != end || *parsed.ptr != ')') {
        return false;
    }
    const auto bits = static_cast<BitsOf<Element>>(read);
    std::memcpy(&element, &bits, sizeof element);
    return bits == read && std::isnan(element);
}

template <class Element>
bool realFromJson(const json &number, Element &element) {
    if (number.is_string()) {
        return realFromText(number.get_ref<const std::string &>(), element);
    }
    if (!number.is_number()) {
        return false;
    }
    const auto value = number.get<double>();
    element = static_cast<Element>(value);
    return std::isfinite(element);
}

template <class Element>
bool elementFromJson(const json &found, unsigned char *bytes) {
    Element element{};
    bool isFitting = false;
    if constexpr (std::is_floating_point_v<Element>) {
        isFitting = realFromJson(found, element);
    } else {
        isFitting = integerFromJson(found, element);
    }
    std::memcpy(bytes, &element, sizeof element);
    return isFitting;
}

struct Codec {
    json (*toJson)(const unsigned char *bytes);
    bool (*fromJson)(const json &found, unsigned char *bytes);
};

template <class Element>
constexpr Codec codecFor{elementToJson<Element>, elementFromJson<Element>};

/// Of everything but strings.
const Codec &codecOf(EVariableType type) {
    switch (type) {
    case TYPE_INT8:
    case TYPE_INT8_ARRAY:
    case TYPE_CHAR:
    case TYPE_CHAR_ARRAY:
        return codecFor<std::int8_t>;
    case TYPE_INT16:
    case TYPE_INT16_ARRAY:
        return codecFor<std::int16_t>;
    case TYPE_INT32:
    case TYPE_INT32_ARRAY:
        return codecFor<std::int32_t>;
    case TYPE_UINT8:
    case TYPE_UINT8_ARRAY:
        return codecFor<std::uint8_t>;
    case TYPE_UINT16:
    case TYPE_UINT16_ARRAY:
        return codecFor<std::uint16_t>;
    case TYPE_FLOAT:
    case TYPE_FLOAT_ARRAY:
        return codecFor<float>;
    case TYPE_DOUBLE:
    case TYPE_DOUBLE_ARRAY:
        return codecFor<double>;
    default:
        return codecFor<std::uint32_t>; // also the words of bools
    }
}

bool isUtf8(const unsigned char *bytes, std::size_t length) {
    // A dump replaces what is no UTF-8: whatever comes back as it was is a text.
    const std::string text(reinterpret_cast<const char *>(bytes), length);
    const json replaced = json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::ignore));
    return replaced.get_ref<const std::string &>() == text;
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

bool bytesFromHex(const std::string &hex, std::vector<unsigned char> &content) {
    if (hex.size() != content.size() * 2) {
        return false;
    }
    for (std::size_t i = 0; i < content.size(); ++i) {
        const char *begin = hex.data() + 2 * i;
        const auto read = std::from_chars(begin, begin + 2, content[i], 16);
        if (read.ec != std::errc() || read.ptr != begin + 2) {
            return false;
        }
    }
    return true;
}

bool stringFromJson(const json &found, StoredValue &value, std::string &reason) {
    if (found.is_string()) {
        const auto &text = found.get_ref<const std::string &>();
        if (text.size() > value.content.size()) {
            reason = "the text is " + std::to_string(text.size()) + " bytes long, there is room for " +
                     std::to_string(value.content.size());
            return false;
        }
        std::copy(text.begin(), text.end(), value.content.begin());
        return true;
    }
    const auto hex = found.is_object() ? found.find("hex") : found.end();
    if (!found.is_object() || hex == found.end() || !hex->is_string() ||
        !bytesFromHex(hex->get_ref<const std::string &>(), value.content)) {
        reason = "expected is a text, or {\"hex\": ...} of " + std::to_string(value.content.size()) + " bytes";
        return false;
    }
    return true;
}

std::string shown(const json &found) {
    std::string text = found.dump(-1, ' ', false, json::error_handler_t::replace);
    constexpr std::size_t longest = 60;
    if (text.size() > longest) {
        text = text.substr(0, longest) + "...";
    }
    return text;
}

} // namespace

bool isText(const std::vector<unsigned char> &content, std::size_t &length) {
    const auto end = std::find(content.begin(), content.end(), 0);
    length = static_cast<std::size_t>(end - content.begin());
    return std::all_of(end, content.end(), [](unsigned char byte) { return byte == 0; }) &&
           isUtf8(content.data(), length);
}

json toJson(const StoredValue &value) {
    if (value.type == TYPE_STRING) {
        std::size_t length = 0;
        if (isText(value.content, length)) {
            return std::string(value.content.begin(), value.content.begin() + static_cast<std::ptrdiff_t>(length));
        }
        return json{{"hex", toHex(value.content)}};
    }
    const Codec &codec = codecOf(value.type);
    if (!isArray(value.type)) {
        return codec.toJson(value.content.data());
    }
    json array = json::array();
    array.get_ref<json::array_t &>().reserve(value.noOfElements);
    for (std::size_t i = 0; i < value.noOfElements; ++i) {
        array.push_back(codec.toJson(value.content.data() + i * elementSize(value.type)));
    }
    return array;
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
    value.content.assign(static_cast<std::size_t>(size), 0);
    if (value.type == TYPE_STRING) {
        return stringFromJson(json, value, reason);
    }
    const Codec &codec = codecOf(value.type);
    for (std::size_t i = 0; i * elementSize(value.type) < size; ++i) {
        const nlohmann::json &element = isArray(value.type) ? json[i] : json;
        if (!codec.fromJson(element, value.content.data() + i * elementSize(value.type))) {
            reason = shown(element) + " is no value of " + std::string(typeName(value.type));
            return false;
        }
    }
    return true;
}

} // namespace storage
