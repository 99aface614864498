/// @file
/// What the process has taken from the C library's heap, whoever took it.
#pragma once

#include <cstddef>

struct HeapCount {
    std::size_t blocks; ///< In use.
    std::size_t bytes;  ///< What the allocator set aside for them, without its own word in front of each.
};

/// Exact: the program replaces malloc and its relatives, and so the libraries' operator new too.
HeapCount heapInUse() noexcept;
