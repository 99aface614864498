#include "Utf8.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

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

/// @return how many ASCII characters the text begins with, counted by the word: paths and texts are mostly these.
std::size_t asciiLength(std::string_view text) {
    constexpr std::uint64_t beyondAscii = 0x8080808080808080u;
    std::size_t length = 0;
    for (std::uint64_t word = 0; text.size() - length >= sizeof word; length += sizeof word) {
        std::memcpy(&word, text.data() + length, sizeof word);
        if ((word & beyondAscii) != 0) {
            break;
        }
    }
    while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) {
        ++length;
    }
    return length;
}

} // namespace

bool isUtf8(std::string_view text) {
    for (text.remove_prefix(asciiLength(text)); !text.empty(); text.remove_prefix(asciiLength(text))) {
        const std::size_t length = utf8Length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

bool isText(std::string_view content, std::string_view &text) {
    text = content.substr(0, content.find('\0'));
    return content.find_first_not_of('\0', text.size()) == std::string_view::npos && isUtf8(text);
}

} // namespace storage
