#include "gate/access/FailureTable.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::size_t kMaxEntries = 1024;
constexpr unsigned kMaxWaiting = 8;
constexpr std::size_t kMaxAllWaiting = 256;
constexpr unsigned kMaxLines = 30;
constexpr std::chrono::milliseconds kFirstDelay{200};
constexpr std::chrono::milliseconds kLongestDelay{5000};
constexpr std::chrono::seconds kLongestWait{10};
constexpr std::chrono::minutes kTellEvery{1};
constexpr std::chrono::minutes kForgetAfter{10};

std::chrono::milliseconds DelayOf(unsigned failures) {
  constexpr unsigned kMaxDoublings = 10;
  return std::min(kLongestDelay, kFirstDelay * (1U << std::min(failures - 1, kMaxDoublings)));
}

std::string Logins(std::uint64_t count) {
  return count == 1 ? "a login" : std::to_string(count) + " logins";
}

}  // namespace

FailureTable::FailureTable(Report report) : m_report(std::move(report)) {}

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
  const auto waiting = m_waiting.find(key);
  if (m_allWaiting >= kMaxAllWaiting ||
      (waiting != m_waiting.end() && waiting->second >= kMaxWaiting)) {
    return std::nullopt;
  }
  std::chrono::milliseconds wait{0};
  const auto found = m_entries.find(key);
  if (found != m_entries.end() && now < found->second.last + kForgetAfter) {
    Entry& entry = found->second;
    const TimePoint start = std::max(now, entry.free) + DelayOf(entry.failures);
    if (start > now + kLongestWait) {
      return std::nullopt;
    }
    entry.free = start;
    wait = std::chrono::ceil<std::chrono::milliseconds>(start - now);
  }
  ++m_waiting[key];
  ++m_allWaiting;
  return wait;
}

void FailureTable::Leave(const std::string& key) {
  const auto found = m_waiting.find(key);
  --m_allWaiting;
  if (--found->second == 0) {
    m_waiting.erase(found);
  }
}

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
    m_report(Logins(std::exchange(m_untoldOthers, 0)) + " from further addresses failed");
  }
  bool isLeft = m_untoldOthers > 0;
  for (auto& [key, entry] : m_entries) {
    Tell(key, entry, now);
    isLeft = isLeft || entry.untold > 0;
  }
  return isLeft;
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
    entry.nextLine = now + kTellEvery;
    m_report(Logins(std::exchange(entry.untold, 0)) + " from " + key + " failed");
  }
}

bool FailureTable::MayTell(TimePoint now) {
  if (now >= m_minuteEnd) {
    m_minuteEnd = now + kTellEvery;
    m_lines = 0;
  }
  return m_lines < kMaxLines && ++m_lines > 0;
}
