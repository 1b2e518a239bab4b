#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "io/LoopTimer.h"
#include "local/schedule/RecordAsker.h"
#include "node/Node.h"

/// How a request of a batch ended.
enum class RequestOutcome { kDone, kUnknownRecord, kNotServed, kBuildFailed };

/// How a batch went.
struct BatchReport {
  std::chrono::steady_clock::time_point end;
  std::chrono::steady_clock::duration duration{};
  std::size_t records = 0;  ///< records asked for
  std::size_t errors = 0;   ///< how many of them were not built
};

/// What is known of a record before it is asked for: kDone if it is served. Category 0 is any.
[[nodiscard]] RequestOutcome CheckRecord(const std::string& record, unsigned char category);

/// Sends batches to the agent, one at a time, but for those that are sent while one is held back.
class BatchDesk {
 public:
  /// Without a loop, memory is given back with the batches alone.
  BatchDesk() = default;
  /// `loop` outlives it. `releasePause`: the least time between two releases of memory.
  explicit BatchDesk(IoLoop& loop,
                     std::chrono::steady_clock::duration releasePause = kReleasePause);
  /// Delivers one batch with the request of each asker, takes the answers over and returns the
  /// outcomes in the same order. `refused` requests were refused beforehand and only count.
  std::vector<RequestOutcome> Send(CMBNode& node,
                                   std::span<const std::shared_ptr<RecordAsker>> askers,
                                   std::size_t refused);
  /// The same of a batch that schedules make.
  std::vector<RequestOutcome> SendOfSchedule(CMBNode& node,
                                             std::span<const std::shared_ptr<RecordAsker>> askers);
  /// Gives back to the system what the answers before the last ones held, which would else stay
  /// with the allocator: for when nobody keeps their rows any more. Does so at most once in ten
  /// seconds; what comes in between is given back at their end.
  void ReleaseMemory();
  /// What the rows of answers on demand may hold, of all clients together. One large answer may
  /// exceed it, but neither many copies of it in one request nor those of many clients.
  void SetMaxHeldBytes(std::size_t bytes) { m_maxHeldBytes = bytes; }
  /// Whether these may be asked for, by what their records held when they were last built; one
  /// that never was counts as the largest of them, and an eighth of all that may be held at the
  /// least.
  [[nodiscard]] bool MayHold(std::span<const std::shared_ptr<RecordAsker>> askers) const;
  /// The agent has reported, by its numbered message, that this record's builder failed.
  void NoteFailedBuild(const std::string& record);
  /// Nothing until a batch is done.
  [[nodiscard]] const std::optional<BatchReport>& Last() const { return m_last; }
  /// The same of the batches of schedules alone: what is asked for in between says nothing of them.
  [[nodiscard]] const std::optional<BatchReport>& LastOfSchedule() const {
    return m_lastOfSchedule;
  }
  /// Since the start: batches, and rows that they made.
  [[nodiscard]] std::uint64_t Batches() const { return m_batches; }
  [[nodiscard]] std::uint64_t RowsMade() const { return m_rowsMade; }

 private:
  /// Pages that the next batch needs at once are better kept.
  static constexpr std::chrono::seconds kReleasePause{10};

  /// Takes what a batch has put into the event of the asker, or drops it; how that ended.
  [[nodiscard]] RequestOutcome Settle(RecordAsker& asker, bool isBatchDone);

  std::optional<BatchReport> m_last;
  std::optional<BatchReport> m_lastOfSchedule;
  std::uint64_t m_batches = 0;
  std::uint64_t m_rowsMade = 0;
  std::size_t m_maxHeldBytes = std::size_t{128} << 20;
  std::map<std::string, std::size_t> m_bytes;  ///< of each record's rows, when it was last built
  std::size_t m_largestSinceRelease = 0;       ///< rows of a batch
  std::chrono::steady_clock::duration m_releasePause = kReleasePause;
  std::optional<LoopTimer> m_releaseTimer;
  std::chrono::steady_clock::time_point m_nextRelease{};
  bool m_isSending = false;
  std::set<std::string> m_failedBuilds;
};
