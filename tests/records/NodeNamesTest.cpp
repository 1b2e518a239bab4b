#include <cctype>
#include <limits>

#include "local/metrics/node/NodeText.h"
#include "node/ProductRecord.h"
#include "records/RecordLayouts.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kNodeNames = QMT_TEST_DIR "/fixtures/metrics/node_names.txt";
constexpr double kNobodyTells = std::numeric_limits<double>::quiet_NaN();

const char* NodeKindName(MetricKind kind) {
  return kind == MetricKind::kCounter ? "counter"
         : kind == MetricKind::kGauge ? "gauge"
                                      : "unknown";
}

std::size_t Listed(std::span<const char* const> labels) {
  return static_cast<std::size_t>(std::ranges::find(labels, nullptr) - labels.begin());
}

/// Each series of each name, a line each.
std::string NodeNamesNow() {
  std::ostringstream text;
  for (const std::span<const NodeGroup> table : NodeTables()) {
    for (const NodeGroup& group : table) {
      std::string labels;
      for (const NodeLabel& label : group.labels) {
        labels += std::string(labels.empty() ? "" : ",") + label.name;
      }
      for (const NodeEntry& entry : group.entries) {
        text << entry.name << ' ' << NodeKindName(entry.kind) << ' ' << group.record << " {"
             << labels << (labels.empty() || *entry.labels == '\0' ? "" : ",") << entry.labels
             << "}\n";
      }
    }
  }
  return text.str();
}

TEST(NodeNames, AreTheOnesThatReadersKnow) {
  const std::string now = NodeNamesNow();
  if (std::getenv("QMT_WRITE_METRICS") != nullptr) {
    std::ofstream(kNodeNames) << now;
  }
  const std::string pinned = FileText(kNodeNames);
  EXPECT_EQ(pinned, now) << "if the change is meant, set QMT_WRITE_METRICS=1";
}

class NodeFigures : public testing::Test {
 protected:
  void SetUp() override {
    g_hostProfile = HostProfile::kModern;
    PublishLayouts();
  }
  void TearDown() override {
    g_hostProfile = HostProfile::kClassic;
    PublishLayouts();
  }
};

TEST_F(NodeFigures, EachHasItsFieldsInARecordOfModern) {
  std::set<std::string> series;
  for (const std::string& record : NodeRecords()) {
    const RecordLayout* const layout = LayoutRegistry::Instance().Find(record);
    ASSERT_NE(layout, nullptr) << record;
    for (const NodeMetrics::Group& group : NodeMetricsOf(*layout).groups) {
      EXPECT_EQ(group.series.size(), group.group->entries.size()) << record;
      for (const NodeMetrics::Series& each : group.series) {
        const NodeEntry& entry = *each.entry;
        EXPECT_EQ(each.fields.size(), Listed(entry.fields)) << entry.name;
        EXPECT_TRUE(entry.help != nullptr || *each.fields.front()->help != '\0') << entry.name;
        EXPECT_EQ(std::string_view(entry.name).ends_with("_total"),
                  entry.kind == MetricKind::kCounter)
            << entry.name;
        EXPECT_TRUE(series.insert(record + entry.name + entry.labels).second) << entry.name;
      }
    }
  }
  EXPECT_EQ(std::ranges::count(NodeNamesNow(), '\n'), std::ssize(series));
}

template <class Row>
class GivenRow : public CMBProductRecord<Row> {
 public:
  GivenRow() : CMBProductRecord<Row>(RecordTraits<Row>::kCategory, nullptr, 0) {
    this->m_record = NewRow<Row>(1700000000);
  }
  Row& operator*() { return this->m_record; }
  [[nodiscard]] const void* GetRecStart() const override { return &this->m_record; }
};

/// What the rows of these records, one of each, are exposed as.
std::string Exposed(std::initializer_list<const CMBRecord*> records,
                    MetricFormat format = MetricFormat::kText) {
  NodeText node;
  for (const CMBRecord* const record : records) {
    const RecordLayout& layout = *LayoutRegistry::Instance().Find(record->GetRecType());
    node.AddRows(NodeMetricsOf(layout), std::span(&record, 1));
  }
  MetricText text(format);
  node.WriteTo(text);
  return text.Finish();
}

