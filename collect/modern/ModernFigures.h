#pragma once

#include <vector>

#include "collect/modern/cgroup/ControlGroup.h"
#include "collect/modern/cpu/CpuTimes.h"
#include "collect/modern/device/DiskSource.h"
#include "collect/modern/device/SensorSource.h"
#include "collect/modern/network/LinkSource.h"
#include "collect/modern/network/SocketSource.h"
#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/system/HostFacts.h"
#include "collect/modern/system/KernelSource.h"
#include "collect/modern/system/MemorySource.h"
#include "collect/modern/system/Pressure.h"

/// What the profile `modern` alone collects: the figures of each category as of its last run.
struct ModernFigures {
  std::vector<PressureFigures> pressure;
  std::vector<ControlGroup> groups;
  std::vector<LinkFigures> links;
  SocketFigures sockets;
  std::vector<DiskFigures> disks;
  MemoryFigures memory;
  std::vector<CpuTimeFigures> cpuTimes;
  std::vector<SensorFigures> sensors;
  std::vector<ProcessDetail> processes;
  HostFacts host;
  KernelFigures kernel;
};
