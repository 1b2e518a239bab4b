#pragma once

#include <termios.h>

#include <chrono>

#include "client/show/Terminal.h"

/// While it lives, a terminal on the standard input hands over each key at once and unseen, so that
/// "q" can end a command. Without a terminal, or in the background, there is nothing to wait for.
/// However it ends, by the destructor or by a crash, the terminal is left as it was.
class QuitKey {
 public:
  QuitKey();
  ~QuitKey();
  QuitKey(const QuitKey&) = delete;
  QuitKey& operator=(const QuitKey&) = delete;

  /// Waits until `time`; true if a signal or the key came first.
  [[nodiscard]] bool WaitUntil(std::chrono::steady_clock::time_point time, const StopSignals& stop);

 private:
  /// Sets the mode where the terminal is in another one and this is the foreground.
  void SetKeys();
  /// Takes what was typed; true if "q" was among it.
  [[nodiscard]] bool TakeKeys();

  bool m_isOn;  ///< there is a terminal to read keys from
  bool m_isChanged = false;
  termios m_before{};
};
