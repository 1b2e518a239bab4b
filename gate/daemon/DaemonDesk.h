#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "gate/daemon/DaemonAsk.h"
#include "io/MemoryRest.h"
#include "json/Json.h"

/// What the daemon is asked by the whole gate. A few questions are under way at a time, so that the
/// daemon keeps room for other clients; the others wait. For the loop's thread.
class DaemonDesk {
 public:
  /// One question; freeing it takes it back.
  class Question;
  using QuestionPtr = std::shared_ptr<Question>;

  enum class End {
    kDone,      ///< `take` said so
    kNoDaemon,  ///< there is none, or its answer broke off
    kTimeOut,   ///< it was silent for kSilence
    kBusy,      ///< kMostWaiting wait already
  };
  /// Takes the next bytes of the answer; false once it needs no more.
  using Take = std::function<bool(std::string_view bytes)>;
  using Done = std::function<void(End end)>;

  static constexpr std::size_t kMostAtWork = 12;
  static constexpr std::size_t kMostWaiting = 512;
  static constexpr std::chrono::seconds kSilence{20};

  DaemonDesk(IoLoop& loop, std::string path)
      : m_loop(loop), m_path(std::move(path)), m_memory(loop), m_end(loop) {}
  ~DaemonDesk();
  DaemonDesk(const DaemonDesk&) = delete;
  DaemonDesk& operator=(const DaemonDesk&) = delete;

  /// Asks; `done` is called from the loop, once, unless the question is freed before.
  [[nodiscard]] QuestionPtr Ask(const Json& request, Take take, Done done);
  /// The same for an answer of one line, which is parsed: null where there is none. A `done` that
  /// ends for want of memory is called once more, with null.
  using DoneJson = std::function<void(const Json& answer)>;
  [[nodiscard]] QuestionPtr AskJson(const Json& request, DoneJson done);

  [[nodiscard]] const std::string& Path() const { return m_path; }
  [[nodiscard]] IoLoop& Loop() { return m_loop; }
  /// Hears of all bytes that the daemon sends.
  [[nodiscard]] MemoryRest& Memory() { return m_memory; }

 private:
  void StartNext();
  /// Makes all that it needs when its turn comes.
  void Prepare(const QuestionPtr& question);
  void Begin(const QuestionPtr& question);

  IoLoop& m_loop;
  std::string m_path;
  MemoryRest m_memory;
  std::size_t m_atWork = 0;
  std::deque<std::weak_ptr<Question>> m_waiting;
  LoopTimer m_end;
  std::deque<Done> m_refused;
  std::shared_ptr<bool> m_isAlive = std::make_shared<bool>(true);
};
