#include "agent/ConfigNames.h"
#include "tests/agent/ConfigFixture.h"

namespace {

using Texts = std::vector<std::string>;

bool g_isAccountingOn = false;
Texts g_acctCalls;

int FakeAcct(const char* file) {
  g_acctCalls.emplace_back(file == nullptr ? "<off>" : file);
  errno = EPERM;
  return g_isAccountingOn ? -1 : 0;
}

class ConfigOperationsTest : public ConfigFixture {
 protected:
  void SetUp() override {
    Os().acct = FakeAcct;
    g_acctCalls.clear();
  }
};

TEST_F(ConfigOperationsTest, AccountingIsStoppedOnlyWhereTheAgentHasUseOfIt) {
  const struct {
    bool isOn;
    const char* use;
    const char* reason;
    bool stops;
  } cases[] = {
      {true, "Y", "Accounting was enabled before Unix Agent startup.", false},
      {false, "N", "We never enabled accounting.", false},
      {false, "y", "We never enabled accounting.", false},
      {false, "Y", nullptr, true},
  };
  SetHostRoot("/host");
  for (const auto& row : cases) {
    SCOPED_TRACE(row.use);
    Ini(kUseAccountingLabel) = row.use;
    MakeAgent(0);
    ASSERT_EQ(0, Init());
    g_isAccountingOn = row.isOn;
    g_acctCalls.clear();
    EXPECT_EQ(row.isOn ? 1 : 0, m_agent->IsSystemAcctOn("/var/adm/pacct"));
    EXPECT_EQ(row.isOn ? Texts{"/host/var/adm/pacct"} : (Texts{"/host/var/adm/pacct", "<off>"}),
              g_acctCalls);
    Node().lines.clear();
    EXPECT_EQ(row.stops, m_agent->ShouldStopAccounting());
    ASSERT_EQ(row.reason == nullptr ? 1U : 2U, Node().lines.size());
    if (row.reason != nullptr) {
      EXPECT_EQ(row.reason, Node().lines[0].text);
    }
    EXPECT_EQ(row.stops ? "Accounting will be terminated." : "Accounting will not be terminated.",
              Node().lines.back().text);
  }
  EXPECT_EQ(0, m_agent->IsSystemAcctOn(nullptr));
}

TEST_F(ConfigOperationsTest, UserRecordOptionsComeFromTheirSubSections) {
  EXPECT_EQ(-1, m_agent->ExtractUserRecordOptions());
  ASSERT_EQ(0, Init());
  Node().ini[{"Interval Records", "UPI", "Flushtime"}] = std::string(100, '5');
  Node().ini[{"Interval Records", "UPIB", "Pipedir"}] = std::string(300, 'p');
  Node().ini[{"Detail Records", "UPD", "Pipeuser"}] = "root";
  Node().ini[{"Detail Records", "UPDB", "Pipegroup"}] = "sys";
  Node().ini[{"Detail Records", "UPDB", "Pipemode"}] = "0660";
  Node().ini[{"Detail Records", "UPI", "Pipemode"}] = "of another section";
  EXPECT_EQ(0, m_agent->ExtractUserRecordOptions());
  const std::array<std::pair<std::pair<const char*, const char*>, std::string>, 9> options{{
      {{"UPI", "Flushtime"}, std::string(79, '5')},
      {{"UPI", "Datamaxcount"}, "DATAMAXCOUNT"},
      {{"UPI", "Pipemode"}, "<none>"},
      {{"UPIB", "Flushtime"}, "FLUSHTIME"},
      {{"UPIB", "Pipedir"}, std::string(256, 'p')},
      {{"UPD", "Pipeuser"}, "root"},
      {{"UPD", "Pipegroup"}, "<none>"},
      {{"UPDB", "Pipegroup"}, "sys"},
      {{"UPDB", "Pipemode"}, "0660"},
  }};
  for (const auto& [key, value] : options) {
    EXPECT_EQ(value, Option(key.first, key.second)) << key.first << key.second;
  }
}

}  // namespace
