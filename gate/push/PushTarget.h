#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "gate/daemon/DaemonDesk.h"
#include "gate/push/PushBatch.h"
#include "gate/push/PushCursor.h"
#include "gate/push/SampleAnswer.h"
#include "gate/push/TargetSettings.h"
#include "gate/push/WriteRequest.h"
#include "gate/send/Backoff.h"
#include "gate/send/HttpSender.h"
#include "io/LoopTimer.h"

/// What the daemon is told of a target.
struct PushCounts {
  std::uint64_t sentRows = 0;
  std::uint64_t sentSamples = 0;
  std::uint64_t refusedSamples = 0;  ///< passed over as the server refuses them
  std::uint64_t skippedSamples = 0;  ///< the same, by its words for their age
  std::uint64_t requests = 0;
  std::uint64_t failures = 0;  ///< requests that the server has not taken
  std::uint64_t bytes = 0;     ///< of bodies
  double seconds = 0;          ///< that requests took
};

/// How a target works; tests are in more of a hurry.
struct PushPace {
  std::chrono::milliseconds look{5000};  ///< the least between two questions while there is nothing
  std::chrono::milliseconds firstPause{1000};
  std::chrono::milliseconds longestPause{300000};
  std::chrono::milliseconds timeout{30000};  ///< of a request
  std::chrono::milliseconds longestLook{60000};
};

/// Where a target says something.
struct PushHooks {
  std::function<void(const std::string&)> report;  ///< a line for the log
  std::function<void()> onChange;                  ///< Figures() has changed
};

/// Sends the rows that the daemon keeps to one server, in order and none without the server's word
/// that it has it: asks for what stands behind the cursor, sends it, moves the cursor. What the
/// server can't take now is asked for again later; what it refuses for good is passed over and
/// counted. For the loop's thread.
class PushTarget {
 public:
  /// `desk` and `sender` outlive it. `state`: the folder of the cursor, or empty.
  PushTarget(DaemonDesk& desk, HttpSender& sender, TargetSettings settings,
             const std::string& state, PushHooks hooks, const PushPace& pace = {});
  PushTarget(const PushTarget&) = delete;
  PushTarget& operator=(const PushTarget&) = delete;

  /// Begins, out of the loop.
  void Start();
  /// As the operation `gate` takes it.
  [[nodiscard]] Json Figures() const;

 private:
  static constexpr int kHalvesOfOneTime = 32;
  using Clock = std::chrono::steady_clock;

  /// Does a step of what goes on by itself; one that has no memory is tried again from the cursor.
  template <class Action>
  void Guarded(Action action);
  void Ask();
  void AskAfter(Clock::duration pause);
  /// Asks again when there can be new rows.
  void AskForNew();
  void OnAsked(DaemonDesk::End end);
  /// Sends what is next of the batch, as soon as the limit of bytes lets it through.
  void SendNext();
  void Send();
  void OnSent(const SendResult& result, const WriteBody& body);
  void OnFailure(const SendResult& result);
  /// After so many samples were sent and taken, in so long a time.
  void AskForMore(Clock::duration taken, std::size_t sent);
  /// What takes longer than a request may would be sent in vain for ever.
  void AskForLess();
  void OnRefusal(const SendResult& result);
  void PassOver(const SendResult& result);
  void OnBatchDone();
  /// How many rows of the batch the server has taken; where it has refused some samples, by the
  /// share of the others.
  [[nodiscard]] std::uint64_t SentRows() const;
  /// Takes a line for the log.
  void Report(const std::string& line) const;
  /// Notes what keeps the target from getting on, in words; empty for nothing.
  void SetError(std::string error);
  void OnSaved(const std::string& error);
  void TellRefused(const std::string& words, std::size_t samples);

  DaemonDesk& m_desk;
  HttpSender& m_sender;
  TargetSettings m_settings;
  PushHooks m_hooks;
  PushPace m_pace;
  PushCursor m_cursor;
  Backoff m_backoff;
  LoopTimer m_timer;
  std::size_t m_asked;  ///< samples of the next question, as many as a request may take in time
  SampleAnswer m_answer;
  DaemonDesk::QuestionPtr m_question;
  std::optional<PushBatch> m_batch;
  std::uint64_t m_batchSent = 0;  ///< samples of the batch that were taken
  HttpSender::SendingPtr m_sending;
  Clock::time_point m_sendingSince;
  Clock::time_point m_freeAt;  ///< when the limit of bytes lets the next request through
  /// Halves of one time that may still be made before the server takes something again: one that
  /// refuses all is not sent every sample by itself.
  int m_halvesLeft = kHalvesOfOneTime;
  PushCounts m_counts;
  std::int64_t m_oldest = 0;  ///< time of the oldest row that is not sent
  std::string m_error;
  bool m_isDaemonAway = false;
  std::string m_refusal;     ///< what the server has said to the last batch that it refused
  std::string m_stateError;  ///< why the cursor can't be kept
  Clock::time_point m_nextErrorTold;
  bool m_isErrorTold = false;
  Clock::time_point m_nextRefusalTold;
  std::uint64_t m_refusedUntold = 0;  ///< samples
};
