#pragma once

#include <functional>
#include <memory>

#include "support/Descriptor.h"

class IoLoop;

/// An open descriptor that the loop waits for. One wait at a time. For the loop's thread.
class LoopDescriptor {
 public:
  /// `loop` outlives it.
  explicit LoopDescriptor(IoLoop& loop);
  /// Closes the descriptor, unless it is borrowed.
  ~LoopDescriptor();
  LoopDescriptor(const LoopDescriptor&) = delete;
  LoopDescriptor& operator=(const LoopDescriptor&) = delete;

  /// Takes the descriptor over, which is made non-blocking. Throws std::system_error for one that
  /// can't be watched.
  void Take(Descriptor descriptor);
  /// The same with one that stays somebody else's, who must not close it before Release.
  void Borrow(int descriptor);
  /// Ends the wait and gives the descriptor away, whosever it is; -1 if there is none.
  [[nodiscard]] int Release();
  /// -1 if there is none.
  [[nodiscard]] int Get() const;

  /// Calls the action once the descriptor is readable, or as if it were: a wake-up may be that of
  /// an earlier descriptor of the same number. Out of the loop's own turn: it only queues tasks or
  /// does what is done in no time. Not called any more after Release or the end of this object.
  void OnReadable(std::function<void()> action);

 private:
  struct State;

  IoLoop& m_loop;
  std::shared_ptr<State> m_state;
};
