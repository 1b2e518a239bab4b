#include "collect/modern/cpu/CpuSource.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"
#include "collect/modern/cpu/Cpuinfo.h"
#include "collect/modern/cpu/Interrupts.h"
#include "collect/modern/cpu/KernelCpuStat.h"
#include "collect/modern/system/KernelStat.h"

namespace {

constexpr std::uint32_t kProcessorRowSize = 140;
constexpr const char* kPresentPath = "/sys/devices/system/cpu/present";
constexpr const char* kOnlinePath = "/sys/devices/system/cpu/online";
constexpr const char* kInterruptsPath = "/proc/interrupts";
constexpr const char* kCpuinfoPath = "/proc/cpuinfo";

/// The list of processors in a file; the other one if the file has none.
CpuSet ReadCpuList(const char* path, const CpuSet& otherwise) {
  HostLines lines(path);
  std::string_view line;
  CpuSet processors;
  if (!lines.Next(line)) {
    return otherwise;
  }
  const bool isList = ParseCpuList(line, processors);
  TellFound(path, "list of processors", isList);
  return isList ? processors : otherwise;
}

/// The lines of processors in /proc/stat, which are its first.
std::vector<CpuTicks> ReadCpuStat() {
  std::vector<CpuTicks> all;
  HostLines lines(kKernelStatPath);
  CpuTicks figures;
  for (std::string_view line; lines.Next(line) && IsCpuLine(line);) {
    if (ParseCpuStatLine(line, figures) && figures.processor < kMostProcessors &&
        all.size() < kMostProcessors) {
      all.push_back(figures);
    }
  }
  return all;
}

void SetCpuTimes(x_cpu& row, const CpuTicks& figures) {
  row.userTime = TicksToNTIME(figures.User());
  row.systemTime = TicksToNTIME(figures.System());
  row.idleTime = TicksToNTIME(figures.ticks[CpuTicks::kIdle]);
  row.waitTime = TicksToNTIME(figures.ticks[CpuTicks::kWait]);
}

}  // namespace

ModernCpuSource::ModernCpuSource() { ++s_statistics.constructed; }

ModernCpuSource::~ModernCpuSource() { ++s_statistics.destroyed; }

void ModernCpuSource::read(x_cpu* record) {
  m_more = false;
  if (!m_isLoaded) {
    m_isLoaded = true;
    Load();
  }
  if (m_pendingError == nullptr && m_next < m_rows.size()) {
    *record = m_rows[m_next];
    ++m_next;
    m_more = true;
  }
}

void ModernCpuSource::Load() {
  LoadTimes();
  if (m_rows.empty()) {
    m_pendingError =
        std::make_unique<UtlError>("Error in calculating number of CPUs", __FILE__, __LINE__);
    return;
  }
  LoadInterrupts();
  LoadTypes();
}

void ModernCpuSource::LoadTimes() {
  const std::vector<CpuTicks> all = ReadCpuStat();
  CpuSet counted;
  std::size_t columns = CpuTicks::kUsualColumns;
  for (const CpuTicks& figures : all) {
    counted.set(figures.processor);
    columns = std::min(columns, figures.columns);
  }
  const CpuSet present = ReadCpuList(kPresentPath, counted);
  const CpuSet online = ReadCpuList(kOnlinePath, counted);
  m_rows.reserve(present.count());
  m_places.resize(kMostProcessors);
  for (std::size_t processor = 0; processor < kMostProcessors; ++processor) {
    if (present.test(processor)) {
      x_cpu& row = m_rows.emplace_back();
      row.size = kProcessorRowSize;
      row.cpuId = static_cast<std::uint32_t>(processor);
      row.online = online.test(processor) ? 0 : 1;
      m_places[processor] = static_cast<std::uint16_t>(m_rows.size());
    }
  }
  for (const CpuTicks& figures : all) {
    if (x_cpu* row = RowOf(figures.processor); row != nullptr && row->online == 0) {
      SetCpuTimes(*row, figures);
    }
  }
  TellFound(kKernelStatPath, "a line of each processor that is on line",
            (online & present & ~counted).none());
  TellFound(kKernelStatPath, "all times of each processor", columns == CpuTicks::kUsualColumns);
}

void ModernCpuSource::LoadInterrupts() {
  HostLines lines(kInterruptsPath);
  std::string_view line;
  std::vector<std::uint32_t> processors;
  if (!lines.Next(line)) {
    return;
  }
  const bool hasColumns = ParseInterruptColumns(line, processors);
  TellFound(kInterruptsPath, "a column of each processor", hasColumns);
  std::vector<std::uint64_t> sums(processors.size());
  std::vector<std::uint64_t> counts(processors.size());
  while (hasColumns && lines.Next(line)) {
    AddInterruptLine(line, sums, counts);
  }
  for (std::size_t column = 0; column < processors.size(); ++column) {
    if (x_cpu* row = RowOf(processors[column])) {
      row->interrupts = static_cast<std::uint32_t>(sums[column]);
    }
  }
}

void ModernCpuSource::LoadTypes() {
  HostLines lines(kCpuinfoPath);
  CpuinfoBlock block;
  for (std::string_view line; lines.Next(line);) {
    if (IsProcessorLine(line)) {
      TakeType(block);
    }
    TakeCpuinfoLine(line, block);
  }
  TakeType(block);
  TellFound(kCpuinfoPath, "model of a processor",
            std::any_of(m_rows.begin(), m_rows.end(),
                        [](const x_cpu& row) { return row.cpuType[0] != '\0'; }));
}

void ModernCpuSource::TakeType(CpuinfoBlock& block) {
  NameByPart(block);
  if (x_cpu* row = block.processor ? RowOf(*block.processor) : nullptr) {
    row->cpuType.fill('\0');
    std::copy_n(block.type.begin(), row->cpuType.size() - 1, row->cpuType.begin());
  }
  block = CpuinfoBlock{};
}

x_cpu* ModernCpuSource::RowOf(std::uint32_t processor) {
  const std::size_t place = processor < m_places.size() ? m_places[processor] : 0;
  return place == 0 ? nullptr : &m_rows[place - 1];
}
