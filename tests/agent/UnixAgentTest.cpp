#include "agent/UnixAgent.h"

#include <new>

#include "support/HostPaths.h"
#include "support/Switches.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/Figures.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

class UnixAgentTest : public ::testing::Test {
 protected:
  UnixAgentTest() {
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    fs::create_directories("opt/qmtrx/mond");
    SetProductRoot(m_root.Path().string());
    m_agent = std::make_unique<UnixAgent>("/opt/qmtrx/mond/qmt_hostutil_", "test");
  }
  ~UnixAgentTest() override {
    m_agent.reset();
    SetProductRoot("");
  }

  /// A helper that comes and goes: from then on its pipe reads as ended.
  void LoseHelper() {
    const int writer = ::open("opt/qmtrx/mond/qmt_hostutil_.pipeOut", O_WRONLY | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    ::close(writer);
  }
  static ScriptedNode& Node() { return ScriptedNode::Instance(); }

  TempFolder m_root{TempFolder::kEnter};
  std::unique_ptr<UnixAgent> m_agent;
};

TEST_F(UnixAgentTest, ASingleRequestIsRefusedAndYieldsNoRecord) {
  Asker asker("CPUP", '4', {});
  EXPECT_EQ(68, m_agent->Dispatch(&asker.event));
  EXPECT_TRUE(asker.event.m_records.empty());
  ASSERT_EQ(1U, Node().LinesWith("Illegal event received.").size());
  EXPECT_EQ(2, Node().lines.back().kind);
}

TEST_F(UnixAgentTest, ADescriptorThatIsNotTheHelpersIsLeftAlone) {
  ASSERT_EQ(1, m_agent->InitConnection());
  LoseHelper();
  CMBSocketEvent other(m_agent->GetSocket()->GetListenFd() + 100);
  EXPECT_EQ(0, m_agent->Dispatch(&other));
  EXPECT_TRUE(Node().lines.empty());
}

TEST_F(UnixAgentTest, APieceOfAnAnswerIsDroppedAndNothingToReadIsNoLoss) {
  ASSERT_EQ(1, m_agent->InitConnection());
  const int listen = m_agent->GetSocket()->GetListenFd();
  const int helper = ::open("opt/qmtrx/mond/qmt_hostutil_.pipeOut", O_WRONLY | O_NONBLOCK);
  ASSERT_GE(helper, 0);
  CMBSocketEvent event(listen);
  EXPECT_EQ(0, m_agent->Dispatch(&event));
  EXPECT_TRUE(Node().lines.empty());
  const std::string piece(100, 'p');
  ASSERT_EQ(100, ::write(helper, piece.data(), piece.size()));
  EXPECT_EQ(-1, m_agent->Dispatch(&event));
  ASSERT_EQ(1U, Node().lines.size());
  EXPECT_EQ(0U, Node().lines[0].text.find("Agent cannot handle hostname response: "));
  EXPECT_EQ(listen, m_agent->GetSocket()->GetListenFd());
  ::close(helper);
}

TEST_F(UnixAgentTest, ALostHelpersPipesAreMadeAnew) {
  ASSERT_EQ(1, m_agent->InitConnection());
  LoseHelper();
  CMBSocketEvent lost(m_agent->GetSocket()->GetListenFd());
  EXPECT_EQ(-1, m_agent->Dispatch(&lost));
  ASSERT_EQ(3U, Node().lines.size());
  EXPECT_EQ("QMTX10100-E An error occurred in an OS API (read). (en=0, arg1=0, arg2=, arg3=)",
            Node().lines[0].text);
  EXPECT_NE(std::string::npos, Node().lines[1].text.find("(exec)")) << "no helper stands here";
  EXPECT_EQ(
      "Agent cannot handle hostname response: The received response does not match any request.",
      Node().lines[2].text);
  EXPECT_EQ(std::vector<int>{m_agent->GetSocket()->GetListenFd()}, Node().watched);
  LoseHelper();  // The new pipe has a reader.
}

TEST_F(UnixAgentTest, NobodyElseMayTakeAnswersOutOfTheHelpersPipes) {
  const mode_t mask = ::umask(0);
  ASSERT_EQ(1, m_agent->InitConnection());
  EXPECT_EQ(0U, ::umask(mask)) << "what is made later has other rights";
  for (const char* pipe : {"qmt_hostutil_.pipe", "qmt_hostutil_.pipeOut"}) {
    struct stat status {};
    ASSERT_EQ(0, ::stat((std::string("opt/qmtrx/mond/") + pipe).c_str(), &status)) << pipe;
    EXPECT_EQ(static_cast<mode_t>(S_IFIFO | 0600), status.st_mode) << pipe;
  }
}

TEST_F(UnixAgentTest, PipesThatCannotBeMadeAnewLoseTheHelperAndNothingElse) {
  ASSERT_EQ(1, m_agent->InitConnection());
  LoseHelper();
  CMBSocketEvent lost(m_agent->GetSocket()->GetListenFd());
  fs::remove_all("opt");
  EXPECT_EQ(-1, m_agent->Dispatch(&lost));
  EXPECT_EQ("Host name resolution process no longer active.", Node().lines.back().text);
  const std::string reason = "(" + m_root.Path().string() +
                             "/opt/qmtrx/mond/qmt_hostutil_.pipe) can't be made: mkfifo: Talk No "
                             "such file or directory.";
  const auto told = Node().LinesWith(reason);
  ASSERT_EQ(1U, told.size());
  EXPECT_EQ(10, told[0].level);
  EXPECT_TRUE(Node().watched.empty());
  EXPECT_EQ(0, m_agent->Dispatch(&lost)) << "the descriptor is nobody's now";
}

using AgentWithoutMemoryTest = AgentOnHost;

TEST_F(AgentWithoutMemoryTest, ABatchFailsAndLeavesTheNextOneNothing) {
  s_now = 1'700'000'000;
  m_host.CopyFrom(QMT_TEST_DIR "/fixtures/6.1");
  StartAgent();
  const auto time = Os().time;
  Batch failed;
  failed.Add("CPUP", '4', {.realtime = 1, .calcRates = 0});
  Os().time = [](std::time_t*) -> std::time_t { throw std::bad_alloc(); };
  EXPECT_EQ(m_agent->NotifyEvent(&failed.event), 63);
  Os().time = time;
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Unable to build records to satisfy event.").size(),
            1U);
  Batch next;
  next.Add("CPUP", '4', {.realtime = 1, .calcRates = 0});
  EXPECT_EQ(m_agent->NotifyEvent(&next.event), 0);
  EXPECT_FALSE(next.entries[0]->event.m_records.empty());
  EXPECT_TRUE(failed.entries[0]->event.m_records.empty());
}

TEST_F(UnixAgentTest, TheKernelVariantIsAFigure) {
  for (const int variant : {1, 3}) {
    g_kernelVariant = variant;
    EXPECT_EQ(FigureOf("kernel_variant"), variant);
  }
}

}  // namespace
