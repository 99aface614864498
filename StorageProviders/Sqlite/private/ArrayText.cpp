#include "ArrayText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "Number.h"

namespace storage {
namespace {

constexpr std::string_view blanks = " \t\r\n";

/// The elements of an array's text, one after the other.
class Elements {
public:
    explicit Elements(std::string_view text) : m_rest(text) {}

    /// @return whether the text so far was well formed.
    bool begin() {
        const bool opened = take('[');
        m_isAtEnd = opened && take(']');
        return opened;
    }

    bool isAtEnd() const { return m_isAtEnd; }
    bool isTextAtEnd() {
        skipBlanks();
        return m_rest.empty();
    }

    /// @param element  receives the next one, without its quotation marks.
    bool next(std::string_view &element) {
        skipBlanks();
        if (take('"')) {
            const std::size_t length = m_rest.find('"');
            if (length == std::string_view::npos) {
                return false;
            }
            element = m_rest.substr(0, length);
            m_rest.remove_prefix(length + 1);
        } else {
            element = m_rest.substr(0, m_rest.find_first_of(",] \t\r\n"));
            m_rest.remove_prefix(element.size());
        }
        m_isAtEnd = take(']');
        return m_isAtEnd || take(',');
    }

private:
    void skipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(blanks), m_rest.size())); }

    bool take(char expected) {
        skipBlanks();
        if (m_rest.empty() || m_rest.front() != expected) {
            return false;
        }
        m_rest.remove_prefix(1);
        return true;
    }

    std::string_view m_rest;
    bool m_isAtEnd = false;
};

template <class Number>
void appendElement(std::string &text, const void *place) {
    if constexpr (std::is_floating_point_v<Number>) {
        if (!std::isfinite(numberAt<Number>(place))) {
            text += '"';
            appendNumber<Number>(text, place);
            text += '"';
            return;
        }
    }
    appendNumber<Number>(text, place);
}

template <class Number>
bool parseElements(std::string_view text, StoredValue &value, std::string &misfit) {
    Elements elements(text);
    bool isWellFormed = elements.begin();
    std::size_t count = 0;
    std::array<unsigned char, sizeof(Number)> spare{}; // for what is one too many
    for (; isWellFormed && !elements.isAtEnd(); ++count) {
        std::string_view element;
        isWellFormed = elements.next(element);
        unsigned char *place =
            count < value.noOfElements ? value.content.data() + count * sizeof(Number) : spare.data();
        if (isWellFormed && !parseNumber<Number>(element, place)) {
            misfit = "element " + std::to_string(count) + " is " + std::string(element.substr(0, 40));
            return false;
        }
    }
    if (!isWellFormed || !elements.isTextAtEnd()) {
        misfit = "no array like [1,2,3] but " + std::string(text.substr(0, 40));
        return false;
    }
    if (count != value.noOfElements) {
        misfit = "an array of " + std::to_string(count);
        return false;
    }
    return true;
}

} // namespace

void appendArray(std::string &text, const ValueView &value) {
    withElementOf(value.type, [&](auto number) {
        text += '[';
        for (std::size_t i = 0; i < value.size; i += sizeof(number)) {
            if (i > 0) {
                text += ',';
            }
            appendElement<decltype(number)>(text, value.content + i);
        }
        text += ']';
    });
}

bool parseArray(std::string_view text, StoredValue &value, std::string &misfit) {
    return withElementOf(value.type, [&](auto number) { return parseElements<decltype(number)>(text, value, misfit); });
}

} // namespace storage
