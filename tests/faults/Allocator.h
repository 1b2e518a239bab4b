#pragma once

#include <cstddef>

/// The allocator of this test program, all of whose operators end here.
namespace faults {

/// Counts the allocations of the calling thread from now on; the `place`-th throws std::bad_alloc.
void CountAllocations(std::size_t place);
/// Their number; no longer counted.
std::size_t StopCountingAllocations();

/// Told by whatever fails.
void NoteFailure();

}  // namespace faults
