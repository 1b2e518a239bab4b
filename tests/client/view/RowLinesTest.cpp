#include "client/view/RowLines.h"

#include "client/ask/Errors.h"
#include "tests/client/view/ViewRows.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

/// "2 -1 --3": the process numbers in their order, with a dash for each row that they lie below.
std::string Listed(const Json& rows, const RowArrangement& how, const std::string& filter = "") {
  std::string text;
  for (const RowLine& line : ArrangeRows(rows, RowFilter(filter, ProcessSchema()), how)) {
    text += (text.empty() ? "" : " ") + std::string(line.depth, '-');
    const Json* path = line.row->Find("Path");
    text += path != nullptr ? path->Text() : std::to_string((*line.row)["PID"].Whole());
  }
  return text;
}

Json ProcessRows() {
  return JsonOf(R"([
    {"PID": 1, "Parent PID": 0, "Program": "init", "CPU % Each": 1.5},
    {"PID": 2, "Parent PID": 1, "Program": "shell", "CPU % Each": null},
    {"PID": 3, "Parent PID": 2, "Program": "Busy", "CPU % Each": 99},
    {"PID": 4, "Parent PID": 1, "Program": "idle", "CPU % Each": 0},
    {"PID": 5, "Parent PID": 77, "Program": "orphan"}])");
}

TEST(RowLinesTest, SortsWithMissingValuesLast) {
  const struct {
    std::string sort;
    bool isDescending;
    std::string listed;
  } cases[] = {{"CPU % Each", true, "3 1 4 2 5"}, {"CPU % Each", false, "4 1 3 2 5"},
               {"Program", false, "3 4 1 5 2"},   {"Program", true, "2 5 1 4 3"},
               {"No such", true, "1 2 3 4 5"},    {"", true, "1 2 3 4 5"}};
  for (const auto& row : cases) {
    EXPECT_EQ(Listed(ProcessRows(), {row.sort, row.isDescending, TreeKind::kNone}), row.listed)
        << row.sort;
  }
}

TEST(RowLinesTest, ListsBelowParentsWithSiblingsSorted) {
  const RowArrangement busiest{"CPU % Each", true, TreeKind::kParents};
  EXPECT_EQ(Listed(ProcessRows(), busiest), "1 -4 -2 --3 5");
  EXPECT_EQ(Listed(ProcessRows(), {"CPU % Each", false, TreeKind::kParents}), "1 -4 -2 --3 5");
  EXPECT_EQ(Listed(ProcessRows(), {"PID", true, TreeKind::kParents}), "5 1 -4 -2 --3");
  // Those above a taken row are there too, and nothing else.
  EXPECT_EQ(Listed(ProcessRows(), busiest, "busy"), "1 -2 --3");
  EXPECT_EQ(Listed(ProcessRows(), busiest, "PID=4"), "1 -4");
  EXPECT_EQ(Listed(ProcessRows(), busiest, "nobody"), "");
}

TEST(RowLinesTest, ListsEachRowOnceWhateverItsParents) {
  const RowArrangement tree{"PID", false, TreeKind::kParents};
  const struct {
    std::string rows;
    std::string listed;
  } cases[] = {
      // Of itself; of each other; of three, one of them with a child.
      {R"([{"PID": 1, "Parent PID": 1}])", "1"},
      {R"([{"PID": 1, "Parent PID": 2}, {"PID": 2, "Parent PID": 1}])", "1 -2"},
      {R"([{"PID": 1, "Parent PID": 3}, {"PID": 2, "Parent PID": 1}, {"PID": 3, "Parent PID": 2},
           {"PID": 4, "Parent PID": 2}, {"PID": 5, "Parent PID": 0}])",
       "5 1 -2 --3 --4"},
      // A number that is there twice, as one may end and another begin while rows are made.
      {R"([{"PID": 1, "Parent PID": 0}, {"PID": 1, "Parent PID": 0}, {"PID": 2, "Parent PID": 1}])",
       "1 -2 1"},
      {R"([{"PID": 1, "Parent PID": 1}, {"PID": 1, "Parent PID": 1}])", "1 -1"},
      {R"([{"PID": 1, "Parent PID": null}, {"PID": 2}])", "1 2"},
      {"[]", ""}};
  for (const auto& row : cases) {
    EXPECT_EQ(Listed(JsonOf(row.rows), tree), row.listed) << row.rows;
  }
}

