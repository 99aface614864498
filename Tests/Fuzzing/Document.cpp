// What zaf-store loads: any text, and documents with one mistake or none, each with what it has to become of it.
#include "Document.h"

#include <cstdint>
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

/// What a store holds goes through a document and comes back bit by bit.
void checkThereAndBack(const StoredValues &values) {
    StoredValues back;
    const std::string text = toDocument(values).dump(2);
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
    checkThereAndBack(values);
    const json parsed = json::parse(text);
    FUZZ_CHECK(parsed["variables"].size() == values.size(), text);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const json &entry = parsed["variables"][i];
        FUZZ_CHECK(storage::typeName(values[i].type) == entry["type"].get<std::string>(), text);
        FUZZ_CHECK(values[i].noOfElements == entry["count"].get<std::uint64_t>(), text);
    }
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
