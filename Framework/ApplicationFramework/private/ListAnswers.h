/// @file
/// What the platform's lists answer beyond plain success. The platform's headers need not name these.
#pragma once

#include <cstdint>

namespace af {

/// Together with the last element, which is valid. Some platforms also answer it to whoever would iterate an empty
/// list.
constexpr std::uint32_t listLastElement = 0x1002;

/// Nothing to pop or to iterate, or the iteration has ended.
constexpr std::uint32_t listExhausted = 0x8004;

} // namespace af
