#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "gate/daemon/DaemonAsk.h"
#include "gate/daemon/DaemonDesk.h"

/// A question that the daemon goes on answering, a line after the other, for as long as the
/// connection lasts. It takes no place of the desk's. For the loop's thread.
class DaemonFollow {
 public:
  /// None of them frees the question. Lines come without their newlines.
  struct Hooks {
    /// The first line; whether the daemon does as it is asked. After a refusal nothing more comes.
    std::function<void(bool isGood, std::string_view line)> onAnswer;
    std::function<void(std::string_view line)> onLine;
    /// Once: the connection is over, or a line was longer than kMaxLine.
    std::function<void()> onEnd;
  };
  static constexpr std::size_t kMaxLine = std::size_t{32} << 20;

  /// `desk` outlives it.
  DaemonFollow(DaemonDesk& desk, const Json& request, Hooks hooks);

 private:
  void Take(std::string_view bytes);
  void TakeLine(std::string_view line);
  void End();

  DaemonDesk& m_desk;
  Hooks m_hooks;
  std::string m_line;         ///< what has come of the next one
  bool m_isAnswered = false;  ///< the first line has come
  bool m_isOver = false;      ///< nothing more is taken
  DaemonAsk m_ask;
};
