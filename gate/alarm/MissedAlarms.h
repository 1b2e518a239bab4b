#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "gate/alarm/Alarm.h"
#include "gate/alarm/AlarmMemory.h"

/// Gathers what has ended since a daemon was followed last, newest first as it tells it, answer by
/// answer.
class MissedAlarms {
 public:
  struct Bounds {
    std::size_t listed = 1000;  ///< alarms of an answer
    int answers = 10;
  };

  /// `before`: what was told when the daemon was followed last; `now`: with what it has told to be
  /// active since, which is `listed`. The first two outlive it.
  MissedAlarms(const AlarmMemory& before, const AlarmMemory& now, const std::set<AlarmKey>& listed,
               Bounds bounds);

  /// What the daemon is to be asked next.
  [[nodiscard]] Json Question() const;
  /// Takes the list of its answer. Whether it is to be asked once more, for older ones.
  [[nodiscard]] bool Take(const Json& list);
  /// Those whose end is news, oldest first.
  [[nodiscard]] const std::set<AlarmPtr, AlarmOrder>& Ended() const { return m_ended; }
  /// How many began and ended that no answer has told of, as there were too many: the numbers that
  /// lack.
  [[nodiscard]] std::uint64_t Lost() const;

 private:
  const AlarmMemory& m_before;
  const AlarmMemory& m_now;
  Bounds m_bounds;
  std::int64_t m_since;
  std::optional<std::int64_t> m_until;  ///< nothing for the first question
  int m_answers = 0;
  /// There were more than an answer holds: further ones are asked for by their begins, which need
  /// not rise with the numbers, so that some may lack.
  bool m_isCut = false;
  std::map<std::int64_t, std::int64_t> m_known;  ///< the begins of those told, by number
  std::set<AlarmPtr, AlarmOrder> m_ended;
};
