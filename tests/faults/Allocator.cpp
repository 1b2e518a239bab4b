#include "tests/faults/Allocator.h"

#include <execinfo.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

// The linker's, around the program's code.
extern const char __executable_start;
extern const char etext;

namespace {

// Plain values, so that the operators need no constructor and no allocation of their own.
thread_local bool t_isCounting = false;
thread_local std::size_t t_count = 0;
thread_local std::size_t t_failing = 0;
thread_local std::size_t t_failingInARow = 0;
std::atomic<bool> g_isCountingAll = false;
std::atomic<std::size_t> g_countOfAll = 0;
std::size_t g_failingOfAll = 0;

thread_local bool t_isWatching = false;
std::size_t g_watchedPlace = 0;
std::size_t g_turnsLeft = 0;
std::array<std::size_t, std::size_t{1} << 17U> g_seenPlaces;
std::atomic<std::size_t> g_seenCount = 0;

/// The hash of those callers that are in this program (FNV-1a), the same in each of its processes;
/// never 0.
std::size_t PlaceOfCallers() noexcept {
  constexpr int kCallers = 24;
  std::array<void*, kCallers> callers;
  const int depth = ::backtrace(callers.data(), kCallers);
  std::size_t place = 14695981039346656037U;
  for (int at = 0; at < depth; ++at) {
    const char* caller = static_cast<const char*>(callers[static_cast<std::size_t>(at)]);
    if (caller >= &__executable_start && caller < &etext) {
      place = (place ^ static_cast<std::size_t>(caller - &__executable_start)) * 1099511628211U;
    }
  }
  return place | 1U;
}

bool IsFailingPlace() noexcept {
  const std::size_t place = PlaceOfCallers();
  if (g_seenCount < g_seenPlaces.size()) {
    g_seenPlaces[g_seenCount++] = place;
  }
  return place == g_watchedPlace && g_turnsLeft != 0 && --g_turnsLeft == 0;
}

bool IsTurn() noexcept {
  if (t_isWatching) {
    return IsFailingPlace();
  }
  if (g_isCountingAll) {
    return ++g_countOfAll == g_failingOfAll;
  }
  return t_isCounting && ++t_count >= t_failing && t_count < t_failing + t_failingInARow;
}

bool IsToFail() noexcept {
  if (!IsTurn()) {
    return false;
  }
  faults::NoteFailure();
  return true;
}

void* Allocate(std::size_t size) noexcept {
  return IsToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* AllocateAligned(std::size_t size, std::size_t alignment) noexcept {
  // The size is to be a multiple of the alignment.
  return IsToFail() ? nullptr
                    : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* OrThrow(void* memory) {
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

void faults::CountAllocations(std::size_t place, std::size_t inARow) {
  t_count = 0;
  t_failing = place;
  t_failingInARow = place == 0 ? 0 : inARow;
  t_isCounting = true;
}

void faults::CountAllocationsOfAll(std::size_t place) {
  g_countOfAll = 0;
  g_failingOfAll = place;
  g_isCountingAll = true;
}

std::size_t faults::StopCountingAllocationsOfAll() {
  g_isCountingAll = false;
  return g_countOfAll;
}

std::size_t faults::StopCountingAllocations() {
  t_isCounting = false;
  return t_count;
}

void faults::WatchPlaces(std::size_t place, std::size_t turn) {
  g_watchedPlace = place;
  g_turnsLeft = turn;
  g_seenCount = 0;
  t_isWatching = true;
}

std::size_t faults::CountWatched() { return g_seenCount; }

std::vector<std::size_t> faults::StopWatchingPlaces() {
  t_isWatching = false;
  return {g_seenPlaces.data(), g_seenPlaces.data() + g_seenCount};
}

void* operator new(std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new[](std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return OrThrow(AllocateAligned(size, static_cast<std::size_t>(alignment)));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return OrThrow(AllocateAligned(size, static_cast<std::size_t>(alignment)));
}
// Where one of a pair alone is written out in place, the compiler takes them for a mismatch.
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
