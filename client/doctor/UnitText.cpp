#include "client/doctor/UnitText.h"

#include <algorithm>
#include <charconv>

std::vector<UnitFacts> ParseUnits(std::string_view text) {
  std::vector<UnitFacts> units;
  bool isOpen = false;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t equals = line.find('=');
    if (equals == line.npos) {
      isOpen = false;
      continue;
    }
    if (!isOpen) {
      units.emplace_back();
      isOpen = true;
    }
    const std::string_view name = line.substr(0, equals);
    UnitFacts& unit = units.back();
    std::string* target = name == "Id"              ? &unit.name
                          : name == "LoadState"     ? &unit.load
                          : name == "ActiveState"   ? &unit.active
                          : name == "Result"        ? &unit.result
                          : name == "UnitFileState" ? &unit.enabled
                                                    : nullptr;
    if (name == "MainPID") {
      static_cast<void>(
          std::from_chars(line.data() + equals + 1, line.data() + line.size(), unit.mainPid));
    } else if (target != nullptr) {
      *target = line.substr(equals + 1);
    }
  }
  // A complaint may hold an equals sign, too.
  std::erase_if(units, [](const UnitFacts& unit) { return unit.name.empty(); });
  return units;
}
