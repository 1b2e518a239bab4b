#include "collect/modern/ToldOnce.h"

#include <chrono>
#include <map>
#include <string>

#include "support/TraceLog.h"

namespace {

using ToldClock = std::chrono::steady_clock;

/// A captured tree may lack as many names as it likes, and what has gone from a host is never found
/// again: so many are told in so long a time.
constexpr std::size_t kMostTold = 1000;
constexpr std::chrono::hours kRemembered{1};
/// Between two searches for what is too old: a host of thousands of interfaces lacks more than is
/// told, and each of them would search.
constexpr std::chrono::minutes kSearchPause{1};

/// When it was told, by place.
std::map<std::string, ToldClock::time_point, std::less<>>& Told() {
  static std::map<std::string, ToldClock::time_point, std::less<>> told;
  return told;
}

bool HasRoom() {
  static ToldClock::time_point nextSearch;
  if (const auto now = ToldClock::now(); Told().size() >= kMostTold && now >= nextSearch) {
    nextSearch = now + kSearchPause;
    std::erase_if(Told(), [now](const auto& entry) { return now - entry.second > kRemembered; });
  }
  return Told().size() < kMostTold;
}

std::string Place(std::string_view path, std::string_view name) {
  std::string place(path);
  place += name.empty() ? "" : ": ";
  return place.append(name);
}

}  // namespace

void MissingInHost(std::string_view path, std::string_view name) {
  std::string place = Place(path, name);
  if (!Told().contains(place) && HasRoom()) {
    Trace(20, kWarning,
          name.empty() ? "The host has no such file, so its figures are 0. (%1)"
                       : "The host's file lacks an entry, so its figure is 0. (%1)",
          place);
    Told().emplace(std::move(place), ToldClock::now());
  }
}

void ForgetTold() { Told().clear(); }

void FoundInHost(std::string_view path, std::string_view name) {
  if (!Told().empty()) {
    Told().erase(Place(path, name));
  }
}
