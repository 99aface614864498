/// @file
/// A fuzzer's bytes, taken apart from their beginning.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Choices.h"

namespace fuzz {

using Bytes = std::vector<unsigned char>;

/// Behind their end the bytes go on with zeros.
class FuzzInput : public test::Choices {
public:
    FuzzInput(const std::uint8_t *data, std::size_t size) : m_at(data), m_left(size) {}

    bool isAtEnd() const override { return m_left == 0; }
    std::size_t left() const { return m_left; }

    std::uint8_t byte() {
        if (m_left == 0) {
            return 0;
        }
        --m_left;
        return *m_at++;
    }

    /// In the same order on every machine.
    std::uint32_t word() {
        std::uint32_t word = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            word |= static_cast<std::uint32_t>(byte()) << shift;
        }
        return word;
    }

    /// Takes as few bytes as the limit needs, so that a small change of the input stays one.
    std::uint32_t below(std::uint32_t limit) override {
        std::uint32_t number = byte();
        if (limit > 0x100) {
            number |= static_cast<std::uint32_t>(byte()) << 8;
        }
        if (limit > 0x10000) {
            number |= static_cast<std::uint32_t>(byte()) << 16;
            number |= static_cast<std::uint32_t>(byte()) << 24;
        }
        return number % limit;
    }

    /// As many as there are, at most.
    Bytes bytes(std::size_t size) {
        const std::size_t taken = std::min(size, m_left);
        Bytes bytes(m_at, m_at + taken);
        m_at += taken;
        m_left -= taken;
        return bytes;
    }
    Bytes rest() { return bytes(m_left); }

    std::string text(std::size_t size) {
        const Bytes taken = bytes(size);
        return {taken.begin(), taken.end()};
    }

private:
    const std::uint8_t *m_at;
    std::size_t m_left;
};

/// A walk that its input leads to its end.
template <class Walk>
void walkToTheEnd(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    Walk walk(input);
    while (!input.isAtEnd()) {
        walk.step();
    }
}

} // namespace fuzz
