#include "support/UtlDebug.h"

#include "support/TraceLog.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

class UtlDebugTest : public testing::Test {
 protected:
  UtlDebugTest() { g_msgLogLevel = 40; }
  ~UtlDebugTest() override { ScriptedNode::Reset(); }
  ScriptedNode& m_node = (ScriptedNode::Reset(), ScriptedNode::Instance());
};

TEST_F(UtlDebugTest, IsOnFromLevel40) {
  g_msgDataLevel = 39;
  EXPECT_FALSE(UtlDebug::IsDumpEnabled());
  g_msgDataLevel = 40;
  EXPECT_TRUE(UtlDebug::IsDumpEnabled());
}

TEST_F(UtlDebugTest, WritesEachTypeAndPartsByCommas) {
  UtlDebug debug;
  debug.Flush();
  EXPECT_EQ(m_node.dataTrace, "");
  debug.Append("CPUP");
  debug.Append("");
  debug.Append(std::int32_t{-1});
  debug.Append(std::uint32_t{4294967295U});
  debug.Append(std::uint16_t{65535});
  debug.Append(0.5F);
  debug.Append(2.25);
  debug.Append(tagUTIME{7, 50});
  debug.Flush();
  debug.Append("next");
  debug.Flush();
  EXPECT_EQ(m_node.dataTrace, "CPUP,,-1,4294967295,65535,0.500000,2.250000,7.000050\nnext\n");
}

TEST_F(UtlDebugTest, DropsALineOf4096CharactersWithOneWarning) {
  UtlDebug debug;
  debug.Append(std::string(4095, 'x'));
  debug.Flush();
  EXPECT_EQ(m_node.dataTrace.size(), 4096U);
  EXPECT_TRUE(m_node.lines.empty());

  m_node.dataTrace.clear();
  debug.Append(std::string(9000, 'x'));
  debug.Append("more");
  debug.Flush();
  debug.Append(std::string(4000, 'x'));
  debug.Append(std::string(95, 'x'));
  debug.Flush();
  EXPECT_EQ(m_node.dataTrace, "");
  const auto lines = m_node.LinesWith("Debug message exceed the 4096 bytes.");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].level, 30);
  EXPECT_EQ(lines[0].kind, kWarning);
}

TEST_F(UtlDebugTest, SendsTheRestUntilTheTraceGivesUp) {
  m_node.acceptData = [](int length) { return std::min(length, 3); };
  UtlDebug::PrintData("abcdefgh", 8);
  EXPECT_EQ(m_node.dataTrace, "abcdefgh");

  m_node.acceptData = [](int) { return 0; };
  UtlDebug::PrintData("abc", 3);
  EXPECT_EQ(m_node.LinesWith("MBDebugPrintData failed. Zero Bytes written").size(), 1U);

  g_msgLogLevel = 0;
  m_node.acceptData = [](int) { return -5; };
  UtlDebug::PrintData("abc", 3);
  const auto lines = m_node.LinesWith("QMTX10101-E");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].text.find("(MBDebugPrintDat). (rc=-5,"), std::string::npos);
  EXPECT_EQ(lines[0].level, 1);
}

}  // namespace
