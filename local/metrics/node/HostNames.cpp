#include <charconv>
#include <system_error>

#include "local/metrics/node/NodeNames.h"

namespace {

constexpr NodeEntry HostGauge(const char* name, const char* help, const char* field) {
  return {name, help, MetricKind::kGauge, {field}};
}

constexpr NodeEntry KernelEvents(const char* name, const char* help, const char* field) {
  return {name, help, MetricKind::kCounter, {field}};
}

constexpr std::array kKernelEntries{
    HostGauge("node_boot_time_seconds", "When the host was started, since 1970", "Boot Time"),
    HostGauge("node_time_seconds", "The host's time, since 1970", "Record Time"),
    HostGauge("node_load1", "Load average of the last minute", "1-Minute Load"),
    HostGauge("node_load5", "Load average of the last five minutes", "5-Minute Load"),
    HostGauge("node_load15", "Load average of the last fifteen minutes", "15-Minute Load"),
    HostGauge("node_procs_running", "Tasks that run or are ready to", "Runnable"),
    HostGauge("node_procs_blocked", "Tasks that wait for I/O", "Blocked"),
    KernelEvents("node_context_switches_total",
                 "How often the processors went from one task to another", "Context Switches"),
    KernelEvents("node_intr_total", "Interrupts that the processors served", "Interrupts"),
    KernelEvents("node_forks_total", "Processes and threads that were started", "Forks"),
    NodeEntry{
        "node_vmstat_pgpgin", "Kbytes read from disks", MetricKind::kUnknown, {"Disk Read Kbytes"}},
    NodeEntry{"node_vmstat_pgpgout",
              "Kbytes written to disks",
              MetricKind::kUnknown,
              {"Disk Written Kbytes"}}};

/// The kernel's own word for no bound, which the record leaves out.
std::optional<double> MostOpenFiles(const NodeFields& row) {
  constexpr double kNoBound = 9223372036854775807.0;
  const std::optional<double> most = row.Number(0);
  return most || !row.Number(1) ? most : kNoBound;
}

constexpr std::array kHostEntries{
    HostGauge("node_filefd_allocated", "File handles in use", "Open Files"),
    NodeEntry{"node_filefd_maximum",
              "How many file handles there can be",
              MetricKind::kGauge,
              {"Open Files Most", "Open Files"},
              1,
              "",
              MostOpenFiles},
    HostGauge("node_timex_sync_status", "1 if a program keeps the clock right by others, else 0",
              "Clock Synchronised"),
    HostGauge("node_timex_offset_seconds", "How far the clock is still to be put right",
              "Clock Offset Seconds"),
    HostGauge("node_timex_estimated_error_seconds",
              "How wrong the clock may be, as the program that keeps it estimates",
              "Clock Error Seconds")};

constexpr std::array kUnameLabels{NodeLabel{"machine", "Architecture"},
                                  NodeLabel{"nodename", "Name"}, NodeLabel{"release", "Kernel"},
                                  NodeLabel{"version", "Kernel Version"}};
constexpr std::array kUnameEntries{NodeEntry{"node_uname_info",
                                             "What the kernel says of itself and the host",
                                             MetricKind::kGauge,
                                             {},
                                             1,
                                             R"(sysname="Linux")",
                                             AlwaysOne}};

constexpr std::array kOsLabels{NodeLabel{"id", "Distribution ID"},
                               NodeLabel{"pretty_name", "Distribution"},
                               NodeLabel{"version_id", "Distribution Version"}};
constexpr std::array kOsEntries{
    NodeEntry{"node_os_info", "The distribution", MetricKind::kGauge, {}, 1, "", AlwaysOne}};

/// "12.5" as a number; of further parts none counts.
std::optional<double> VersionNumber(const NodeFields& row) {
  const std::string_view text = row.Text(0);
  double number = 0;
  const auto end =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  return end.ec == std::errc{} ? std::optional(number) : std::nullopt;
}

constexpr std::array kOsVersionLabels{NodeLabel{"id", "Distribution ID"}};
constexpr std::array kOsVersionEntries{NodeEntry{"node_os_version",
                                                 "The distribution's version as a number",
                                                 MetricKind::kGauge,
                                                 {"Distribution Version"},
                                                 1,
                                                 "",
                                                 VersionNumber}};

constexpr std::array kClockLabels{NodeLabel{"clocksource", "Clock Source"}};
constexpr std::array kClockEntries{NodeEntry{"node_time_clocksource_current_info",
                                             "What the kernel reads the time from",
                                             MetricKind::kGauge,
                                             {},
                                             1,
                                             R"(device="0")",
                                             AlwaysOne}};

bool HasFirstText(const NodeFields& row) { return !row.Text(0).empty(); }

constexpr std::array kHostGroups{
    NodeGroup{"KERN", {}, kKernelEntries},
    NodeGroup{"HOST", {}, kHostEntries},
    NodeGroup{"HOST", kUnameLabels, kUnameEntries, {"Kernel"}, HasFirstText},
    NodeGroup{"HOST", kOsLabels, kOsEntries, {"Distribution ID"}, HasFirstText},
    NodeGroup{"HOST", kOsVersionLabels, kOsVersionEntries},
    NodeGroup{"HOST", kClockLabels, kClockEntries, {"Clock Source"}, HasFirstText}};

}  // namespace

std::span<const NodeGroup> NodeHostTable() { return kHostGroups; }
