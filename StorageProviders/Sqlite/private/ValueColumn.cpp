#include "ValueColumn.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>

#include "ArrayText.h"
#include "Number.h"
#include "Utf8.h"
#include "VariableType.h"

namespace storage {
namespace {

std::string_view textOf(const ValueView &value) {
    return {reinterpret_cast<const char *>(value.content), value.size};
}

void bindString(Statement &statement, int parameter, const ValueView &value) {
    const std::string_view content = textOf(value);
    std::string_view text;
    if (isText(content, text)) {
        statement.bindText(parameter, text);
    } else {
        statement.bindBlob(parameter, content.data(), content.size());
    }
}

template <class Number>
void bindNumber(Statement &statement, int parameter, const void *place, std::string &text) {
    const auto number = numberAt<Number>(place);
    if constexpr (std::is_integral_v<Number>) {
        statement.bindInteger(parameter, number);
    } else if (std::isnan(number)) {
        // SQLite would make NULL of it.
        text.clear();
        appendNumber<Number>(text, place);
        statement.bindText(parameter, text);
    } else {
        statement.bindReal(parameter, static_cast<double>(number));
    }
}

template <class Number>
bool holds(std::int64_t integer) {
    return integer >= std::numeric_limits<Number>::min() && integer <= std::numeric_limits<Number>::max();
}

/// A finite number does not become an infinite one.
template <class Number>
bool holds(double real) {
    return std::isinf(real) || std::abs(real) <= static_cast<double>(std::numeric_limits<Number>::max());
}

/// @return whether the column's value is a number that the type holds, which the place then receives.
template <class Number>
bool numberOf(const Statement &statement, int column, void *place) {
    const int type = statement.columnType(column);
    if (type == SQLITE_TEXT) {
        return parseNumber<Number>(statement.bytes(column, type), place);
    }
    const auto put = [place](Number number) { std::memcpy(place, &number, sizeof(number)); };
    if constexpr (std::is_integral_v<Number>) {
        const std::int64_t integer = statement.integer(column);
        put(static_cast<Number>(integer));
        return type == SQLITE_INTEGER && holds<Number>(integer);
    } else {
        const double real = statement.real(column);
        put(static_cast<Number>(real));
        return (type == SQLITE_INTEGER || type == SQLITE_FLOAT) && holds<Number>(real);
    }
}

/// What stands in a column, short enough for a trace.
std::string shown(const Statement &statement, int column) {
    constexpr std::size_t longest = 40;
    switch (statement.columnType(column)) {
    case SQLITE_INTEGER:
        return std::to_string(statement.integer(column));
    case SQLITE_FLOAT: {
        const double real = statement.real(column);
        std::string text;
        appendNumber<double>(text, &real);
        return text;
    }
    case SQLITE_TEXT:
        return "'" + std::string(statement.bytes(column).substr(0, longest)) + "'";
    case SQLITE_BLOB:
        return "a blob of " + std::to_string(statement.bytes(column).size()) + " bytes";
    default:
        return "NULL";
    }
}

bool readString(const Statement &statement, int column, StoredValue &value, std::string &misfit) {
    const int type = statement.columnType(column);
    if (type != SQLITE_TEXT && type != SQLITE_BLOB) {
        misfit = shown(statement, column);
        return false;
    }
    const std::string_view bytes = statement.bytes(column, type);
    const std::size_t room = value.content.size();
    if (type == SQLITE_TEXT ? bytes.size() > room : bytes.size() != room) {
        misfit = (type == SQLITE_TEXT ? "a text of " : "a blob of ") + std::to_string(bytes.size()) + " bytes";
        return false;
    }
    std::copy(bytes.begin(), bytes.end(), value.content.begin());
    return true;
}

bool readNumber(const Statement &statement, int column, StoredValue &value, std::string &misfit) {
    const bool fits = withElementOf(
        value.type, [&](auto number) { return numberOf<decltype(number)>(statement, column, value.content.data()); });
    if (!fits) {
        misfit = shown(statement, column);
    }
    return fits;
}

} // namespace

void bindName(Statement &statement, int parameter, std::string_view name) {
    if (isUtf8(name)) {
        statement.bindText(parameter, name);
    } else {
        statement.bindBlob(parameter, name.data(), name.size());
    }
}

void bindValue(Statement &statement, int parameter, const ValueView &value, std::string &text) {
    if (value.type == TYPE_STRING) {
        bindString(statement, parameter, value);
    } else if (isArray(value.type)) {
        text.clear();
        appendArray(text, value);
        statement.bindText(parameter, text);
    } else {
        withElementOf(value.type,
                      [&](auto number) { bindNumber<decltype(number)>(statement, parameter, value.content, text); });
    }
}

bool readValue(const Statement &statement, int column, StoredValue &value, std::string &misfit) {
    const std::uint64_t size = contentSize(value.type, value.noOfElements);
    if (size > largestContent) {
        misfit = std::to_string(value.noOfElements) + " elements, more than a store keeps";
        return false;
    }
    value.content.assign(static_cast<std::size_t>(size), 0);
    if (value.type == TYPE_STRING) {
        return readString(statement, column, value, misfit);
    }
    if (!isArray(value.type)) {
        return readNumber(statement, column, value, misfit);
    }
    const int type = statement.columnType(column);
    if (type != SQLITE_TEXT) {
        misfit = shown(statement, column);
        return false;
    }
    return parseArray(statement.bytes(column, type), value, misfit);
}

} // namespace storage
