#pragma once

#include <cstddef>

/// The allocator of this test program, all of whose operators end here.
namespace faults {

/// Counts the allocations of the calling thread from now on; the `place`-th throws std::bad_alloc,
/// and so do those behind it that are `inARow` with it.
void CountAllocations(std::size_t place, std::size_t inARow = 1);
/// Their number; no longer counted.
std::size_t StopCountingAllocations();

/// The same of the allocations of all threads together.
void CountAllocationsOfAll(std::size_t place);
std::size_t StopCountingAllocationsOfAll();

/// Told by whatever fails.
void NoteFailure();

}  // namespace faults
