#include "gate/send/Backoff.h"

#include <algorithm>

Backoff::Backoff(Pause first, Pause longest)
    : m_first(first), m_longest(longest), m_next(first), m_random(std::random_device{}()) {}

Backoff::Pause Backoff::Next(std::chrono::seconds retryAfter) {
  const auto chance = [this](Pause from, Pause to) {
    return Pause(std::uniform_int_distribution(from.count(), to.count())(m_random));
  };
  const Pause pause = chance(m_next / 2, m_next);
  m_next = std::min(m_next * 2, m_longest);
  const Pause named = std::clamp(retryAfter, std::chrono::seconds(0), kLongestRetryAfter);
  return std::max(pause, chance(named, named + named / 4));
}
