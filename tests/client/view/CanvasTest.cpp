#include "client/view/Canvas.h"

#include "tests/client/view/ViewRows.h"
#include "tests/support/Testing.h"

namespace {

TEST(CanvasTest, PutsTextsAndCutsThemAtTheEdges) {
  const struct {
    std::size_t line, column;
    std::string text;
    std::size_t width;
    std::size_t behind;
    std::string lines;
  } cases[] = {
      {0, 0, "abc", std::string::npos, 3, "abc\n\n"},
      {1, 3, "abcdef", std::string::npos, 6, "\n   abc\n"},
      {0, 2, "abcdef", 2, 4, "  ab\n\n"},
      {0, 2, "abcdef", 0, 2, "\n\n"},
      // Behind the edges there is nothing to write on.
      {2, 0, "abc", std::string::npos, 0, "\n\n"},
      {0, 6, "abc", std::string::npos, 6, "\n\n"},
      {0, 99, "abc", 3, 99, "\n\n"},
      // A wide character takes two columns, and none is cut in half.
      {0, 0, "a\u6f22b", std::string::npos, 4, "a\u6f22b\n\n"},
      {0, 5, "\u6f22b", std::string::npos, 5, "\n\n"},
      {0, 0, "a\u6f22b", 2, 1, "a\n\n"},
      // What combines stays with the character before it, also at the edge.
      {0, 5, "e\u0301x", std::string::npos, 6, "     e\u0301\n\n"},
      {0, 0, "\u0301e", std::string::npos, 1, "e\n\n"},
  };
  for (const auto& row : cases) {
    Canvas canvas(6, 2);
    EXPECT_EQ(canvas.Put(row.line, row.column, row.text, Tone::kBold, row.width), row.behind)
        << row.text << " at " << row.column;
    EXPECT_EQ(AllLines(canvas), row.lines) << row.text << " at " << row.column;
  }
}

TEST(CanvasTest, KeepsThePlaceBehindAWideCharacterEmpty) {
  Canvas canvas(4, 1);
  canvas.Put(0, 1, "\u6f22", Tone::kBad);
  EXPECT_EQ(canvas.At(0, 1), (Canvas::Cell{"\u6f22", Tone::kBad}));
  EXPECT_EQ(canvas.At(0, 2), (Canvas::Cell{"", Tone::kBad}));
  EXPECT_EQ(canvas.At(0, 3), Canvas::Cell());
}

TEST(CanvasTest, PaintsWhatStandsThere) {
  Canvas canvas(4, 2);
  canvas.Put(0, 0, "abcd", Tone::kBold);
  canvas.Paint(0, 2, 99, Tone::kSelected);
  canvas.Paint(1, 1, 2, Tone::kBad);
  canvas.Paint(2, 0, 4, Tone::kSelected);
  canvas.Paint(1, 9, 4, Tone::kSelected);
  EXPECT_EQ(canvas.LineText(0), "abcd");
  EXPECT_EQ(canvas.At(0, 1).tone, Tone::kBold);
  EXPECT_EQ(canvas.At(0, 2).tone, Tone::kSelected);
  EXPECT_EQ(canvas.At(0, 3).tone, Tone::kSelected);
  for (const std::size_t column : {0U, 1U, 2U, 3U}) {
    const bool isPainted = column == 1 || column == 2;
    EXPECT_EQ(canvas.At(1, column).tone, isPainted ? Tone::kBad : Tone::kPlain) << column;
  }
}

TEST(CanvasTest, OfNoSizeTakesEverything) {
  for (const auto& [width, height] : {std::pair(0, 0), std::pair(0, 3), std::pair(3, 0)}) {
    Canvas canvas(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
    EXPECT_EQ(canvas.Put(0, 0, "\u6f22", Tone::kPlain), 0U);
    canvas.Paint(0, 0, 9, Tone::kBad);
    EXPECT_EQ(AllLines(canvas), std::string(static_cast<std::size_t>(height), '\n'));
  }
}

}  // namespace
