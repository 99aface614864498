#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>

namespace voxtrace {

/// Text that needs the heap only beyond its first kilobyte. Short of memory it keeps what fits and says so;
/// it never fails and never throws.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): m_size tells what of the kilobyte counts
class TextBuffer {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): as above
    TextBuffer() noexcept = default;
    ~TextBuffer();
    TextBuffer(const TextBuffer &) = delete;
    TextBuffer &operator=(const TextBuffer &) = delete;

    void append(std::string_view text) noexcept;
    void appendFormat(const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));
    void appendFormat(const char *format, std::va_list arguments) noexcept;

    /// Forgets the text; a large block goes back to the heap.
    void clear() noexcept;

    /// Ends the text with a newline and, if something is missing from it, with a mark of that.
    void close() noexcept;

    std::string_view view() const noexcept { return {begin(), m_size}; }
    bool empty() const noexcept { return m_size == 0; }
    bool isCut() const noexcept { return m_cut; }
    void markCut() noexcept { m_cut = true; }

private:
    static constexpr std::size_t ownCapacity = 1024;
    static constexpr std::string_view cutMark = " ...(cut, out of memory)\n";

    const char *begin() const noexcept { return m_heap != nullptr ? m_heap : m_own; }
    char *end() noexcept { return (m_heap != nullptr ? m_heap : m_own) + m_size; }
    /// What may be appended; close() always finds its room behind that.
    std::size_t room() const noexcept { return m_capacity - cutMark.size() - m_size; }
    bool makeRoom(std::size_t size) noexcept;

    char m_own[ownCapacity];
    char *m_heap = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = ownCapacity;
    bool m_cut = false;
};

} // namespace voxtrace
