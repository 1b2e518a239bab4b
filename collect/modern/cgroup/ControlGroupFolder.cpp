#include "collect/modern/cgroup/ControlGroupFolder.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "collect/modern/cgroup/ControlGroupFiles.h"
#include "collect/modern/cgroup/ControlGroupMounts.h"

namespace {

/// Room for a line for each of some ten thousand devices.
constexpr std::size_t kGroupFileLimit = 4U << 20U;
/// Room for the highest number of processes that a kernel allows.
constexpr std::size_t kGroupListLimit = 40U << 20U;

struct KeptGroup {
  GroupIoKept io;
  double cpuSeconds = kNotTold;
  std::uint64_t walk = 0;  ///< that has read it last
};
/// By their paths.
std::unordered_map<std::string, KeptGroup> g_keptGroups;
std::uint64_t g_groupWalk = 1;

}  // namespace

void ControlGroupFolder::EndWalk() {
  std::erase_if(g_keptGroups, [](const auto& entry) { return entry.second.walk != g_groupWalk; });
  ++g_groupWalk;
}

bool ControlGroupFolder::Read(const HostFolder& folder, const char* name) {
  return folder.Read(name, m_text, kGroupFileLimit);
}

double ControlGroupFolder::Number(const HostFolder& folder, const char* name) {
  return Read(folder, name) ? HostNumber(m_text) : kNotTold;
}

bool ControlGroupFolder::CountProcesses(const HostFolder& folder, double& processes) {
  if (folder.Read("cgroup.procs", m_text, kGroupListLimit)) {
    processes = CountIds(m_text);
    return true;
  }
  processes = kNotTold;
  return errno != ENOENT && errno != ENODEV;
}

double ControlGroupFolder::CountThreads(const HostFolder& folder, bool isUnified) {
  return folder.Read(isUnified ? "cgroup.threads" : "tasks", m_text, kGroupListLimit)
             ? CountIds(m_text)
             : kNotTold;
}

double ControlGroupFolder::Threads(const HostFolder& folder) {
  return Number(folder, "pids.current");
}

void ControlGroupFolder::ReadVersion1(const HostFolder& folder, std::uint32_t controllers,
                                      ControlGroup& group) {
  if ((controllers & kGroupCpu) != 0 && Read(folder, "cpu.stat")) {
    ParseGroupCpuStat(m_text, group.cpu);
  }
  if ((controllers & kGroupCpuAccounting) != 0) {
    ReadCpuAccounting(folder, group.cpu);
  }
  if ((controllers & kGroupMemory) != 0) {
    ReadMemoryV1(folder, group.memory);
  }
  if ((controllers & kGroupBlockIo) != 0) {
    ReadBlockIoV1(folder, group.io);
  }
}

void ControlGroupFolder::ReadVersion2(const HostFolder& folder, std::uint32_t controllers,
                                      ControlGroup& group) {
  // A group of version 2 has the time of its processors whatever its controllers.
  const bool isCpuWanted = (controllers & kGroupCpu) != 0 || !IsTold(group.cpu.totalSeconds);
  if (isCpuWanted && Read(folder, "cpu.stat")) {
    ParseGroupCpuStat(m_text, group.cpu);
  }
  if ((controllers & kGroupMemory) != 0) {
    ReadMemoryV2(folder, group.memory);
  }
  if ((controllers & kGroupBlockIo) != 0 && Read(folder, "io.stat")) {
    KeptGroup& kept = g_keptGroups[group.path];
    // A group of the same name that began later.
    if (group.cpu.totalSeconds < kept.cpuSeconds) {
      kept = {};
    }
    kept.cpuSeconds = group.cpu.totalSeconds;
    kept.walk = g_groupWalk;
    ParseGroupIoStat(m_text, kept.io, group.io);
  }
  ControlGroupPressure& pressure = group.pressure;
  ReadPressure(folder, "cpu.pressure", pressure.cpuSome, pressure.cpuFull,
               group.path == "/" ? ParseHostCpuPressure : ParsePressure);
  ReadPressure(folder, "memory.pressure", pressure.memorySome, pressure.memoryFull);
  ReadPressure(folder, "io.pressure", pressure.ioSome, pressure.ioFull);
}

void ControlGroupFolder::ReadCpuAccounting(const HostFolder& folder, ControlGroupCpu& cpu) {
  if (Read(folder, "cpuacct.usage")) {
    cpu.totalSeconds = ParseGroupUsage(m_text);
  }
  if (Read(folder, "cpuacct.stat")) {
    ParseGroupCpuTicks(m_text, cpu);
  }
}

void ControlGroupFolder::ReadMemoryV1(const HostFolder& folder, ControlGroupMemory& memory) {
  memory.current = Number(folder, "memory.usage_in_bytes");
  // No limit is the highest number of whole pages, which Number() does not take.
  memory.limit = Number(folder, "memory.limit_in_bytes");
  memory.kernel = Number(folder, "memory.kmem.usage_in_bytes");
  memory.maxEvents = Number(folder, "memory.failcnt");
  if (Read(folder, "memory.stat")) {
    ParseGroupMemoryStatV1(m_text, memory);
  }
  if (Read(folder, "memory.oom_control")) {
    ParseGroupMemoryEvents(m_text, memory);
  }
}

void ControlGroupFolder::ReadMemoryV2(const HostFolder& folder, ControlGroupMemory& memory) {
  memory.current = Number(folder, "memory.current");
  memory.limit = Number(folder, "memory.max");
  memory.swap = Number(folder, "memory.swap.current");
  if (Read(folder, "memory.stat")) {
    ParseGroupMemoryStat(m_text, memory);
  }
  if (Read(folder, "memory.events")) {
    ParseGroupMemoryEvents(m_text, memory);
  }
}

void ControlGroupFolder::ReadBlockIoV1(const HostFolder& folder, ControlGroupIo& io) {
  ReadBlkio(folder, "blkio.throttle.io_service_bytes_recursive", "blkio.throttle.io_service_bytes",
            io.bytesRead, io.bytesWritten);
  ReadBlkio(folder, "blkio.throttle.io_serviced_recursive", "blkio.throttle.io_serviced", io.reads,
            io.writes);
}

void ControlGroupFolder::ReadBlkio(const HostFolder& folder, const char* recursive, const char* own,
                                   double& read, double& write) {
  if (Read(folder, recursive) || Read(folder, own)) {
    const BlkioSums sums = ParseBlkio(m_text);
    // Kernels of today count nothing here until a limit is set, so that 0 tells nothing.
    const bool isCounted = sums.read + sums.write > 0;
    read = isCounted ? sums.read : kNotTold;
    write = isCounted ? sums.write : kNotTold;
  }
}

void ControlGroupFolder::ReadPressure(const HostFolder& folder, const char* name, double& some,
                                      double& full, PressureText (*parse)(std::string_view)) {
  if (Read(folder, name)) {
    const PressureText pressure = parse(m_text);
    some = pressure.some.average10;
    full = pressure.full.average10;
  }
}
