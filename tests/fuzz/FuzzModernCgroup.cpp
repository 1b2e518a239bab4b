#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/modern/cgroup/ControlGroupFiles.h"
#include "collect/modern/cgroup/ControlGroupMounts.h"
#include "collect/modern/cgroup/ControlGroupName.h"
#include "collect/modern/system/Pressure.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

void TakeCpu(std::string_view text) {
  ControlGroupCpu cpu;
  ParseGroupCpuStat(text, cpu);
  ParseGroupCpuTicks(text, cpu);
  Require(!(cpu.totalSeconds < 0) && !(cpu.userSeconds < 0));
}

void TakeGroupMemory(std::string_view text) {
  ControlGroupMemory memory;
  ParseGroupMemoryStat(text, memory);
  ParseGroupMemoryEvents(text, memory);
  Require(!(memory.kernel < 0));
  ControlGroupMemory old;
  ParseGroupMemoryStatV1(text, old);
  Require(!(old.anonymous < 0));
}

void TakeGroupIo(std::string_view text) {
  ControlGroupIo io;
  GroupIoKept kept;
  ParseGroupIoStat(text, kept, io);
  Require(io.bytesRead >= 0 && io.writes >= 0);
  const BlkioSums sums = ParseBlkio(text);
  Require(sums.read >= 0 && sums.write >= 0);
  Require(CountIds(text) <= static_cast<double>(text.size()));
}

void TakeName(std::string_view text) {
  const ControlGroupName name = NameControlGroup(text);
  Require(name.containerId.size() <= 64 && name.pod.size() <= 36);
  Require(name.kind == "container" || (name.containerId.empty() && name.containerName.empty()));
}

void TakeMounts(std::string_view text) {
  std::uint32_t seen = 0;
  for (const ControlGroupHierarchy& hierarchy : ParseControlGroupMounts(text)) {
    Require(!hierarchy.mountPoint.empty() && (seen & hierarchy.controllers) == 0);
    seen |= hierarchy.controllers;
  }
}

}  // namespace

/// The first byte chooses the file, the others are its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kFiles[])(std::string_view) = {
      TakeCpu,     TakeGroupMemory,
      TakeGroupIo, TakeName,
      TakeMounts,  [](std::string_view text) { static_cast<void>(ParsePressure(text)); }};
  return TakeChosen(data, size, kFiles);
}
