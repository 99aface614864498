/// @file
/// A buffer that notices when somebody writes beside it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace fuzz {

class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t size) : m_size(size), m_bytes(size + 2 * guard, pattern) {}

    char *data() { return m_bytes.data() + guard; }
    std::size_t size() const { return m_size; }

    bool isGuardWhole() const {
        const auto isPattern = [](char byte) { return byte == pattern; };
        return std::all_of(m_bytes.begin(), m_bytes.begin() + guard, isPattern) &&
               std::all_of(m_bytes.end() - guard, m_bytes.end(), isPattern);
    }

    /// Whether a byte still is what nobody wrote.
    bool isUntouched(std::size_t index) const { return m_bytes[guard + index] == pattern; }

private:
    static constexpr std::ptrdiff_t guard = 64;
    static constexpr char pattern = '\xA5';

    std::size_t m_size;
    std::vector<char> m_bytes;
};

} // namespace fuzz
