#include "client/capture/PlayPlan.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "client/ask/Errors.h"
#include "client/capture/CaptureFolder.h"
#include "json/JsonText.h"

namespace {

// As the daemon takes it.
constexpr std::size_t kMostFactBytes = std::size_t{16} << 20U;
constexpr JsonLimits kFactLimits{.depth = 8, .members = 64};
constexpr std::size_t kMostNames = 1000;

/// Seconds from sample to sample.
long SecondsBetween(const Json& facts, double speed) {
  constexpr double kAlone = 10;
  constexpr double kLongest = 86'400;
  const Json* samples = facts.Find("samples");
  double seconds = kAlone;
  if (samples != nullptr && samples->IsArray() && samples->Size() > 1) {
    const Json* first = samples->Elements().front().Find("time");
    const Json* last = samples->Elements().back().Find("time");
    if (first != nullptr && last != nullptr && first->IsNumber() && last->IsNumber()) {
      seconds =
          (last->Number() - first->Number()) / static_cast<double>(samples->Size() - 1) / speed;
    }
  }
  return std::lround(std::clamp(seconds, 1.0, kLongest));
}

/// Whether it can be a record's: each becomes a line of the settings.
bool IsRecordName(const Json& name) {
  return name.IsString() && !name.Text().empty() &&
         std::all_of(name.Text().begin(), name.Text().end(), [](char letter) {
           return (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9') ||
                  letter == '_';
         });
}

}  // namespace

std::string PlaySchedule(const std::string& source, const std::string& folder, double speed) {
  const std::optional<std::string> text = ReadBelow(folder, kCaptureName, kMostFactBytes);
  if (!text) {
    throw ClientError(source + ": this is no capture, as it has no " + kCaptureName);
  }
  const ParsedJson facts = ParseJson(*text, kFactLimits);
  const Json* records = facts.value.Find("records");
  std::set<std::string> names;
  if (records != nullptr && records->IsArray() && records->Size() <= kMostNames) {
    for (const Json& name : records->Elements()) {
      if (IsRecordName(name)) {
        names.insert(name.Text());
      }
    }
  }
  std::string lines;
  for (const std::string& name : names) {
    lines += name + " = " + std::to_string(SecondsBetween(facts.value, speed)) + '\n';
  }
  return lines;
}
