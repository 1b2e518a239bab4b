#include <cmath>

#include "local/metrics/node/NodeNames.h"
#include "support/TimeValues.h"

namespace {

/// The number that the kernel has, which a sum is not: it counts in ticks.
std::optional<double> SumInTicks(const NodeFields& fields) {
  const std::optional<double> sum = SumOfTold(fields);
  return sum ? std::optional(std::round(*sum * TicksPerSecond()) / TicksPerSecond()) : sum;
}

constexpr std::array kCpuLabels{NodeLabel{"cpu", "Processor"}};

constexpr const char* kCpuName = "node_cpu_seconds_total";
constexpr const char* kCpuHelp = "Time that the processor spent in each mode";
constexpr const char* kGuestName = "node_cpu_guest_seconds_total";
constexpr const char* kGuestHelp =
    "Time that the processor spent in programs of guests, which the modes user and nice hold too";

constexpr NodeEntry CpuMode(const char* labels, const char* field, const char* guest = nullptr) {
  return {kCpuName, kCpuHelp, MetricKind::kCounter, {field, guest}, 1, labels, SumInTicks};
}

// The record takes the time of guests out of that of programs.
constexpr std::array kCpuEntries{
    CpuMode(R"(mode="idle")", "Idle Seconds"),
    CpuMode(R"(mode="iowait")", "Wait Seconds"),
    CpuMode(R"(mode="irq")", "IRQ Seconds"),
    CpuMode(R"(mode="nice")", "Nice Seconds", "Guest Nice Seconds"),
    CpuMode(R"(mode="softirq")", "Soft IRQ Seconds"),
    CpuMode(R"(mode="steal")", "Steal Seconds"),
    CpuMode(R"(mode="system")", "System Seconds"),
    CpuMode(R"(mode="user")", "User Seconds", "Guest Seconds"),
    NodeEntry{kGuestName, kGuestHelp, MetricKind::kCounter, {"Guest Seconds"}, 1, R"(mode="user")"},
    NodeEntry{
        kGuestName, kGuestHelp, MetricKind::kCounter, {"Guest Nice Seconds"}, 1, R"(mode="nice")"}};

constexpr std::array kCpuGroups{
    NodeGroup{"CPUX", kCpuLabels, kCpuEntries, {"Processor"}, [](const NodeFields& row) {
                return row.Text(0) != "all";
              }}};

}  // namespace

std::span<const NodeGroup> NodeCpuTable() { return kCpuGroups; }
