#include "ValueColumn.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>

#include "ArrayText.h"
#include "Number.h"
#include "VariableType.h"

namespace storage {
namespace {

struct Utf8Form {
    std::size_t length;
    std::uint32_t smallest;
    unsigned char mask;
    unsigned char lead;
};

constexpr Utf8Form utf8Forms[] = {
    {1, 0, 0x80, 0x00}, {2, 0x80, 0xE0, 0xC0}, {3, 0x800, 0xF0, 0xE0}, {4, 0x10000, 0xF8, 0xF0}};

/// @return the length of the character that the text begins with, 0 when that is none.
std::size_t utf8Length(std::string_view text) {
    const auto byteAt = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (const Utf8Form &form : utf8Forms) {
        if ((byteAt(0) & form.mask) != form.lead) {
            continue;
        }
        std::uint32_t code = byteAt(0) & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 1; i < form.length; ++i) {
            if (i >= text.size() || (byteAt(i) & 0xC0) != 0x80) {
                return 0;
            }
            code = code << 6 | (byteAt(i) & 0x3F);
        }
        const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
        return code >= form.smallest && code <= 0x10FFFF && !isSurrogate ? form.length : 0;
    }
    return 0;
}

std::string_view viewOf(const StoredValue &value) {
    return {reinterpret_cast<const char *>(value.content.data()), value.content.size()};
}

void bindString(Statement &statement, int parameter, const StoredValue &value) {
    const std::string_view content = viewOf(value);
    const std::string_view text = content.substr(0, content.find('\0'));
    const bool isPadded = content.find_first_not_of('\0', text.size()) == std::string_view::npos;
    if (isPadded && isUtf8(text)) {
        statement.bindText(parameter, text);
    } else {
        statement.bindBlob(parameter, content.data(), content.size());
    }
}

template <class Number>
void bindNumber(Statement &statement, int parameter, Number number, std::string &text) {
    if constexpr (std::is_integral_v<Number>) {
        statement.bindInteger(parameter, number);
    } else if (std::isnan(number)) {
        // SQLite would make NULL of it.
        text.clear();
        appendNumber(text, number);
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

/// @return whether the column's value is a number that the type holds.
template <class Number>
bool numberOf(const Statement &statement, int column, Number &number) {
    const int type = statement.columnType(column);
    if (type == SQLITE_TEXT) {
        return parseNumber(statement.bytes(column), number);
    }
    if constexpr (std::is_integral_v<Number>) {
        number = static_cast<Number>(statement.integer(column));
        return type == SQLITE_INTEGER && holds<Number>(statement.integer(column));
    } else {
        number = static_cast<Number>(statement.real(column));
        return (type == SQLITE_INTEGER || type == SQLITE_FLOAT) && holds<Number>(statement.real(column));
    }
}

/// What stands in a column, short enough for a trace.
std::string shown(const Statement &statement, int column) {
    constexpr std::size_t longest = 40;
    switch (statement.columnType(column)) {
    case SQLITE_INTEGER:
        return std::to_string(statement.integer(column));
    case SQLITE_FLOAT: {
        std::string text;
        appendNumber(text, statement.real(column));
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
    const std::string_view bytes = statement.bytes(column);
    const std::size_t room = value.content.size();
    if (type == SQLITE_TEXT ? bytes.size() > room : bytes.size() != room) {
        misfit = (type == SQLITE_TEXT ? "a text of " : "a blob of ") + std::to_string(bytes.size()) + " bytes";
        return false;
    }
    std::copy(bytes.begin(), bytes.end(), value.content.begin());
    return true;
}

bool readNumber(const Statement &statement, int column, StoredValue &value, std::string &misfit) {
    const bool fits = withElementOf(value.type, [&](auto number) {
        const bool isNumber = numberOf(statement, column, number);
        std::memcpy(value.content.data(), &number, sizeof(number));
        return isNumber;
    });
    if (!fits) {
        misfit = shown(statement, column);
    }
    return fits;
}

} // namespace

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

void bindName(Statement &statement, int parameter, std::string_view name) {
    if (isUtf8(name)) {
        statement.bindText(parameter, name);
    } else {
        statement.bindBlob(parameter, name.data(), name.size());
    }
}

void bindValue(Statement &statement, int parameter, const StoredValue &value, std::string &text) {
    if (value.type == TYPE_STRING) {
        bindString(statement, parameter, value);
    } else if (isArray(value.type)) {
        text.clear();
        appendArray(text, value);
        statement.bindText(parameter, text);
    } else {
        withElementOf(value.type, [&](auto number) {
            std::memcpy(&number, value.content.data(), sizeof(number));
            bindNumber(statement, parameter, number, text);
        });
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
    if (statement.columnType(column) != SQLITE_TEXT) {
        misfit = shown(statement, column);
        return false;
    }
    return parseArray(statement.bytes(column), value, misfit);
}

} // namespace storage
