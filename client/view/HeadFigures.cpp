#include "client/view/HeadFigures.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "client/view/RowMembers.h"

namespace {

using Figure = HeadFigures::Figure;

constexpr double kBytesOfKbyte = 1024;
constexpr double kBytesOfMbyte = 1024 * 1024;

/// Nothing and something is something.
void AddTo(Figure& sum, const Figure& part) {
  if (part) {
    sum = sum.value_or(0) + *part;
  }
}

/// The rows of a record; none of one that is not there.
const Json::ElementList& RowsOf(const Sight& sight, const char* record) {
  static const Json::ElementList kNone;
  const auto seen = sight.records.find(record);
  const bool isUsable =
      seen != sight.records.end() && seen->second->error.empty() && !seen->second->isFar;
  return isUsable ? seen->second->rows.Elements() : kNone;
}

void ReadHost(const Json& row, HeadFigures& figures) {
  figures.cpuPercent = FigureOf(row, "CPU %");
  figures.waitPercent = FigureOf(row, "Wait %");
  figures.memoryPercent = FigureOf(row, "Alloc Mem %");
  figures.memoryBytes = FigureOf(row, "Total Physical Mem Mbytes", kBytesOfMbyte);
  figures.swapPercent = FigureOf(row, "Alloc Swap %");
  figures.swapBytes = FigureOf(row, "Total Swap Mbytes", kBytesOfMbyte);
  figures.load = {FigureOf(row, "1-Minute Run Queue Avg"), FigureOf(row, "5-Minute Run Queue Avg"),
                  FigureOf(row, "15-Minute Run Queue Avg")};
  figures.processes = FigureOf(row, "Processes");
  const Figure made = FigureOf(row, kRecordTime);
  const Figure begun = FigureOf(row, "Boot Time");
  if (made && begun && *begun > 0) {
    figures.upSeconds = *made - *begun;
  }
  // Kbytes, which the labels do not say.
  figures.diskRead = FigureOf(row, "Block Reads/sec", kBytesOfKbyte);
  figures.diskWrite = FigureOf(row, "Block Writes/sec", kBytesOfKbyte);
}

/// Whether what passes that interface is the host's own, or passes another one that is counted: of
/// bridges, bonds, VLANs, containers, machines and tunnels.
bool PassesAnother(const std::string& interface) {
  static constexpr std::array kBeginnings{
      "bond",  "team",   "br-",    "docker",  "virbr", "veth", "vnet", "tap",  "tun",   "wg",
      "dummy", "cali",   "cni",    "flannel", "vxlan", "kube", "lxc",  "lxd",  "vmnet", "vlan",
      "vmbr",  "bridge", "podman", "ovs",     "macv",  "ipvl", "fwbr", "fwln", "fwpr"};
  const bool isNumberedBridge = interface.size() > 2 && interface.starts_with("br") &&
                                interface[2] >= '0' && interface[2] <= '9';
  return interface == "lo" || isNumberedBridge || interface.find('.') != std::string::npos ||
         std::any_of(kBeginnings.begin(), kBeginnings.end(),
                     [&](const char* beginning) { return interface.starts_with(beginning); });
}

void ReadInterfaces(const Json::ElementList& rows, HeadFigures& figures) {
  for (const Json& row : rows) {
    if (!PassesAnother(TextOf(row, "Interface"))) {
      AddTo(figures.netIn, FigureOf(row, "Bytes In/sec"));
      AddTo(figures.netOut, FigureOf(row, "Bytes Out/sec"));
      AddTo(figures.packetsIn, FigureOf(row, "Pkts Rcvd/sec"));
      AddTo(figures.packetsOut, FigureOf(row, "Pkts Xmitd/sec"));
    }
  }
}

void ReadPressure(const Json& row, HeadFigures& figures) {
  const std::string resource = TextOf(row, "Resource");
  const Figure some = FigureOf(row, "Some Stalled %");
  if (resource == "cpu") {
    figures.cpuPressure = some;
  } else if (resource == "memory") {
    figures.memoryPressure = some;
  } else if (resource == "io") {
    figures.ioPressure = some;
  }
}

bool IsServed(const std::vector<Listing>& listing, std::string_view record) {
  return std::any_of(listing.begin(), listing.end(),
                     [&](const Listing& one) { return one.served && one.record == record; });
}

/// How long the first of a trend's kept rows holds, and any of them at most.
constexpr double kFirstSeconds = 10;
constexpr double kLongestSeconds = 300;

}  // namespace

