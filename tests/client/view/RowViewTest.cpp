#include "client/view/RowView.h"

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/view/DetailPage.h"
#include "tests/client/view/ViewRows.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

const PaneRecord& ProcessKind() {
  static const PaneRecord kind{"PDI",
                               "processes",
                               "CPU % Each",
                               {{"PID", "PID"},
                                {"CPU % Each", "CPU%"},
                                {"Real Mem Kbytes", "Mem", 1024},
                                {"Program", "Program"},
                                {"Argument List", "Arguments"}},
                               TreeKind::kParents};
  return kind;
}

Json ProcessRow(int pid, int parent, const Json& share, int kbytes, const std::string& program,
                const std::string& words = "") {
  return {{"Start Time", 1},           {"PID", pid},
          {"Parent PID", parent},      {"CPU % Each", share},
          {"Real Mem Kbytes", kbytes}, {"Program", program},
          {"Argument List", words}};
}

Json FourProcesses() {
  return Json::Array({ProcessRow(1, 0, 0.5, 100, "init"), ProcessRow(20, 1, 50, 2048, "busy"),
                      ProcessRow(3, 20, Json(), 10, "new"), ProcessRow(4, 1, 7, 4096, "Mid")});
}

constexpr Area kRowArea{0, 5};

class RowViewTest : public testing::Test {
 protected:
  explicit RowViewTest() { Show(FourProcesses()); }

  void Show(Json rows) { m_view.Update(SeenOf(std::move(rows), ProcessSchema())); }
  bool Press(const std::string& key) { return m_view.Take(CharacterKeyOf(key), kRowArea); }
  bool Press(KeyCode code) { return m_view.Take(PlainKey(code), kRowArea); }
  bool Click(std::size_t line, std::size_t column) {
    return m_view.Take({KeyCode::kClick, {}, line, column}, kRowArea);
  }
  Canvas Drawn(std::size_t width = 60, std::size_t height = 5) {
    Canvas canvas(width, height);
    m_view.Draw(canvas, {0, height});
    return canvas;
  }
  /// The first words of the rows, the selected one in brackets.
  std::string Numbers(std::size_t height = 5) {
    const Canvas canvas = Drawn(60, height);
    std::string text;
    for (std::size_t line = 1; line < height; ++line) {
      std::string words = canvas.LineText(line);
      words.erase(0, words.find_first_not_of(' '));
      words.erase(std::min(words.find(' '), words.size()));
      const bool isSelected = HasTone(canvas, line, Tone::kSelected);
      text += (text.empty() || words.empty() ? "" : " ") + (isSelected ? "[" + words + "]" : words);
    }
    return text;
  }

  RowView m_view{ProcessKind()};
};

TEST_F(RowViewTest, DrawsRowsBelowHeadings) {
  EXPECT_EQ(AllLines(Drawn()),
            "PID CPU%  Mem Program Arguments\n"
            " 20 50.0 2.0M busy\n"
            "  4  7.0 4.0M Mid\n"
            "  1  0.5 100K init\n"
            "  3    -  10K new\n");
  EXPECT_EQ(m_view.Shown(), 4U);
  EXPECT_EQ(m_view.All(), 4U);
}

TEST_F(RowViewTest, SortsByKeysAndClicks) {
  const struct {
    const char* key;
    std::string numbers;
    std::string sort;
  } cases[] = {{"M", "[4] 20 1 3", "Real Mem Kbytes"}, {"R", "[3] 1 20 4", "Real Mem Kbytes"},
               {"P", "[20] 4 1 3", "CPU % Each"},      {"N", "[1] 3 4 20", "PID"},
               {">", "[20] 4 1 3", "CPU % Each"},      {">", "[4] 20 1 3", "Real Mem Kbytes"},
               {">", "[4] 20 1 3", "Program"},         {"<", "[4] 20 1 3", "Real Mem Kbytes"}};
  for (const auto& row : cases) {
    EXPECT_TRUE(Press(row.key)) << row.key;
    EXPECT_EQ(Numbers(), row.numbers) << row.key;
    EXPECT_EQ(m_view.SortLabel(), row.sort) << row.key;
  }
  EXPECT_FALSE(Press("x"));
  // A heading sorts, a second time the other way round; a row is selected.
  EXPECT_TRUE(Click(0, 1));
  EXPECT_EQ(Numbers(), "[1] 3 4 20");
  EXPECT_TRUE(Click(0, 1));
  EXPECT_EQ(Numbers(), "[20] 4 3 1");
  EXPECT_TRUE(Click(3, 30));
  EXPECT_EQ(Numbers(), "20 4 [3] 1");
  EXPECT_TRUE(Click(4, 0));
  EXPECT_EQ(Numbers(), "20 4 3 [1]");
  EXPECT_FALSE(Click(5, 0));
  EXPECT_TRUE(Click(0, 59));
}

