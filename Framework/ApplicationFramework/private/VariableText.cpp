// Variables as text: the form that has always been, and the safe one beside it.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "CVariable.h"
#include "VariableType.h"

namespace {

constexpr char objectText[] = "Sorry, ToString(TYPE_OBJECT) is not supported";
constexpr char objectArrayText[] = "Sorry, ToString(TYPE_OBJECT_ARRAY) is not supported";
constexpr char unknownTypeText[] = "Unknown variable type";
constexpr char separator[] = " ,";

constexpr std::size_t longestItem = 32; ///< "-2.2250738585072014e-308" and any integer fit with room.

/// The element as it lies in memory, in its own width.
template <class Element>
Element elementAt(const CVariable &variable, std::uint32_t index) {
    Element element;
    std::memcpy(&element, static_cast<const char *>(variable.content) + index * sizeof(Element), sizeof element);
    return element;
}

/// The four bytes at index * 4, whatever the type's width. A block that the variable made ends where it ends: what
/// lies behind counts as zero. Nothing is known of the end of the caller's own.
std::int32_t wordAt(CVariable &variable, std::uint32_t index) {
    const std::size_t offset = std::size_t{index} * sizeof(std::int32_t);
    std::size_t available = sizeof(std::int32_t);
    if (variable.accessType == ByValue) {
        const std::size_t size = CVariable_GetSizeInBytes(&variable);
        available = offset < size ? std::min(available, size - offset) : 0;
    }
    std::int32_t word = 0;
    std::memcpy(&word, static_cast<const char *>(variable.content) + offset, available);
    return word;
}

void copyText(char *buffer, std::uint32_t size, const char *text) {
    std::snprintf(buffer, size, "%s", text);
}

/// Builds an array's text piece by piece. Each piece is bounded by the buffer's size, not by the space left in it:
/// callers bring a buffer for the whole text.
class PieceWriter {
public:
    PieceWriter(char *buffer, std::uint32_t size) : m_end(buffer), m_size(size) {
        std::memset(buffer, 0, size);
        *m_end++ = '[';
    }

    void append(const char *piece) {
        const std::size_t length = strnlen(piece, m_size);
        std::memcpy(m_end, piece, length);
        m_end += length;
        *m_end = '\0';
    }

private:
    char *m_end;
    std::uint32_t m_size;
};

template <class Format>
void arrayToString(CVariable &variable, char *buffer, std::uint32_t size, Format format) {
    PieceWriter writer(buffer, size);
    for (std::uint32_t i = 0; i < variable.noOfElements; ++i) {
        char item[longestItem];
        format(item, i);
        writer.append(item);
        if (i + 1 < variable.noOfElements) {
            writer.append(separator);
        }
    }
    writer.append("]");
}

void stringToString(CVariable &variable, char *buffer, std::uint32_t size) {
    const std::size_t length =
        strnlen(static_cast<const char *>(variable.content), std::min(size, CVariable_GetSizeInBytes(&variable)));
    std::memcpy(buffer, variable.content, length);
    std::memset(buffer + length, 0, size - length);
}

/// Collects a text in a buffer of any size and counts what it would have needed.
class BoundedWriter {
public:
    BoundedWriter(char *buffer, std::uint32_t size) : m_buffer(buffer), m_size(size) {}

    void add(const char *text, std::size_t length) {
        if (m_length < m_size) {
            std::memcpy(m_buffer + m_length, text,
                        static_cast<std::size_t>(std::min<std::uint64_t>(length, m_size - m_length)));
        }
        m_length += length;
    }
    void add(const char *text) { add(text, std::strlen(text)); }

    /// Terminates. @return whether the whole text was taken.
    bool finish(std::uint32_t *needed) {
        if (m_size != 0) {
            m_buffer[std::min<std::uint64_t>(m_length, m_size - 1)] = '\0';
        }
        if (needed != nullptr) {
            *needed = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_length + 1, UINT32_MAX));
        }
        return m_length < m_size;
    }

private:
    char *m_buffer;
    std::uint32_t m_size;
    std::uint64_t m_length = 0;
};

template <class Element, class Shown>
void formatElement(char (&item)[longestItem], const CVariable &variable, std::uint32_t index, const char *format) {
    std::snprintf(item, sizeof item, format, static_cast<Shown>(elementAt<Element>(variable, index)));
}

