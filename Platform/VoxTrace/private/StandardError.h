#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace voxtrace {

/// The way out that needs no memory, no lock and no stream.
inline void writeToStandardError(std::string_view text) noexcept {
    while (!text.empty()) {
        const auto written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace voxtrace
