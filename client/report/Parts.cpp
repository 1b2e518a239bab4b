#include "client/report/Parts.h"

#include <algorithm>
#include <utility>

#include "client/report/EventParts.h"
#include "client/report/Figures.h"
#include "client/report/FileSystemPart.h"
#include "client/report/UsePart.h"
#include "client/report/UseRows.h"

namespace {

constexpr double kMbyte = 1048576;
constexpr double kKbyte = 1024;
constexpr double kFull = 100;

const FigureWay kPiWay{"PI",
                       "",
                       {},
                       {{"CPU %", "processors in use"},
                        {"User CPU %", "programs"},
                        {"Kernel CPU %", "kernel"},
                        {"Wait %", "waiting for I/O"},
                        {"Run Queue", "run queue", "number"},
                        {"1-Minute Run Queue Avg", "load, 1 minute", "number"},
                        {"5-Minute Run Queue Avg", "load, 5 minutes", "number"},
                        {"15-Minute Run Queue Avg", "load, 15 minutes", "number"},
                        {"Processes", "processes", "number"}}};
const FigureWay kDiskUse{"DISK", "Device", {}, {{"In Use %", "in use"}}};
const FigureWay kDeviceUse{"DEVD", "Device Name", {}, {{"Busy %", "in use"}}};
const std::vector<FigureField> kNetworkFields{{"Bytes In/sec", "in", "bytes/s"},
                                              {"Bytes Out/sec", "out", "bytes/s"}};
const FigureWay kInterfaces{"NETD", "Interface", {"Interface!=lo"}, kNetworkFields};

constexpr const char* kDisksName = "Disks";

const std::vector<BusySubject> kBusySubjects{
    {"Processors",
     UseMeasure::kCpu,
     {{"PI", "", {}, {{"CPU %", "in use"}}},
      {"CPUX", "", {"Processor=all"}, {{"CPU %", "in use"}}},
      {"CPUP", "Processor ID", {}, {{"CPU %", "in use"}}}}},
    {"Memory",
     UseMeasure::kMemory,
     {{"PI", "", {}, {{"Alloc Mem %", "in use"}}},
      {"MEMD", "", {}, {{"Anonymous Mbytes", "anonymous", "bytes", kMbyte}}}}},
    {kDisksName, UseMeasure::kIo, {kDiskUse, kDeviceUse}},
    {"Network", std::nullopt, {kInterfaces}},
};

/// A part of tables and charts of figures.
struct FigurePart {
  std::vector<FigureTable> tables;
  std::vector<FigureChart> charts;
};

std::function<void(SummaryPart&, const PartInput&)> Filling(FigurePart figures) {
  return [figures = std::move(figures)](SummaryPart& part, const PartInput& input) {
    for (const FigureTable& table : figures.tables) {
      AddFigureTable(part, input.rows, table);
    }
    if (input.answers != nullptr) {
      for (const FigureChart& chart : figures.charts) {
        AddFigureChart(part, input.rows, chart, *input.answers);
      }
    }
  };
}

/// Whether a line of BusyTable names processes by what they read and wrote.
bool IsByCalls(const std::vector<SummaryCell>& line) {
  return line.front().text == kDisksName && line.back().text != "-";
}

void FillBusy(SummaryPart& part, const PartInput& input) {
  SummaryTable table = BusyTable(input.rows, kBusySubjects);
  if (std::ranges::any_of(table.rows, IsByCalls)) {
    part.notes.emplace_back("\"Who then\" of disks: " + std::string(kCallsNote));
  }
  if (!table.rows.empty()) {
    part.tables.push_back(std::move(table));
  }
}

FigurePart ProcessorFigures() {
  const FigureWay modes{"CPUX",
                        "",
                        {"Processor=all"},
                        {{"User %", "programs"},
                         {"Nice %", "niced"},
                         {"System %", "kernel"},
                         {"IRQ %", "interrupts"},
                         {"Soft IRQ %", "soft interrupts"},
                         {"Steal %", "stolen"},
                         {"Wait %", "waiting for I/O"}}};
  const FigureWay oldModes{
      "PI",
      "",
      {},
      {{"User CPU %", "programs"}, {"Kernel CPU %", "kernel"}, {"Wait %", "waiting for I/O"}}};
  const FigureWay load{"PI",
                       "",
                       {},
                       {{"Run Queue", "run queue", "number"},
                        {"1-Minute Run Queue Avg", "load, 1 minute", "number"},
                        {"15-Minute Run Queue Avg", "load, 15 minutes", "number"}}};
  const FigureWay each{"CPUP", "Processor ID", {}, {{"CPU %", "in use"}, {"Wait %", "waiting"}}};
  const FigureWay eachMore{"CPUX",
                           "Processor",
                           {"Processor!=all"},
                           {{"CPU %", "in use"}, {"Wait %", "waiting"}, {"Steal %", "stolen"}}};
  return {{{"", {kPiWay, modes}}, {"Each processor", {eachMore, each}}},
          {{"Processor use", true, kFull, {modes, oldModes}},
           {"Run queue and load", false, 0, {load}}}};
}

FigurePart MemoryFigures() {
  const FigureWay figures{"PI",
                          "",
                          {},
                          {{"Alloc Mem %", "memory in use"},
                           {"Free Mem Mbytes", "memory available", "bytes", kMbyte},
                           {"Alloc Swap %", "swap in use"},
                           {"Swapped-In Pages/sec", "pages swapped in", "/s"}}};
  const FigureWay kinds{"MEMD",
                        "",
                        {},
                        {{"Anonymous Mbytes", "anonymous", "bytes", kMbyte},
                         {"Slab Mbytes", "kernel slab", "bytes", kMbyte},
                         {"Page Tables Mbytes", "page tables", "bytes", kMbyte},
                         {"Buffers Mbytes", "buffers", "bytes", kMbyte},
                         {"Cached Mbytes", "cached", "bytes", kMbyte},
                         {"Free Mbytes", "free", "bytes", kMbyte}}};
  const FigureWay oldKinds{"PI",
                           "",
                           {},
                           {{"Alloc Mem Mbytes", "in use", "bytes", kMbyte},
                            {"Free Mem Mbytes", "available", "bytes", kMbyte}}};
  return {{{"", {figures}}, {"By kind", {kinds}}}, {{"Memory", true, 0, {kinds, oldKinds}}}};
}

FigurePart PressureFigures() {
  const FigureField some{"Some Stalled %", "some stalled"};
  return {{{"", {{"PRES", "Resource", {}, {some, {"Full Stalled %", "all stalled"}}}}}},
          {{"Time in which some task was stalled", false, 0, {{"PRES", "Resource", {}, {some}}}}}};
}

FigurePart DiskFigures() {
  const std::vector<FigureField> traffic{{"Read Bytes/sec", "read", "bytes/s"},
                                         {"Write Bytes/sec", "written", "bytes/s"}};
  FigureWay disks = kDiskUse;
  disks.fields.insert(disks.fields.end(), traffic.begin(), traffic.end());
  FigureWay devices = kDeviceUse;
  devices.fields.push_back({"Mbytes Xferd/sec", "transferred", "bytes/s", kMbyte});
  // The host's own figures are in Kbytes, which their labels do not say.
  const FigureWay host{"PI",
                       "",
                       {},
                       {{"Block Reads/sec", "read", "bytes/s", kKbyte},
                        {"Block Writes/sec", "written", "bytes/s", kKbyte}}};
  return {{{"", {disks, devices}}, {"The host", {host}}},
          {{"Disk throughput", false, 0, {host, {"DISK", "Device", {}, traffic}}},
           {"Disks in use", false, kFull, {kDiskUse, kDeviceUse}}}};
}

FigurePart NetworkFigures() {
  return {{{"", {kInterfaces}}}, {{"Network throughput", false, 0, {kInterfaces}}}};
}

std::vector<PartKind> MakeParts() {
  return {
      {"Busiest times", {"PI", "CPUX", "CPUP", "MEMD", "DISK", "DEVD", "NETD"}, FillBusy},
      {"Processors and load", {"PI", "CPUX", "CPUP"}, Filling(ProcessorFigures())},
      {"Memory", {"PI", "MEMD"}, Filling(MemoryFigures())},
      {"Pressure", {"PRES"}, Filling(PressureFigures())},
      {"Disks", {"DISK", "DEVD", "PI"}, Filling(DiskFigures())},
      {"Network", {"NETD"}, Filling(NetworkFigures())},
      {"Top processes", {"PDI", "PD"}, FillProcesses},
      {"Top control groups", {"CGRP"}, FillControlGroups},
      {"Top workgroups", {"WGRP"}, FillWorkgroups},
      {"File systems", {"FSL", "FSR"}, FillFileSystems},
      {"Alarms", {}, FillAlarms},
      {"Restarts", {"PI", "PDI", "PD"}, FillRestarts},
      {"Gaps", {}, FillGaps},
  };
}

}  // namespace

const std::vector<PartKind>& ReportParts() {
  static const std::vector<PartKind> kParts = MakeParts();
  return kParts;
}
