#include "collect/modern/system/Loadavg.h"

#include "collect/TextScanner.h"

std::optional<LoadAverages> ParseLoadavg(std::string_view text) {
  LoadAverages averages;
  TextScanner scanner(text);
  if (!scanner.Float(averages.load1) || !scanner.Float(averages.load5) ||
      !scanner.Float(averages.load15)) {
    return std::nullopt;
  }
  return averages;
}
