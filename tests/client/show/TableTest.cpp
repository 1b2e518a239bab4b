#include "client/show/Table.h"
#include "client/show/TerminalCodes.h"

#include "client/ask/SafeText.h"
#include "tests/support/Testing.h"

namespace {

Screen Wide(std::size_t width) {
  Screen screen;
  screen.width = width;
  return screen;
}

Table SampleTable() {
  Table table({"Name", "Load", "Kind", "State"}, {true, false, false, false});
  table.AddRow({{"cpu0"}, {"1.5", true}, {"big"}, {"on"}});
  table.AddRow({{"c1"}, {"-"}, {"little"}, {"off"}});
  table.AddRow({{"c2"}, {"12.0", true}, {"big"}, {"on"}});
  return table;
}

TEST(Table, AlignsColumnsAndPutsNumbersToTheRight) {
  EXPECT_EQ(SampleTable().Text(Screen{}),
            "Name  Load  Kind    State\n"
            "cpu0   1.5  big     on\n"
            "c1       -  little  off\n"
            "c2    12.0  big     on\n");
}

TEST(Table, GoesOnBelowWithItsKeysOnANarrowScreen) {
  EXPECT_EQ(SampleTable().Text(Wide(25)), SampleTable().Text(Screen{}));
  EXPECT_EQ(SampleTable().Text(Wide(18)),
            "Name  Load  Kind\n"
            "cpu0   1.5  big\n"
            "c1       -  little\n"
            "c2    12.0  big\n"
            "\n"
            "Name  State\n"
            "cpu0  on\n"
            "c1    off\n"
            "c2    on\n");
  // Keys that would fill most of the screen are not repeated, and every column comes once at least.
  const std::string tiny = SampleTable().Text(Wide(3));
  EXPECT_EQ(tiny.find("Name"), tiny.rfind("Name"));
  EXPECT_NE(tiny.find("\n\nState\non\n"), std::string::npos);
}

TEST(Table, ListsASingleRowThatIsTooWide) {
  Table table({"Name", "Processes"});
  table.AddRow({{"host"}, {"12", true}});
  EXPECT_EQ(table.Text(Wide(15)), "Name  Processes\nhost         12\n");
  EXPECT_EQ(table.Text(Wide(14)), "Name       host\nProcesses  12\n");
}

TEST(Terminal, WritesOutWhatCouldSteerATerminal) {
  const struct {
    std::string text;
    std::string safe;
    std::size_t width;
  } cases[] = {
      {"plain \\ text", "plain \\ text", 12},
      {"a\x1b[31m\n\t\x7f", "a\\x1B[31m\\x0A\\x09\\x7F", 21},
      {"\xc2\x9b", "\\u{009B}", 8},
      {"\xe2\x80\xae", "\\u{202E}", 8},
      {"caf\xc3\xa9 \xe6\xbc\xa2", "caf\xc3\xa9 \xe6\xbc\xa2", 7},
      {"\xff\xc0\xaf", "\\xFF\\xC0\\xAF", 12},
      {"\xed\xa0\x80", "\\xED\\xA0\\x80", 12},
      {"cut \xe6\xbc", "cut \\xE6\\xBC", 12},
  };
  for (const auto& [text, safe, width] : cases) {
    EXPECT_EQ(SafeText(text), safe);
    EXPECT_EQ(TextWidth(safe), width) << safe;
  }
}

TEST(Terminal, AFrameStaysOnTheScreen) {
  const TerminalCodes& codes = OutputCodes();
  Screen screen = Wide(4);
  screen.height = 2;
  EXPECT_EQ(Frame("abcdef\nxy\n", screen), codes.clear + "abcd\nxy");
  EXPECT_EQ(Frame("a\nb\nc\n", screen), codes.clear + "a\n...");
  screen.color = true;
  EXPECT_EQ(Frame(codes.bold + "abcdef" + codes.plain + "\n", screen),
            codes.clear + codes.bold + "abcd" + codes.plain);
}

TEST(Terminal, TheCodesAreThoseOfItsKind) {
  const TerminalCodes xterm = CodesOfTerminal("xterm");
  EXPECT_EQ(xterm.bold, "\x1b[1m");
  EXPECT_EQ(xterm.clear, "\x1b[H\x1b[J");
  EXPECT_FALSE(xterm.plain.empty());
  EXPECT_EQ(CodesOfTerminal("dumb").bold, "");
  EXPECT_TRUE(IsKnownTerminal("xterm"));
  EXPECT_FALSE(IsKnownTerminal(nullptr));
  for (const char* unknown : {"no-such-kind", "", "../../etc/passwd"}) {
    EXPECT_EQ(CodesOfTerminal(unknown).bold, "\x1b[1m") << unknown;
    EXPECT_FALSE(IsKnownTerminal(unknown)) << unknown;
  }
}

}  // namespace
