/// @file
/// What the process asks its disk for. The time of a flush is the disk's own, and a simulated disk's is next to none:
/// their number stands beside the time.
#pragma once

#include <cstdint>

namespace speed {

struct DiskWork {
    std::uint64_t flushes; ///< fsync, fdatasync, msync, and writes that return when they are durable.
    std::uint64_t bytes;   ///< Handed to the system by calls that write.
};

/// By the calling thread, since its start.
DiskWork diskWork();

} // namespace speed
