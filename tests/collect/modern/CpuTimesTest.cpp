#include "collect/modern/cpu/CpuTimes.h"

#include "tests/collect/CollectFixture.h"

namespace {

class CpuTimesTest : public CollectFixture {
 protected:
  static std::vector<CpuTimeFigures> Read() {
    std::vector<CpuTimeFigures> rows(1);
    ReadCpuTimes(rows);
    return rows;
  }
  /// A line for each: name, frequencies, throttling, temperature.
  static std::string Attributes() {
    std::ostringstream out;
    for (const CpuTimeFigures& row : Read()) {
      out << row.name << ' '
          << Told({row.frequencyMHz, row.lowestMHz, row.highestMHz, row.coreThrottled,
                   row.packageThrottled, row.temperature})
          << '\n';
    }
    return out.str();
  }
  void WriteCpu(int cpu, const char* file, const std::string& text) {
    m_host.Write("/sys/devices/system/cpu/cpu" + std::to_string(cpu) + '/' + file, text);
  }
  void WritePlace(int cpu, const char* package, const char* core) {
    WriteCpu(cpu, "topology/physical_package_id", package);
    WriteCpu(cpu, "topology/core_id", core);
  }
  void WriteFrequency(int cpu, const char* now, const char* lowest, const char* highest) {
    const std::string policy = "policy" + std::to_string(cpu);
    m_host.Write("/sys/devices/system/cpu/cpufreq/" + policy + "/scaling_cur_freq", now);
    m_host.Write("/sys/devices/system/cpu/cpufreq/" + policy + "/cpuinfo_min_freq", lowest);
    m_host.Write("/sys/devices/system/cpu/cpufreq/" + policy + "/cpuinfo_max_freq", highest);
    m_host.Link("/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/cpufreq",
                "../cpufreq/" + policy);
  }

  process_tree::HostTree m_host;
};

TEST_F(CpuTimesTest, TimesAreThoseOfTheKernel) {
  EXPECT_TRUE(Read().empty());
  m_host.Write("/proc/stat",
               "cpu  100 200 300 400 500 600 700 800 900 1050\n"
               "cpu7 1 2 3 4 5 6 7\ncpu9 x\ncpu 5\ncpux 1\ncpu99999 1\nintr 5\ncpu8 1 1 1\n");
  const auto rows = Read();
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].name, "all");
  const CpuTimeFigures& all = rows[0];
  const std::vector<double> figures{all.user, all.nice,    all.system, all.idle,  all.wait,
                                    all.irq,  all.softIrq, all.steal,  all.guest, all.guestNice};
  EXPECT_EQ(figures, (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10.5}));
  EXPECT_EQ(rows[1].name, "cpu7");
  EXPECT_EQ(rows[1].softIrq, 0.07);
  EXPECT_FALSE(IsTold(rows[1].steal) || IsTold(rows[1].guest));
  EXPECT_EQ(rows[2].name, "cpu9");
  EXPECT_FALSE(IsTold(rows[2].user));
  m_host.Write("/proc/stat", "cpu0 100 0 0 0\n");
  EXPECT_EQ(Read().at(0).user, 1) << "without a line of all";
}

TEST_F(CpuTimesTest, UnlikeCoresOfTwoPackages) {
  m_host.Write("/proc/stat", "cpu  1\ncpu0 1\ncpu1 1\ncpu12 1\n");
  m_host.Write("/proc/cpuinfo", "processor\t: 0\ncpu MHz\t\t: 1.000\n");
  WriteFrequency(0, "3400500\n", "800000\n", "5200000\n");
  WriteFrequency(1, "<unknown>\n", "800000\n", "5200000\n");
  WriteFrequency(12, "2100000\n", "800000\n", "3900000\n");
  WriteCpu(0, "thermal_throttle/core_throttle_count", "3\n");
  WriteCpu(0, "thermal_throttle/package_throttle_count", "5\n");
  WriteCpu(12, "thermal_throttle/core_throttle_count", "0\n");
  EXPECT_EQ(Attributes(),
            "all - - - - - -\n"
            "cpu0 3400.5 800 5200 3 5 -\ncpu1 - 800 5200 - - -\ncpu12 2100 800 3900 0 - -\n");
  WritePlace(0, "0\n", "8\n");
  WritePlace(1, "1\n", "8\n");
  WritePlace(12, "-1\n", "36\n");
  m_host.Link("/sys/class/hwmon/hwmon10/device", "../../coretemp.0");
  m_host.WriteAll("/sys/class/hwmon",
                  "hwmon2/name=coretemp|hwmon2/temp1_label=Package id 1|"
                  "hwmon2/temp1_input=99000|hwmon2/temp10_label=Core 8|"
                  "hwmon2/temp10_input=48500|hwmon10/name=coretemp|hwmon10/temp2_label=Core 8|"
                  "hwmon10/temp2_input=51000|hwmon11/name=k10temp|hwmon11/temp2_label=Core 8|"
                  "hwmon11/temp2_input=1000");
  EXPECT_EQ(Attributes(),
            "all - - - - - -\n"
            "cpu0 3400.5 800 5200 3 5 51\ncpu1 - 800 5200 - - 48.5\n"
            "cpu12 2100 800 3900 0 - -\n");
  // Two dies of one package; a processor goes.
  m_host.WriteAll("/sys/class/hwmon",
                  "hwmon12/name=coretemp|hwmon12/temp1_label=Package id 1|"
                  "hwmon12/temp1_input=99000|hwmon12/temp2_label=Core 8|"
                  "hwmon12/temp2_input=1000");
  m_host.Write("/proc/stat", "cpu  1\ncpu1 1\n");
  EXPECT_EQ(Attributes(), "all - - - - - -\ncpu1 - 800 5200 - - -\n");
}

TEST_F(CpuTimesTest, WithoutCpufreqTheTableOfProcessorsTells) {
  m_host.Write("/proc/stat", "cpu  1\ncpu0 1\ncpu2 1\ncpu3 1\n");
  std::filesystem::create_directories(m_host.Path("/sys/devices/system/cpu/cpufreq"));
  // Not asked: the folder of policies is empty.
  WriteCpu(0, "cpufreq/cpuinfo_max_freq", "1000\n");
  m_host.Write("/proc/cpuinfo",
               "cpu MHz\t\t: 7.000\nprocessor\t: 0\nmodel\t\t: 3\ncpu MHz\t\t: 2096.030\n\n"
               "processor\t: 2\ncpu MHz\t\t: -5\n\nprocessor\t: 3\n\n"
               "processor\t: 4294967295\ncpu MHz\t\t: 1.0\nprocessor\t: x\ncpu MHz\t: 2.0\n");
  EXPECT_EQ(Attributes(),
            "all - - - - - -\ncpu0 2096.03 - - - - -\ncpu2 - - - - - -\ncpu3 - - - - - -\n");
}

}  // namespace