TEST(RowLinesTest, ListsGroupsBelowTheNearestThatHasARow) {
  const Json groups = JsonOf(R"([
    {"Path": "/"}, {"Path": "/b"}, {"Path": "/b/c/d"}, {"Path": "/a"}, {"Path": "/bc"}, {"Path": "x"}])");
  EXPECT_EQ(Listed(groups, {"Path", false, TreeKind::kPaths}), "/ -/a -/b --/b/c/d -/bc x");
  EXPECT_EQ(Listed(groups, {"Path", false, TreeKind::kPaths}, "/b/c"), "/ -/b --/b/c/d");
  Json endless = groups;
  endless.PushBack(Json{{"Path", std::string(std::size_t{1} << 20U, '/') + "b"}});
  EXPECT_EQ(ArrangeRows(endless, {}, {"Path", false, TreeKind::kPaths}).size(), 7U);
  const Json doubled = JsonOf(R"([{"Path": "/a"}, {"Path": "/a"}, {"Path": ""}, {"Path": "//"}])");
  EXPECT_EQ(ArrangeRows(doubled, {}, {"", true, TreeKind::kPaths}).size(), 4U);
}

TEST(RowLinesTest, GoesOnAtOneLevelWhereATreeIsDeep) {
  constexpr std::int64_t kDeep = 10000;
  Json rows = Json::Array();
  for (std::int64_t pid = 1; pid <= kDeep; ++pid) {
    rows.PushBack({{"PID", pid}, {"Parent PID", pid - 1}});
  }
  const auto lines =
      ArrangeRows(rows, RowFilter("PID=10000", ProcessSchema()), {"PID", true, TreeKind::kParents});
  ASSERT_EQ(lines.size(), 10000U);
  EXPECT_EQ(lines[0].depth, 0U);
  EXPECT_EQ(lines[63].depth, 63U);
  EXPECT_EQ(lines[9999].depth, 64U);
  EXPECT_EQ((*lines[9999].row)["PID"].Whole(), kDeep);
}

TEST(RowFilterTest, TakesConditionsAndPlainTexts) {
  const struct {
    std::string filter;
    std::string listed;
    std::string label;
  } cases[] = {{"", "1 2 3 4 5", ""},
               {"  ", "1 2 3 4 5", ""},
               {"CPU % Each > 1", "1 3", "CPU % Each"},
               {"cpu % each > 1", "1 3", "CPU % Each"},
               {"Program~B*", "3", "Program"},
               {"PID!=3", "1 2 4 5", "PID"},
               // Plain: in any case, in numbers too, and with a sign that is no condition's.
               {"BUSY", "3", ""},
               {" shell ", "2", ""},
               {"99", "3", ""},
               {"a=b", "", ""},
               {"=", "", ""}};
  for (const auto& row : cases) {
    EXPECT_EQ(Listed(ProcessRows(), {}, row.filter), row.listed) << row.filter;
    const RowFilter filter(row.filter, ProcessSchema());
    EXPECT_EQ(filter.Label(), row.label) << row.filter;
    EXPECT_EQ(filter.IsOn(), row.listed != "1 2 3 4 5") << row.filter;
  }
  EXPECT_FALSE(RowFilter().IsOn());
}

TEST(RowFilterTest, RefusesAConditionThatCannotBeMeant) {
  for (const char* text : {"PID=abc", "CPU % Each > much"}) {
    EXPECT_THROW(RowFilter(text, ProcessSchema()), UsageError) << text;
  }
  // Without a layout every text is a plain one.
  EXPECT_NO_THROW(RowFilter("PID=abc", Schema()));
}

}  // namespace
