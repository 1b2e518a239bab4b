#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "io/IoLoop.h"

/// The loop of the gate: I/O, times and signals on one thread.
class GateLoop : public IoLoop {
 public:
  GateLoop();
  ~GateLoop();

  /// Runs until a stop is asked for.
  void Run();
  void Stop();
  /// SIGTERM and SIGINT stop it from now on.
  void StopBySignals();
  /// Has the loop run the action. From any thread.
  void Post(std::function<void()> action);
  /// The same after so long, on the loop's thread.
  void After(std::chrono::milliseconds time, std::function<void()> action);

 private:
  struct Library;
  std::unique_ptr<Library> m_library;
};
