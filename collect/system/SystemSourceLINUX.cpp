#include "collect/system/SystemSourceLINUX.h"

#include <cerrno>

#include "collect/AccountingCount.h"
#include "collect/HostFile.h"
#include "collect/TextScanner.h"
#include "collect/system/NoHost.h"
#include "support/Switches.h"

namespace {

bool Open(ProcLib& lib, ProcFile file) {
  const UtlErrorPtr error(lib.Initialize(file));
  if (error != nullptr) {
    Trace(30, kError, "An error occured in function (ProcLib::Initialize):(%1, arg1=%2)",
          error->GetMessage(), static_cast<int>(file));
  }
  return error == nullptr;
}

/// A figure of sysinfo in Mbytes; the product keeps 64 bits.
float Megabytes(std::uint64_t units, std::uint64_t unitBytes) {
  return static_cast<float>(static_cast<long double>(units * unitBytes) / 1048576.0L);
}

}  // namespace

SystemSourceUser::SystemSourceUser() {
  TraceEntry("SystemSourceUser::SystemSourceUser");
  ++s_statistics.constructed;
  bool isAnyOpen = Open(m_statLib, kProcStat);
  isAnyOpen = Open(m_loadavgLib, kProcLoadavg) || isAnyOpen;
  if (g_kernelVariant == kNewestKernel) {
    isAnyOpen = Open(m_vmstatLib, kProcVmstat) || isAnyOpen;
  }
  m_isNowhere = !isAnyOpen;
  TellNoHost(m_isNowhere);
  TraceExit("SystemSourceUser::SystemSourceUser");
}

SystemSourceUser::~SystemSourceUser() { ++s_statistics.destroyed; }

void SystemSourceUser::read(x_system* record) {
  TraceEntry("SystemSourceUser::read", AddressOf(record));
  m_more = false;
  record->isNowhere = m_isNowhere;
  if (m_pendingError == nullptr) {
    ReadMemory(*record);
    ReadCounters(*record);
    ReadLoad(*record);
    if (CountUser(&m_figures.userCount) == 0) {
      record->numUsers = m_figures.userCount;
    } else {
      Trace(30, kError, "Error occured in function (SystemSourceUser::CountUser).(rc=%1, arg1=%2)",
            -1, m_figures.userCount);
    }
    record->processesDied = static_cast<std::uint32_t>(SystemProcessDied());
    ReadProcessors(*record);
  }
  TraceExit("SystemSourceUser::read");
}

void SystemSourceUser::ReadMemory(x_system& record) {
  struct ::sysinfo info {};
  if (Os().sysinfo(&info) < 0) {
    Trace(20, kError, "The error occurred by OS API(sysinfo). (en=%1, arg1=%2)", errno, "sysinfo");
    return;
  }
  record.freeMemMB = Megabytes(info.freeram, info.mem_unit);
  record.totalMemMB = Megabytes(info.totalram, info.mem_unit);
  record.freeSwapMB = Megabytes(info.freeswap, info.mem_unit);
  record.totalSwapMB = Megabytes(info.totalswap, info.mem_unit);
  record.numProcesses = CountProcesses();
}

void SystemSourceUser::ReadCounters(x_system& record) {
  if (ReadStatProc() != 0) {
    Trace(20, kError, "Error occured in function (SystemSourceUser::ReadStatProc).(rc = %1)", -1);
  } else {
    if (g_kernelVariant != kNewestKernel) {
      CopyPaging(record);
    }
    record.contextSwitches = m_figures.ctxt;
    record.interrupts = m_figures.intr;
  }
  if (g_kernelVariant != kNewestKernel) {
    return;
  }
  if (ReadVmstatProc() == 0) {
    CopyPaging(record);
  } else {
    Trace(20, kError, "Error occured in function (SystemSourceUser::ReadVmstatProc).(rc = %1)", -1);
  }
}

void SystemSourceUser::ReadLoad(x_system& record) {
  if (ReadLoadavgProc() != 0) {
    Trace(30, kError, "Error occured in function (SystemSourceUser::ReadLoadavgProc).(rc = %1)",
          -1);
    return;
  }
  record.runQueue = m_figures.runQueue;
  record.load1 = m_figures.load1;
  record.load5 = m_figures.load5;
  record.load15 = m_figures.load15;
}

