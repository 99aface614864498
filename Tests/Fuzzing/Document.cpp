// What zaf-store loads: any text, and documents with one mistake or none, each with what it has to become of it.
#include "Document.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Fault.h"
#include "Harness.h"
#include "StoredInput.h"
#include "Utf8.h"
#include "ValueJson.h"
#include "VariableType.h"

namespace {

using fuzz::FuzzInput;
using nlohmann::json;
using nlohmann::ordered_json;
using storage::StoredValue;
using storage::StoredValues;

const std::string fileName = "in.json";

/// @return whether the text is a document. @param values  receives what it holds.
bool load(const std::string &text, StoredValues &values) {
    try {
        values = fromDocument(text, fileName);
        return true;
    } catch (const Fault &fault) {
        const std::string what = fault.what();
        FUZZ_CHECK(fault.exitCode == ExitMisfit, what);
        FUZZ_CHECK(what.rfind(fileName + ": ", 0) == 0, what);
        FUZZ_CHECK(what.find('\n') == std::string::npos, what);
        return false;
    }
}

void checkShown(const StoredValues &values, FuzzInput &input) {
    const std::size_t longest = 3 + input.below(80);
    for (const StoredValue &value : values) {
        const std::string whole = shownValue(value);
        const std::string cut = shownValue(value, longest);
        FUZZ_CHECK(cut == whole || cut.size() <= longest, cut);
        FUZZ_CHECK(storage::isUtf8(cut) && cut.find('\n') == std::string::npos, cut);
        FUZZ_CHECK(storage::isUtf8(shownPath(value.path)) && shownPath(value.path).find('\n') == std::string::npos,
                   shownPath(value.path));
    }
}

/// @return the bytes of {"hex": "..."}.
std::vector<unsigned char> bytesOfHex(const json &hex) {
    const std::string digits = hex["hex"].get<std::string>();
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

template <class Element>
bool isElement(const json &found, const unsigned char *place) {
    Element element{};
    std::memcpy(&element, place, sizeof element);
    if (found.is_boolean()) {
        return element == static_cast<Element>(found.get<bool>() ? 1 : 0);
    }
    if (found.is_number_unsigned()) {
        return element >= Element{} && static_cast<std::uint64_t>(element) == found.get<std::uint64_t>();
    }
    return std::int64_t{element} == found.get<std::int64_t>();
}

/// Bit by bit: minus zero is not zero, and a number that is none has its bits behind "nan:".
template <class Real, class Bits>
bool isReal(const json &found, const unsigned char *place) {
    Bits bits{};
    std::memcpy(&bits, place, sizeof bits);
    if (found.is_string() && found.get<std::string>().substr(0, 4) == "nan:") {
        return bits == std::stoull(found.get<std::string>().substr(4), nullptr, 16);
    }
    const auto expected = static_cast<Real>(found.is_string() ? std::strtod(found.get<std::string>().c_str(), nullptr)
                                                              : found.get<double>());
    if (std::isnan(expected)) { // as a word, without bits
        Real real{};
        std::memcpy(&real, place, sizeof real);
        return std::isnan(real);
    }
    Bits expectedBits{};
    std::memcpy(&expectedBits, &expected, sizeof expected);
    return bits == expectedBits;
}

/// How the elements of a type are read; what the tool has for that is not asked.
struct ElementReader {
    const char *type;
    std::size_t size;
    bool (*is)(const json &, const unsigned char *);
};

const ElementReader readers[] = {
    {"INT8", 1, isElement<std::int8_t>},        {"INT16", 2, isElement<std::int16_t>},
    {"INT32", 4, isElement<std::int32_t>},      {"UINT8", 1, isElement<std::uint8_t>},
    {"UINT16", 2, isElement<std::uint16_t>},    {"UINT32", 4, isElement<std::uint32_t>},
    {"CHAR", 1, isElement<std::uint8_t>},       {"BOOL", 4, isElement<std::uint32_t>},
    {"FLOAT", 4, isReal<float, std::uint32_t>}, {"DOUBLE", 8, isReal<double, std::uint64_t>},
};

bool isContent(const json &found, const std::string &type, const std::vector<unsigned char> &content) {
    if (type == "STRING") {
        std::vector<unsigned char> expected;
        if (found.is_string()) {
            const std::string text = found.get<std::string>();
            expected.assign(text.begin(), text.end());
            expected.resize(std::max(content.size(), text.size())); // zeros behind it
        } else {
            expected = bytesOfHex(found);
        }
        return content == expected;
    }
    const std::size_t end = type.find("_ARRAY");
    const json elements = end == std::string::npos ? json::array({found}) : found;
    for (const ElementReader &reader : readers) {
        if (type.substr(0, end) == reader.type) {
            bool isSame = elements.is_array() && content.size() == elements.size() * reader.size;
            for (std::size_t i = 0; isSame && i < elements.size(); ++i) {
                isSame = reader.is(elements[i], content.data() + i * reader.size);
            }
            return isSame;
        }
    }
    return false;
}

/// What the text says, by the JSON parser alone, is what the values are.
void checkSame(const std::string &text, const StoredValues &values) {
    const json parsed = json::parse(text);
    FUZZ_CHECK(parsed["variables"].size() == values.size(), text);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const json &entry = parsed["variables"][i];
        const json &path = entry["path"];
        const std::vector<unsigned char> pathBytes(values[i].path.begin(), values[i].path.end());
        FUZZ_CHECK(path.is_string() ? path.get<std::string>() == values[i].path : bytesOfHex(path) == pathBytes, text);
        const auto type = entry["type"].get<std::string>();
        FUZZ_CHECK(storage::typeName(values[i].type) == type, text);
        FUZZ_CHECK(values[i].noOfElements == entry["count"].get<std::uint64_t>(), text);
        FUZZ_CHECK(isContent(entry["value"], type, values[i].content), text + "\n  is " + fuzz::shown({values[i]}));
    }
}

/// What a store holds goes through a document and comes back bit by bit.
void checkThereAndBack(const StoredValues &values) {
    StoredValues back;
    const std::string text = toDocument(values).dump(2);
    checkSame(text, values);
    FUZZ_CHECK(load(text, back), text);
    FUZZ_CHECK(back == values, fuzz::shown(values) + "\n  or " + fuzz::shown(back));
}

/// One thing in a document that is wrong.
enum class Mistake { none, format, version, path, type, count, tooLong, value, twice, element, count_ };

void spoilEntry(ordered_json &entry, Mistake mistake, const StoredValue &value, FuzzInput &input) {
    const std::vector<ordered_json> odd{ordered_json(), ordered_json::array(), ordered_json::object(), -1, 0.5, true};
    const ordered_json &any = odd[input.below(static_cast<std::uint32_t>(odd.size()))];
    switch (mistake) {
    case Mistake::path:
        entry["path"] = any;
        break;
    case Mistake::type:
        entry["type"] = input.oneIn(2) ? any : ordered_json("INT" + std::to_string(input.below(8)));
        break;
    case Mistake::count:
        entry["count"] = input.oneIn(2) ? any : ordered_json(std::uint64_t{UINT32_MAX} + 1 + input.below(1000));
        break;
    case Mistake::tooLong:
        entry["type"] = "DOUBLE_ARRAY";
        entry["count"] = UINT32_MAX - input.below(0x10000);
        break;
    case Mistake::value:
        if (value.type == TYPE_STRING || storage::isArray(value.type)) {
            entry["value"] = ordered_json(); // null is no value of any type
        } else {
            entry["value"] = ordered_json::array();
        }
        break;
    case Mistake::element:
        if (storage::isArray(value.type) && value.noOfElements != 0) {
            entry["value"][input.below(value.noOfElements)] = ordered_json::object();
        } else {
            entry.erase("value");
        }
        break;
    default:
        break;
    }
}

void checkDescribed(FuzzInput &input) {
    const StoredValues values = fuzz::valuesFrom(input, 10);
    checkShown(values, input);
    checkThereAndBack(values);
    ordered_json document = toDocument(values);
    const auto mistake = static_cast<Mistake>(input.below(static_cast<std::uint32_t>(Mistake::count_)));
    if (mistake == Mistake::none) {
        return;
    }
    if (mistake == Mistake::format) {
        document["format"] = input.text(input.below(9)).c_str()[0] == '\0' ? "" : "other";
    } else if (mistake == Mistake::version) {
        document["version"] = 2 + input.below(1000);
    } else if (values.empty()) {
        return;
    } else {
        const std::uint32_t which = input.below(static_cast<std::uint32_t>(values.size()));
        ordered_json &entries = document["variables"];
        if (mistake == Mistake::twice) {
            const ordered_json copy = entries[which];
            entries.push_back(copy);
        } else {
            spoilEntry(entries[which], mistake, values[which], input);
        }
    }
    StoredValues loaded;
    const std::string text = document.dump();
    FUZZ_CHECK(!load(text, loaded), text);
}

void checkText(const std::string &text) {
    StoredValues values;
    if (!load(text, values)) {
        return;
    }
    fuzz::checkWhole(values);
    checkSame(text, values);
    checkThereAndBack(values);
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    // A document itself is an input.
    if (size != 0 && data[0] < 0x20 && data[0] != '\n') {
        input.byte();
        checkDescribed(input);
    } else {
        checkText(input.text(size));
    }
    return 0;
}
