#include "client/view/Head.h"

#include "client/ask/SafeText.h"
#include "client/view/HeadFigures.h"
#include "tests/client/view/ViewRows.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using testing::Optional;

constexpr double kMegabyte = 1024 * 1024;

using RecordTexts = std::vector<std::pair<std::string, std::string>>;

Sight SightOf(const RecordTexts& records) {
  Sight sight;
  sight.time = 1'700'000'000;
  sight.status.host = "host";
  for (const auto& [record, rows] : records) {
    sight.records[record] = SeenOf(JsonOf(rows), Schema());
  }
  return sight;
}

Sight ModernSight() {
  return SightOf(
      {{"PI", R"([{"Record Time": 5000, "Boot Time": 1400, "CPU %": 12.5, "Wait %": 1,
                   "Alloc Mem %": 40, "Total Physical Mem Mbytes": 2048, "Alloc Swap %": 5,
                   "Total Swap Mbytes": 1024, "1-Minute Run Queue Avg": 0.5,
                   "5-Minute Run Queue Avg": 0.25, "15-Minute Run Queue Avg": 0.125,
                   "Processes": 123, "Block Reads/sec": 3, "Block Writes/sec": 0}])"},
       {"CPUX", R"([{"Processor": "all", "CPU %": 50}, {"Processor": "0", "CPU %": 25},
                    {"Processor": "1", "CPU %": null}])"},
       {"PRES", R"([{"Resource": "cpu", "Some Stalled %": 1.5},
                    {"Resource": "io", "Some Stalled %": 12},
                    {"Resource": "irq", "Some Stalled %": 99}])"},
       {"NETD", R"([{"Interface": "lo", "Bytes In/sec": 1000000, "Bytes Out/sec": 1000000},
                    {"Interface": "eth0", "Bytes In/sec": 100, "Bytes Out/sec": 20},
                    {"Interface": "eth0.10", "Bytes In/sec": 70, "Bytes Out/sec": 7},
                    {"Interface": "br1", "Bytes In/sec": 80, "Bytes Out/sec": 8},
                    {"Interface": "vlan100", "Bytes In/sec": 80, "Bytes Out/sec": 8},
                    {"Interface": "veth9", "Bytes In/sec": 90, "Bytes Out/sec": 9},
                    {"Interface": "eth1", "Bytes In/sec": 50, "Bytes Out/sec": null}])"}});
}

TEST(HeadFiguresTest, ComeFromTheRecordsOfTheKernelsFigures) {
  const HeadFigures figures = ReadHeadFigures(ModernSight());
  EXPECT_THAT(figures.cpuPercent, Optional(12.5));
  EXPECT_THAT(figures.memoryBytes, Optional(2048 * kMegabyte));
  EXPECT_THAT(figures.swapBytes, Optional(1024 * kMegabyte));
  EXPECT_THAT(figures.load[2], Optional(0.125));
  EXPECT_THAT(figures.upSeconds, Optional(3600.0));
  EXPECT_THAT(figures.diskRead, Optional(3.0 * 1024));
  EXPECT_THAT(figures.diskWrite, Optional(0.0));
  EXPECT_EQ(figures.diskBoth, std::nullopt);
  ASSERT_EQ(figures.processors.size(), 2U);
  EXPECT_THAT(figures.processors[0], Optional(25.0));
  EXPECT_EQ(figures.processors[1], std::nullopt);
  EXPECT_THAT(figures.cpuPressure, Optional(1.5));
  EXPECT_THAT(figures.ioPressure, Optional(12.0));
  EXPECT_EQ(figures.memoryPressure, std::nullopt);
  // What a host tells itself is no traffic.
  EXPECT_THAT(figures.netIn, Optional(150.0));
  EXPECT_THAT(figures.netOut, Optional(20.0));
  EXPECT_EQ(figures.packetsIn, std::nullopt);
}