void SystemSourceUser::ReadProcessors(x_system& record) {
  if (const int bootTime = ProcLib::GetBootTime(); bootTime >= 0) {
    record.bootTime = bootTime;
  } else {
    Trace(30, kError, "Error occured in function (ProcLib::GetBootTime).(rc = %1)", bootTime);
  }
  const int numCPUs = ProcLib::GetNumCPUs();
  record.numCPUs = static_cast<std::uint32_t>(numCPUs);
  if (numCPUs == 0) {
    Trace(20, kError, "Error occured in function (ProcLib::GetNumCPUs).(rc = %1)", numCPUs);
  }
}

void SystemSourceUser::CopyPaging(x_system& record) const {
  record.pagesIn = m_figures.pagesIn;
  record.pagesOut = m_figures.pagesOut;
  record.swapIn = m_figures.swapIn;
  record.swapOut = m_figures.swapOut;
}

int SystemSourceUser::ReadStatProc() {
  return ScanKeys(m_statLib, {{"intr", &m_figures.intr},
                              {"swap", &m_figures.swapIn, &m_figures.swapOut},
                              {"page", &m_figures.pagesIn, &m_figures.pagesOut},
                              {"ctxt", &m_figures.ctxt}});
}

int SystemSourceUser::ReadVmstatProc() {
  return ScanKeys(m_vmstatLib, {{"pgpgin", &m_figures.pagesIn},
                                {"pgpgout", &m_figures.pagesOut},
                                {"pswpin", &m_figures.swapIn},
                                {"pswpout", &m_figures.swapOut}});
}

int SystemSourceUser::ScanKeys(ProcLib& lib, std::initializer_list<KeyedNumbers> keys) {
  if (lib.BuildProcMap(" ") != 0) {
    Trace(30, kError, "Error occured in a function (ProcLib::BuildProcMap).(rc = %1, arg1 = %2)",
          -1, " ");
    return -1;
  }
  ProcLine value;
  for (const KeyedNumbers& numbers : keys) {
    if (lib.GetProcMapValue(numbers.key, value) != 0) {
      Trace(30, kError,
            "Error occured in function (ProcLib::GetProcMapValue).(rc=%1, arg1=%2, arg2=%3)", -1,
            numbers.key, "");
      continue;
    }
    TextScanner scanner(value.data());
    const bool one = numbers.second == nullptr;
    if (!scanner.Unsigned(*numbers.first) || (!one && !scanner.Unsigned(*numbers.second))) {
      Trace(30, kError, "An error occurred by OS API (sscanf).(en=%1, arg1=%2, arg2=%3)", errno,
            value.data(), one ? "%u" : "%u %u");
    }
  }
  return 0;
}

int SystemSourceUser::ReadLoadavgProc() {
  ProcLine line;
  if (m_loadavgLib.GetLine(line) != 0) {
    Trace(30, kError, "Error occured in function (ProcLib::GetLine).(rc=%1, arg1=%2)", -1,
          ProcLib::FilePath(kProcLoadavg));
    return -1;
  }
  // The fourth column is "runnable/all": its scan stops at the slash.
  TextScanner scanner(line.data());
  if (!scanner.Float(m_figures.load1) || !scanner.Float(m_figures.load5) ||
      !scanner.Float(m_figures.load15) || !scanner.Float(m_figures.runQueue)) {
    Trace(30, kError, "An error occurred by OS API (sscanf).(en=%1,arg1=%2, arg2=%3)", errno,
          line.data(), "%f %f %f %f/");
  }
  return 0;
}

int SystemSourceUser::SystemProcessDied() { return static_cast<int>(g_accountingRecords); }

int SystemSourceUser::GetTrapCount() {
  const char* path = ProcLib::FilePath(kProcInterrupts);
  const TextFilePtr file = OpenHostFile(path);
  if (file == nullptr) {
    Trace(30, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2,arg2=%3)", errno, path,
          "r");
    return -1;
  }
  ProcLine line{};
  char* text = line.data();
  if (GetLine(file.get(), &text, "NMI:") != 0) {
    Trace(30, kError,
          "An error occurred in a function (SystemSourceUser::GetLine).(rc=%1, arg1=%2, arg2=%3, "
          "arg3=%4)",
          -1, path, line.data(), "NMI:");
    return -1;
  }
  TextScanner scanner(line.data());
  bool found = false;
  for (std::string_view word; scanner.Word(word);) {
    const std::size_t digit = word.find_first_of("0123456789");
    std::uint32_t traps = 0;
    if (digit != std::string_view::npos && TextScanner(word.substr(digit)).Unsigned(traps)) {
      m_figures.trapCount += traps;
      found = true;
    }
  }
  if (!found) {
    Trace(30, kError, "The error occured by OS API(sscanf).(en = %1,arg1 = %2,arg2 = %3).", errno,
          line.data(), "%s");
    return -1;
  }
  return 0;
}
