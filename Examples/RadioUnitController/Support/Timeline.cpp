#include "Support/Timeline.h"

namespace radio {

std::chrono::microseconds timeSinceStart() {
    using Clock = std::chrono::steady_clock;
    static const Clock::time_point start = Clock::now();
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
}

std::string seconds(std::chrono::microseconds time) {
    constexpr long long perSecond = 1000000;
    constexpr std::size_t digits = 6;
    const std::string fraction = std::to_string(time.count() % perSecond);
    return std::to_string(time.count() / perSecond) + '.' + std::string(digits - fraction.size(), '0') + fraction;
}

} // namespace radio
