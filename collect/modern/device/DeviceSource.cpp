#include "collect/modern/device/DeviceSource.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "collect/HostFile.h"
#include "collect/modern/ToldOnce.h"
#include "support/LowWord.h"

namespace {

/// The first line of an attribute, as far as it is printable; empty if it can't be read, which is
/// told once.
std::string ReadAttribute(std::string_view device, std::string_view attribute) {
  const std::string path = BlockAttributePath(device, attribute);
  const TextFilePtr file = OpenHostFile(path.c_str());
  if (file == nullptr) {
    MissingInHost(path);
    return {};
  }
  FoundInHost(path);
  std::array<char, 128> line{};
  const std::string_view text(line.data(), std::fread(line.data(), 1, line.size(), file.get()));
  const auto* const end = std::find_if(text.begin(), text.end(), [](char letter) {
    return static_cast<unsigned char>(letter) < ' ' || letter == '\x7f';
  });
  return {text.begin(), end};
}

template <std::size_t N>
void PutText(std::array<char, N>& field, std::string_view text) {
  text.copy(field.data(), field.size() - 1);
}

bool IsNumbered(std::string_view name, std::string_view driver) {
  return name.starts_with(driver) && name.size() > driver.size() && name[driver.size()] >= '0' &&
         name[driver.size()] <= '9';
}

const char* TypeOfDevice(std::string_view name) {
  if (name.starts_with("dm-")) {
    return "dm";
  }
  if (IsNumbered(name, "md") || name.starts_with("md_")) {
    return "md";
  }
  if (IsNumbered(name, "sr")) {
    return "cdrm";
  }
  return ReadAttribute(name, "queue/rotational") == "0" ? "ssd" : "disk";
}

std::string ShownName(const std::string& name) {
  if (name.starts_with("dm-")) {
    if (const std::string own = ReadAttribute(name, "dm/name"); !own.empty()) {
      return name + ' ' + own;
    }
  }
  return name;
}

}  // namespace

ModernDeviceSource::ModernDeviceSource() : m_devices(ReadBlockDevices()) {
  TraceEntry("ModernDeviceSource::ModernDeviceSource");
  ++s_statistics.constructed;
  TraceExit("ModernDeviceSource::ModernDeviceSource");
}

void ModernDeviceSource::read(DeviceIO* record) {
  m_more = false;
  if (m_pendingError != nullptr || m_index >= m_devices.size()) {
    return;
  }
  const BlockDevice& device = m_devices[m_index];
  const DiskCounters& counters = device.counters;
  record->counters = counters;
  record->isPhysical = device.isPhysical;
  PutText(record->x_deviceio::name, ShownName(device.name));
  PutText(record->type, TypeOfDevice(device.name));
  record->readOps = LowWord(counters.reads);
  record->writeOps = LowWord(counters.writes);
  record->totalOps = LowWord(counters.reads + counters.writes);
  record->readMB = static_cast<float>(MbytesOfSectors(counters.sectorsRead));
  record->writeMB = static_cast<float>(MbytesOfSectors(counters.sectorsWritten));
  record->totalMB =
      static_cast<float>(MbytesOfSectors(counters.sectorsRead + counters.sectorsWritten));
  record->queueLength = LowWord(counters.inFlight);
  record->serviceSeconds = (counters.readMilliseconds + counters.writeMilliseconds) / 1000;
  record->queueSeconds = counters.weightedMilliseconds / 1000;
  record->busySeconds = counters.inUseMilliseconds / 1000;
  ++m_index;
  m_more = true;
}
