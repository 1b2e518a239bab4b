#include "records/DeviceRows.h"

#include <ctime>
#include <limits>

#include "collect/TextScanner.h"
#include "support/OsCalls.h"

namespace {

constexpr std::time_t kSecondsBetweenTraces = 3600;
constexpr const char* kMbytesTraceName = "io_mbytes";

std::time_t g_lastMbytesTrace = 0;

}  // namespace

std::vector<const DeviceIO*> SortedDevices(const std::vector<DeviceIO>& devices) {
  std::vector<const DeviceIO*> sorted;
  sorted.reserve(devices.size());
  for (const DeviceIO& device : devices) {
    sorted.push_back(&device);
  }
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const DeviceIO* a, const DeviceIO* b) { return *a < *b; });
  return sorted;
}

std::optional<DeviceNameParts> ParseDeviceName(std::string_view name) {
  constexpr std::string_view kPrefix = "dev";
  if (!name.starts_with(kPrefix)) {
    return std::nullopt;
  }
  TextScanner scanner(name.substr(kPrefix.size()));
  DeviceNameParts parts;
  std::uint32_t minor = 0;
  if (!scanner.Unsigned(parts.major) || !scanner.Literal('-') || !scanner.Unsigned(minor)) {
    return std::nullopt;
  }
  if (!scanner.Word(parts.disk)) {
    parts.disk = {};
  }
  return parts;
}

tagUTIME WholeSeconds(std::uint64_t seconds) {
  return {static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds)), 0};
}

std::uint32_t CountDelta(std::uint32_t current, std::uint32_t previous) {
  return current > previous ? current - previous : 0;
}

float CountPercent(std::uint64_t part, std::uint64_t whole) {
  return 100.0F * static_cast<float>(part) / static_cast<float>(whole);
}

float BusyPercent(const tagUTIME& busy, std::uint32_t seconds) {
  return UtlTime(std::int64_t{seconds}, std::int64_t{0}, UtlTime::kUtc).Percent(WideTime(busy));
}

std::uint32_t WholeMbytes(double mbytes) {
  constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
  if (!(mbytes > 0.0)) {
    return 0;
  }
  return mbytes >= kMost ? kMost : static_cast<std::uint32_t>(mbytes);
}

void TraceMbytesFell(double current, double previous) {
  const std::time_t now = Os().time(nullptr);
  if (!IsTraced(20) || now - g_lastMbytesTrace < kSecondsBetweenTraces) {
    return;
  }
  g_lastMbytesTrace = now;
  TraceCounterFell(kMbytesTraceName, WholeMbytes(current), WholeMbytes(previous));
}
