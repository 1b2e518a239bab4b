#include "client/commands/Top.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/looks/Pace.h"
#include "client/show/QuitKey.h"
#include "client/show/RowValues.h"
#include "client/show/Table.h"

namespace {

using Clock = ProcessLooks::TimePoint::clock;

/// Lines above the first process: the machine, an empty line, the headings.
constexpr std::size_t kLinesAbove = 3;
constexpr std::size_t kUserWidth = 12;

const char* OrderName(TopOrder order) {
  return order == TopOrder::kCpu ? "cpu" : order == TopOrder::kMemory ? "memory" : "io";
}

/// The figure of the machine, with `decimals`; empty if it is not there.
std::string Figure(const Json& row, const char* label, int decimals) {
  const Json* value = row.Find(label);
  return value != nullptr && value->IsNumber() ? FixedText(value->Number(), decimals) : "";
}

/// Load and processors as the record PI has them; empty for a record that could not be had. Shares
/// of the first look have nothing to compare with and are left out.
std::string MachineText(const RecordAnswer& machine, bool isFirst) {
  if (!machine.error.empty() || machine.rows.Elements().empty()) {
    return "";
  }
  const Json& row = machine.rows[0];
  std::string text;
  for (const char* label :
       {"1-Minute Run Queue Avg", "5-Minute Run Queue Avg", "15-Minute Run Queue Avg"}) {
    const std::string load = Figure(row, label, 2);
    text += load.empty() ? "" : (text.empty() ? "  load " : " ") + load;
  }
  const std::string cpu = isFirst ? "" : Figure(row, "CPU %", 1);
  return text + (cpu.empty() ? "" : "  CPU " + cpu + " %");
}

Cell NumberCell(double value, int decimals) {
  return {std::isfinite(value) ? FixedText(value, decimals) : "-", true};
}

std::string ProcessTable(const std::vector<ProcessLine>& processes, std::size_t count,
                         const Screen& screen) {
  // What a narrow terminal cuts off stands behind the name of the program.
  Table table({"Program", "PID", "User", "State", "CPU %", "CPU Time", "Mem KB", "I/O KB", "Faults",
               "Argument List"});
  for (std::size_t i = 0; i < std::min(count, processes.size()); ++i) {
    const ProcessLine& line = processes[i];
    table.AddRow({{SafeText(line.program)},
                  {std::to_string(line.pid), true},
                  {std::string(CutText(SafeText(line.user), kUserWidth))},
                  {SafeText(line.state)},
                  NumberCell(line.cpuPercent, 1),
                  NumberCell(line.cpuSeconds, 2),
                  NumberCell(line.realMemKbytes, 0),
                  NumberCell(line.newIoKbytes, 0),
                  NumberCell(line.newMajorFaults, 0),
                  {line.arguments.empty() ? "-" : SafeText(line.arguments)}});
  }
  // A process is one line, however wide.
  Screen endless = screen;
  endless.width = 0;
  return table.Text(endless);
}

/// The processes and the machine, asked for in one batch.
class Looker {
 public:
  Looker(const std::string& socket, int stop) : m_connection(socket, stop) {
    Json names = Json::Array();
    for (const RecordName& name : m_names) {
      names.PushBack(name.ToJson());
    }
    m_request = {{"op", "get"}, {"records", std::move(names)}};
  }

  /// The next look, ranked, and the line that stands above it.
  std::pair<std::vector<ProcessLine>, std::string> Look(TopOrder order) {
    Json answer = m_connection.Ask(m_request);
    const Clock::time_point at = Clock::now();
    const std::vector<RecordAnswer> records = ReadResults(answer, m_names);
    const RecordAnswer& listed = records.front();
    if (!listed.error.empty()) {
      throw ClientError(m_names.front().Text() + ": " + listed.error);
    }
    std::vector<ProcessLine> processes = m_looks.Add(listed.rows, at);
    Rank(processes, order);
    const std::string span =
        m_lastAt ? FixedText(std::chrono::duration<double>(at - *m_lastAt).count(), 1) + " s"
                 : "since start";
    std::string head = DateText(listed.time) + "  " + std::to_string(processes.size()) +
                       " processes" + MachineText(records.back(), !m_lastAt.has_value()) + "  by " +
                       OrderName(order) + ", " + span;
    m_lastAt = at;
    return {std::move(processes), std::move(head)};
  }

 private:
  std::vector<RecordName> m_names{{"PDI", "3"}, {"PI", "4"}};
  Connection m_connection;
  Json m_request;
  ProcessLooks m_looks;
  std::optional<Clock::time_point> m_lastAt;
};

/// Shows look after look until it is enough; Interrupted comes out of a request or a slow reader.
void ShowLooks(const CommonOptions& common, const TopOptions& options, const StopSignals& stop,
               bool& inPlace) {
  const Pace pace(options.everySeconds);
  Looker looker(common.socket, stop.Get());
  QuitKey quit;
  for (std::uint64_t looks = 1;; ++looks) {
    const auto [processes, head] = looker.Look(options.order);
    const Screen screen = ReadScreen(common.color);
    const bool redraws = screen.redraws;
    std::size_t rows = options.rows == 0 ? processes.size() : options.rows;
    if (redraws && screen.height > kLinesAbove) {
      rows = std::min(rows, screen.height - kLinesAbove);
    }
    const std::string text =
        Emphasize(head, screen) + "\n\n" + ProcessTable(processes, rows, screen);
    inPlace = inPlace || redraws;
    WriteOutput(redraws ? Frame(text, screen) : (looks == 1 ? "" : "\n") + text, stop.Get());
    if (looks == options.count || quit.WaitUntil(pace.Next(), stop)) {
      return;
    }
  }
}

}  // namespace

int RunTop(const CommonOptions& common, const TopOptions& options) {
  const StopSignals stop;
  bool inPlace = false;
  try {
    ShowLooks(common, options, stop, inPlace);
  } catch (const Interrupted&) {
    // As good an end as any.
  } catch (const ClientError&) {
    if (inPlace) {
      WriteOutput("\n");
    }
    throw;
  }
  if (inPlace) {
    WriteOutput("\n");
  }
  return kExitDone;
}
