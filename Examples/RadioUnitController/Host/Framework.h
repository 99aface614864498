/// @file
/// The framework's three services, and what the configuration asks them to know.
#pragma once

#include <cstdint>

namespace radio {

/// Initializes the services and undoes it, in this process's one right order each.
class Framework {
public:
    /// @throw std::runtime_error  a service refused; the text says which and what to look at.
    explicit Framework(int32_t port);
    Framework(const Framework &) = delete;
    Framework &operator=(const Framework &) = delete;

    /// Every module and listener must be gone before.
    ~Framework();

    /// Registers the tables of Configuration.h: groups, batches, phases, their links, and events.
    /// @throw std::runtime_error  one of them was refused; the text says which.
    static void registerConfiguration();
};

} // namespace radio
