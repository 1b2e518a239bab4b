#include "local/metrics/node/NodeNames.h"

namespace {

constexpr std::array kProcessorPressure{
    NodeEntry{"node_pressure_cpu_waiting_seconds_total",
              "Time in which at least one task waited for a processor",
              MetricKind::kCounter,
              {"Some Stalled Seconds"}}};
constexpr std::array kMemoryPressure{
    NodeEntry{"node_pressure_memory_waiting_seconds_total",
              "Time in which at least one task waited for memory",
              MetricKind::kCounter,
              {"Some Stalled Seconds"}},
    NodeEntry{"node_pressure_memory_stalled_seconds_total",
              "Time in which all tasks that had work waited for memory",
              MetricKind::kCounter,
              {"Full Stalled Seconds"}}};
constexpr std::array kIoPressure{NodeEntry{"node_pressure_io_waiting_seconds_total",
                                           "Time in which at least one task waited for I/O",
                                           MetricKind::kCounter,
                                           {"Some Stalled Seconds"}},
                                 NodeEntry{"node_pressure_io_stalled_seconds_total",
                                           "Time in which all tasks that had work waited for I/O",
                                           MetricKind::kCounter,
                                           {"Full Stalled Seconds"}}};

constexpr std::array kPressureGroups{
    NodeGroup{"PRES",
              {},
              kProcessorPressure,
              {"Resource"},
              [](const NodeFields& row) { return row.Text(0) == "cpu"; }},
    NodeGroup{"PRES",
              {},
              kMemoryPressure,
              {"Resource"},
              [](const NodeFields& row) { return row.Text(0) == "memory"; }},
    NodeGroup{"PRES", {}, kIoPressure, {"Resource"}, [](const NodeFields& row) {
                return row.Text(0) == "io";
              }}};

}  // namespace

std::span<const NodeGroup> NodePressureTable() { return kPressureGroups; }