std::vector<WantedRows> HeadRecords(const std::vector<Listing>& listing) {
  std::vector<WantedRows> wanted{
      {"PI",
       {"CPU %", "Wait %", "Alloc Mem %", "Total Physical Mem Mbytes", "Alloc Swap %",
        "Total Swap Mbytes", "1-Minute Run Queue Avg", "5-Minute Run Queue Avg",
        "15-Minute Run Queue Avg", "Processes", "Boot Time", "Active CPUs", "Block Reads/sec",
        "Block Writes/sec"},
       {}}};
  const auto addFirst = [&](std::vector<WantedRows> ways) {
    const auto way = std::find_if(ways.begin(), ways.end(), [&](const WantedRows& one) {
      return IsServed(listing, one.record);
    });
    if (way != ways.end()) {
      wanted.push_back(std::move(*way));
    }
  };
  addFirst({{"CPUX", {"Processor", "CPU %"}, {}}, {"CPUP", {"Processor ID", "CPU %"}, {}}});
  addFirst({{"PRES", {"Resource", "Some Stalled %"}, {}}});
  addFirst({{"NETD", {"Interface", "Bytes In/sec", "Bytes Out/sec"}, {}},
            {"NIND", {"Interface", "Pkts Rcvd/sec", "Pkts Xmitd/sec"}, {}}});
  if (!IsServed(listing, "DISK")) {
    addFirst({{"DEVD", {"Device Name", "Mbytes Xferd/sec"}, {}}});
  }
  return wanted;
}

HeadFigures ReadHeadFigures(const Sight& sight) {
  HeadFigures figures;
  for (const Json& row : RowsOf(sight, "PI")) {
    ReadHost(row, figures);
  }
  for (const Json& row : RowsOf(sight, "CPUX")) {
    if (TextOf(row, "Processor") != "all") {
      figures.processors.push_back(FigureOf(row, "CPU %"));
    }
  }
  for (const Json& row : RowsOf(sight, "CPUP")) {
    figures.processors.push_back(FigureOf(row, "CPU %"));
  }
  for (const Json& row : RowsOf(sight, "PRES")) {
    ReadPressure(row, figures);
  }
  ReadInterfaces(RowsOf(sight, "NETD"), figures);
  ReadInterfaces(RowsOf(sight, "NIND"), figures);
  for (const Json& row : RowsOf(sight, "DEVD")) {
    AddTo(figures.diskBoth, FigureOf(row, "Mbytes Xferd/sec", kBytesOfMbyte));
  }
  return figures;
}

void HeadTrends::Add(std::int64_t time, double seconds, const HeadFigures& figures) {
  const auto add = [&](Trend& trend, const Figure& figure) {
    if (figure) {
      trend.Add(time, *figure, seconds);
    }
  };
  add(cpu, figures.cpuPercent);
  add(diskRead, figures.diskRead ? figures.diskRead : figures.diskBoth);
  add(diskWrite, figures.diskWrite);
  add(netIn, figures.netIn ? figures.netIn : figures.packetsIn);
  add(netOut, figures.netOut ? figures.netOut : figures.packetsOut);
}

void HeadTrends::Fill(const Sight& sight) {
  *this = {};
  std::map<std::int64_t, HeadFigures> byTime;
  for (const auto& [record, seen] : sight.trends) {
    for (const Json& row : seen.rows.Elements()) {
      HeadFigures& figures = byTime[RecordTimeOf(row)];
      if (record == "PI") {
        ReadHost(row, figures);
      } else {
        ReadInterfaces({row}, figures);
      }
    }
  }
  // A kept row tells of the time since the one before it, a gap apart.
  double seconds = kFirstSeconds;
  std::int64_t before = 0;
  for (const auto& [time, figures] : byTime) {
    seconds = before == 0 ? seconds : std::min(static_cast<double>(time - before), kLongestSeconds);
    Add(time, seconds, figures);
    before = time;
  }
}