TEST_F(NodeFigures, HaveTheirUnitsLabelsAndConditions) {
  GivenRow<recordPI_CPUX> cpu;
  GivenRow<recordPI_CPUX> allCpus;
  (*cpu).processor = "3";
  (*cpu).userSeconds = 10.5;
  (*cpu).guestSeconds = 2.25;
  (*cpu).guestNiceSeconds = kNobodyTells;
  (*allCpus).processor = "all";
  GivenRow<recordPI_DISK> disk;
  GivenRow<recordPI_DISK> loop;
  GivenRow<recordPI_DISK> named;
  (*disk).device = "vda";
  (*disk).discardBytes = 1024.0;
  (*disk).flushes = kNobodyTells;
  (*loop).device = "loop17";
  (*named).device = "loopback";
  (*named).name = "vg-root";
  GivenRow<recordPI_NETD> link;
  (*link).interface = "eth\"0";
  (*link).state = "up";
  (*link).speedMbits = 1000.0;
  (*link).dropsIn = 5.0;
  (*link).missedIn = 2.0;
  GivenRow<recordPI_MEMD> memory;
  (*memory).activeAnonMbytes = 0.5;
  (*memory).hugePagesTotal = 7.0;
  (*memory).majorFaults = 5e9;
  GivenRow<recordPI_KERN> kernel;
  (*kernel).load1 = 0.07F;
  (*kernel).runnable = 3.0;
  (*kernel).blocked = 2.0;
  (*kernel).forks = 5e9;
  (*kernel).contextSwitches = kNobodyTells;
  (*kernel).diskWrittenKbytes = 6e9;
  GivenRow<recordPD_HOST> host;
  (*host).name = "ada";
  (*host).kernel = "6.1";
  (*host).distributionVersion = "12.5.1";
  (*host).openFiles = 600.0;
  (*host).mostOpenFiles = kNobodyTells;
  GivenRow<recordPI_SOCK> sockets;
  (*sockets).established = 3.0;
  (*sockets).closeWait = 4.0;
  (*sockets).tcpMemory = 3.0 * static_cast<double>(::sysconf(_SC_PAGESIZE));
  GivenRow<recordPI_PRES> pressure;
  (*pressure).resource = "io";
  (*pressure).fullStalledSeconds = 1.5;
  const struct {
    const CMBRecord& row;
    std::vector<const char*> lines;
    const char* missing;
  } cases[] = {
      {cpu,
       {"# TYPE node_cpu_seconds_total counter\n",
        "\nnode_cpu_seconds_total{cpu=\"3\",mode=\"user\"} 12.75\n",
        "\nnode_cpu_seconds_total{cpu=\"3\",mode=\"nice\"} 0\n",
        "\nnode_cpu_guest_seconds_total{cpu=\"3\",mode=\"user\"} 2.25\n"},
       "node_cpu_guest_seconds_total{cpu=\"3\",mode=\"nice\"}"},
      {allCpus, {}, "node_"},
      {disk,
       {"\nnode_disk_discarded_sectors_total{device=\"vda\"} 2\n"},
       "node_disk_flush_requests_total"},
      {loop, {}, "node_"},
      {named,
       {"node_disk_io_now{device=\"loopback\"} 0\n",
        "node_disk_device_mapper_info{device=\"loopback\",name=\"vg-root\"} 1\n"},
       "node_disk_info"},
      {link,
       {R"(node_network_up{device="eth\"0"} 1)",
        R"(node_network_speed_bytes{device="eth\"0"} 1.25e+08)",
        R"(node_network_receive_drop_total{device="eth\"0"} 7)",
        R"(node_network_info{address="",device="eth\"0",duplex="",operstate="up"} 1)"},
       "carrier_total"},
      {memory,
       {"\nnode_memory_Active_anon_bytes 524288\n", "\nnode_memory_HugePages_Total 7\n",
        "# TYPE node_vmstat_pgmajfault untyped\n", "\nnode_vmstat_pgmajfault 5e+09\n"},
       "HugePages_Total_bytes"},
      {kernel,
       {"\nnode_procs_running 3\n", "\nnode_procs_blocked 2\n", "\nnode_load1 0.07\n",
        "\nnode_time_seconds 1.7e+09\n", "# TYPE node_forks_total counter\n",
        "\nnode_forks_total 5e+09\n", "\nnode_vmstat_pgpgout 6e+09\n"},
       "context_switches"},
      {host,
       {R"(node_uname_info{machine="",nodename="ada",release="6.1",version="",sysname="Linux"} 1)",
        "\nnode_filefd_maximum 9223372036854775808\n", "\nnode_os_version{id=\"\"} 12.5\n"},
       "node_os_info"},
      {sockets,
       {"\nnode_netstat_Tcp_CurrEstab 7\n", "\nnode_sockstat_TCP_mem 3\n"},
       "node_sockstat_TCP6_tw"},
      {pressure, {"\nnode_pressure_io_stalled_seconds_total 1.5\n"}, "cpu_waiting"},
  };
  for (const auto& each : cases) {
    const std::string text = Exposed({&each.row});
    for (const char* const line : each.lines) {
      EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr(each.missing)));
  }
  EXPECT_THAT(Exposed({&memory, &cpu}, MetricFormat::kOpenMetrics),
              AllOf(HasSubstr("# TYPE node_cpu_seconds counter\n"),
                    HasSubstr("# TYPE node_vmstat_pgfault unknown\n"),
                    HasSubstr("\nnode_cpu_seconds_total{cpu=\"3\",mode=\"idle\"} 0\n")));
}

