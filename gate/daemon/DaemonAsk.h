#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"

/// One question to the daemon, on a connection of its own, which is how any client reads: one line
/// of JSON goes to its control socket, the bytes of the answer come back as they are. Freeing it
/// ends it. For the loop's thread.
class DaemonAsk {
 public:
  enum class End {
    kClosed,    ///< the other end has closed
    kNoDaemon,  ///< no connection, or it broke off
    kTimeOut,   ///< silence for too long
  };
  /// Takes the next bytes; it may free the question.
  using OnBytes = std::function<void(std::string_view bytes)>;
  /// Called once at the end, unless the question was freed before; it may free it.
  using OnEnd = std::function<void(End end)>;

  /// `silence`: the longest wait for the next bytes, 0 for no limit.
  DaemonAsk(IoLoop& loop, std::chrono::milliseconds silence);
  ~DaemonAsk();
  DaemonAsk(const DaemonAsk&) = delete;
  DaemonAsk& operator=(const DaemonAsk&) = delete;

  /// Sends `line`, given without its newline, to the socket at `path`. What fails is told from the
  /// loop.
  void Start(const std::string& path, std::string line, OnBytes onBytes, OnEnd onEnd);
  /// Sends a further line, as clients do that stay.
  void Say(std::string line);

 private:
  void WaitForBytes();
  void Read();
  void Finish(End end);
  [[nodiscard]] bool Send(const std::string& line) const;

  std::chrono::milliseconds m_silence;
  LoopDescriptor m_socket;
  LoopTimer m_timer;
  OnBytes m_onBytes;
  OnEnd m_onEnd;
  std::shared_ptr<bool> m_isAlive = std::make_shared<bool>(true);
};
