#include <sys/sysmacros.h>

#include "collect/device/DeviceMap.h"
#include "collect/process/NameCache.h"
#include "records/RecordClasses.h"
#include "support/HostProfile.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/scripted/Golden.h"

namespace {

const std::filesystem::path kProcessHost =
    std::filesystem::path(QMT_TEST_DIR) / "fixtures/modern-processes";

/// Four users, whose names and numbers groups have too.
const char* NameOfIdentity(unsigned identity) {
  switch (identity) {
    case 0:
      return "root";
    case 33:
      return "www-data";
    case 1000:
      return "anna";
    case 1001:
      return "bert";
    default:
      return nullptr;
  }
}

template <class Entry>
Entry* EntryOf(unsigned identity, char* Entry::*nameField) {
  static std::string name;
  static Entry entry{};
  const char* const known = NameOfIdentity(identity);
  name = known == nullptr ? "" : known;
  entry.*nameField = name.data();
  return known == nullptr ? nullptr : &entry;
}

/// The agent of the profile `modern` at two samples of a host of kernel 6.18, ten seconds apart;
/// in between the host's clock is set, a process ends and a number is used again.
class ModernProcessRecordsTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    Os().getpagesize = [] { return 4096; };
    Os().getpwuid = [](uid_t uid) { return EntryOf(uid, &passwd::pw_name); };
    Os().getgrgid = [](gid_t gid) { return EntryOf(gid, &group::gr_name); };
    Os().stat = [](const char* path, struct ::stat* status) {
      const int result = ::stat(path, status);
      if (result == 0 && std::string_view(path).ends_with("/dev/pts/0")) {
        status->st_mode = S_IFCHR | 0620;
        status->st_rdev = ::makedev(136, 0);
      }
      return result;
    };
    Forget();
    m_host.CopyFrom(kProcessHost / "first");
    s_now = 1'700'000'000;
    StartAgent();
    g_hostProfile = HostProfile::kModern;
  }
  void TearDown() override {
    Forget();
    AgentOnHost::TearDown();
  }
  static void Forget() {
    ClearUserNames();
    ClearGroupNames();
    DeviceMap::Instance().clear();
  }
  void TakeSecondSample() const {
    m_host.CopyFrom(kProcessHost / "second");
    m_host.Remove("/proc/520");
    s_now = 1'700'000'010;
  }
  /// The rows of an answer by number: a folder's files come in any order.
  template <class Row>
  static std::vector<Row> Sorted(const Asker& asker) {
    std::vector<Row> rows = asker.Rows<Row>();
    std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.pid < b.pid; });
    return rows;
  }
  template <class Row>
  static void ExpectTable(const std::vector<Row>& rows, const char* table) {
    ExpectGolden(rows.data(), rows.size() * sizeof(Row), kProcessHost / table);
  }
};

TEST_F(ModernProcessRecordsTest, TwoScheduledSamplesAreTheRowsWorkedOutByHand) {
  Batch batch;
  for (const char* record : {"PD", "PDI", "PDS"}) {
    batch.Add(record, '3', {.realtime = 0, .calcRates = 1});
  }
  const Asker& summary = *batch.entries[2];
  ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
  std::vector<recordPD_PDS> summaries = summary.Rows<recordPD_PDS>();
  TakeSecondSample();
  Answer(batch);
  ExpectTable(Sorted<recordPD>(*batch.entries[0]), "PD.tsv");
  ExpectTable(Sorted<recordPD_PDI>(*batch.entries[1]), "PDI.tsv");
  summaries.push_back(summary.Rows<recordPD_PDS>().at(0));
  ExpectTable(summaries, "PDS.tsv");
  EXPECT_TRUE(ScriptedNode::Instance().LinesWith("lacks an entry").empty());
}

TEST_F(ModernProcessRecordsTest, AProcessThatGoesToAnotherFolderIsActive) {
  Batch batch;
  batch.Add("PDS", '3', {.realtime = 0, .calcRates = 1});
  const auto active = [&] {
    const auto row = Look<recordPD_PDS>(batch);
    return row.activeUserProcesses + row.activeSystemProcesses;
  };
  active();
  EXPECT_EQ(active(), 0U);
  for (const char* path : {"/dev", "/not/to/be/looked/at", "/nor/this"}) {
    m_host.Remove("/proc/310/cwd");
    m_host.Link("/proc/310/cwd", path);
    EXPECT_EQ(active(), 1U) << path;
    EXPECT_EQ(active(), 0U) << path;
  }
}

}  // namespace
