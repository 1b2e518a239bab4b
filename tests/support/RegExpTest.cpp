#include "support/RegExp.h"

#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

TEST(RegExp, MatchesAsGivenAndReportsEachFailedCompilation) {
  struct Case {
    std::string pattern;
    const char* text;
    bool matches;
    int reports;  ///< of construction and two matches
  };
  const std::string manyAs(100'000, 'a');
  const std::string as(256, 'a');
  const std::string endsInZ = manyAs + "1z";
  const std::string digits(2500, '1');
  for (const Case& c : std::initializer_list<Case>{
           {"^ab+$", "abb", true, 0},
           {"^ab+$", "ABB", false, 0},
           {"^ab+$/i", "ABB", true, 0},
           {"b", "abc", true, 0},
           {"/i", "x", true, 0},
           {"", "x", true, 0},
           {"nothing", "^", true, 0},
           {"(a+)\\1$", "aaaa", true, 0},
           // Without a bound it would take hours.
           {"(a*)\\1b", manyAs.c_str(), false, 0},
           // "$" is the end of the text and not that of the part which such an expression sees.
           {"(a)\\1$", as.c_str(), true, 0},
           {"(a)\\1$", manyAs.c_str(), false, 0},
           {"[\\1]z", endsInZ.c_str(), true, 0},  // no back reference
           {"[0-9]{2500}", digits.c_str(), true, 0},
           {"^(x|[0-9]{2500},)$/i", "X", true, 0},
           {"([0-9]{2500})+", digits.c_str(), false, 3},
           {"[0-9]{1,2500}", digits.c_str(), false, 3},
           {Repeated("a{30000}", 2), "a", false, 3},
           {"[a", "^", true, 1},
           {"[a", "a", false, 3},
           {"*a(", "*a(", true, 1},  // a basic expression; "(" and the leading "*" are plain there
           {"*a(/i", "*A(", false, 1},
           {"a{200}b{2,}", "ab", false, 0},
           {".{1,1500}", "ab", true, 0},
           {"(a{1,100}){1,100}", "a", false, 3},
           {"x([[:alpha:]]{1,32}){66}", "x", false, 3},
           {"((a{200}[[:alpha:])][[:alpha:])]){200}){200}", "x", false, 3},
           {Repeated("(", 30) + "a" + Repeated("+)", 30), "a", false, 3},
           {".*" + Repeated("+", 10), "a", false, 3},  // what may be empty costs the square
           {Repeated("(", 8) + "a{0,3}" + Repeated(")+", 8), "a", false, 3},
           {Repeated("(", 8) + "(|a)" + Repeated(")+", 8), "a", false, 3},
           {"(((){10,}){10,}){10,}", "a", false, 3},
           // Each way from one anchor to another is written out: nobody saw the end of compiling
           // these two.
           {"(\\b\\b){400,}", "a", false, 3},
           {Repeated("(", 6) + "^" + Repeated(")+", 6), "a", false, 3},
           {"(\\bword\\b ?)+$", "word word", true, 0},
           {"(^|,)x(,|$)", "a,x", true, 0},
           {"((a*b?)+c{2,})+", "acc", true, 0},
           {Repeated("ab?c*|", 300) + "x", "x", true, 0}}) {
    ScriptedNode::Reset();
    g_msgLogLevel = 10;
    const RegExp expression(c.pattern.c_str());
    EXPECT_EQ(c.pattern, expression.Pattern());
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(c.matches ? 1 : 0, expression.match(c.text)) << c.pattern;
    }
    EXPECT_EQ(c.reports, ScriptedNode::Instance().CountMessages(10100)) << c.pattern;
    EXPECT_EQ(c.reports != 0, !expression.CompileError().empty()) << c.pattern;
  }
}

TEST(RegExp, TheEndOfACutTextIsNoEnd) {
  const RegExp expression("a$");
  EXPECT_EQ(expression.match("ba") + expression.match("ba", true), 1);
}

TEST(RegExp, TellsWhatFailed) {
  ScriptedNode::Reset();
  g_msgLogLevel = 10;
  const RegExp first("[a/i");
  const RegExp copy(first);
  EXPECT_EQ("[a/i", copy.Pattern());
  EXPECT_EQ(copy.Failure(), nullptr);
  EXPECT_EQ(copy.match("a"), 0);
  ASSERT_NE(copy.Failure(), nullptr);
  EXPECT_EQ(0U, std::string(copy.Failure()->GetMessage()).find("Unable to compile regex [a ("));
  const std::vector<LoggedLine> lines = ScriptedNode::Instance().LinesWith("QMTX10100-E");
  ASSERT_EQ(3U, lines.size());  // two constructions and a match
  EXPECT_NE(std::string::npos, lines[0].text.find("(regcomp). (en=7, arg1=0x")) << lines[0].text;
  EXPECT_NE(std::string::npos, lines[0].text.find("arg2=[a, arg3=0)")) << lines[0].text;
}

}  // namespace
