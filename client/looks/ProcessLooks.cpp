#include "client/looks/ProcessLooks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

#include "client/ask/Errors.h"
#include "client/show/RowValues.h"

namespace {

constexpr double kUntold = std::numeric_limits<double>::quiet_NaN();

/// One label of the rows; remembers where it stood.
class LookColumn {
 public:
  explicit LookColumn(const char* label) : m_label(label) {}

  double Number(const Json& row) {
    const Json& value = Value(row);
    if (!value.IsNumber()) {
      Fail("a number");
    }
    return value.Number();
  }

  /// No number for a field that nothing on the host tells.
  double NumberIfTold(const Json& row) { return Value(row).IsNull() ? kUntold : Number(row); }

  std::string Text(const Json& row) {
    const Json& value = Value(row);
    if (!value.IsString()) {
      Fail("a text");
    }
    return value.Text();
  }

 private:
  const Json& Value(const Json& row) {
    const auto& members = row.Members();
    const auto place = members.begin() + static_cast<std::ptrdiff_t>(m_place);
    if (m_place >= members.size() || place->name != m_label) {
      const auto found = std::find_if(members.begin(), members.end(),
                                      [&](const auto& entry) { return entry.name == m_label; });
      m_place = static_cast<std::size_t>(found - members.begin());
    }
    return ValueOf(row, m_place, m_label);
  }

  [[noreturn]] void Fail(const char* expected) const {
    throw ClientError("broken answer: \"" + m_label + "\" of a process is not " + expected);
  }

  std::string m_label;
  std::size_t m_place = 0;
};

/// The labels of PDI that a look needs.
struct Columns {
  LookColumn recordTime{"Record Time"};
  LookColumn pid{"PID"};
  LookColumn program{"Program"};
  LookColumn user{"User"};
  LookColumn startTime{"Start Time"};
  LookColumn userCpu{"User CPU"};
  LookColumn systemCpu{"System CPU"};
  LookColumn majorFaults{"Major Faults"};
  LookColumn realMem{"Real Mem Kbytes"};
  LookColumn virtualMem{"Virtual Mem Kbytes"};
  LookColumn state{"State"};
  LookColumn ioOps{"Total I/O Ops"};
  LookColumn ioKbytes{"Total I/O Kbytes"};
  LookColumn arguments{"Argument List"};
};

std::int64_t ProcessId(double number) {
  if (!(number >= 0 && number <= INT32_MAX)) {
    throw ClientError("broken answer: \"PID\" of a process is out of range");
  }
  return static_cast<std::int64_t>(number);
}

/// 0 for what is not finite: what is no number has no place in an order.
double FiniteOrNothing(double figure) { return std::isfinite(figure) ? figure : 0; }

/// A total that went backwards, or is not told, tells nothing.
double Growth(double now, double before) {
  const double growth = now - before;
  return std::isfinite(growth) && growth >= 0 ? growth : kUntold;
}

}  // namespace

std::vector<ProcessLine> ProcessLooks::Add(const Json& rows, TimePoint at) {
  const double between = m_last.empty() ? 0 : std::chrono::duration<double>(at - m_lastAt).count();
  Columns columns;
  std::vector<ProcessLine> lines;
  lines.reserve(rows.Size());
  std::unordered_map<std::int64_t, Totals> now;
  now.reserve(rows.Size());
  for (const Json& row : rows.Elements()) {
    ProcessLine line;
    line.pid = ProcessId(columns.pid.Number(row));
    line.user = columns.user.Text(row);
    line.state = columns.state.Text(row);
    line.program = columns.program.Text(row);
    line.arguments = columns.arguments.Text(row);
    line.cpuSeconds = columns.userCpu.Number(row) + columns.systemCpu.Number(row);
    line.realMemKbytes = columns.realMem.Number(row);
    line.virtualMemKbytes = columns.virtualMem.Number(row);
    const Totals totals{columns.startTime.Number(row), line.cpuSeconds,
                        columns.ioKbytes.NumberIfTold(row), columns.ioOps.NumberIfTold(row),
                        columns.majorFaults.Number(row)};
    const auto last = m_last.find(line.pid);
    const bool isKnown = last != m_last.end() && last->second.startTime == totals.startTime;
    const Totals before = isKnown ? last->second : Totals{};
    line.newIoKbytes = Growth(totals.ioKbytes, before.ioKbytes);
    line.newIoOps = Growth(totals.ioOps, before.ioOps);
    line.newMajorFaults = Growth(totals.majorFaults, before.majorFaults);
    // One that is younger than the look before has had no more than the time since then; an older
    // one that the look missed is shown by its whole life.
    const double age = columns.recordTime.Number(row) - totals.startTime;
    const double seconds = isKnown ? between : std::max(between, age);
    const double cpuSeconds = FiniteOrNothing(Growth(totals.cpuSeconds, before.cpuSeconds));
    line.cpuPercent = seconds > 0 ? FiniteOrNothing(100 * cpuSeconds / seconds) : 0;
    now.insert_or_assign(line.pid, totals);
    lines.push_back(std::move(line));
  }
  m_last = std::move(now);
  m_lastAt = at;
  return lines;
}

void Rank(std::vector<ProcessLine>& processes, TopOrder order) {
  const auto figures = [order](const ProcessLine& line) {
    switch (order) {
      case TopOrder::kCpu:
        return std::tuple(line.cpuPercent, 0.0, 0.0);
      case TopOrder::kIo:
        return std::tuple(FiniteOrNothing(line.newIoKbytes), FiniteOrNothing(line.newIoOps),
                          FiniteOrNothing(line.newMajorFaults));
      case TopOrder::kMemory:
        break;
    }
    return std::tuple(line.realMemKbytes, line.virtualMemKbytes, 0.0);
  };
  std::sort(processes.begin(), processes.end(), [&](const ProcessLine& a, const ProcessLine& b) {
    return std::tuple(figures(b), b.realMemKbytes, a.pid) <
           std::tuple(figures(a), a.realMemKbytes, b.pid);
  });
}
