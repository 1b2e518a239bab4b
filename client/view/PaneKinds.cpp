#include "client/view/PaneKinds.h"

namespace {

constexpr double kKbytes = 1024;
constexpr double kMbytes = 1024 * 1024;

std::vector<PaneColumn> ProcessColumns() {
  return {{"PID", "PID"},
          {"User", "User"},
          {"Priority", "Pri"},
          {"Niceness", "Ni"},
          {"State", "State"},
          {"CPU % Each", "CPU%"},
          {"Real Mem Kbytes", "Mem", kKbytes},
          {"Throughput/sec", "I/O/s", kKbytes},
          {"Major Faults", "MajF"},
          {"Program", "Program"},
          {"Argument List", "Arguments"}};
}

std::vector<PaneColumn> SummedColumns(const char* name, const char* heading) {
  return {{name, heading},
          {"Process Count", "Procs"},
          {"CPU %", "CPU%"},
          {"Real Mem Kbytes", "Mem", kKbytes},
          {"Virtual Mem Kbytes", "Virtual", kKbytes},
          {"Throughput/sec", "I/O/s", kKbytes},
          {"Major Faults", "MajF"}};
}

std::vector<PaneColumn> FileSystemColumns() {
  return {{"File System", "Mounted on"},      {"Total Size Mbytes", "Size", kMbytes},
          {"Mbytes in Use", "Used", kMbytes}, {"Available Space Mbytes", "Avail", kMbytes},
          {"Mbytes in Use %", "Use%"},        {"Total Inodes in Use %", "IUse%"},
          {"File System Type", "Type"},       {"Device Name", "Device"}};
}

std::vector<PaneColumn> RemoteColumns() {
  return {{"File System", "Mounted on"},
          {"Total Size Mbytes", "Size", kMbytes},
          {"Mbytes in Use", "Used", kMbytes},
          {"Available Space Mbytes", "Avail", kMbytes},
          {"Mbytes in Use %", "Use%"},
          {"File System Type", "Type"},
          {"Host", "Host"},
          {"Remote File System", "Remote"}};
}

std::vector<PaneColumn> ClassicDiskColumns() {
  return {{"Device Name", "Device"},
          {"Device Type", "Kind"},
          {"Reads/sec", "r/s"},
          {"Writes/sec", "w/s"},
          {"Mbytes Xferd/sec", "data/s", kMbytes},
          {"Avg Wait Time", "wait s"},
          {"Avg Service Time", "service s"},
          {"Queue Length", "queue"},
          {"Busy %", "busy%"}};
}

std::vector<PaneKind> MakePaneKinds() {
  return {{'1',
           "Processes",
           "Procs",
           {{"PDI", "processes", "CPU % Each", ProcessColumns(), TreeKind::kParents},
            {"PDX", "processes, more closely", "Run Delay %"},
            {"PGM", "programs", "CPU %", SummedColumns("Program", "Program")},
            {"USER", "users", "CPU %", SummedColumns("User", "User")}}},
          {'2',
           "Groups",
           "Groups",
           {{"CGRP", "control groups", "CPU %", {}, TreeKind::kPaths, true},
            {"WGRP", "workgroups", "CPU %", SummedColumns("Workgroup", "Workgroup")}}},
          {'3',
           "Disks",
           "Disks",
           {{"DISK", "block devices", "In Use %"},
            {"DEVD", "disks", "Busy %", ClassicDiskColumns()},
            {"DEVS", "summed by kind", ""}}},
          {'4',
           "Network",
           "Net",
           {{"NETD", "interfaces", "Bytes In/sec"},
            {"NIND", "interfaces", "Pkts Rcvd/sec"},
            {"SOCK", "sockets and protocols", ""},
            {"NINS", "summed", ""}}},
          {'5',
           "File systems",
           "Files",
           {{"FSL", "local", "Mbytes in Use %", FileSystemColumns()},
            {"FSR", "remote", "Mbytes in Use %", RemoteColumns()}}},
          {'6', "Applications", "Apps", {{"APP", "applications", "Application Status"}}},
          {kAlarmPane, "Alarms", "Alarms", {}},
          {kRecordPane, "Records", "Recs", {}}};
}

}  // namespace

std::span<const PaneKind> PaneKinds() {
  static const std::vector<PaneKind> kinds = MakePaneKinds();
  return kinds;
}
