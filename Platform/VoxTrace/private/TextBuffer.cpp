#include "TextBuffer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

namespace voxtrace {

TextBuffer::~TextBuffer() {
    delete[] m_heap;
}

void TextBuffer::append(std::string_view text) noexcept {
    if (text.size() > room() && !makeRoom(text.size())) {
        text = text.substr(0, room());
        m_cut = true;
    }
    if (!text.empty()) {
        std::memcpy(end(), text.data(), text.size());
        m_size += text.size();
    }
}

void TextBuffer::appendFormat(const char *format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    appendFormat(format, arguments);
    va_end(arguments);
}

void TextBuffer::appendFormat(const char *format, std::va_list arguments) noexcept {
    std::va_list again;
    va_copy(again, arguments);
    // The terminating NUL may fall on the first byte that close() keeps for itself.
    auto length = std::vsnprintf(end(), room() + 1, format, arguments);
    if (length > 0 && static_cast<std::size_t>(length) > room()) {
        if (makeRoom(static_cast<std::size_t>(length))) {
            length = std::vsnprintf(end(), room() + 1, format, again);
        } else {
            length = static_cast<int>(room());
            m_cut = true;
        }
    }
    va_end(again);
    if (length < 0) {
        append(format); // not printable with these arguments; the bare format still tells the place
        return;
    }
    m_size += static_cast<std::size_t>(length);
}

void TextBuffer::clear() noexcept {
    constexpr std::size_t largestKept = 16 * ownCapacity;
    if (m_capacity > largestKept) {
        delete[] m_heap;
        m_heap = nullptr;
        m_capacity = ownCapacity;
    }
    m_size = 0;
    m_cut = false;
}

void TextBuffer::close() noexcept {
    const auto mark = m_cut ? cutMark : cutMark.substr(cutMark.size() - 1);
    std::memcpy(end(), mark.data(), mark.size());
    m_size += mark.size();
}

bool TextBuffer::makeRoom(std::size_t size) noexcept {
    const auto capacity = std::max(2 * m_capacity, m_size + size + cutMark.size());
    auto *const block = new (std::nothrow) char[capacity];
    if (block == nullptr) {
        return false;
    }
    std::memcpy(block, begin(), m_size);
    delete[] m_heap;
    m_heap = block;
    m_capacity = capacity;
    return true;
}

} // namespace voxtrace
