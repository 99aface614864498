/// @file
/// Where the event tasks' workers stand: a step that waits for that meets the same calls in every life.
///
/// Linking it into a program is enough: its definition of the receive comes before the system's.
#pragma once

#include <cstddef>
#include <cstdint>

namespace test {

class WorkerReceives {
public:
    /// Workers inside a receive on an open queue.
    static unsigned waiting();
    /// Messages that they have taken since the program's start.
    static std::uint64_t received();

    /// As long as one of these lives, a worker that is inside its receive does not come out of it.
    class Held {
    public:
        Held();
        ~Held();
        Held(const Held &) = delete;
        Held &operator=(const Held &) = delete;
    };
};

/// For a program that lets calls fail: whether this one is to, with errno. Where nobody defines it, none is.
__attribute__((weak)) bool receiveFails();

} // namespace test
