#include "client/report/Renderers.h"

#include "client/ask/Errors.h"
#include "client/report/PageParts.h"
#include "client/report/Points.h"
#include "json/JsonText.h"
#include "tests/support/Testing.h"

namespace {

const std::string kHostile = "</script><img src=x onerror=\"alert('1')\">|`*\n\x1b[31m&";

Summary HostileSummary() {
  SummaryPart part{"Part " + kHostile,
                   {"Note " + kHostile},
                   {{"Table " + kHostile, {"Name"}, {{{kHostile, false}}, {{"12", true}}}}},
                   {{"Chart", "percent", false, 100, {{"PI", "CPU %", kHostile, {}, {}, 2}}}}};
  Summary summary{"Host " + kHostile, {"Fact " + kHostile}, 1000, 2000, {part}, {}};
  summary.answers.push_back({{"record", "PI"}, {"answer", kHostile}});
  return summary;
}

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST(ReportRenderersTest, AHostsTextsBecomeNoMarkupOfAPage) {
  const std::string page = SummaryHtml(HostileSummary());
  EXPECT_EQ(CountOf(page, "<img"), 0U);
  EXPECT_EQ(CountOf(page, "</script"), 2U) << "the figures and the script end, and nothing else";
  EXPECT_EQ(CountOf(page, "\x1b"), 0U);
  EXPECT_NE(page.find("<td>&lt;/script&gt;&lt;img src=x onerror=&quot;alert(&#39;1&#39;)&quot;&gt;"
                      "|`*\\x0A\\x1B[31m&amp;</td>"),
            std::string::npos)
      << page.substr(page.find("<body>"), 2000);
  EXPECT_NE(page.find("<td class=\"number\">12</td>"), std::string::npos);
}

TEST(ReportRenderersTest, APageAllowsItsOwnScriptAlone) {
  const std::string page = SummaryHtml(HostileSummary());
  const PageParts& parts = ReportPageParts();
  EXPECT_NE(page.find("content=\"default-src 'none'; base-uri 'none'; form-action 'none'; "
                      "script-src '" +
                      std::string(parts.scriptHash) + "'; style-src '" +
                      std::string(parts.styleHash) + "'\""),
            std::string::npos);
  EXPECT_EQ(CountOf(page, "<script>" + std::string(parts.script) + "</script>"), 1U);
  EXPECT_EQ(CountOf(page, "<style>" + std::string(parts.style) + "</style>"), 1U);
}

TEST(ReportRenderersTest, FiguresInAPageReadBackAsTheyWere) {
  const std::string text = ScriptJson({{"a<b", kHostile}, {"n", 1.5}});
  EXPECT_EQ(text.find_first_of("<>&"), std::string::npos);
  const ParsedJson parsed = ParseJson(text);
  ASSERT_EQ(parsed.fault, JsonFault::kNone) << parsed.words;
  EXPECT_EQ(parsed.value["a<b"].Text(), kHostile);
}

TEST(ReportRenderersTest, PlacesOfMarkdownAreOneLineWithoutMarks) {
  const struct {
    const char* text;
    const char* cell;
  } cases[] = {
      {"sda1", "sda1"},
      {"a|b", "a\\|b"},
      {"`x` *y* <b>", "\\`x\\` \\*y\\* \\<b\\>"},
      {"two\nlines", "two\\\\x0Alines"},
      {"[a](b)", "\\[a\\]\\(b\\)"},
      {"a\\|b", "a\\\\\\|b"},
      {"http://x", "http\\://x"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(MarkdownCell(row.text), row.cell);
  }
  const std::string text = SummaryMarkdown(HostileSummary());
  EXPECT_EQ(CountOf(text, "\n| "), 4U) << "a heading, its rule and two rows\n" << text;
  EXPECT_EQ(CountOf(text, "<img") - CountOf(text, "\\<img"), 0U);
}

TEST(ReportRenderersTest, TextsForATerminalAreSafe) {
  const std::string text = SummaryText(HostileSummary(), Screen{});
  EXPECT_EQ(text.find('\x1b'), std::string::npos);
  EXPECT_NE(text.find("Host </script>"), std::string::npos);
  EXPECT_NE(text.find("\\x0A\\x1B[31m&"), std::string::npos);
}

TEST(ReportPointsTest, AnswersAreReadAndOthersAreRefused) {
  const auto read = [](const std::string& series) {
    return ReadPoints(
        ParseJson(R"({"history": {"seconds": 10, "omitted": 3, "series": [)" + series + "]}}")
            .value);
  };
  const PointsAnswer answer =
      read(R"({"key": {"Disk": "a b", "N": 7}, "points": {"X": [[100, 1, 2, 3.5]]}})");
  EXPECT_EQ(answer.seconds, 10);
  EXPECT_EQ(answer.omitted, 3U);
  ASSERT_EQ(answer.series.size(), 1U);
  EXPECT_EQ(answer.series[0].key, "a b 7");
  EXPECT_TRUE(answer.series[0].Of("Y").empty());
  ASSERT_EQ(answer.series[0].Of("X").size(), 1U);
  EXPECT_EQ(answer.series[0].Of("X")[0].greatest, 3.5);
  for (const char* bad :
       {R"({"key": {}, "points": {"X": [[100, 1, 2]]}})",
        R"({"key": {}, "points": {"X": [["a", 1, 2, 3]]}})",
        R"({"key": {}, "points": {"X": [[100, 1, null, 3]]}})",
        R"({"key": {}, "points": {"X": 5}})", R"({"key": 1, "points": {}})", R"(5)"}) {
    EXPECT_THROW(static_cast<void>(read(bad)), ClientError) << bad;
  }
}

}  // namespace
