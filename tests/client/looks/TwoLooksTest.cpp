#include "client/looks/TwoLooks.h"

#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::chrono_literals;

Field FieldOf(const char* label, const char* type, const char* meaning, const char* of = "",
              bool needsTwoLooks = false) {
  return {label, type, 0, 0, meaning, "", of, needsTwoLooks};
}

const Schema kSchema{
    "X",
    "recordX",
    "4",
    0,
    {FieldOf("Interval", "ulong", "duration"), FieldOf("Name", "char[8]", "key"),
     FieldOf("Unit", "ulong", "key"), FieldOf("Ops/sec", "float", "rate", "Ops"),
     FieldOf("Ops", "ulong", "counter"), FieldOf("Mb", "float", "counter"),
     FieldOf("Mb/sec", "float", "rate", "Mb"), FieldOf("Busy %", "float", "percent", "", true),
     FieldOf("Free %", "float", "percent"), FieldOf("Reads", "ulong", "gauge"),
     FieldOf("Reads/sec", "float", "rate", "Reads"), FieldOf("Odd/sec", "float", "rate")}};

Json Row(const char* name, int unit, Json ops, Json mb, Json reads = 7) {
  return {{"Interval", 1700000000}, {"Name", name},      {"Unit", unit},
          {"Ops/sec", 77.0},        {"Ops", ops},        {"Mb", mb},
          {"Mb/sec", 77.0},         {"Busy %", 12.5},    {"Free %", 40.5},
          {"Reads", reads},         {"Reads/sec", 77.0}, {"Odd/sec", 77.0}};
}

/// Interval, both counters with their rates, what needs two looks, the rate of a gauge; the rest is
/// checked to be as it was.
std::string Shown(const Json& row) {
  EXPECT_EQ(row["Free %"], 40.5);
  EXPECT_TRUE(row["Odd/sec"].IsNull()) << "a rate of nothing known";
  std::string text;
  for (const char* label :
       {"Interval", "Ops", "Ops/sec", "Mb", "Mb/sec", "Busy %", "Reads", "Reads/sec"}) {
    text += JsonText(row[label]) + ' ';
  }
  return text;
}

TEST(TwoLooks, SayWhatHappenedBetweenThem) {
  const struct {
    const char* what;
    Json before, now;
    const char* shown;
  } cases[] = {
      {"growth", Row("a", 1, 10, 1.1), Row("a", 1, 35, 1.4, 12),
       "2.5 25 10.0 0.3 0.12 12.5 12 2.0 "},
      {"nothing happened", Row("a", 1, 10, 1.5), Row("a", 1, 10, 1.5),
       "2.5 0 0.0 0.0 0.0 12.5 7 0.0 "},
      {"over the wrap", Row("a", 1, 4294967290, 0.0), Row("a", 1, 44, 0.0, 0),
       "2.5 50 20.0 0.0 0.0 12.5 0 null "},
      {"backwards", Row("a", 1, 1000, 2.5), Row("a", 1, 999, 2.4),
       "2.5 null null null null 12.5 7 0.0 "},
      {"an instance that is new by its second key", Row("a", 2, 10, 1.5), Row("a", 1, 35, 2.0),
       "2.5 null null null null null 7 null "},
      {"a value that is not there", Row("a", 1, 10, nullptr), Row("a", 1, 20, 1.5),
       "2.5 10 4.0 null null 12.5 7 0.0 "},
  };
  for (const auto& entry : cases) {
    TwoLooks looks(kSchema);
    ASSERT_TRUE(looks.AreNeeded());
    const TwoLooks::TimePoint start;
    Json rows = Json::Array({Row("b", 1, 1, 1.0), entry.before});
    looks.Compare(rows, start);
    EXPECT_EQ(Shown(rows[1]), "null null null null null null 7 null ") << entry.what;
    rows = Json::Array({entry.now, entry.now, Row("b", 1, 3, 1.0)});
    looks.Compare(rows, start + 2500ms);
    EXPECT_EQ(Shown(rows[0]), entry.shown) << entry.what;
    EXPECT_TRUE(rows[1]["Ops"].IsNull()) << "a second row of one key: " << entry.what;
    EXPECT_EQ(rows[2]["Ops"], 2) << entry.what;
    rows = Json::Array({Row("a", 1, entry.now["Ops"].Whole() + 1, 9.0)});
    looks.Compare(rows, start + 3s);
    EXPECT_EQ(rows[0]["Ops/sec"], 2.0) << "counted from the look before: " << entry.what;
    for (const auto& [later, shown] :
         {std::pair(3s, "null null null "), std::pair(2s, "null null null "),
          std::pair(4s, "2.0 10 5.0 ")}) {
      rows = Json::Array({Row("a", 1, later == 4s ? 20 : 10, 9.0)});
      looks.Compare(rows, start + later);
      EXPECT_THAT(Shown(rows[0]), StartsWith(shown)) << "at " << later.count();
    }
  }
}

TEST(TwoLooks, LeaveARecordAloneThatOneLookSays) {
  TwoLooks looks(Schema{"X",
                        "recordX",
                        "3",
                        0,
                        {FieldOf("Interval", "ulong", "duration"), FieldOf("Name", "text", "key"),
                         FieldOf("Free %", "float", "percent")}});
  EXPECT_FALSE(looks.AreNeeded());
  Json rows = Json::Array({{{"Interval", 0}, {"Name", "a"}, {"Free %", 1.5}}});
  const Json before = rows;
  looks.Compare(rows, {});
  looks.Compare(rows, TwoLooks::TimePoint(1s));
  EXPECT_EQ(rows, before);
}

}  // namespace
