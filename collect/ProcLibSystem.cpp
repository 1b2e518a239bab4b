#include <cerrno>
#include <cstring>

#include "collect/ProcLib.h"
#include "collect/TextScanner.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr int kNotCounted = -1;
int g_numCPUs = kNotCounted;
std::int32_t g_bootTime = 0;

}  // namespace

int ProcLib::GetNumCPUs() {
  if (g_numCPUs < 0) {
    const int count = Os().get_nprocs();
    if (count < 0) {
      Trace(20, kError, "The error occured by OS API(get_nprocs).(en = %1).", errno);
      return -1;
    }
    g_numCPUs = count;
  }
  return g_numCPUs;
}

int ProcLib::GetBootTime() {
  if (g_bootTime != 0) {
    return g_bootTime;
  }
  ProcLib stat;
  stat.m_fp = Open(FilePath(kProcStat));
  if (stat.m_fp == nullptr) {
    Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3) .", errno,
          FilePath(kProcStat), "r");
    return -1;
  }
  for (ProcLine line; stat.GetLine(line) == 0;) {
    if (std::strstr(line.data(), "btime") == nullptr) {
      continue;
    }
    TextScanner scanner(line.data());
    std::int32_t seconds = 0;
    if (scanner.SkipWord() && scanner.Signed(seconds) && seconds > 0) {
      g_bootTime = seconds;
    } else {
      Trace(20, kWarning, "The error occured by OS API(sscanf).(en = %1,arg1 = %2,arg2 = %3).",
            errno, line.data(), "%*s %ld");
    }
    break;
  }
  return g_bootTime;
}

int ProcLib::GetUpTime() {
  struct ::sysinfo info {};
  if (Os().sysinfo(&info) < 0) {
    Trace(20, kError, "The error occured by OS API(sysinfo).(en = %1, arg1 = %2).", errno,
          "sysinfo");
    return -1;
  }
  return static_cast<int>(info.uptime);
}

void ProcLib::ResetCaches() {
  g_numCPUs = kNotCounted;
  g_bootTime = 0;
}
