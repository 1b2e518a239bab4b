#include <cctype>
#include <limits>

#include "local/metrics/node/NodeText.h"
#include "node/ProductRecord.h"
#include "records/RecordLayouts.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kNodeNames = QMT_TEST_DIR "/fixtures/metrics/node_names.txt";

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

/// A row with these fields, as in "CPUX: Processor=3, User Seconds=10.5, Guest Seconds=-": nobody
/// tells a figure of "-", and the other fields are empty.
class GivenRow : public CMBProductRecord<std::array<char, 4096>> {
 public:
  explicit GivenRow(const std::string& text)
      : CMBProductRecord(0, nullptr, 0),
        m_layout(*LayoutRegistry::Instance().Find(text.substr(0, text.find(':')))) {
    EXPECT_LE(m_layout.size, m_record.size());
    Put("Record Type", m_layout.name);
    Put("Record Time", "1700000000");
    for (const std::string& field : CutAt(',', text.substr(text.find(':') + 1))) {
      const std::size_t mark = field.find('=');
      Put(field.substr(1, mark - 1), field.substr(mark + 1));
    }
  }
  [[nodiscard]] const void* GetRecStart() const override { return m_record.data(); }
  [[nodiscard]] const RecordLayout& Layout() const { return m_layout; }

 private:
  void Put(const std::string& label, const std::string& value) {
    const auto field = std::ranges::find(m_layout.fields, label, &FieldLayout::label);
    ASSERT_NE(field, m_layout.fields.end()) << label;
    if (field->type == FieldType::kText) {
      value.copy(&m_record.at(field->offset), field->width - 1U);
      return;
    }
    const double figure =
        value == "-" ? std::numeric_limits<double>::quiet_NaN() : std::stod(value);
    if (field->type == FieldType::kDouble) {
      PutFigure(*field, figure);
    } else if (field->type == FieldType::kFloat) {
      PutFigure(*field, static_cast<float>(figure));
    } else {
      PutFigure(*field, static_cast<std::int32_t>(figure));
    }
  }
  template <class T>
  void PutFigure(const FieldLayout& field, T figure) {
    std::memcpy(&m_record.at(field.offset), &figure, sizeof figure);
  }

  const RecordLayout& m_layout;
};

/// What the rows of these records, one of each, are exposed as.
std::string Exposed(const std::vector<std::string>& rows,
                    MetricFormat format = MetricFormat::kText) {
  NodeText node;
  for (const std::string& text : rows) {
    const GivenRow row(text);
    const CMBRecord* const record = &row;
    node.AddRows(NodeMetricsOf(row.Layout()), std::span(&record, 1));
  }
  MetricText text(format);
  node.WriteTo(text);
  return text.Finish();
}

