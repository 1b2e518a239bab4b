#include "collect/cpu/CPUSourceLINUX.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>

#include "collect/TextScanner.h"

namespace {

constexpr std::uint32_t kCpuRecordSize = 140;
constexpr std::size_t kTypeLimit = 40;

void Open(ProcLib& lib, ProcFile file, int level) {
  if (const UtlErrorPtr error(lib.Initialize(file)); error != nullptr) {
    Trace(level, kError, "Unable to open file (%1): (%2)", ProcLib::FilePath(file),
          error->GetMessage());
  }
}

/// Adds one line of /proc/interrupts to the column sums; only lines that open with a number count.
void AddInterrupts(const char* line, std::vector<std::uint32_t>& sums) {
  TextScanner scanner(line);
  std::string_view word;
  std::int32_t number = 0;
  if (!scanner.Word(word) || !TextScanner(word).Signed(number)) {
    return;
  }
  for (std::uint32_t& sum : sums) {
    if (!scanner.Word(word)) {
      return;
    }
    if (TextScanner(word).Signed(number)) {
      sum += static_cast<std::uint32_t>(number);
    }
  }
}

}  // namespace

CPUSourceUser::CPUSourceUser() {
  TraceEntry("CPUSourceUser::CPUSourceUser");
  ++s_statistics.constructed;
  Open(m_statLib, kProcStat, 30);
  Open(m_interruptsLib, kProcInterrupts, 30);
  Open(m_cpuinfoLib, kProcCpuinfo, 20);
  Open(m_idsLib, kProcCpuinfo, 20);
  Open(m_typesLib, kProcCpuinfo, 20);

  m_remaining = ProcLib::GetNumCPUs();
  if (m_remaining == -1) {
    m_pendingError =
        std::make_unique<UtlError>("Error in calculating number of CPUs", __FILE__, __LINE__);
    Trace(20, kError, "An error occured in a function (ProcLib::GetNumCPUs). (rc=%1)", -1);
  }
  if (auto ids = m_idsLib.GetCPUIds()) {
    m_cpuIds = std::move(*ids);
  } else {
    m_pendingError =
        std::make_unique<UtlError>("Error in calculating processor IDs", __FILE__, __LINE__);
    Trace(20, kError, "An error occured in a function (ProcLib::GetCPUIds). (rc=%1)", 0);
  }
  if (auto types = m_typesLib.GetCPUTypes()) {
    m_cpuTypes = std::move(*types);
  } else {
    m_pendingError =
        std::make_unique<UtlError>("Error in calculating CPU types", __FILE__, __LINE__);
    Trace(20, kError, "An error occured in a function (ProcLib::GetCPUTypes). (rc=%1)", 0);
  }
  TraceExit("CPUSourceUser::CPUSourceUser");
}

CPUSourceUser::~CPUSourceUser() { ++s_statistics.destroyed; }

void CPUSourceUser::read(x_cpu* record) {
  TraceEntry("CPUSourceUser::read");
  m_more = false;
  // Processors that /proc/cpuinfo has no room for, as right after one was added, have no identity.
  if (m_pendingError != nullptr || m_remaining <= 0 || m_index >= m_cpuIds.size()) {
    TraceExit("CPUSourceUser::read");
    return;
  }
  m_currentId = m_cpuIds[m_index];
  record->size = kCpuRecordSize;
  ReadTimes(*record);
  if (std::uint32_t interrupts = 0; GetInterrupts(&interrupts) == 0) {
    record->interrupts = interrupts;
  } else {
    Trace(30, kError,
          "An error occured in a function (CPUSourceUser::GetInterrupts). (rc=%1, arg1=%2)", -1,
          interrupts);
  }
  ReadTraps();
  record->cpuId = m_currentId;
  if (m_index < m_cpuTypes.size()) {
    m_cpuTypes[m_index].copy(record->cpuType.data(), kTypeLimit);
  }
  record->online = IsCPUOnline(m_currentId) != 0 ? 1 : 0;
  --m_remaining;
  ++m_index;
  m_more = true;
  TraceExit("CPUSourceUser::read");
}

bool CPUSourceUser::MapOnce(ProcLib& lib, bool& mapped) {
  if (!mapped) {
    mapped = lib.BuildProcMap(" ") == 0;
    if (!mapped) {
      Trace(30, kError, "An error occured in a function (ProcLib::BuildProcMap). (rc=%1, arg1=%2)",
            -1, " ");
    }
  }
  return mapped;
}

