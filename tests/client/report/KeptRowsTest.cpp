#include "client/report/KeptRows.h"

#include "client/ask/Errors.h"
#include "client/report/Gaps.h"
#include "tests/client/report/KeptServer.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

/// A row each `step` seconds.
std::vector<Json> RowsFrom(std::int64_t first, std::int64_t last, std::int64_t step) {
  std::vector<Json> rows;
  for (std::int64_t time = first; time <= last; time += step) {
    rows.push_back({{"Record Time", time}, {"Interval", step}});
  }
  return rows;
}

std::vector<Json> Joined(std::vector<Json> rows, const std::vector<Json>& more) {
  rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

std::vector<std::int64_t> TimesOf(const Json& rows) {
  std::vector<std::int64_t> times;
  for (const Json& row : rows.Elements()) {
    times.push_back(row["Record Time"].Whole());
  }
  return times;
}

/// What reading rows fails with, when the daemon answers so.
std::string EachFailure(const std::string& history) {
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [&](const Json& request) {
    const std::string op = request["op"].Text();
    return Answer(
        request,
        JsonOf(op == "status" ? R"({"status": {"pid": 1, "uptime_seconds": 1, "version": "1",
            "node": "n", "host": "h", "schedules": [], "last_batch": null, "figures": []}})"
               : op == "records"
                   ? R"({"records": [{"record": "PI", "category": "4", "served": true}]})"
                   : history));
  });
  Connection connection(server.Path());
  KeptRows rows(connection, 0, 100, {});
  std::size_t count = 0;
  try {
    rows.Each("PI", {"Interval"}, 0, 100, [&](const Json&) { ++count; });
  } catch (const ClientError& error) {
    return error.what();
  }
  return "no failure";
}

TEST(KeptRowsTest, AllPagesAreReadInTheirOrder) {
  KeptServer server({{"PI", RowsFrom(10, 100, 10)}, {"NONE", {}}}, 10, 4);
  Connection connection(server.Path());
  KeptRows rows(connection, 20, 90, {});
  Json taken = Json::Array();
  rows.Each("PI", {"Interval"}, 20, 90, [&](const Json& row) { taken.PushBack(row); });
  EXPECT_EQ(TimesOf(taken), (std::vector<std::int64_t>{20, 30, 40, 50, 60, 70, 80, 90}));
  EXPECT_EQ(rows.Count(), 8U);
  EXPECT_EQ(server.Asked("PI"), 2U);
  rows.Each("NONE", {"Interval"}, 20, 90, [&](const Json& row) { taken.PushBack(row); });
  EXPECT_EQ(rows.Count(), 8U);
}

TEST(KeptRowsTest, TheNearestTimeIsReadWhole) {
  std::vector<Json> kept = RowsFrom(10, 20, 10);
  for (int row = 0; row < 5; ++row) {
    kept.push_back({{"Record Time", 30}, {"PID", row}});
  }
  KeptServer server({{"PD", Joined(kept, RowsFrom(40, 40, 1))}}, 10, 2);
  Connection connection(server.Path());
  KeptRows rows(connection, 0, 100, {});
  EXPECT_EQ(TimesOf(rows.At("PD", {"PID"}, 33)), (std::vector<std::int64_t>(5, 30)));
  EXPECT_EQ(TimesOf(rows.At("PD", {"PID"}, 99)), std::vector<std::int64_t>{40});
  EXPECT_EQ(rows.EdgeTime("PD", true, 11, 100), 20);
  EXPECT_EQ(rows.EdgeTime("PD", false, 0, 39), 30);
  EXPECT_FALSE(rows.EdgeTime("PD", true, 50, 60));
}

TEST(KeptRowsTest, RecordsWithoutRowsAreNoneThatAreAsked) {
  KeptServer server({{"PI", RowsFrom(10, 20, 10)}, {"PD", RowsFrom(900, 910, 10)}, {"PDI", {}}},
                    10);
  Connection connection(server.Path());
  KeptRows rows(connection, 0, 100, {});
  EXPECT_TRUE(rows.Has("PI"));
  EXPECT_FALSE(rows.Has("PD")) << "has rows at other times alone";
  EXPECT_FALSE(rows.Has("PDI"));
  EXPECT_FALSE(rows.Has("HIDD")) << "is not served";
  EXPECT_FALSE(rows.Has("ODD"));
  EXPECT_EQ(server.Asked("HIDD") + server.Asked("ODD"), 0U);
  EXPECT_EQ(rows.FirstOf({"PDI", "PD", "PI"}), "PI");
  EXPECT_EQ(rows.Every("PI"), 10);
  EXPECT_EQ(rows.Every("ODD"), 0);
  KeptRows chosen(connection, 0, 100, {"PD"});
  EXPECT_FALSE(chosen.Has("PI"));
  EXPECT_FALSE(chosen.IsChosen("PI"));
  EXPECT_THROW(KeptRows(connection, 0, 100, {"PIX"}), UsageError);
}

TEST(KeptRowsTest, AnswersThatLeadNowhereAreFailures) {
  const struct {
    const char* answer;
    const char* words;
  } cases[] = {
      {R"({"history": {"record": "PI", "category": "4", "rows": [], "next": [5, 6]}})",
       "the pages of PI that the daemon gives do not go on"},
      {R"({"history": {"record": "PI", "category": "4", "rows": [], "next": []}})", "next"},
      {R"({"history": {"record": "PI", "category": "4", "rows": [], "next": ["a", 6]}})", "next"},
      {R"({"history": {"record": "PI", "category": "4", "rows": []}})", "next"},
      {R"({"history": {"record": "PD", "category": "4", "rows": [], "next": null}})", "record"},
      {R"({"history": {"record": "PI", "category": "4", "rows": [5], "next": null}})", "rows"},
      {R"({"ok": 1})", "history"},
  };
  for (const auto& one : cases) {
    EXPECT_THAT(EachFailure(one.answer), HasSubstr(one.words)) << one.answer;
  }
}

TEST(GapsTest, GapsHaveTheTimesOfTheRowsAtTheirEdges) {
  KeptServer server({{"PI", Joined(RowsFrom(1000, 1200, 10), RowsFrom(1505, 2005, 10))},
                     {"CPUP", RowsFrom(1003, 2003, 14)},
                     {"DISK", RowsFrom(1400, 1700, 10)},
                     {"NETD", {}}},
                    10);
  Connection connection(server.Path());
  KeptRows rows(connection, 1000, 2005, {});
  const std::vector<RecordGaps> all = FindGaps(rows);
  const auto of = [&](const std::string& record) {
    std::vector<Span> spans;
    for (const RecordGaps& each : all) {
      if (each.record == record) {
        spans.insert(spans.end(), each.gaps.begin(), each.gaps.end());
      }
    }
    return spans;
  };
  EXPECT_EQ(of("PI"), (std::vector<Span>{{1200, 1505}}));
  EXPECT_EQ(of("CPUP"), std::vector<Span>{}) << "late, not missing";
  EXPECT_EQ(of("DISK"), (std::vector<Span>{{1000, 1400}, {1700, 2005}}));
  EXPECT_EQ(all.size(), 3U) << "no row, no gap";
  EXPECT_EQ(MissingSeconds(all, "DISK"), 705);
  EXPECT_EQ(MissingSeconds(all, "NETD"), 0);
}

}  // namespace
