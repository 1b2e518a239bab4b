#include "collect/accounting/AcctSourceLINUX.h"

#include "collect/AccountingCount.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "tests/scripted/ProcessTree.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kFile = "/var/pacct";

/// A record of the accounting file; the compressed times and sizes all hold `packed`.
std::string Record(const std::string& comm, std::uint32_t begin, std::uint16_t packed) {
  std::string bytes(64, '\0');
  const std::uint16_t ids[] = {1000, 100, 0x8803};
  std::memcpy(bytes.data() + 2, ids, sizeof ids);
  std::memcpy(bytes.data() + 8, &begin, sizeof begin);
  for (std::size_t at = 12; at < 24; at += 2) {
    std::memcpy(bytes.data() + at, &packed, sizeof packed);
  }
  comm.copy(bytes.data() + 36, 17);
  return bytes;
}

/// The same with figures of six different values: 1, 2, 3, ...
std::string RecordOfFigures() {
  std::string bytes = Record("six", 1, 0);
  for (std::uint16_t figure = 1; figure <= 6; ++figure) {
    std::memcpy(bytes.data() + 10 + figure * 2, &figure, sizeof figure);
  }
  return bytes;
}

class AcctSourceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    m_realCalls = Os();
    s_switches.clear();
    s_error = 0;
    Os().acct = [](const char* file) {
      s_switches += file == nullptr ? "off " : "on ";
      errno = s_error;
      return s_error == 0 ? 0 : -1;
    };
    AcctSourceUser::ResetState();
    SetOptions("", "", "");
    std::filesystem::create_directories(m_host.Path("/var"));
  }
  void TearDown() override {
    Os() = m_realCalls;
    AcctSourceUser::ResetState();
  }
  static void SetOptions(const char* use, const char* update, const char* truncate) {
    ProductOptions& options = ProductOptions::Instance();
    options.Set("Acct", "FileName", kFile);
    options.Set("Acct", "UseAcct", use);
    options.Set("Acct", "UpdatePtr", update);
    options.Set("Acct", "Truncate", truncate);
    options.Set("Acct", "Size", "128");
  }
  /// The names of one run's rows, parted by blanks, or the run's error.
  std::string Run() {
    AcctSourceUser source;
    const UtlErrorPtr error(source.readAll(nullptr, m_rows));
    std::string names = error == nullptr ? "" : error->GetMessage();
    for (const Acct& row : m_rows) {
      names += std::string(row.GetComm()) + " ";
    }
    return names;
  }

  inline static std::string s_switches;
  inline static int s_error = 0;
  process_tree::HostTree m_host;
  OsCalls m_realCalls{};
  std::vector<Acct> m_rows;
};

TEST_F(AcctSourceTest, ReadsEachRecordOnce) {
  m_host.Write(kFile, Record("longer-name", 1700000000, 0x2001) + Record("b", 5, 0xffff) + "part");
  EXPECT_EQ(Run(), "longer-n b ");
  EXPECT_EQ(s_switches, "on ");
  const Acct& row = m_rows.front();
  EXPECT_EQ(row.sequence, 1U);
  EXPECT_EQ(row.uid, 1000U);
  EXPECT_EQ(row.gid, 100U);
  EXPECT_EQ(row.tty, 0x8803U);
  EXPECT_EQ(row.beginTime, 1700000000U);
  EXPECT_EQ(row.mem, 8U);
  EXPECT_EQ(row.userTime.microseconds, 80000);
  EXPECT_EQ(m_rows.back().io, static_cast<std::uint32_t>(8191ULL << 21U)) << "the low 32 bits";
  EXPECT_EQ(g_accountingRecords, 2U);

  // The rest of the partial record, and one more; then nothing new; then a file that was cut back.
  const std::string third = Record("c", 6, 1);
  m_host.Write(kFile, Record("longer-name", 1700000000, 0x2001) + Record("b", 5, 0xffff) + third);
  EXPECT_EQ(Run(), "c ");
  EXPECT_EQ(Run(), "");
  m_host.Write(kFile, third);
  EXPECT_EQ(Run(), "");
  EXPECT_EQ(s_switches, "on ") << "a later run leaves accounting alone";
}

TEST_F(AcctSourceTest, EachFigureHasItsPlace) {
  m_host.Write(kFile, RecordOfFigures());
  ASSERT_EQ(Run(), "six ");
  const Acct& row = m_rows.front();
  EXPECT_EQ(row.userTime.microseconds, 10000);
  EXPECT_EQ(row.systemTime.microseconds, 20000);
  EXPECT_EQ(row.elapsedTime.microseconds, 30000);
  EXPECT_EQ(row.mem, 4U);
  EXPECT_EQ(row.io, 5U);
  EXPECT_EQ(row.rw, 6U);
}

