#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/view/ColumnChooser.h"
#include "client/view/HelpPage.h"
#include "client/view/Prompt.h"
#include "tests/client/view/ViewRows.h"
#include "tests/support/Testing.h"

namespace {

std::string PromptText(const Prompt& prompt, std::size_t width = 60) {
  Canvas canvas(width, 1);
  prompt.Draw(canvas, 0);
  return canvas.LineText(0);
}

TEST(PromptTest, TakesTextUntilItIsEntered) {
  std::string entered = "nothing";
  Prompt prompt("Rows with:", "a", [&](const std::string& text) { entered = text; });
  for (const char* character : {"b", "\u00fc", "\u6f22"}) {
    EXPECT_TRUE(prompt.Take(CharacterKeyOf(character)));
  }
  EXPECT_EQ(PromptText(prompt), "Rows with: ab\u00fc\u6f22");
  // A character goes as a whole.
  EXPECT_TRUE(prompt.Take(PlainKey(KeyCode::kBackspace)));
  EXPECT_TRUE(prompt.Take(PlainKey(KeyCode::kBackspace)));
  EXPECT_EQ(PromptText(prompt), "Rows with: ab");
  EXPECT_TRUE(prompt.Take(PlainKey(KeyCode::kUp)));
  EXPECT_FALSE(prompt.Take(PlainKey(KeyCode::kEnter)));
  EXPECT_EQ(entered, "ab");
  EXPECT_TRUE(prompt.Take({KeyCode::kOther, "\x15", 0, 0}));
  EXPECT_EQ(PromptText(prompt), "Rows with:");
  EXPECT_TRUE(prompt.Take(PlainKey(KeyCode::kBackspace)));
  entered = "nothing";
  EXPECT_FALSE(prompt.Take(PlainKey(KeyCode::kEscape)));
  EXPECT_EQ(entered, "nothing");
}

TEST(PromptTest, ShowsAFaultUntilTheTextChanges) {
  Prompt prompt("Time:", "x\x1b[2J",
                [](const std::string& text) { throw UsageError("no time: " + text); });
  EXPECT_TRUE(prompt.Take(PlainKey(KeyCode::kEnter)));
  EXPECT_THAT(PromptText(prompt), HasSubstr("no time: x\\x1B[2J"));
  EXPECT_TRUE(prompt.Take(CharacterKeyOf("y")));
  EXPECT_THAT(PromptText(prompt), Not(HasSubstr("no time")));
}

TEST(PromptTest, TakesNoTextWithoutEnd) {
  std::string entered;
  Prompt prompt("?", "", [&](const std::string& text) { entered = text; });
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(prompt.Take(CharacterKeyOf("\u6f22")));
  }
  EXPECT_FALSE(prompt.Take(PlainKey(KeyCode::kEnter)));
  EXPECT_GE(entered.size(), 256U);
  EXPECT_LE(entered.size(), 258U);
  for (const std::size_t width : {1U, 2U, 3U, 20U}) {
    EXPECT_LE(TextWidth(PromptText(prompt, width)), width);
  }
}

/// A chooser of the fields of processes, with two of them chosen, and what it was asked for.
class ColumnChooserTest : public testing::Test {
 protected:
  bool Press(const Key& key) { return m_chooser.Take(key, {0, 6}); }
  std::string Drawn(std::size_t width = 60, std::size_t height = 6) {
    Canvas canvas(width, height);
    m_chooser.Draw(canvas, {0, height});
    return AllLines(canvas);
  }

  std::vector<std::string> m_done{"nothing"};
  ColumnChooser m_chooser{ProcessSchema(),
                          {"Program", "gone", "PID"},
                          [this](const std::vector<std::string>& labels) { m_done = labels; }};
};

TEST_F(ColumnChooserTest, ChoosesAndMoves) {
  EXPECT_THAT(Drawn(), HasSubstr("[x] Program\n[x] PID\n[ ] Record Time\n"));
  EXPECT_TRUE(Press(CharacterKeyOf("+")));
  EXPECT_THAT(Drawn(), HasSubstr("[x] PID\n[x] Program\n"));
  EXPECT_TRUE(Press(CharacterKeyOf(" ")));
  EXPECT_TRUE(Press(CharacterKeyOf(" ")));
  EXPECT_TRUE(Press(PlainKey(KeyCode::kHome)));
  // There is no place above the first.
  EXPECT_TRUE(Press(CharacterKeyOf("-")));
  EXPECT_TRUE(Press(PlainKey(KeyCode::kUp)));
  EXPECT_THAT(Drawn(), HasSubstr("[x] PID\n[ ] Program\n[x] Record Time\n"));
  EXPECT_FALSE(Press(PlainKey(KeyCode::kEnter)));
  EXPECT_THAT(m_done, ElementsAre("PID", "Record Time"));
}

TEST_F(ColumnChooserTest, GivesUpOrBeginsAnew) {
  EXPECT_FALSE(Press(PlainKey(KeyCode::kEscape)));
  EXPECT_FALSE(Press(CharacterKeyOf("q")));
  EXPECT_THAT(m_done, ElementsAre("nothing"));
  EXPECT_FALSE(Press(CharacterKeyOf("0")));
  EXPECT_THAT(m_done, IsEmpty());
}

TEST_F(ColumnChooserTest, KeepsTheCursorInSight) {
  for (const auto& [code, label] :
       {std::pair(KeyCode::kEnd, "Argument List"), std::pair(KeyCode::kPageUp, "CPU % Each"),
        std::pair(KeyCode::kHome, "Program"), std::pair(KeyCode::kPageDown, "Parent PID"),
        std::pair(KeyCode::kPageUp, "Program"), std::pair(KeyCode::kUp, "Program")}) {
    EXPECT_TRUE(Press(PlainKey(code)));
    Canvas canvas(60, 6);
    m_chooser.Draw(canvas, {0, 6});
    std::size_t line = 1;
    while (line < 6 && !HasTone(canvas, line, Tone::kSelected)) {
      ++line;
    }
    ASSERT_LT(line, 6U) << label;
    EXPECT_THAT(canvas.LineText(line), HasSubstr(label));
  }
  for (const std::size_t size : {0U, 1U, 2U, 5U}) {
    Drawn(size, size);
  }
}

TEST(HelpPageTest, ScrollsToItsEndAndClosesByAnyOtherKey) {
  HelpPage page;
  const auto lastLine = [&](std::size_t height) {
    Canvas canvas(80, height);
    page.Draw(canvas, {0, height});
    return canvas.LineText(height - 1);
  };
  EXPECT_THAT(lastLine(4), Not(HasSubstr("quit")));
  for (int i = 0; i < 40; ++i) {
    EXPECT_TRUE(page.Take(PlainKey(i % 2 == 0 ? KeyCode::kDown : KeyCode::kPageDown), {0, 4}));
  }
  EXPECT_THAT(lastLine(4), HasSubstr("quit"));
  for (int i = 0; i < 40; ++i) {
    EXPECT_TRUE(page.Take(PlainKey(KeyCode::kPageUp), {0, 4}));
  }
  EXPECT_THAT(lastLine(2), HasSubstr("Panes"));
  EXPECT_TRUE(page.Take(PlainKey(KeyCode::kResize), {0, 0}));
  EXPECT_FALSE(page.Take(CharacterKeyOf("x"), {0, 4}));
  EXPECT_FALSE(page.Take(PlainKey(KeyCode::kEscape), {0, 4}));
}

}  // namespace
