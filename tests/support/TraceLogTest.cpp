#include "support/TraceLog.h"

#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

class TraceLogTest : public testing::Test {
 protected:
  ~TraceLogTest() override { ScriptedNode::Reset(); }
  ScriptedNode& m_node = (ScriptedNode::Reset(), ScriptedNode::Instance());
};

/// Counts how often it is turned into text.
struct Watched {
  operator std::string() const {
    ++count;
    return "watched";
  }
  static inline int count = 0;
};

TEST_F(TraceLogTest, BelowItsLevelNothingIsFormatted) {
  Watched::count = 0;
  const Watched watched;
  g_msgLogLevel = 19;
  Trace(20, kInformation, "%1", watched);
  EXPECT_TRUE(m_node.lines.empty());
  EXPECT_EQ(Watched::count, 0);
  g_msgLogLevel = 20;
  Trace(20, kInformation, "%1", watched);
  ASSERT_EQ(m_node.lines.size(), 1U);
  EXPECT_EQ(m_node.lines[0].number, 0);
  EXPECT_EQ(m_node.lines[0].sourceFile, "TraceLogTest.cpp");
  EXPECT_EQ(Watched::count, 1);
}

TEST_F(TraceLogTest, PutsArgumentsInAsText) {
  g_msgLogLevel = 30;
  const char* null = nullptr;
  Trace(30, kWarning, "%5 %4 %3 %2 %1", null, "%s%n", std::string(300, 'x'), -1LL,
        Hex{0xFFFFFFFFFULL});
  ASSERT_EQ(m_node.lines.size(), 1U);
  EXPECT_EQ(m_node.lines[0].text, "0xfffffffff -1 " + std::string(254, 'x') + " %s%n ");
  Trace(30, kWarning, "%1 %2 %3", 18446744073709551615ULL, std::uint16_t{7}, 0.5);
  EXPECT_EQ(m_node.lines[1].text, "18446744073709551615 7 0.500000");
}

TEST_F(TraceLogTest, MessagesCarryTheirNumberLevelAndKind) {
  g_msgLogLevel = 0;
  Message(10103, "boom");
  Message(10300, "CPUP");
  MessageAt(204, 10203, "qmtapp");
  ASSERT_EQ(m_node.lines.size(), 1U);
  EXPECT_EQ(m_node.lines[0].text, "QMTX10103-E An exception occurred. (msg=boom)");

  g_msgLogLevel = 204;
  Message(10300, "CPUP");
  MessageAt(204, 10203, "qmtapp");
  ASSERT_EQ(m_node.lines.size(), 3U);
  EXPECT_EQ(m_node.lines[1].text,
            "QMTX10300-W An attempt to collect a record failed. (record=CPUP)");
  EXPECT_EQ(m_node.lines[1].level, 10);
  EXPECT_EQ(m_node.lines[1].kind, kWarning);
  EXPECT_EQ(m_node.lines[2].number, 10203);
  EXPECT_EQ(m_node.lines[2].level, 204);
}

TEST_F(TraceLogTest, EntryAndExitNameTheFunction) {
  g_msgLogLevel = 40;
  TraceEntry("Collector::collect", 3, "cpu");
  TraceExit("Collector::collect", -1);
  TraceExit("Collector::collect");
  ASSERT_EQ(m_node.lines.size(), 3U);
  EXPECT_EQ(m_node.lines[0].text,
            "Started the function (Collector::collect). (arg1=3, arg2=cpu, arg3=unused, "
            "arg4=unused).");
  EXPECT_EQ(m_node.lines[1].text, "Exited the function (Collector::collect). (rc=-1).");
  EXPECT_EQ(m_node.lines[2].text, "Exited the function (Collector::collect).");
}

}  // namespace
