#pragma once

#include <cstdint>

/// Sends INT, TERM and PWR to the stop handler, which notes the signal in `g_caughtSignal` and asks
/// the run loop to leave, and ignores HUP, QUIT, ALRM, PIPE and CHLD.
void InstallServiceSignals();

/// Has the ends of children taken as they come, instead of ignoring SIGCHLD.
void ReapChildren();

/// SIGUSR2 flips `g_processTraceOn` and `g_collectorLogOn`. The handler writes nothing: it counts
/// into a descriptor that becomes readable, so that the loop writes the trace.
class ToggleSignal {
 public:
  /// Makes the descriptor and installs the handler, or says on standard error why it can't; one
  /// object at a time.
  ToggleSignal();
  /// The handler stays and goes on flipping, without a descriptor.
  ~ToggleSignal();
  ToggleSignal(const ToggleSignal&) = delete;
  ToggleSignal& operator=(const ToggleSignal&) = delete;

  /// Readable after a signal; -1 if it could not be made.
  [[nodiscard]] int Descriptor() const { return m_descriptor; }
  /// The signals that have come since the last call.
  [[nodiscard]] std::uint64_t TakeCount();

 private:
  int m_descriptor;
};
