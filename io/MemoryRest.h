#pragma once

#include <chrono>
#include <cstddef>

#include "io/LoopTimer.h"

/// Gives the system what a start or a rush has left in the process and nothing needs any more:
/// freed memory that the allocator keeps, and pages of the program and its libraries, which come
/// back from their files where they are called again. It is done when the rush is over.
class MemoryRest {
 public:
  /// Bytes of answers that are a rush; it is over when a quarter of it or less comes in a delay.
  static constexpr std::size_t kRush = std::size_t{4} << 20;

  /// `loop` outlives it.
  explicit MemoryRest(IoLoop& loop,
                      std::chrono::steady_clock::duration delay = std::chrono::seconds(2))
      : m_delay(delay), m_timer(loop) {}

  /// The process has just done what it seldom does, as its start.
  void NoteRareWork();
  /// So many bytes more have passed through the process.
  void NoteBytes(std::size_t bytes);

 private:
  void Look();

  std::chrono::steady_clock::duration m_delay;
  LoopTimer m_timer;
  std::size_t m_bytes = 0;  ///< since the last look
  bool m_isDue = false;     ///< a look
};