/// @return whether the type is one whose elements are shown.
bool formatItem(char (&item)[longestItem], const CVariable &variable, std::uint32_t index) {
    switch (variable.type) {
    case TYPE_INT8:
    case TYPE_INT8_ARRAY:
    case TYPE_CHAR:
    case TYPE_CHAR_ARRAY:
        formatElement<std::int8_t, int>(item, variable, index, "%d");
        return true;
    case TYPE_INT16:
    case TYPE_INT16_ARRAY:
        formatElement<std::int16_t, int>(item, variable, index, "%d");
        return true;
    case TYPE_INT32:
    case TYPE_INT32_ARRAY:
        formatElement<std::int32_t, int>(item, variable, index, "%d");
        return true;
    case TYPE_UINT8:
    case TYPE_UINT8_ARRAY:
        formatElement<std::uint8_t, unsigned>(item, variable, index, "%u");
        return true;
    case TYPE_UINT16:
    case TYPE_UINT16_ARRAY:
        formatElement<std::uint16_t, unsigned>(item, variable, index, "%u");
        return true;
    case TYPE_UINT32:
    case TYPE_UINT32_ARRAY:
        formatElement<std::uint32_t, unsigned>(item, variable, index, "%u");
        return true;
    case TYPE_BOOL:
    case TYPE_BOOL_ARRAY:
        copyText(item, sizeof item, elementAt<std::uint32_t>(variable, index) != 0 ? "true" : "false");
        return true;
    case TYPE_FLOAT:
    case TYPE_FLOAT_ARRAY:
        formatElement<float, double>(item, variable, index, "%e");
        return true;
    case TYPE_DOUBLE:
    case TYPE_DOUBLE_ARRAY:
        formatElement<double, double>(item, variable, index, "%e");
        return true;
    default:
        return false;
    }
}

void formatText(CVariable &variable, BoundedWriter &writer) {
    char item[longestItem];
    if (isArrayOfItems(variable.type)) {
        writer.add("[");
        for (std::uint32_t i = 0; i < variable.noOfElements; ++i) {
            formatItem(item, variable, i);
            writer.add(i != 0 ? separator : "");
            writer.add(item);
        }
        writer.add("]");
    } else if (variable.type == TYPE_STRING) {
        const auto *text = static_cast<const char *>(variable.content);
        writer.add(text, strnlen(text, CVariable_GetSizeInBytes(&variable)));
    } else if (variable.type == TYPE_OBJECT) {
        writer.add(objectText);
    } else if (variable.type == TYPE_OBJECT_ARRAY) {
        writer.add(objectArrayText);
    } else {
        writer.add(formatItem(item, variable, 0) ? item : unknownTypeText);
    }
}

} // namespace

EAFResult CVariable_ToString(CVariable *variable, char *buffer, uint32_t size) {
    if (variable == nullptr || buffer == nullptr || size == 0) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (variable->content == nullptr) {
        return eAF_E_NOT_INITIALIZED;
    }
    switch (variable->type) {
    case TYPE_INT8:
    case TYPE_INT16:
    case TYPE_INT32:
    case TYPE_UINT8:
    case TYPE_UINT16:
    case TYPE_UINT32:
    case TYPE_CHAR:
        std::snprintf(buffer, size, "%d", wordAt(*variable, 0));
        break;
    case TYPE_INT8_ARRAY:
    case TYPE_INT16_ARRAY:
    case TYPE_INT32_ARRAY:
    case TYPE_UINT8_ARRAY:
    case TYPE_UINT16_ARRAY:
    case TYPE_UINT32_ARRAY:
    case TYPE_CHAR_ARRAY:
        arrayToString(*variable, buffer, size, [variable](char(&item)[longestItem], std::uint32_t index) {
            std::snprintf(item, sizeof item, "%d", wordAt(*variable, index));
        });
        break;
    case TYPE_BOOL:
    case TYPE_FLOAT:
    case TYPE_DOUBLE: {
        char item[longestItem];
        formatItem(item, *variable, 0);
        copyText(buffer, size, item);
        break;
    }
    case TYPE_BOOL_ARRAY:
    case TYPE_FLOAT_ARRAY:
    case TYPE_DOUBLE_ARRAY:
        arrayToString(*variable, buffer, size, [variable](char(&item)[longestItem], std::uint32_t index) {
            formatItem(item, *variable, index);
        });
        break;
    case TYPE_STRING:
        stringToString(*variable, buffer, size);
        break;
    case TYPE_OBJECT:
        copyText(buffer, size, objectText);
        break;
    case TYPE_OBJECT_ARRAY:
        copyText(buffer, size, objectArrayText);
        break;
    default:
        copyText(buffer, size, unknownTypeText);
        break;
    }
    return eAF_S_OK;
}

EAFResult CVariable_FormatText(CVariable *variable, char *buffer, uint32_t size, uint32_t *needed) {
    if (variable == nullptr || (buffer == nullptr && size != 0)) {
        return eAF_E_INVALID_ARGUMENT;
    }
    if (variable->content == nullptr) {
        return eAF_E_NOT_INITIALIZED;
    }
    BoundedWriter writer(buffer, size);
    formatText(*variable, writer);
    return writer.finish(needed) ? eAF_S_OK : eAF_E_BUFFER_TOO_SMALL;
}
