#include <cerrno>

#include "collect/MajorTable.h"
#include "collect/ProcLib.h"
#include "collect/TextScanner.h"
#include "support/Switches.h"
#include "support/TraceLog.h"

int ProcLib::GetNumDevices(std::vector<DeviceId>& devices) {
  const char* path = FilePath(kProcPartitions);
  ProcLib partitions;
  partitions.m_fp = Open(path);
  if (partitions.m_fp == nullptr) {
    Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3) .", errno,
          path, "r");
    return -1;
  }
  int count = 0;
  for (ProcLine line; partitions.GetLine(line) == 0;) {
    TextScanner scanner(line.data());
    std::int32_t major = 0;
    std::int32_t minor = 0;
    if (!scanner.Signed(major) || !scanner.Signed(minor)) {
      continue;
    }
    if (major >= MajorTable::kMajors) {
      Trace(20, kError,
            "While calculating NumDevices in function(ProcLib::GetNumDevices) invalid major number "
            "found. (major=%1) (file=%2)",
            major, path);
      continue;
    }
    const int entry = MajorTable::Entry(g_kernelVariant, major);
    if (entry == 0 || minor % entry != 0) {
      continue;
    }
    devices.push_back({static_cast<std::uint32_t>(major), static_cast<std::uint32_t>(minor)});
    ++count;
  }
  return count;
}
