#include "collect/log/MessagesSource.h"
#include "support/ProductOptions.h"
#include "tests/agent/AgentOnHost.h"
#include "userdata/EventFile.h"

namespace {

class EventFilesTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    MessagesSourceUser::ResetState();
    m_host.CopyFrom(std::filesystem::path(QMT_TEST_DIR) / "fixtures/pi/first");
    m_host.Write("/var/log/app", "old\n");
    ProductOptions::Instance().Set("Agent", "DataDirectory", m_product.Path().c_str());
  }
  void TearDown() override {
    for (const char* name : {"FileName", "EventFile1", "EventFile2"}) {
      ProductOptions::Instance().Set("Messages", name, "");
    }
    AgentOnHost::TearDown();
  }
  static ScriptedNode& Node() { return ScriptedNode::Instance(); }
  static std::string Option(const std::string& name) {
    const char* value = ProductOptions::Instance().Get("Messages", name.c_str());
    return value == nullptr ? "<none>" : value;
  }
  void Define(const std::string& text) const { std::ofstream(m_product.Path() / "ev") << text; }
};

TEST_F(EventFilesTest, GoodEntriesAreStoredWithoutGaps) {
  m_agent = std::make_unique<UnixAgent>("/opt/qmtrx/mond/qmt_hostutil_", "test");
  EXPECT_EQ(m_agent->InitEventFile(), -1);
  StartAgent();
  EXPECT_EQ(m_agent->InitEventFile(), 0);
  EXPECT_EQ(Node().LinesWith("Failed to access the file or directory (Eventfile).").size(), 1U);
  EXPECT_EQ(m_agent->GetEventFilePath(), "");

  Node().ini[{"Log Records", "MESS", "Eventfile"}] = "ev";
  const std::string path = m_product.Path().string() + "/ev";
  EXPECT_EQ(m_agent->InitEventFile(), 0);
  EXPECT_EQ(Node().LinesWith("Failed to Initialize the file for reading (" + path + ").").size(),
            1U);
  EXPECT_EQ(m_agent->GetEventFilePath(), path);

  Define(
      "logfile = /var/log/app\nid = app\nregexp = a.*b\nregexp = c/i\n"
      "logfile = /var/log/none\n"
      "logfile = /var/log/app\nnonsense = 1\n"
      "logfile = /var/log/app\n");
  Node().lines.clear();
  g_msgLogLevel = 30;
  EXPECT_EQ(m_agent->InitEventFile(), 0);
  EXPECT_EQ(Option("EventFile1"), "/var/log/app*app*a.*b\tc/i");
  EXPECT_EQ(Option("EventFile2"), "/var/log/app**");
  EXPECT_EQ(Option("EventFile3"), "<none>");
  EXPECT_EQ(Node().LinesWith("Failed to access the file or directory(/var/log/none).").size(), 1U);
  EXPECT_EQ(Node().CountMessages(10203), 4);  // two entries, each with its copy
  EXPECT_EQ(Node().dataTrace.substr(0, Node().dataTrace.find("Regexp")),
            "Logfile = /var/log/app\nID = app\n");
  Define("logfile = /var/log/app\n");
  EXPECT_EQ(m_agent->InitEventFile(), 0);
  EXPECT_EQ(Option("EventFile2"), "");
}

TEST_F(EventFilesTest, TheStartNotesTheEndOfTheMessagesFile) {
  Node().ini[{"Agent", "", "Messages File"}] = "/var/log/app";
  StartAgent();
  m_host.Write("/var/log/app", "old\nnew\n");
  MessagesSourceUser source;
  std::vector<Messages> messages;
  ASSERT_EQ(source.readAll(nullptr, messages), nullptr);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_STREQ(messages[0].GetText(), "qmtdmon app: new");
}

}  // namespace
