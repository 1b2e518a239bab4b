#include "client/report/MakeSummary.h"

#include <stdexcept>

#include "client/ask/Errors.h"
#include "tests/client/report/KeptServer.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::int64_t kSummaryStart = 1'700'000'000;
constexpr std::int64_t kSummaryDay = 86400;

/// A file system of which so many Mbytes are in use, a day after the other.
std::vector<Json> FileSystemRows(const std::string& name, const std::vector<double>& used) {
  std::vector<Json> rows;
  for (const double mbytes : used) {
    rows.push_back(
        {{"Record Time", kSummaryStart + kSummaryDay * static_cast<std::int64_t>(rows.size())},
         {"Interval", kSummaryDay},
         {"File System", name},
         {"Mbytes in Use", mbytes},
         {"Mbytes in Use %", mbytes / 100},
         {"Available Space Mbytes", 10000 - mbytes}});
  }
  return rows;
}

Summary SummaryOf(const KeptServer& server, const std::set<std::string>& records = {}) {
  Connection connection(server.Path());
  return MakeSummary(connection, {kSummaryStart, kSummaryStart + 4 * kSummaryDay, records, false});
}

const SummaryPart& PartOf(const Summary& summary, const std::string& title) {
  for (const SummaryPart& part : summary.parts) {
    if (part.title == title) {
      return part;
    }
  }
  throw std::runtime_error("no part " + title);
}

std::vector<std::string> TextsOf(const std::vector<SummaryCell>& row) {
  std::vector<std::string> texts;
  for (const SummaryCell& cell : row) {
    texts.push_back(cell.text);
  }
  return texts;
}

TEST(MakeSummaryTest, FileSystemsAreToldByGrowthAndFewRowsGiveNone) {
  std::vector<Json> rows;
  for (const auto& each :
       {FileSystemRows("/young", {100, 200}), FileSystemRows("/still", {50, 50, 50, 50}),
        FileSystemRows("/grows", {1000, 3000, 5000, 7000}),
        FileSystemRows("/shrinks", {2048, 1024, 0, 0}), FileSystemRows("/once", {7})}) {
    rows.insert(rows.end(), each.begin(), each.end());
  }
  std::ranges::stable_sort(rows, {}, [](const Json& row) { return row["Record Time"].Whole(); });
  const KeptServer server({{"FSL", rows}}, kSummaryDay);
  const Summary summary = SummaryOf(server, {"FSL"});
  const SummaryPart& part = PartOf(summary, "File systems");
  ASSERT_EQ(part.tables.size(), 1U);
  const auto& lines = part.tables[0].rows;
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(TextsOf(lines[0]), ElementsAre("/grows", "6.9G", "70.0 %", "3.0G", "2.0G", "1.5"));
  EXPECT_EQ(lines[4][0].text, "/shrinks");
  EXPECT_EQ(lines[4][4].text.substr(0, 1), "-");
  EXPECT_EQ(lines[4][5].text, "-");
  for (const auto& line : lines) {
    if (line[0].text == "/young" || line[0].text == "/once") {
      EXPECT_EQ(line[4].text + line[5].text, "--") << "two rows make no line";
    }
    if (line[0].text == "/still") {
      EXPECT_EQ(line[4].text + line[5].text, "0-");
    }
  }
}

TEST(MakeSummaryTest, GrowthOfAFewHoursIsNotToldAndThePartSaysWhy) {
  std::vector<Json> rows = FileSystemRows("/", {1, 2, 3, 4, 5});
  std::int64_t time = kSummaryStart;
  for (Json& row : rows) {
    row["Record Time"] = time += 600;
  }
  const KeptServer server({{"FSL", rows}}, 600);
  const Summary summary = SummaryOf(server, {"FSL"});
  const SummaryPart& part = PartOf(summary, "File systems");
  ASSERT_EQ(part.tables.at(0).rows.size(), 1U);
  const std::vector<SummaryCell>& line = part.tables[0].rows[0];
  EXPECT_EQ(line[4].text + line[5].text, "--");
  EXPECT_THAT(part.notes, Contains(HasSubstr("rows of less than 6 hours")));
}

TEST(MakeSummaryTest, AMeanIsThatOfAllRowsHoweverBucketsHoldThem) {
  // A bucket of the stretch holds some of the first rows, and one the last row alone.
  std::vector<Json> rows;
  for (const std::int64_t after : {0, 1, 2, 3, 4, 5, 6, 7, 8, 100000}) {
    rows.push_back({{"Record Time", kSummaryStart + after},
                    {"Interval", 1},
                    {"Resource", "cpu"},
                    {"Some Stalled %", after == 100000 ? 50.0 : 10.0}});
  }
  const KeptServer server({{"PRES", rows}}, 1);
  const Summary summary = SummaryOf(server, {"PRES"});
  const SummaryPart& part = PartOf(summary, "Pressure");
  ASSERT_EQ(part.tables.size(), 1U);
  EXPECT_THAT(TextsOf(part.tables[0].rows.at(0)),
              testing::IsSupersetOf({"cpu", "14.0 %", "50.0 %", "-"}));
}