TEST_F(RowViewTest, TheSelectionFollowsItsRow) {
  EXPECT_TRUE(Press(KeyCode::kDown));
  EXPECT_EQ(Numbers(), "20 [4] 1 3");
  EXPECT_TRUE(Press("M"));
  // At the top it stays there whatever comes first.
  EXPECT_EQ(Numbers(), "[4] 20 1 3");
  EXPECT_TRUE(Press("N"));
  EXPECT_EQ(Numbers(), "1 3 [4] 20");
  Show(Json::Array({ProcessRow(4, 1, 7, 1, "Mid"), ProcessRow(2, 1, 7, 1, "other"),
                    ProcessRow(1, 0, 7, 1, "init"), ProcessRow(3, 0, 7, 1, "last")}));
  EXPECT_EQ(Numbers(), "1 2 3 [4]");
  ASSERT_NE(m_view.Selected(), nullptr);
  EXPECT_EQ((*m_view.Selected())["PID"], Json(4));
  // Its row has gone: it stays in the list.
  Show(Json::Array({ProcessRow(1, 0, 7, 1, "init")}));
  EXPECT_EQ(Numbers(), "[1]");
  Show(Json::Array());
  EXPECT_EQ(m_view.Selected(), nullptr);
  EXPECT_TRUE(Press(KeyCode::kEnd));
  EXPECT_EQ(Numbers(), "");
}

TEST_F(RowViewTest, MovesAndScrolls) {
  Json rows = Json::Array();
  for (int pid = 1; pid <= 20; ++pid) {
    rows.PushBack(ProcessRow(pid, 0, 1, 1, "x"));
  }
  Show(std::move(rows));
  Press("N");
  const struct {
    KeyCode code;
    std::string numbers;
  } cases[] = {{KeyCode::kUp, "[1] 2 3 4"},         {KeyCode::kPageDown, "1 2 3 [4]"},
               {KeyCode::kPageDown, "4 5 6 [7]"},   {KeyCode::kUp, "4 5 [6] 7"},
               {KeyCode::kEnd, "17 18 19 [20]"},    {KeyCode::kDown, "17 18 19 [20]"},
               {KeyCode::kPageUp, "[17] 18 19 20"}, {KeyCode::kWheelUp, "[16] 17 18 19"},
               {KeyCode::kHome, "[1] 2 3 4"},       {KeyCode::kWheelDown, "1 [2] 3 4"}};
  for (const auto& row : cases) {
    EXPECT_TRUE(Press(row.code));
    EXPECT_EQ(Numbers(), row.numbers);
  }
  // A screen that grows is filled again.
  Press(KeyCode::kEnd);
  EXPECT_EQ(Numbers(3), "19 [20]");
  EXPECT_EQ(Numbers(8), "14 15 16 17 18 19 [20]");
}

TEST_F(RowViewTest, FiltersAndKeepsTheOldFilterAfterABadOne) {
  m_view.SetFilter("PID=4");
  EXPECT_EQ(Numbers(), "[4]");
  EXPECT_THROW(m_view.SetFilter("PID=x"), UsageError);
  EXPECT_EQ(m_view.FilterText(), "PID=4");
  EXPECT_EQ(Numbers(), "[4]");
  m_view.SetFilter("User=root");
  EXPECT_THAT(m_view.Wanted().columns, testing::Contains("User"));
  m_view.SetFilter("BUS");
  EXPECT_EQ(Numbers(), "[20]");
  EXPECT_EQ(m_view.Shown(), 1U);
  EXPECT_EQ(m_view.All(), 4U);
  Press("t");
  EXPECT_EQ(Numbers(), "[1] 20");
}

