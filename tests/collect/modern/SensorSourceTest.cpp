#include "collect/modern/device/SensorSource.h"

#include "collect/modern/device/SensorFiles.h"
#include "collect/modern/device/SensorQuestion.h"
#include "collect/modern/device/SensorWords.h"
#include "support/ProductOptions.h"
#include "tests/collect/CollectFixture.h"

namespace {

using std::chrono::milliseconds;

/// A line for each.
std::string TextOf(const std::vector<SensorFigures>& rows) {
  std::ostringstream out;
  for (const SensorFigures& row : rows) {
    out << row.chip << '|' << row.sensor << '|' << row.label << '|' << row.kind << '|' << row.unit
        << ' ' << Told({row.value, row.high, row.critical, row.alarm}) << '\n';
  }
  return out.str();
}

class SensorSourceTest : public CollectFixture {
 protected:
  void TearDown() override {
    ProductOptions::Instance().Set("Node", "Mount Timeout", "0");
    CollectFixture::TearDown();
  }
  static std::string Read() {
    std::vector<SensorFigures> rows(1);
    ReadSensors(rows);
    return TextOf(rows);
  }
  void WriteChip(const std::string& chip, const std::string& files) {
    m_host.WriteAll("/sys/class/hwmon/" + chip, files);
  }
  static SensorFigures Row(const char* sensor) {
    SensorFigures row;
    row.sensor = sensor;
    return row;
  }

