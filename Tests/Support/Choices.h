/// @file
/// Where a walk through operations takes its decisions from: a random generator, or the bytes of a fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace test {

class Choices {
public:
    virtual ~Choices() = default;

    /// @param limit  at least 1. @return a number below it.
    virtual std::uint32_t below(std::uint32_t limit) = 0;

    /// @return whether every further choice would be the same.
    virtual bool isAtEnd() const { return false; }

    bool oneIn(std::uint32_t chances) { return below(chances) == 0; }

    template <class Value, std::size_t size>
    Value any(const Value (&values)[size]) {
        return values[below(static_cast<std::uint32_t>(size))];
    }
};

class RandomChoices : public Choices {
public:
    explicit RandomChoices(std::uint32_t seed) : m_random(seed) {} // NOLINT(cert-msc51-cpp): repeatable on purpose

    std::uint32_t below(std::uint32_t limit) override {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(m_random);
    }

private:
    std::mt19937 m_random;
};

} // namespace test