TEST_F(NodeFigures, OfTwoRecordsAreOneFamilyAndWhatTheExporterLeavesOutIsLeftOut) {
  GivenRow<recordPD_FSL> local;
  (*local).deviceName = "/dev/vda1";
  (*local).fileSystem = "/sysroot";
  (*local).fileSystemType = "ext4";
  (*local).totalSizeMbytes = 2.0;
  GivenRow<recordPD_FSR> remote;
  (*remote).remoteFileSystem = "nas:/home";
  (*remote).fileSystem = "/home";
  (*remote).fileSystemType = "nfs4";
  const std::string text = Exposed({&local, &remote});
  EXPECT_THAT(text, HasSubstr("# TYPE node_filesystem_size_bytes gauge\n"
                              "# HELP node_filesystem_size_bytes How much the file system holds\n"
                              "node_filesystem_size_bytes{device=\"/dev/vda1\",fstype=\"ext4\","
                              "mountpoint=\"/sysroot\"} 2097152\n"
                              "node_filesystem_size_bytes{device=\"nas:/home\",fstype=\"nfs4\","
                              "mountpoint=\"/home\"} 0\n"
                              "# TYPE node_filesystem_free_bytes"));
  const std::pair<const char*, const char*> leftOut[] = {
      {"/dev/shm", "tmpfs"}, {"/sys", "ext4"},        {"/var/lib/docker/x", "ext4"},
      {"/", "overlay"},      {"/snap/a", "squashfs"}, {"/run/credentials/a.service", "ramfs"}};
  for (const auto& [path, type] : leftOut) {
    (*local).fileSystem = path;
    (*local).fileSystemType = type;
    EXPECT_EQ(Exposed({&local}), "") << path;
  }
}

TEST_F(NodeFigures, OfSensorsGoByTheirKinds) {
  GivenRow<recordPD_SENS> sensor;
  (*sensor).chip = "nvme";
  (*sensor).sensor = "temp1";
  (*sensor).label = "Composite";
  (*sensor).kind = "temperature";
  (*sensor).value = 41.5;
  (*sensor).high = kNobodyTells;
  EXPECT_THAT(Exposed({&sensor}),
              AllOf(HasSubstr("node_hwmon_temp_celsius{chip=\"nvme\",sensor=\"temp1\"} 41.5\n"),
                    HasSubstr("node_hwmon_sensor_label{chip=\"nvme\",label=\"Composite\",sensor="),
                    HasSubstr("node_hwmon_chip_names{chip=\"nvme\",chip_name=\"nvme\"} 1\n"),
                    Not(HasSubstr("max_celsius")), Not(HasSubstr("node_thermal"))));
  (*sensor).chip = "thermal";
  (*sensor).sensor = "thermal_zone12";
  (*sensor).label = "acpitz";
  const std::string zone = Exposed({&sensor});
  EXPECT_THAT(zone, HasSubstr("node_thermal_zone_temp{type=\"acpitz\",zone=\"12\"} 41.5\n"));
  EXPECT_THAT(zone, Not(HasSubstr("hwmon")));
}

}  // namespace
