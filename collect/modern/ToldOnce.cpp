#include "collect/modern/ToldOnce.h"

#include <set>
#include <string>

#include "support/TraceLog.h"

namespace {

/// A captured tree may lack as many names as it likes.
constexpr std::size_t kMostTold = 1000;

std::set<std::string, std::less<>>& Told() {
  static std::set<std::string, std::less<>> told;
  return told;
}

std::string Place(std::string_view path, std::string_view name) {
  std::string place(path);
  place += name.empty() ? "" : ": ";
  return place.append(name);
}

}  // namespace

void MissingInHost(std::string_view path, std::string_view name) {
  std::string place = Place(path, name);
  if (Told().size() < kMostTold && !Told().contains(place)) {
    Trace(20, kWarning,
          name.empty() ? "The host has no such file, so its figures are 0. (%1)"
                       : "The host's file lacks an entry, so its figure is 0. (%1)",
          place);
    Told().insert(std::move(place));
  }
}

void FoundInHost(std::string_view path, std::string_view name) {
  if (!Told().empty()) {
    Told().erase(Place(path, name));
  }
}
