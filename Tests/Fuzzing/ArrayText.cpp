// The text of an array in a row: any text against a JSON parser, any content there and back.
#include "ArrayText.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>

#include "FuzzInput.h"
#include "Harness.h"
#include "Number.h"
#include "VariableType.h"

namespace {

using fuzz::FuzzInput;
using nlohmann::json;
using storage::StoredValue;

constexpr EVariableType arrays[] = {TYPE_INT8_ARRAY,   TYPE_INT16_ARRAY,  TYPE_INT32_ARRAY, TYPE_UINT8_ARRAY,
                                    TYPE_UINT16_ARRAY, TYPE_UINT32_ARRAY, TYPE_BOOL_ARRAY,  TYPE_CHAR_ARRAY,
                                    TYPE_FLOAT_ARRAY,  TYPE_DOUBLE_ARRAY};

StoredValue emptyValue(EVariableType type, std::uint32_t noOfElements) {
    StoredValue value{"V", type, noOfElements, {}};
    value.content.resize(static_cast<std::size_t>(storage::contentSize(type, noOfElements)));
    return value;
}

void checkThereAndBack(const StoredValue &value) {
    std::string text;
    storage::appendArray(text, value);
    StoredValue back = emptyValue(value.type, value.noOfElements);
    std::string misfit;
    FUZZ_CHECK(storage::parseArray(text, back, misfit), text + ": " + misfit);
    FUZZ_CHECK(back == value, text);
    const json parsed = json::parse(text, nullptr, false);
    FUZZ_CHECK(parsed.is_array() && parsed.size() == value.noOfElements, text + " is no JSON");
    StoredValue larger = emptyValue(value.type, value.noOfElements + 1);
    FUZZ_CHECK(!storage::parseArray(text, larger, misfit), text + " is one too few");
}

/// What JSON calls an array of integers fits exactly where each is in the type's range.
template <class Number>
void checkIntegers(const json &parsed, const std::string &text, const StoredValue &value, bool fits) {
    bool isInRange = parsed.size() == value.noOfElements;
    for (std::size_t i = 0; i < parsed.size() && isInRange; ++i) {
        const json &element = parsed[i];
        Number number{};
        if (element.is_number_unsigned()) {
            isInRange = element.get<std::uint64_t>() <= std::uint64_t{std::numeric_limits<Number>::max()};
            number = static_cast<Number>(element.get<std::uint64_t>());
        } else {
            isInRange = element.is_number_integer() &&
                        element.get<std::int64_t>() >= std::int64_t{std::numeric_limits<Number>::min()} &&
                        element.get<std::int64_t>() < 0;
            number = static_cast<Number>(element.get<std::int64_t>());
        }
        const std::size_t at = i * sizeof number;
        FUZZ_CHECK(!fits || (isInRange && std::memcmp(value.content.data() + at, &number, sizeof number) == 0), text);
    }
    FUZZ_CHECK(fits == isInRange, text);
}

/// Of numbers in the middle of the range, where both parsers must agree.
template <class Number>
void checkReals(const json &parsed, const std::string &text, const StoredValue &value, bool fits) {
    bool isUsual = parsed.size() == value.noOfElements;
    for (std::size_t i = 0; i < parsed.size() && isUsual; ++i) {
        const double number = parsed[i].get<double>();
        isUsual = std::abs(number) < 1e30 && std::abs(number) > 1e-30;
        if (isUsual && fits) {
            const auto found = storage::numberAt<Number>(value.content.data() + i * sizeof(Number));
            const auto expected = static_cast<Number>(number); // of a float rounded twice
            FUZZ_CHECK(found == expected || (sizeof(Number) == 4 && std::nextafter(expected, found) == found), text);
        }
    }
    FUZZ_CHECK(!isUsual || fits, text);
}

void checkAgainstJson(const std::string &text, const StoredValue &value, bool fits) {
    if (text.empty() || text.front() == '\xEF' || text.find('\0') != std::string::npos) {
        return; // JSON allows a byte order mark, and for its parser the text ends with a null
    }
    const json parsed = json::parse(text, nullptr, false);
    if (!parsed.is_array()) {
        return;
    }
    bool isNumbers = true;
    for (const json &element : parsed) {
        // A zero with a sign is JSON's, and no unsigned number.
        isNumbers = isNumbers && element.is_number() && (element != 0 || element.is_number_unsigned());
    }
    if (!isNumbers) {
        return;
    }
    storage::withElementOf(value.type, [&](auto number) {
        using Number = decltype(number);
        if constexpr (std::is_integral_v<Number>) {
            checkIntegers<Number>(parsed, text, value, fits);
        } else {
            checkReals<Number>(parsed, text, value, fits);
        }
    });
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    const EVariableType type = input.any(arrays);
    const bool isText = input.oneIn(2);
    StoredValue value = emptyValue(type, input.below(16));
    if (!isText) {
        const fuzz::Bytes content = input.bytes(value.content.size());
        std::copy(content.begin(), content.end(), value.content.begin());
        checkThereAndBack(value);
        return 0;
    }
    const std::string text = input.text(input.left());
    std::string misfit;
    const bool fits = storage::parseArray(text, value, misfit);
    FUZZ_CHECK(fits == misfit.empty(), text + ": " + misfit);
    FUZZ_CHECK(value.content.size() == storage::contentSize(type, value.noOfElements), text);
    checkAgainstJson(text, value, fits);
    if (fits) {
        checkThereAndBack(value);
    }
    return 0;
}
