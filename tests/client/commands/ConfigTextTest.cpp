#include "client/ask/SafeText.h"
#include "client/commands/ConfigText.h"
#include "client/show/TerminalCodes.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

std::vector<ConfigNode> SampleTree() {
  return ReadConfig(JsonOf(R"({"config": {"children": [
    {"kind": "folder", "label": "Applications", "help": "", "children": [
      {"kind": "folder", "label": "sh\u001b", "help": "", "children": [
        {"kind": "choice", "id": 1001, "label": "Kind", "help": "The kind.", "value": "Execute",
         "current": 1, "choices": ["None", "Execute", "Command Line"]},
        {"kind": "choice", "id": 9, "label": "Lost", "help": "", "value": "", "current": 2,
         "choices": []}]}]},
    {"kind": "folder", "label": "Agent", "help": "All else.", "children": [
      {"kind": "text", "id": 4, "label": "File", "help": "", "value": ""},
      {"kind": "text", "id": 15, "label": "Count", "help": "A count that takes some words.",
       "value": "a  b"}]}]}})"));
}

TEST(ConfigText, ShowsTheTreeByIndentation) {
  EXPECT_EQ(ConfigText(SampleTree(), Screen{}),
            "Applications\n"
            "  sh\\x1B\n"
            "     1001  Kind: None, [Execute], Command Line\n"
            "             The kind.\n"
            "        9  Lost: (index 2, which has no text)\n"
            "\n"
            "Agent\n"
            "  All else.\n"
            "      4  File: (empty)\n"
            "     15  Count: a  b\n"
            "           A count that takes some words.\n");
  EXPECT_EQ(ConfigText({}, Screen{}), "");
}

TEST(ConfigText, WrapsToTheWidth) {
  Screen screen;
  screen.width = 28;
  EXPECT_NE(ConfigText(SampleTree(), screen)
                .find("     1001  Kind: None,\n"
                      "           [Execute],\n"
                      "           Command Line\n"),
            std::string::npos)
      << ConfigText(SampleTree(), screen);
  screen.color = true;
  const TerminalCodes& codes = OutputCodes();
  EXPECT_NE(
      ConfigText(SampleTree(), screen)
          .find(codes.dim + "count" + codes.plain + " " + codes.dim + "that" + codes.plain + "\n"),
      std::string::npos)
      << ConfigText(SampleTree(), screen);

  // However long and deep, no line is wider than the screen and nothing is lost.
  screen.color = false;
  std::vector<ConfigNode> tree(1);
  tree[0].kind = ConfigNode::Kind::kText;
  tree[0].label = std::string(100, 'x') + " " + std::string(30, 'y');
  tree[0].id = 65535;
  for (int i = 0; i < 300; ++i) {
    tree[0].value += "\xe6\xbc\xa2";  // two columns each
  }
  tree[0].help = std::string(200, 'z');
  for (int depth = 0; depth < 40; ++depth) {
    std::vector<ConfigNode> outer(1);
    outer[0].label = "folder";
    outer[0].children = std::move(tree);
    tree = std::move(outer);
  }
  for (const std::size_t width : {0U, 80U, 21U, 1U}) {
    screen.width = width;
    const std::string text = ConfigText(tree, screen);
    const std::size_t limit = width == 0 ? 1U << 20 : std::max<std::size_t>(width, 20);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(TextWidth(line), limit) << line;
    }
    EXPECT_EQ(std::count(text.begin(), text.end(), 'z'), 200);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\xe6'), 300);
    EXPECT_NE(text.find(" 65535  xxx"), std::string::npos);
  }
}

}  // namespace