TEST_F(AcctSourceTest, ALookDoesNotMoveThePlace) {
  SetOptions("", "no", "");
  m_host.Write(kFile, Record("a", 1, 1));
  EXPECT_EQ(Run(), "a ");
  EXPECT_EQ(Run(), "a ");
}

TEST_F(AcctSourceTest, AFileThatWasReplacedIsNoticed) {
  m_host.Write(kFile, Record("a", 1, 1) + Record("b", 2, 1));
  EXPECT_EQ(Run(), "a b ");
  m_host.Write(kFile, Record("a", 1, 1) + Record("x", 2, 1) + Record("c", 3, 1));
  EXPECT_EQ(Run(), "c ");
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Accounting file Modified.").size(), 1U);
}

TEST_F(AcctSourceTest, AFileThatOutgrewItsLimitStartsAnew) {
  SetOptions("", "", "y");
  m_host.Write(kFile, Record("a", 1, 1) + Record("b", 2, 1));
  EXPECT_EQ(Run(), "a b ");
  EXPECT_EQ(s_switches, "on off on ");
  EXPECT_EQ(std::filesystem::file_size(m_host.Path(kFile)), 0U);
  m_host.Write(kFile, Record("c", 3, 1));
  EXPECT_EQ(Run(), "c ");
}

TEST_F(AcctSourceTest, AFileThatCannotBeStartedAnewIsTold) {
  static std::function<void()> onOff;
  const struct {
    std::function<void()> onOff;
    const char* trace;
  } cases[] = {{[] { s_error = EPERM; }, "Failed to enable accounting"},
               {[this] {
                  std::filesystem::remove_all(m_host.Path("/var"));
                  m_host.Write("/var", "");
                },
                "Failed to access the file or directory (/var/pacct)."}};
  for (const auto& row : cases) {
    SetUp();
    SetOptions("", "", "y");
    m_host.Write(kFile, Record("a", 1, 1) + Record("b", 2, 1));
    onOff = row.onOff;
    Os().acct = [](const char* file) {
      if (file == nullptr) {
        onOff();
      }
      errno = s_error;
      return s_error == 0 ? 0 : -1;
    };
    EXPECT_EQ(Run(), "a b ");
    EXPECT_EQ(ScriptedNode::Instance().LinesWith(row.trace).size(), 1U) << row.trace;
    EXPECT_EQ(Run(), "") << row.trace;
  }
}

TEST_F(AcctSourceTest, SwitchesAccountingOnlyWhereItMay) {
  const struct {
    const char* use;
    int error;
    const char* switches;
    bool wasOn;
    const char* trace;
  } cases[] = {{"", 0, "on ", false, "Accounting Enabled."},
               {"no", 0, "on off ", false, nullptr},
               {"", EBUSY, "on ", true, "Accounting already enabled."},
               {"", EPERM, "on ", false, "Couldn't start accounting:"},
               {"n", EPERM, "on ", false, nullptr}};
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.use) + " " + std::to_string(row.error));
    SetUp();
    SetOptions(row.use, "", "");
    s_error = row.error;
    EXPECT_EQ(Run(), "") << "the file is made, and is empty";
    EXPECT_EQ(s_switches, row.switches);
    EXPECT_EQ(AcctSourceUser::AccountingWasOn(), row.wasOn);
    EXPECT_EQ(ScriptedNode::Instance().LinesWith("ccounting").size(),
              row.trace == nullptr ? 0U : 1U);
    if (row.trace != nullptr) {
      EXPECT_EQ(ScriptedNode::Instance().LinesWith(row.trace).size(), 1U);
    }
  }
}

TEST_F(AcctSourceTest, WhatIsNoAccountingFileEndsTheRun) {
  m_host.Write(kFile, Record("a", 1, 1));
  EXPECT_EQ(Run(), "a ");
  std::filesystem::remove(m_host.Path(kFile));
  m_host.Link(kFile, "/dev/zero");
  EXPECT_EQ(Run(), "Can't open accounting file");
  AcctSourceUser::ResetState();
  std::filesystem::remove(m_host.Path(kFile));
  ASSERT_EQ(::mkfifo(m_host.Path(kFile).c_str(), 0600), 0);
  EXPECT_EQ(Run(), "Can't find or open accounting file");
  AcctSourceUser::ResetState();
  std::filesystem::remove_all(m_host.Path("/var"));
  EXPECT_EQ(Run(), "Can't find or open accounting file");
}

TEST(AcctFlags, AreNamed) {
  char text[48] = "";
  AcctSourceUser::bit2flags(text, 1 + 2 + 4 + 8 + 16);
  EXPECT_STREQ(text, "Forked,SU_used,Core_dumped,Signal_kill");
  text[0] = '\0';
  AcctSourceUser::bit2flags(text, 4);
  EXPECT_STREQ(text, "");
  AcctSourceUser::bit2flags(nullptr, 1);
}

}  // namespace
