#pragma once

#include <cstddef>
#include <vector>

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

/// From now on an allocation of the calling thread is known by its callers, a hash of which is its
/// place: the `turn`-th one of `place`, counted from 1, throws; 0 for none. Costs a walk of the
/// stack each.
void WatchPlaces(std::size_t place, std::size_t turn);
/// How many allocations there have been since then, from any thread.
[[nodiscard]] std::size_t CountWatched();
/// The place of each allocation since then.
std::vector<std::size_t> StopWatchingPlaces();

/// Told by whatever fails.
void NoteFailure();

}  // namespace faults