TEST(HeadFiguresTest, ComeFromTheClassicRecordsElse) {
  const HeadFigures figures = ReadHeadFigures(
      SightOf({{"CPUP", R"([{"Processor ID": 0, "CPU %": 10}, {"Processor ID": 1, "CPU %": 20}])"},
               {"NIND", R"([{"Interface": "lo", "Pkts Rcvd/sec": 9, "Pkts Xmitd/sec": 9},
                    {"Interface": "eth0", "Pkts Rcvd/sec": 5, "Pkts Xmitd/sec": 6}])"},
               {"DEVD", R"([{"Mbytes Xferd/sec": 1.5}, {"Mbytes Xferd/sec": null},
                    {"Mbytes Xferd/sec": 0.5}])"}}));
  EXPECT_EQ(figures.processors.size(), 2U);
  EXPECT_THAT(figures.packetsIn, Optional(5.0));
  EXPECT_THAT(figures.packetsOut, Optional(6.0));
  EXPECT_THAT(figures.diskBoth, Optional(2 * kMegabyte));
  EXPECT_EQ(figures.cpuPercent, std::nullopt);
  EXPECT_EQ(figures.diskRead, std::nullopt);
  EXPECT_EQ(figures.netIn, std::nullopt);
  EXPECT_EQ(figures.upSeconds, std::nullopt);
}

TEST(HeadFiguresTest, RowsOfAnotherTimeOrAnErrorSayNothing) {
  for (const bool isFar : {true, false}) {
    Sight sight = ModernSight();
    SeenRows seen = *sight.records["PI"];
    seen.isFar = isFar;
    seen.error = isFar ? "" : "refused";
    sight.records["PI"] = std::make_shared<const SeenRows>(seen);
    const HeadFigures figures = ReadHeadFigures(sight);
    EXPECT_EQ(figures.cpuPercent, std::nullopt);
    EXPECT_THAT(figures.netIn, Optional(150.0));
  }
}

TEST(HeadTrendsTest, BeginWithTheKeptRowsAndGoOnWithLooks) {
  HeadTrends trends;
  trends.cpu.Add(1, 100, 1);
  Sight sight;
  sight.trends["PI"].rows = JsonOf(R"([{"Record Time": 60, "CPU %": 100, "Block Reads/sec": 1},
                                       {"Record Time": 120, "CPU %": null}])");
  sight.trends["NETD"].rows =
      JsonOf(R"([{"Record Time": 60, "Interface": "eth0", "Bytes In/sec": 1},
                 {"Record Time": 120, "Interface": "eth0", "Bytes In/sec": 3},
                 {"Record Time": 120, "Interface": "eth1", "Bytes In/sec": 1}])");
  trends.Fill(sight);
  EXPECT_EQ(trends.cpu.Text(180, 3, 60, 100, false), "#  ");
  EXPECT_EQ(trends.diskRead.Text(180, 3, 60, std::nullopt, false), "#  ");
  EXPECT_EQ(trends.netIn.Text(180, 3, 60, 4, false), ":# ");
  HeadFigures figures;
  figures.cpuPercent = 50;
  figures.packetsIn = 2;
  figures.diskBoth = 1024;
  trends.Add(180, 60, figures);
  EXPECT_EQ(trends.cpu.Text(180, 3, 60, 100, false), "# =");
  EXPECT_EQ(trends.netIn.Text(180, 3, 60, 4, false), ":#=");
  EXPECT_EQ(trends.diskRead.Text(180, 3, 60, std::nullopt, false), "# #");
}

/// The head as lines, of which no one is wider than the frame or has what steers a terminal.
std::string HeadText(const Sight& sight, std::size_t width, std::size_t height,
                     const HeadWords& words = {"NOW 18:30:15", Tone::kGood, ""}) {
  Canvas canvas(width, height);
  DrawHead(canvas, sight, ReadHeadFigures(sight), HeadTrends(), words, false);
  for (std::size_t line = 0; line < height; ++line) {
    EXPECT_LE(TextWidth(canvas.LineText(line)), width);
    EXPECT_EQ(SafeText(canvas.LineText(line)), canvas.LineText(line));
    EXPECT_TRUE(line < HeadHeight(height) || canvas.LineText(line).empty()) << line;
  }
  return AllLines(canvas);
}

