#pragma once

#include <chrono>
#include <functional>
#include <memory>

class IoLoop;

/// A moment that the loop waits for, by the steady clock. One wait at a time: a new one takes the
/// place of that before. For the loop's thread.
class LoopTimer {
 public:
  using Clock = std::chrono::steady_clock;

  /// `loop` outlives it.
  explicit LoopTimer(IoLoop& loop);
  /// Cancels.
  ~LoopTimer();
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  /// Calls the action once at that time, at once if it has passed, out of the loop's own turn: it
  /// only queues tasks or does what is done in no time.
  void At(Clock::time_point time, std::function<void()> action);
  void After(Clock::duration time, std::function<void()> action) {
    At(Clock::now() + time, std::move(action));
  }
  /// The action of a wait under way is not called any more. Harmless if there is none.
  void Cancel();

 private:
  struct State;
  std::shared_ptr<State> m_state;
};
