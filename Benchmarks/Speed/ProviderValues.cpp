#include "ProviderValues.h"

#include <array>
#include <cstdio>

namespace speed {

namespace {

struct Kind {
    EVariableType type;
    std::uint32_t noOfElements;
    std::size_t size;
};

constexpr std::array<Kind, 10> kinds{{{TYPE_INT32, 1, 4},
                                      {TYPE_INT32, 1, 4},
                                      {TYPE_INT32, 1, 4},
                                      {TYPE_INT32, 1, 4},
                                      {TYPE_INT32, 1, 4},
                                      {TYPE_BOOL, 1, 4},
                                      {TYPE_DOUBLE, 1, 8},
                                      {TYPE_FLOAT, 1, 4},
                                      {TYPE_STRING, 32, 32},
                                      {TYPE_INT16_ARRAY, 8, 16}}};

} // namespace

Values::Values(std::size_t count) {
    std::size_t end = 0;
    m_values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const Kind &kind = kinds[i % kinds.size()];
        std::array<char, 112> path{};
        std::snprintf(path.data(), path.size(), "Carrier%03zu/PowerAmplifier%05zu/Parameter%07zu", i / perRegion,
                      i / perObject, i);
        end = (end + kind.size - 1) / kind.size * kind.size;
        m_values.push_back({path.data(), kind.type, kind.noOfElements, end, kind.size});
        end += kind.size;
    }
    m_contents.resize(end);
    changeAll();
}

void Values::change(const Value &value, std::size_t index) {
    const auto number = m_changes * 31 + static_cast<std::uint32_t>(index);
    switch (value.type) {
    case TYPE_INT32:
        setNumber(value, static_cast<std::int32_t>(number) - 1'000'000);
        break;
    case TYPE_BOOL:
        setNumber(value, m_changes & 1);
        break;
    case TYPE_DOUBLE:
        setNumber(value, number / 7.0);
        break;
    case TYPE_FLOAT:
        setNumber(value, static_cast<float>(number % 1'000'000) / 8);
        break;
    case TYPE_STRING: {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "SN-%010u", number);
        std::memcpy(contentOf(value), text.data(), value.size);
        break;
    }
    default:
        for (std::uint32_t i = 0; i < value.noOfElements; ++i) {
            const auto element = static_cast<std::int16_t>((number + i * 100) % 20'000);
            std::memcpy(contentOf(value) + i * sizeof element, &element, sizeof element);
        }
    }
}

void Values::changeAll() {
    ++m_changes;
    for (std::size_t i = 0; i < m_values.size(); ++i) {
        change(m_values[i], i);
    }
}

void Values::changeOne() {
    const std::size_t index = std::size_t{7919} * ++m_changes % m_values.size();
    const std::size_t number = index - index % kinds.size();
    change(m_values[number], number + m_changes);
}

} // namespace speed