TEST(HeadTest, IsSixLinesAtMostAndLeavesRoomForRows) {
  for (std::size_t height = 1; height <= 50; ++height) {
    EXPECT_GE(HeadHeight(height), 1U);
    EXPECT_LE(HeadHeight(height), height < 16 ? 2U : 6U) << height;
    for (const std::size_t width : {1U, 2U, 5U, 20U, 60U, 80U, 200U}) {
      HeadText(ModernSight(), width, height);
      HeadText(Sight(), width, height);
    }
  }
  EXPECT_EQ(HeadHeight(24), 6U);
  HeadText(ModernSight(), 0, 0);
}

TEST(HeadTest, ShowsTheHostAtAGlance) {
  const std::string text = HeadText(ModernSight(), 80, 24);
  for (const char* part :
       {"host  NOW 18:30:15  up ", "123 processes", "12.5 %", "wait 1.0 %", "load 0.50 0.25 0.12",
        "40.0 % of 2.0G", "5.0 % of 1.0G", "processor 1.5 %", "memory -", "I/O 12.0 %",
        "read 3.0K/s", "write 0/s", "in 150/s", "out 20/s"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  EXPECT_THAT(text, Not(HasSubstr("alarm")));
}

TEST(HeadTest, ShowsADashForWhatHasNoSource) {
  const std::string text = HeadText(SightOf({}), 80, 24);
  for (const char* part : {"up -", "- processes", "wait -", "load - - -", "Each   -", "- of -",
                           "processor -", "read -/s", "in -/s"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  const Sight noSwap = SightOf({{"PI", R"([{"Total Swap Mbytes": 0, "Alloc Swap %": 0}])"}});
  EXPECT_THAT(HeadText(noSwap, 80, 24), HasSubstr("Swap none"));
}

TEST(HeadTest, TellsAlarmsVerdictsAndTheMark) {
  Sight sight = ModernSight();
  sight.status.host = "h\x1b[31m";
  sight.abnormal = {"web\x1b[2J"};
  sight.alarms = AlarmListing();
  const auto add = [&](std::int64_t since, std::optional<std::int64_t> until) {
    Alarm alarm;
    alarm.since = sight.time + since;
    alarm.until = until ? std::optional(sight.time + *until) : std::nullopt;
    sight.alarms->alarms.push_back(alarm);
  };
  // Of these the first two are at the moment that is seen; one came later, one had ended.
  add(-10, std::nullopt);
  add(-10, 10);
  add(10, 20);
  add(-20, -10);
  const HeadWords words{"KEPT 2026-11-26 07:00:00", Tone::kWarning, "SINCE 06:00:00"};
  EXPECT_THAT(HeadText(sight, 120, 24, words),
              HasSubstr("h\\x1B[31m  KEPT 2026-11-26 07:00:00  SINCE 06:00:00  2 alarms  "
                        "web\\x1B[2J ABNORMAL  up"));
}

TEST(HeadTest, DrawsManyProcessorsAsOnePicture) {
  std::string rows = R"([{"Processor": "all", "CPU %": 0})";
  for (int i = 0; i < 300; ++i) {
    rows += R"(,{"Processor": "x", "CPU %": )" + std::string(i == 299 ? "100" : "0") + "}";
  }
  for (const std::size_t width : {1U, 8U, 9U, 20U, 80U, 200U, 400U}) {
    const std::string text = HeadText(SightOf({{"CPUX", rows + "]"}}), width, 24);
    EXPECT_EQ(text.find("#") != std::string::npos, width > 7) << width;
  }
}

}  // namespace