  process_tree::HostTree m_host;
};

TEST_F(SensorSourceTest, ReadsChipsAndSensorsByTheirNumbers) {
  WriteChip("hwmon10",
            "name=board|temp10_input=41500|temp10_label=Outlet|temp2_input=-5250|"
            "temp2_max=80000|temp2_crit=95000|temp2_max_alarm=0|temp2_crit_alarm=1|"
            "temp3_input=127500|temp3_fault=1|temp3_alarm=0|temp3_max_alarm=1|"
            "temp4_label=no value|fan1_input=garbage|fan2_input=1200|in0_input=1032|"
            "intrusion0_alarm=1|curr1_input=1500|power1_average=15000000|power1_max=20000000|"
            "energy1_input=123456789|humidity1_input=45300|temp01_input=1|temp_input=1");
  WriteChip("hwmon9", "name=zeal|temp1_input=1000");
  const std::string expected =
      "zeal|temp1|temp1|temperature|celsius 1 - - -\n"
      "board|temp2|temp2|temperature|celsius -5.25 80 95 1\n"
      "board|temp3|temp3|temperature|celsius - - - 0\n"
      "board|temp10|Outlet|temperature|celsius 41.5 - - -\n"
      "board|fan1|fan1|fan|rpm - - - -\n"
      "board|fan2|fan2|fan|rpm 1200 - - -\n"
      "board|in0|in0|voltage|volts 1.032 - - -\n"
      "board|curr1|curr1|current|amperes 1.5 - - -\n"
      "board|power1|power1|power|watts 15 20 - -\n"
      "board|energy1|energy1|energy|joules 123.456789 - - -\n"
      "board|humidity1|humidity1|humidity|percent 45.3 - - -\n";
  // Zones are of no use where a chip tells temperatures.
  m_host.Write("/sys/class/thermal/thermal_zone0/temp", "1\n");
  EXPECT_EQ(Read(), expected);
  ProductOptions::Instance().Set("Node", "Mount Timeout", "5");
  EXPECT_EQ(Read(), expected) << "by a child";
  EXPECT_EQ(Lines("left out"), 0U);
}

TEST_F(SensorSourceTest, ChipsOfOneNameAreToldApart) {
  for (const char* chip : {"hwmon1", "hwmon2", "hwmon3", "hwmon4"}) {
    WriteChip(chip, "name=nvme|fan1_input=1");
  }
  m_host.Link("/sys/class/hwmon/hwmon1/device", "../../nvme0");
  m_host.Link("/sys/class/hwmon/hwmon2/device", "../../nvme1");
  WriteChip("hwmon5", "device/name=old|device/fan1_input=2");
  WriteChip("hwmon6", "fan1_input=3");
  EXPECT_EQ(Read(),
            "nvme-nvme0|fan1|fan1|fan|rpm 1 - - -\nnvme-nvme1|fan1|fan1|fan|rpm 1 - - -\n"
            "nvme-hwmon3|fan1|fan1|fan|rpm 1 - - -\nnvme-hwmon4|fan1|fan1|fan|rpm 1 - - -\n"
            "old|fan1|fan1|fan|rpm 2 - - -\nhwmon6|fan1|fan1|fan|rpm 3 - - -\n");
}

TEST_F(SensorSourceTest, ThermalZonesStandForChips) {
  EXPECT_EQ(Read(), "");
  m_host.WriteAll("/sys/class/thermal",
                  "thermal_zone0/type=cpu-thermal|thermal_zone0/temp=45312|"
                  "thermal_zone0/trip_point_0_type=passive|"
                  "thermal_zone0/trip_point_0_temp=60000|"
                  "thermal_zone0/trip_point_1_type=critical|"
                  "thermal_zone0/trip_point_1_temp=110000|"
                  "thermal_zone0/trip_point_2_type=critical|"
                  "thermal_zone0/trip_point_2_temp=105000|thermal_zone0/trip_point_3_type=hot|"
                  "thermal_zone0/trip_point_3_temp=90000|thermal_zone11/temp=x|"
                  "thermal_zone2/type=acpitz");
  WriteChip("hwmon0", "name=fans|fan1_input=7");
  EXPECT_EQ(Read(),
            "fans|fan1|fan1|fan|rpm 7 - - -\n"
            "thermal|thermal_zone0|cpu-thermal|temperature|celsius 45.312 90 105 -\n"
            "thermal|thermal_zone2|acpitz|temperature|celsius - - - -\n"
            "thermal|thermal_zone11|thermal_zone11|temperature|celsius - - - -\n");
}

TEST_F(SensorSourceTest, OneThatHangsIsLeftOutAndItsChildNotWaitedFor) {
  const SensorReader reader = [](SensorSink& sink) {
    for (const char* place : {"slow/temp1", "slow/temp2", "slow/temp3"}) {
      if (!sink.Begin(place)) {
        continue;
      }
      if (std::string_view(place) == "slow/temp2") {
        ::pause();
      }
      sink.Take(Row(place));
    }
  };
  const auto read = [&reader] {
    std::vector<SensorFigures> rows;
    ReadSensorsWithin(milliseconds(300), reader, rows);
    return rows;
  };
  const auto first = read();
  ASSERT_EQ(first.size(), 1U) << "what came before it counts";
  EXPECT_EQ(first[0].sensor, "slow/temp1");
  EXPECT_EQ(Lines("no answer within 300 ms. (slow/temp2)"), 1U);
  EXPECT_EQ(Level("no answer within 300 ms"), 20);
  const auto second = read();
  ASSERT_EQ(second.size(), 2U);
  EXPECT_EQ(second[1].sensor, "slow/temp3");
  EXPECT_EQ(Lines("left out"), 1U);
}

TEST_F(SensorSourceTest, AChildThatDiesOrCannotBeMadeCostsRowsOnly) {
  std::vector<SensorFigures> rows;
  ReadSensorsWithin(
      milliseconds(5000),
      [](SensorSink& sink) {
        sink.Take(Row("dying/temp1"));
        ::_exit(3);
      },
      rows);
  EXPECT_EQ(rows.size(), 1U);
  EXPECT_EQ(g_lackOfDescriptors, 0);
  ReadSensorsWithin(
      milliseconds(5000), [](SensorSink&) { NoteLackOfDescriptors(ENFILE); }, rows);
  EXPECT_EQ(std::exchange(g_lackOfDescriptors, 0), ENFILE) << "known to the child alone";
  // More than a pipe holds.
  ReadSensorsWithin(
      milliseconds(20000),
      [](SensorSink& sink) {
        for (int row = 0; row < 4000; ++row) {
          sink.Take(Row("many"));
        }
      },
      rows);
  EXPECT_EQ(rows.size(), 4001U);
  Os().fork = [] {
    errno = EAGAIN;
    return pid_t{-1};
  };
  ReadSensorsWithin(
      milliseconds(100), [](SensorSink& sink) { sink.Take(Row("never")); }, rows);
  EXPECT_EQ(rows.size(), 4001U);
  EXPECT_EQ(Lines("OS API(fork). (en=11)"), 1U);
}

TEST_F(SensorSourceTest, WordsThatBreakOffAreNone) {
  SensorFigures sensor = Row("temp1");
  sensor.label = std::string("a\0b", 3);
  sensor.high = 2;
  const std::string whole = PackSensorWord({SensorWord::kTake, PackSensor(sensor)});
  SensorWord word;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    std::string_view part = std::string_view(whole).substr(0, size);
    EXPECT_FALSE(TakeSensorWord(part, word)) << size;
    EXPECT_EQ(part.size(), size);
  }
  const std::string twice = whole + whole;
  std::string_view text = twice;
  ASSERT_TRUE(TakeSensorWord(text, word));
  EXPECT_EQ(text, whole);
  SensorFigures taken;
  ASSERT_TRUE(UnpackSensor(word.bytes, taken));
  EXPECT_EQ(taken.label, sensor.label);
  EXPECT_EQ(TextOf({taken}), TextOf({sensor}));
  for (std::size_t size = 0; size < word.bytes.size(); ++size) {
    EXPECT_FALSE(UnpackSensor(word.bytes.substr(0, size), taken)) << size;
  }
  EXPECT_FALSE(UnpackSensor(std::string(word.bytes) + 'x', taken));
}

}  // namespace
