#include "collect/modern/cpu/CoreTemperatures.h"

#include <string>
#include <vector>

#include "collect/modern/HostFolder.h"
#include "collect/modern/device/SensorFiles.h"
#include "support/NotTold.h"

namespace {

constexpr const char* kCoreChips = "/sys/class/hwmon";

/// A chip's cores and the package that they are of.
struct CoreChip {
  struct Core {
    std::uint32_t number;
    double degrees;
  };
  std::optional<std::uint32_t> package;
  std::vector<Core> cores;
};

/// The package is told by a label of its own or else by the name of the chip's device.
CoreChip ReadCoreChip(const HostFolder& folder) {
  CoreChip chip;
  for (const ChipSensor& sensor : ReadChipSensors(folder)) {
    if (sensor.kind != SensorKind::kTemperature || (sensor.items & kSensorLabel) == 0) {
      continue;
    }
    const std::string label = folder.Line(SensorFileName(sensor, "label").c_str());
    if (const auto core = NumberBehind(label, "Core ")) {
      const double degrees =
          folder.Number(SensorFileName(sensor, "input").c_str()) * RuleOf(sensor.kind).step;
      chip.cores.push_back({*core, degrees});
    } else if (const auto package = NumberBehind(label, "Package id ")) {
      chip.package = package;
    }
  }
  if (!chip.package) {
    chip.package = NumberBehind(folder.LinkName("device"), "coretemp.");
  }
  return chip;
}

}  // namespace

void CoreTemperatures::Read() {
  m_degrees.clear();
  const HostFolder hwmon(kCoreChips);
  for (const std::uint32_t entry : ReadNumbered(hwmon, "hwmon")) {
    const HostFolder folder = hwmon.Below(("hwmon" + std::to_string(entry)).c_str());
    if (folder.Line("name") != "coretemp") {
      continue;
    }
    const CoreChip chip = ReadCoreChip(folder);
    for (const CoreChip::Core& core : chip.cores) {
      if (chip.package) {
        const auto [place, isNew] = m_degrees.insert({{*chip.package, core.number}, core.degrees});
        place->second = isNew ? core.degrees : kNotTold;
      }
    }
  }
}

double CoreTemperatures::Of(const CorePlace& core) const {
  const auto found = m_degrees.find(core);
  return found == m_degrees.end() ? kNotTold : found->second;
}