TEST_F(NodeFigures, HaveTheirUnitsLabelsAndConditions) {
  const std::string pages = std::to_string(3 * ::sysconf(_SC_PAGESIZE));
  const struct {
    std::string row;
    std::vector<const char*> lines;
    const char* missing;
  } cases[] = {
      {"CPUX: Processor=3, User Seconds=10.5, Guest Seconds=2.25, Guest Nice Seconds=-",
       {"# TYPE node_cpu_seconds_total counter\n",
        "\nnode_cpu_seconds_total{cpu=\"3\",mode=\"user\"} 12.75\n",
        "\nnode_cpu_seconds_total{cpu=\"3\",mode=\"nice\"} 0\n",
        "\nnode_cpu_guest_seconds_total{cpu=\"3\",mode=\"user\"} 2.25\n"},
       "node_cpu_guest_seconds_total{cpu=\"3\",mode=\"nice\"}"},
      {"CPUX: Processor=3, User Seconds=1.1, Guest Seconds=2.2",
       {"\nnode_cpu_seconds_total{cpu=\"3\",mode=\"user\"} 3.3\n"},
       "mode=\"user\"} 3.30"},
      {"CPUX: Processor=all", {}, "node_"},
      {"DISK: Device=vda, Discard Bytes=1024, Flushes=-",
       {"\nnode_disk_discarded_sectors_total{device=\"vda\"} 2\n"},
       "node_disk_flush_requests_total"},
      {"DISK: Device=loop17", {}, "node_"},
      {"DISK: Device=loopback, Name=vg-root",
       {"node_disk_io_now{device=\"loopback\"} 0\n",
        "node_disk_device_mapper_info{device=\"loopback\",name=\"vg-root\"} 1\n"},
       "node_disk_info"},
      {"NETD: Interface=eth\"0, State=up, Speed Mbits=1000, Drops In=5, Missed In=2",
       {R"(node_network_up{device="eth\"0"} 1)",
        R"(node_network_speed_bytes{device="eth\"0"} 1.25e+08)",
        R"(node_network_receive_drop_total{device="eth\"0"} 7)",
        R"(node_network_info{address="",device="eth\"0",duplex="",operstate="up"} 1)"},
       "carrier_total"},
      {"MEMD: Active Anonymous Mbytes=0.5, Huge Pages=7, Major Faults=5e9",
       {"\nnode_memory_Active_anon_bytes 524288\n", "\nnode_memory_HugePages_Total 7\n",
        "# TYPE node_vmstat_pgmajfault untyped\n", "\nnode_vmstat_pgmajfault 5e+09\n"},
       "HugePages_Total_bytes"},
      {"KERN: 1-Minute Load=0.07, Runnable=3, Blocked=2, Forks=5e9, Context Switches=-, "
       "Disk Written Kbytes=6e9",
       {"\nnode_procs_running 3\n", "\nnode_procs_blocked 2\n", "\nnode_load1 0.07\n",
        "\nnode_time_seconds 1.7e+09\n", "# TYPE node_forks_total counter\n",
        "\nnode_forks_total 5e+09\n", "\nnode_vmstat_pgpgout 6e+09\n"},
       "context_switches"},
      {"HOST: Name=ada, Kernel=6.1, Distribution Version=12.5.1, Open Files=600, Open Files Most=-",
       {R"(node_uname_info{machine="",nodename="ada",release="6.1",version="",sysname="Linux"} 1)",
        "\nnode_filefd_maximum 9223372036854775808\n", "\nnode_os_version{id=\"\"} 12.5\n"},
       "node_os_info"},
      {"SOCK: Established=3, Close Wait=4, TCP Memory Bytes=" + pages,
       {"\nnode_netstat_Tcp_CurrEstab 7\n", "\nnode_sockstat_TCP_mem 3\n"},
       "node_sockstat_TCP6_tw"},
      {"PRES: Resource=io, Full Stalled Seconds=1.5",
       {"\nnode_pressure_io_stalled_seconds_total 1.5\n"},
       "cpu_waiting"},
  };
  for (const auto& each : cases) {
    const std::string text = Exposed({each.row});
    for (const char* const line : each.lines) {
      EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr(each.missing)));
  }
  EXPECT_THAT(Exposed({"MEMD:", "CPUX: Processor=3"}, MetricFormat::kOpenMetrics),
              AllOf(HasSubstr("# TYPE node_cpu_seconds counter\n"),
                    HasSubstr("# TYPE node_vmstat_pgfault unknown\n"),
                    HasSubstr("\nnode_cpu_seconds_total{cpu=\"3\",mode=\"idle\"} 0\n")));
}

TEST_F(NodeFigures, OfTwoRecordsAreOneFamilyAndWhatTheExporterLeavesOutIsLeftOut) {
  const std::string local = "FSL: Device Name=/dev/vda1, Total Size Mbytes=2, File System";
  const std::string text =
      Exposed({local + "=/sysroot, File System Type=ext4",
               "FSR: Remote File System=nas:/home, File System=/home, File System Type=nfs4"});
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
    EXPECT_EQ(Exposed({local + '=' + path + ", File System Type=" + type}), "") << path;
  }
}

TEST_F(NodeFigures, OfSensorsGoByTheirKinds) {
  const std::string figures = ", Kind=temperature, Value=41.5, High=-";
  EXPECT_THAT(Exposed({"SENS: Chip=nvme, Sensor=temp1, Label=Composite" + figures}),
              AllOf(HasSubstr("node_hwmon_temp_celsius{chip=\"nvme\",sensor=\"temp1\"} 41.5\n"),
                    HasSubstr("node_hwmon_sensor_label{chip=\"nvme\",label=\"Composite\",sensor="),
                    HasSubstr("node_hwmon_chip_names{chip=\"nvme\",chip_name=\"nvme\"} 1\n"),
                    Not(HasSubstr("max_celsius")), Not(HasSubstr("node_thermal"))));
  const std::string zone =
      Exposed({"SENS: Chip=thermal, Sensor=thermal_zone12, Label=acpitz" + figures});
  EXPECT_THAT(zone, HasSubstr("node_thermal_zone_temp{type=\"acpitz\",zone=\"12\"} 41.5\n"));
  EXPECT_THAT(zone, Not(HasSubstr("hwmon")));
}

}  // namespace
