#include "gate/alarm/MissedAlarms.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace {

/// Asked for so much before the last contact, as clocks are set.
constexpr std::int64_t kOverlap = 60;

}  // namespace

MissedAlarms::MissedAlarms(const AlarmMemory& before, const AlarmMemory& now,
                           const std::set<AlarmKey>& listed, Bounds bounds)
    : m_before(before), m_now(now), m_bounds(bounds), m_since(before.contact - kOverlap) {
  // What was active has ended since that contact; what is owed may have ended before it.
  for (const auto& [key, receivers] : before.owed) {
    m_since = listed.contains(key) ? m_since : std::min(m_since, key.since);
  }
  m_since = std::max<std::int64_t>(m_since, 0);
  for (const AlarmKey& key : listed) {
    m_known.emplace(key.id, key.since);
  }
}

Json MissedAlarms::Question() const {
  Json question{{"op", "alarms"}, {"since", m_since}, {"limit", m_bounds.listed}};
  if (m_until) {
    question["until"] = *m_until;
  }
  return question;
}

bool MissedAlarms::Take(const Json& list) {
  const std::vector<AlarmPtr> alarms = ReadAlarms(list);
  const std::int64_t now = std::time(nullptr);
  for (const AlarmPtr& alarm : alarms) {
    m_known.emplace(alarm->id, alarm->since);
    if (!alarm->IsActive() &&
        (m_now.active.contains(alarm->Key()) || m_before.IsNew(alarm->Key(), now))) {
      m_ended.insert(alarm);
    }
  }
  if (alarms.empty() || list.Size() < m_bounds.listed) {
    return false;
  }
  // The rest of those that began in the same second is asked for too; a second that has more of
  // them than an answer is left as it is.
  const std::int64_t oldest = alarms.front()->since;
  const bool isNoOlder = m_until && oldest >= *m_until;
  m_until = isNoOlder ? *m_until - 1 : oldest;
  m_isCut = true;
  return ++m_answers < m_bounds.answers;
}

std::uint64_t MissedAlarms::Lost() const {
  if (!m_isCut || m_known.empty()) {
    return 0;
  }
  const auto& [newest, since] = *m_known.rbegin();
  const bool isNewer = newest > m_before.newest;
  if (!isNewer && !m_before.IsLater({since, newest}, std::time(nullptr))) {
    return 0;
  }
  // A history that has begun anew counts from 1.
  const std::int64_t before = isNewer ? m_before.newest : 0;
  const auto told = std::distance(m_known.upper_bound(before), m_known.end());
  return static_cast<std::uint64_t>(newest - before - told);
}