TEST(MakeSummaryTest, SharesAreThoseOfTheTimeThatHasRows) {
  std::vector<Json> rows;
  for (std::int64_t time = kSummaryStart + 1000; time <= kSummaryStart + 1300; time += 10) {
    rows.push_back({{"Record Time", time},
                    {"Interval", 10},
                    {"Program", "busy"},
                    {"CPU % Each", 100.0},
                    {"Start Time", kSummaryStart}});
  }
  const Summary summary = SummaryOf(KeptServer({{"PDI", rows}}, 10));
  const SummaryPart& part = PartOf(summary, "Top processes");
  EXPECT_EQ(part.tables.at(0).rows.at(0).back().text, "96.8 %")
      << "30 of 31 rows: the first has none before it to be judged by";
}

TEST(MakeSummaryTest, AMomentIsOneOfTheRowsThatItIsSoughtIn) {
  std::vector<Json> rows;
  for (const auto& [processor, percent] : {std::pair("all", 25.0), std::pair("0", 100.0)}) {
    rows.push_back({{"Record Time", kSummaryStart},
                    {"Interval", 1},
                    {"Processor", processor},
                    {"CPU %", percent}});
  }
  const Summary summary = SummaryOf(KeptServer({{"CPUX", rows}}, 1));
  EXPECT_EQ(PartOf(summary, "Busiest times").tables.at(0).rows.at(0).at(2).text, "25.0 %");
}

TEST(MakeSummaryTest, BytesOfCallsAreNotGivenOutForTrafficOfDisks) {
  const auto summaryOf = [](double kbytes) {
    const KeptServer server(
        {{"DISK",
          {{{"Record Time", kSummaryStart},
            {"Interval", 1},
            {"Device", "sda"},
            {"In Use %", 90.0}}}},
         {"PDI",
          {{{"Record Time", kSummaryStart - 1}, {"Interval", 1}, {"Program", "cat"}, {"PID", 7}},
           {{"Record Time", kSummaryStart},
            {"Interval", 1},
            {"Program", "cat"},
            {"User", "ann"},
            {"PID", 7},
            {"CPU % Each", 1.0},
            {"Start Time", kSummaryStart},
            {"Total I/O Kbytes", kbytes}}}}},
        1);
    return SummaryOf(server);
  };
  const Summary busy = summaryOf(3);
  const SummaryPart& times = PartOf(busy, "Busiest times");
  EXPECT_EQ(times.tables.at(0).rows.at(0).back().text, "cat 7 (3.0K)");
  EXPECT_THAT(times.notes, Contains(HasSubstr("not what disks moved")));
  EXPECT_THAT(PartOf(busy, "Top processes").notes, Contains(HasSubstr("not what disks moved")));
  EXPECT_THAT(PartOf(summaryOf(0), "Busiest times").notes,
              testing::Not(Contains(HasSubstr("not what disks moved"))));
}

TEST(MakeSummaryTest, WhatIsNotKeptIsSaidAndNotShownAsNothing) {
  const KeptServer server({{"PI", {}}, {"FSL", {}}, {"PDI", {}}}, 60);
  const Summary summary = SummaryOf(server);
  EXPECT_EQ(summary.title, "Report on h<1");
  EXPECT_GT(summary.parts.size(), 10U);
  for (const SummaryPart& part : summary.parts) {
    SCOPED_TRACE(part.title);
    EXPECT_TRUE(part.tables.empty() || part.title == "Restarts");
    EXPECT_FALSE(part.notes.empty() && part.tables.empty());
  }
  EXPECT_THAT(PartOf(summary, "File systems").notes,
              Contains("No rows of FSL or FSR are kept of this time."));
  EXPECT_THAT(PartOf(summary, "Gaps").notes, Contains("No scheduled record has rows."));
}

TEST(MakeSummaryTest, PartsSayWhatIsMissingAndARecordsChoiceLeavesItsParts) {
  std::vector<Json> rows = FileSystemRows("/", {1, 2, 3, 4, 5});
  rows.erase(rows.begin() + 2);
  const KeptServer server({{"FSL", rows}, {"PI", {}}}, kSummaryDay);
  const Summary summary = SummaryOf(server, {"FSL"});
  EXPECT_THAT(PartOf(summary, "File systems").notes,
              Contains(HasSubstr("Rows are missing of FSL for 2d")));
  EXPECT_THROW(static_cast<void>(PartOf(summary, "Memory")), std::runtime_error);
  EXPECT_EQ(server.Asked("PI"), 0U);
  EXPECT_THROW(static_cast<void>(SummaryOf(server, {"FSX"})), UsageError);
}

}  // namespace
