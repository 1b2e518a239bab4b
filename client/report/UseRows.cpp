#include "client/report/UseRows.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "client/report/Analysis.h"
#include "client/report/FigureText.h"

namespace {

constexpr const char* kInterval = "Interval";
constexpr double kUseKbyte = 1024;
constexpr std::size_t kNamedAtOnce = 3;
/// How far a look may be that speaks for a time, where no schedule tells.
constexpr double kUsualLookSeconds = 300;

struct Taker {
  std::string name;
  double figure = 0;
};

std::optional<double> MeasureOf(const Use& use, const Json& row, const UseColumns& columns,
                                UseMeasure measure) {
  return measure == UseMeasure::kCpu      ? NumberOf(row, columns.cpu)
         : measure == UseMeasure::kMemory ? use.memoryBytes
                                          : use.ioBytes;
}

std::vector<Taker> TakersOf(const Json& rows, const UseColumns& columns, UseMeasure measure) {
  std::vector<Taker> takers;
  for (const Json& row : rows.Elements()) {
    const Use use = UseOf(row, columns);
    const double figure = MeasureOf(use, row, columns, measure).value_or(0);
    if (figure > 0) {
      takers.push_back({use.name + ' ' + TextOf(row, columns.id), figure});
    }
  }
  std::ranges::stable_sort(
      takers, [](const Taker& left, const Taker& right) { return left.figure > right.figure; });
  takers.resize(std::min(takers.size(), kNamedAtOnce));
  return takers;
}

}  // namespace

std::vector<std::string> UseColumns::Labels() const {
  std::vector<std::string> labels{kRecordTime, kInterval, name, cpu, memory};
  labels.insert(labels.end(), io.begin(), io.end());
  for (const std::string& each : {more, id}) {
    if (!each.empty()) {
      labels.push_back(each);
    }
  }
  return labels;
}

const std::vector<UseColumns>& ProcessColumns() {
  static const std::vector<UseColumns> kColumns = [] {
    UseColumns columns{"PDI",        "Program",         "User",    "PID",
                       "CPU % Each", "Real Mem Kbytes", kUseKbyte, {"Total I/O Kbytes"},
                       kUseKbyte};
    std::vector<UseColumns> both{columns, columns};
    both.back().record = "PD";
    return both;
  }();
  return kColumns;
}

const UseColumns& ControlGroupColumns() {
  static const UseColumns kColumns{
      "CGRP", "Path", "Kind", "", "CPU %", "Memory Bytes", 1, {"Read Bytes", "Write Bytes"}, 1};
  return kColumns;
}

const UseColumns& WorkgroupColumns() {
  static const UseColumns kColumns{"WGRP",    "Workgroup",          "",
                                   "",        "CPU % Copy",         "Real Mem Kbytes",
                                   kUseKbyte, {"Total I/O Kbytes"}, kUseKbyte};
  return kColumns;
}

Use UseOf(const Json& row, const UseColumns& columns) {
  Use use;
  use.time = static_cast<std::int64_t>(NumberOf(row, kRecordTime).value_or(0));
  use.name = TextOf(row, columns.name);
  use.more = columns.more.empty() ? "" : TextOf(row, columns.more);
  const auto percent = NumberOf(row, columns.cpu);
  const auto seconds = NumberOf(row, kInterval);
  use.seconds = seconds;
  if (percent && seconds) {
    use.cpuSeconds = *percent / 100 * *seconds;
  }
  if (const auto memory = NumberOf(row, columns.memory)) {
    use.memoryBytes = *memory * columns.memoryUnit;
  }
  for (const std::string& label : columns.io) {
    if (const auto part = NumberOf(row, label)) {
      use.ioBytes = use.ioBytes.value_or(0) + *part * columns.ioUnit;
    }
  }
  return use;
}

std::optional<std::string> WhoAt(KeptRows& rows, UseMeasure measure, std::int64_t time) {
  for (const UseColumns& columns : ProcessColumns()) {
    if (!rows.Has(columns.record)) {
      continue;
    }
    const Json found = rows.At(columns.record, columns.Labels(), time);
    if (found.Elements().empty()) {
      continue;
    }
    const double every = rows.Every(columns.record);
    const std::int64_t distance = UseOf(found.Elements().front(), columns).time - time;
    if (IsGap(std::abs(distance), every > 0 ? every : kUsualLookSeconds)) {
      continue;
    }
    std::string text;
    for (const Taker& taker : TakersOf(found, columns, measure)) {
      text += text.empty() ? "" : ", ";
      text += taker.name + " (" +
              FigureText(taker.figure, measure == UseMeasure::kCpu ? "percent" : "bytes") + ')';
    }
    return text.empty() ? std::nullopt : std::optional(std::move(text));
  }
  return std::nullopt;
}