TEST_F(RowViewTest, DrawsATree) {
  EXPECT_TRUE(Press("t"));
  EXPECT_EQ(AllLines(Drawn()),
            "PID CPU%  Mem Program Arguments\n"
            "  1  0.5 100K init\n"
            " 20 50.0 2.0M   busy\n"
            "  3    -  10K     new\n"
            "  4  7.0 4.0M   Mid\n");
  EXPECT_TRUE(Press("t"));
  EXPECT_FALSE(m_view.IsTree());
}

TEST_F(RowViewTest, MarksShowDifferences) {
  m_view.ToggleMark(1'700'000'000);
  EXPECT_EQ(m_view.MarkTime(), 1'700'000'000);
  Show(Json::Array({ProcessRow(20, 1, 51.5, 1024, "busy"), ProcessRow(4, 1, 7, 4096, "Mid"),
                    ProcessRow(3, 20, 5, 10, "new"), ProcessRow(9, 1, 2, 100, "come")}));
  const Canvas canvas = Drawn();
  EXPECT_EQ(AllLines(canvas),
            "PID CPU%   Mem Program Arguments\n"
            " 20 +1.5 -1.0M busy\n"
            "  4  0.0     0 Mid\n"
            "  3    -     0 new\n"
            "  9  new   new come\n");
  EXPECT_TRUE(HasTone(canvas, 2, Tone::kMark));
  // A process that has the number again is another one.
  Json again = ProcessRow(20, 1, 51.5, 1024, "busy");
  again["Start Time"] = 2;
  Show(Json::Array({again}));
  EXPECT_THAT(AllLines(Drawn()), HasSubstr(" 20  new   new busy\n"));
  m_view.ToggleMark(1'700'000'009);
  EXPECT_EQ(m_view.MarkTime(), std::nullopt);
  EXPECT_THAT(AllLines(Drawn()), HasSubstr(" 20 51.5  1.0M busy\n"));
}

TEST_F(RowViewTest, ShiftsColumnsBehindTheFirst) {
  EXPECT_TRUE(Press(KeyCode::kRight));
  EXPECT_THAT(Drawn().LineText(0), testing::StartsWith("PID  Mem Program"));
  for (int i = 0; i < 9; ++i) {
    Press(KeyCode::kRight);
  }
  EXPECT_EQ(Drawn().LineText(0), "PID Arguments");
  for (int i = 0; i < 9; ++i) {
    Press(KeyCode::kLeft);
  }
  EXPECT_THAT(Drawn().LineText(0), testing::StartsWith("PID CPU%  Mem"));
}

TEST_F(RowViewTest, ChosenColumnsAreAskedFor) {
  m_view.SetColumns({"User", "PID", "gone\x1b[31m"});
  EXPECT_THAT(m_view.ColumnLabels(), ElementsAre("User", "PID", "gone\x1b[31m"));
  EXPECT_THAT(m_view.Wanted().columns,
              testing::IsSupersetOf({"User", "PID", "Parent PID", "CPU % Each"}));
  // One that the record lost is an empty column, and none that steers the terminal.
  EXPECT_EQ(Drawn().LineText(0), "User PID gone\\x1B[31m");
  m_view.SetColumns({});
  EXPECT_THAT(m_view.ColumnLabels(),
              ElementsAre("PID", "CPU % Each", "Real Mem Kbytes", "Program", "Argument List"));
}

TEST_F(RowViewTest, NothingOverflowsWhateverTheTextsAre) {
  std::string wide;
  for (int i = 0; i < 3000; ++i) {
    wide += "\u6f22e\u0301";
  }
  const std::string marks = "e" + std::string(500, '\xcc') + "\u0301\u0301";
  Show(Json::Array({ProcessRow(1, 0, 1e30, 1, "\x1b[2J\x1b]0;x\a\r\n", wide),
                    ProcessRow(2, 1, -1e30, 2147483647, wide, "\u202e\x9b" + marks),
                    ProcessRow(3, 2, 1, 1, std::string(10000, 'x'), std::string(10000, '\xff')),
                    ProcessRow(4, 3, 1, 1, std::string("a\0b", 3), std::string(10000, '\n'))}));
  for (const bool isTree : {false, true}) {
    if (isTree) {
      Press("t");
    }
    for (const std::size_t width : {200U, 80U, 60U, 20U, 2U, 1U, 0U}) {
      for (const std::size_t height : {5U, 2U, 1U, 0U}) {
        const Canvas canvas = Drawn(width, height);
        for (std::size_t line = 0; line < height; ++line) {
          const std::string text = canvas.LineText(line);
          EXPECT_LE(TextWidth(text), width);
          EXPECT_EQ(SafeText(text), text) << width;
        }
      }
    }
  }
  EXPECT_THAT(AllLines(Drawn(200)), HasSubstr("\\x1B[2J\\x1B]0;x"));
}

TEST(RowViewStartTest, ShowsNothingBeforeTheFirstRows) {
  RowView view(ProcessKind());
  EXPECT_THAT(view.Wanted().columns,
              ElementsAre("PID", "CPU % Each", "Real Mem Kbytes", "Program", "Argument List", "PID",
                          "Parent PID", "CPU % Each"));
  Canvas canvas(20, 5);
  view.Draw(canvas, {0, 5});
  EXPECT_EQ(AllLines(canvas), "\n\n\n\n\n");
  EXPECT_EQ(view.Selected(), nullptr);
  for (const char* key : {"M", "R", "<", ">", "t"}) {
    static_cast<void>(view.Take(CharacterKeyOf(key), {0, 5}));
  }
  view.ToggleMark(1);
  EXPECT_EQ(view.MarkTime(), std::nullopt);
}

TEST(RowViewStartTest, RowsWithoutALayoutAreNoFault) {
  RowView view(ProcessKind());
  auto seen = std::make_shared<SeenRows>();
  seen->rows = FourProcesses();
  view.Update(seen);
  Canvas canvas(40, 5);
  view.Draw(canvas, {0, 5});
  static_cast<void>(view.Take(PlainKey(KeyCode::kEnd), {0, 5}));
  static_cast<void>(view.Take(CharacterKeyOf("M"), {0, 5}));
  view.ToggleMark(1);
  view.Draw(canvas, {0, 5});
  view.Forget();
  EXPECT_EQ(view.Shown(), 0U);
}

TEST(RowViewStartTest, ShowsWhatTheLayoutShowsFirst) {
  Schema schema = ProcessSchema();
  schema.shown = {{"Program", "NAME"}, {"PID", "NUMBER"}};
  const PaneRecord kind{"X", "x", ""};
  RowView view(kind);
  EXPECT_TRUE(view.Wanted().columns.empty());
  view.Update(SeenOf(FourProcesses(), schema));
  Canvas canvas(40, 2);
  view.Draw(canvas, {0, 2});
  EXPECT_EQ(AllLines(canvas), "NAME NUMBER\ninit      1\n");
}

TEST(DetailPageTest, AKeyThatIsTooLongForAConditionIsLeftOut) {
  const Schema schema{
      "CGRP",
      "recordCGRP",
      "4",
      100,
      {{"Path", "char[512]", 0, 4, "key", "", ""}, {"CPU %", "float", 0, 4, "percent", "", ""}}};
  const std::pair<std::string, std::size_t> cases[] = {
      {"/a", 1}, {std::string(252, 'a'), 0}, {"/*********", 0}};
  for (const auto& [path, conditions] : cases) {
    const Json row{{"Path", path}, {"CPU %", 1.5}};
    Wish wish;
    DetailPage("CGRP", *SeenOf(Json::Array({row}), schema), row).AddTo(wish);
    EXPECT_EQ(wish.records.at(0).where.size(), conditions) << path;
    EXPECT_EQ(wish.plot.has_value(), conditions == 1) << path;
  }
}

}  // namespace