void CPUSourceUser::ReadTimes(x_cpu& record) {
  if (!MapOnce(m_statLib, m_statMapped)) {
    return;
  }
  std::array<char, 16> key;
  std::snprintf(key.data(), key.size(), "cpu%d", static_cast<int>(m_currentId));
  ProcLine value;
  if (m_statLib.GetProcMapValue(key.data(), value) != 0) {
    Trace(30, kError,
          "An error occurred in a function (ProcLib::GetProcMapValue). (rc=%1, arg1=%2, arg2=%3)",
          -1, key.data(), "");
    return;
  }
  std::uint64_t user = 0;
  std::uint64_t nice = 0;
  std::uint64_t system = 0;
  std::uint64_t idle = 0;
  std::uint64_t wait = 0;
  TextScanner scanner(value.data());
  if (!scanner.Unsigned(user) || !scanner.Unsigned(nice) || !scanner.Unsigned(system) ||
      !scanner.Unsigned(idle) || !scanner.Unsigned(wait)) {
    Trace(30, kError, "An error occurred in a function (sscanf). (rc=%1, arg1=%2, arg2=%3)",
          scanner.Count(), value.data(), "%lu %lu %lu %lu %lu");
    return;
  }
  record.userTime = TicksToNTIME(user + nice);
  record.systemTime = TicksToNTIME(system);
  record.idleTime = TicksToNTIME(idle);
  record.waitTime = TicksToNTIME(wait);
}

void CPUSourceUser::ReadTraps() {
  if (!MapOnce(m_interruptsLib, m_interruptsMapped)) {
    return;
  }
  ProcLine value;
  if (m_interruptsLib.GetProcMapValue("NMI:", value) != 0) {
    Trace(30, kError,
          "An error occured in a function (ProcLib::GetProcMapValue). (rc=%1, arg1=%2, arg2=%3)",
          -1, "NMI:", "");
    return;
  }
  // The record has no place for the count; that it can be read is what is looked at.
  if (std::uint32_t traps = 0; GetTraps(&traps, value.data()) != 0) {
    Trace(30, kError,
          "An error occured in a function (CPUSourceUser::GetTraps). (rc=%1, arg1=%2, arg2=%3)", -1,
          traps, value.data());
  }
}

int CPUSourceUser::GetInterrupts(std::uint32_t* total) {
  if (m_interruptSums.empty()) {
    ProcLib lib;
    const char* path = ProcLib::FilePath(kProcInterrupts);
    if (lib.GetProcFp(path) == nullptr) {
      Trace(30, kError,
            "An error occured in a function (ProcLib::GetProcFp). (rc=%1, arg1=%2, arg2=%3)", 0,
            path, "r");
      return -1;
    }
    m_interruptSums.resize(m_cpuIds.size());
    for (ProcLine line; lib.GetLine(line) == 0;) {
      AddInterrupts(line.data(), m_interruptSums);
    }
  }
  *total += m_index < m_interruptSums.size() ? m_interruptSums[m_index] : 0;
  return 0;
}

int CPUSourceUser::GetTraps(std::uint32_t* total, const char* nmiValue) const {
  std::string_view rest(nmiValue);
  for (const std::uint32_t id : m_cpuIds) {
    const std::size_t digits = rest.find_first_of("0123456789");
    if (digits == std::string_view::npos) {
      return -1;
    }
    rest.remove_prefix(digits);
    if (id == m_currentId) {
      return TextScanner(rest).Unsigned(*total) ? 0 : -1;
    }
    rest.remove_prefix(std::min(rest.find_first_not_of("0123456789"), rest.size()));
  }
  return -1;
}

int CPUSourceUser::IsCPUOnline(std::uint32_t cpuId) {
  std::optional<std::uint32_t> id;
  for (ProcLine line; m_cpuinfoLib.NextProcessor(line, id);) {
    if (!id) {
      Trace(20, kWarning, "The error occured by OS API(sscanf).(en = %1, arg1 = %2, arg2 = %3).",
            errno, line.data(), "%u");
    } else if (*id == cpuId) {
      return 0;
    }
  }
  return -1;
}
