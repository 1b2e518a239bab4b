#pragma once

#include <chrono>
#include <cstddef>

#include "io/LoopTimer.h"

/// Gives the system what a start or a rush has left in the process and nothing needs any more:
/// freed memory that the allocator keeps, and pages of the program and its libraries, which come
/// back from their files where they are called again. It is done when the rush is over. Up to
/// kKept bytes of freed memory stay meanwhile: each new page costs more than most of what is done
/// with it.
class MemoryRest {
 public:
  /// Bytes of answers that are a rush; it is over when a quarter of it or less comes in a delay.
  static constexpr std::size_t kRush = std::size_t{4} << 20;

  /// Freed bytes that the process keeps, and the least that are a mapping of their own, which it
  /// does not keep.
  static constexpr int kKept = 1 << 20;

  /// `loop` outlives it.
  explicit MemoryRest(IoLoop& loop,
                      std::chrono::steady_clock::duration delay = std::chrono::seconds(2));

  /// The process has just done what it seldom does, as its start.
  void NoteRareWork();
  /// The process has done what it does now and then: what that has left is given back once a while
  /// passes without, and not where it comes again and again.
  void NoteWork();
  /// So many bytes more have passed through the process.
  void NoteBytes(std::size_t bytes);

 private:
  void Look();
  void GiveBack();

  std::chrono::steady_clock::duration m_delay;
  LoopTimer m_timer;
  LoopTimer m_quiet;        ///< runs from the last work on
  std::size_t m_bytes = 0;  ///< since the last look
  bool m_isDue = false;     ///< a look
};
