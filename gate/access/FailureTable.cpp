#include "gate/access/FailureTable.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::size_t kMaxEntries = 1024;
constexpr unsigned kMaxWaiting = 8;
constexpr std::size_t kMaxAllWaiting = 256;
constexpr unsigned kMaxLate = 8;
constexpr std::size_t kMaxAllLate = 64;
constexpr unsigned kMaxLines = 30;
constexpr std::chrono::milliseconds kFirstDelay{200};
constexpr std::chrono::milliseconds kLongestDelay{5000};
constexpr std::chrono::seconds kLongestWait{10};
constexpr std::chrono::minutes kTellEvery{1};
constexpr std::chrono::minutes kForgetAfter{10};

std::chrono::milliseconds DelayAfter(unsigned failures) {
  constexpr unsigned kMaxDoublings = 10;
  return std::min(kLongestDelay, kFirstDelay * (1U << std::min(failures - 1, kMaxDoublings)));
}

std::string Logins(std::uint64_t count) {
  return count == 1 ? "a login" : std::to_string(count) + " logins";
}

}  // namespace

bool Places::HasRoom(const std::string& key) const {
  const auto found = m_takenBy.find(key);
  return m_taken < m_mostInAll && (found == m_takenBy.end() || found->second < m_mostOfOne);
}

void Places::Take(const std::string& key) {
  ++m_takenBy[key];
  ++m_taken;
}

void Places::Give(const std::string& key) {
  const auto found = m_takenBy.find(key);
  --m_taken;
  if (--found->second == 0) {
    m_takenBy.erase(found);
  }
}

FailureTable::FailureTable(Report report, std::uint64_t failuresBefore)
    : m_report(std::move(report)),
      m_waiting(kMaxWaiting, kMaxAllWaiting),
      m_late(kMaxLate, kMaxAllLate),
      m_failures(failuresBefore) {}

std::string FailureTable::KeyOf(std::string_view address) {
  const std::string plain(address.substr(0, address.find('%')));
  in6_addr long_{};
  if (::inet_pton(AF_INET6, plain.c_str(), &long_) != 1) {
    constexpr std::size_t kMaxText = 64;
    return plain.substr(0, kMaxText);
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (IN6_IS_ADDR_V4MAPPED(&long_)) {
    return ::inet_ntop(AF_INET, &long_.s6_addr[12], text.data(), text.size());
  }
  std::fill(std::begin(long_.s6_addr) + 8, std::end(long_.s6_addr), std::uint8_t{0});
  return std::string(::inet_ntop(AF_INET6, &long_, text.data(), text.size())) + "/64";
}

std::optional<std::chrono::milliseconds> FailureTable::Enter(const std::string& key,
                                                             TimePoint now) {
  if (!m_waiting.HasRoom(key)) {
    return std::nullopt;
  }
  std::chrono::milliseconds wait = DelayAt(key, now);
  if (wait.count() > 0) {
    Entry& entry = m_entries.at(key);
    const TimePoint start = std::max(now, entry.free) + wait;
    if (start > now + kLongestWait) {
      return std::nullopt;
    }
    entry.free = start;
    wait = std::chrono::ceil<std::chrono::milliseconds>(start - now);
  }
  m_waiting.Take(key);
  return wait;
}

void FailureTable::Leave(const std::string& key) { m_waiting.Give(key); }

std::chrono::milliseconds FailureTable::EnterLate(const std::string& key, TimePoint now) {
  const std::chrono::milliseconds wait = DelayAt(key, now);
  if (wait.count() == 0 || !m_late.HasRoom(key)) {
    return std::chrono::milliseconds{0};
  }
  m_late.Take(key);
  return wait;
}

void FailureTable::LeaveLate(const std::string& key) { m_late.Give(key); }

bool FailureTable::Fail(const std::string& key, TimePoint now) {
  ++m_failures;
  auto found = m_entries.find(key);
  if (found != m_entries.end() && now >= found->second.last + kForgetAfter) {
    found->second.failures = 0;
  } else if (found == m_entries.end()) {
    if (m_entries.size() >= kMaxEntries) {
      ForgetOld(now);
    }
    found = m_entries.emplace(key, Entry()).first;
  }
  Entry& entry = found->second;
  ++entry.failures;
  ++entry.untold;
  entry.last = now;
  Tell(key, entry, now);
  return entry.untold > 0 || m_untoldOthers > 0;
}

bool FailureTable::TellRest(TimePoint now) {
  if (m_untoldOthers > 0 && MayTell(now)) {
    const std::string text = Logins(m_untoldOthers) + " from further addresses failed";
    m_untoldOthers = 0;
    m_report(text);
  }
  bool isLeft = m_untoldOthers > 0;
  for (auto& [key, entry] : m_entries) {
    Tell(key, entry, now);
    isLeft = isLeft || entry.untold > 0;
  }
  return isLeft;
}

std::chrono::milliseconds FailureTable::DelayAt(const std::string& key, TimePoint now) const {
  const auto found = m_entries.find(key);
  const bool isKnown = found != m_entries.end() && now < found->second.last + kForgetAfter;
  return isKnown ? DelayAfter(found->second.failures) : std::chrono::milliseconds{0};
}

/// Forgets all that are old or, if none is, the one that failed the longest time ago.
void FailureTable::ForgetOld(TimePoint now) {
  auto oldest = m_entries.begin();
  bool isAny = false;
  for (auto entry = m_entries.begin(); entry != m_entries.end();) {
    const auto next = std::next(entry);
    if (now >= entry->second.last + kForgetAfter) {
      Forget(entry);
      isAny = true;
    } else if (!isAny && entry->second.last < oldest->second.last) {
      oldest = entry;
    }
    entry = next;
  }
  if (!isAny) {
    Forget(oldest);
  }
}

void FailureTable::Forget(Entries::iterator entry) {
  m_untoldOthers += entry->second.untold;
  m_entries.erase(entry);
}

void FailureTable::Tell(const std::string& key, Entry& entry, TimePoint now) {
  if (entry.untold > 0 && now >= entry.nextLine && MayTell(now)) {
    const std::string text = Logins(entry.untold) + " from " + key + " failed";
    entry.nextLine = now + kTellEvery;
    entry.untold = 0;
    m_report(text);
  }
}

bool FailureTable::MayTell(TimePoint now) {
  if (now >= m_minuteEnd) {
    m_minuteEnd = now + kTellEvery;
    m_lines = 0;
  }
  return m_lines < kMaxLines && ++m_lines > 0;
}
