/// @file
/// Counts the allocations of the whole program, the library's included, and refuses some of them.
#pragma once

namespace test {

/// While it lives, `operator new` is counted and refused as it says. One at a time, on one thread.
class AllocationProbe {
public:
    static constexpr unsigned none = ~0u;

    /// Refuses the allocation with this number, counted from 0.
    static AllocationProbe refusingOnly(unsigned number) { return {number, false}; }
    /// Refuses that allocation and all behind it.
    static AllocationProbe refusingFrom(unsigned number) { return {number, true}; }

    AllocationProbe() : AllocationProbe(none, false) {}
    ~AllocationProbe();
    AllocationProbe(const AllocationProbe &) = delete;
    AllocationProbe &operator=(const AllocationProbe &) = delete;

    static unsigned allocations(); ///< Asked for since it was made, the refused ones included.
    static unsigned refusals();

    /// Blocks that are allocated now, in the whole program.
    static long blocks();

private:
    AllocationProbe(unsigned number, bool allBehind);
};

} // namespace test
