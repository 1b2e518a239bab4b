#include "process/ApplicationMonitor.h"

#include "support/HostPaths.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TempFolder.h"

namespace {

bool g_isLinkForbidden = false;

}  // namespace

/// The system's call, which the tests can have refused as for a file of another user.
extern "C" int link(const char* from, const char* to) noexcept {
  if (g_isLinkForbidden) {
    errno = EPERM;
    return -1;
  }
  return ::linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

TEST(ApplicationMonitorTest, ARangeIsOneNumberOrTwo) {
  const struct {
    const char* text;
    int result;
    const char* range;
  } cases[] = {{"5", 1, "5-5"},           {"5-7", 1, "5-7"},
               {"5,8", 1, "5-8"},         {"", 1, "5-8"},
               {"7-5", 0, "5-8"},         {"-5", 0, "5-8"},
               {"0-65536", 0, "5-8"},     {"5-", 0, "5-8"},
               {"5-7x", 0, "5-8"},        {" 5", 0, "5-8"},
               {"x", 0, "5-8"},           {"5--7", 0, "5-8"},
               {"99999999999", 0, "5-8"}, {"0-65535", 1, "0-65535"}};
  ApplicationMonitor monitor;
  ASSERT_EQ(monitor.add("a"), 1);
  for (const auto& row : cases) {
    EXPECT_EQ(monitor.SetRange(0, 14, row.text), row.result) << row.text;
    EXPECT_EQ(std::to_string(monitor.GetRangeMin(0, 14)) + "-" +
                  std::to_string(monitor.GetRangeMax(0, 14)),
              row.range)
        << row.text;
  }
  EXPECT_EQ(monitor.SetRange(0, 15, "1") + monitor.SetRange(1, 0, "1"), 0);
}

TEST(ApplicationMonitorTest, TheListTakesWhatItsFileCanHold) {
  ApplicationMonitor monitor;
  for (const char* name : {"", "a\tb", "a\nP\t1\t1\t1\tx"}) {
    EXPECT_EQ(monitor.add(name), 0);
  }
  EXPECT_EQ(monitor.add("a:b"), 1) << "forbidden in the file, not here";
  EXPECT_EQ(monitor.add("a:b"), 0);
  EXPECT_EQ(monitor.add((std::string(63, 'n') + "1").c_str()), 1);
  EXPECT_EQ(monitor.add((std::string(63, 'n') + "2").c_str()), 0) << "cut, it is the same";
  EXPECT_EQ(monitor.SetPattern(0, 0, "a\tb") + monitor.SetPattern(0, 0, "a\nb"), 0);
  EXPECT_EQ(monitor.SetPattern(0, 0, std::string(200, 'p').c_str()), 1);
  EXPECT_EQ(monitor.GetPattern(0, 0), std::string(127, 'p'));
  for (int i = 2; i < 64; ++i) {
    EXPECT_EQ(monitor.add(std::to_string(i).c_str()), 1);
  }
  EXPECT_EQ(monitor.add("one too many"), 0);
  EXPECT_EQ(monitor.remove(64) + monitor.remove(-1), 0);
  EXPECT_EQ(monitor.remove(0), 1);
  EXPECT_EQ(monitor.GetName(0), std::string(63, 'n'));
}

TEST(ApplicationMonitorTest, VerdictsOfARound) {
  const struct {
    const char* conditions;
    std::vector<std::pair<const char*, const char*>> processes;
    int status;
    int exist;
    std::vector<int> states;
    std::vector<int> counts;
  } cases[] = {
      {"P\t1\t2\t2\tx\n", {{"x", ""}, {"x", ""}, {"xy", "x"}}, 1, 1, {1}, {2}},
      {"P\t1\t2\t2\tx\n", {{"x", ""}, {"x", ""}, {"x", ""}}, 2, 2, {2}, {3}},
      {"P\t1\t1\t1\tx*\nP\t2\t1\t1\t-k ?\n",
       {{"xy", "-k 1"}, {"z", "z -k 1"}},
       1,
       1,
       {1, 1},
       {1, 1}},
      {"P\t1\t1\t1\tx\nP\t2\t1\t9\t-k\n", {{"x", "x -k"}}, 2, 1, {1, 2}, {1, 0}},
      {"P\t1\t0\t0\tx\n", {{"y", ""}}, 1, 1, {1}, {0}},
      {"P\t1\t0\t0\tx\n", {}, 0, 0, {0}, {0}},
      {"P\t1\t0\t0\tx\n", {{"", "x"}}, 0, 0, {0}, {0}},
      {"P\t0\t1\t1\tx\nP\t3\t1\t1\tx\n", {{"x", ""}}, 1, 2, {0, 0}, {0, 0}},
      {"", {{"x", ""}}, 1, 2, {}, {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.conditions);
    ApplicationMonitor monitor;
    (void)monitor.ReadText(std::string("A\ta\n") + row.conditions);
    monitor.countProcess("x", "");
    for (int round = 0; round < 2; ++round) {
      monitor.begin();
      for (const auto& [name, arguments] : row.processes) {
        monitor.countProcess(name, arguments);
        monitor.begin();  // no new round while one is open
      }
      monitor.end();
    }
    EXPECT_EQ(monitor.GetStatus(0), row.status);
    EXPECT_EQ(monitor.GetExist(0), row.exist);
    for (std::size_t i = 0; i < row.states.size(); ++i) {
      EXPECT_EQ(monitor.GetState(0, static_cast<int>(i)), row.states[i]);
      EXPECT_EQ(monitor.GetProcessCount(0, static_cast<int>(i)), row.counts[i]);
    }
  }
}

TEST(ApplicationFileTest, BadLinesAreSkippedAndNamed) {
  const std::string name = std::string(70, 'n');
  const std::string pattern = std::string(130, 'p');
  const struct {
    std::string text;
    int result;
    std::string held;  ///< applications, each with its used conditions
    Texts faults;
  } cases[] = {
      {"", 1, "", {}},
      {"\n\t\t\nA\ta b\nP\t1\t2\t3\tx y\n", 1, "a b(1 2-3 x y)", {}},
      {"A\ta\nP\t2\t1\t1\nA\tb", 1, "a(2 1-1 )b", {}},
      {"\tA\ta\n#A\tb\n",
       1,
       "a",
       {"2: the line begins with neither \"A\" nor \"P\" and is ignored"}},
      {"A\nA\ta|b\nA\ta\"b\nA\t\\\n",
       0,
       "",
       {"1: the application has no name", "2: the name holds the character |",
        "3: the name holds the character \"", "4: the name holds the character \\"}},
      {"P\t1\t1\t1\tx\nA\ta\nP\t1\t1\nP\t1\t2\t3\tx\n",
       0,
       "a(1 2-3 x)",
       {"1: the process stands before the first application",
        "3: the process lacks its kind, minimum or maximum"}},
      {"A\ta\n" + Repeated("P\t1\t1\t1\tx\n", 16) + "A\tb\n",
       0,
       "a" + Repeated("(1 1-1 x)", 15) + "b",
       {"17: the application has more than 15 processes"}},
      {Repeated("A\ta\n", 65), 0, Repeated("a", 64), {"65: there are more than 64 applications"}},
      {"A\t" + std::string(254, 'a') + "\nA\tb", 0, "b", {"1: the line is longer than 255 bytes"}},
      {"A\t" + name + "\nP\t1\t1\t1\t" + pattern,
       1,
       name.substr(0, 63) + "(1 1-1 " + pattern.substr(0, 127) + ")",
       {"1: the name is longer than 63 characters and is cut",
        "2: the pattern is longer than 127 characters and is cut"}},
      {"A\ta\nP\tx\t1\t1\ty\nP\t300\t99999999999\t1\ty\nP\t1\t3\t2\ty\nP\t1\t1\t1\ty\tz\r\n",
       1,
       "a(0 1-1 y)(0 2147483647-1 y)(1 3-2 y)(1 1-1 y)",
       {"2: the kind is not a number",
        "3: the kind is none of 0, 1 and 2, so that the condition never matches",
        "4: the range is empty, so that the condition is never met",
        "5: what stands behind the pattern is ignored"}},
      {std::string("A\tx\0y\nA\tb\r\n", 11),
       0,
       "b\r",
       {"1: the line holds a zero byte",
        "2: the line ends in a carriage return, which counts to its last field"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text.substr(0, 40));
    ApplicationMonitor monitor;
    EXPECT_EQ(monitor.ReadText(row.text), row.result);
    std::string held;
    for (int a = 0; a < monitor.GetCount(); ++a) {
      held += monitor.GetName(a);
      for (int p = 0; p < 15; ++p) {
        if (monitor.GetRangeMax(a, p) != 0) {
          held += "(" + std::to_string(monitor.GetKind(a, p)) + " " +
                  std::to_string(monitor.GetRangeMin(a, p)) + "-" +
                  std::to_string(monitor.GetRangeMax(a, p)) + " " + monitor.GetPattern(a, p) + ")";
        }
      }
    }
    EXPECT_EQ(held, row.held);
    Texts faults;
    for (const FileFault& fault : monitor.Faults()) {
      faults.push_back(std::to_string(fault.line) + ": " + fault.text);
    }
    EXPECT_EQ(faults, row.faults);
  }
}

class ApplicationFilesTest : public ::testing::Test {
 protected:
  ApplicationFilesTest() { SetProductRoot(m_folder.Path().string()); }
  ~ApplicationFilesTest() override { SetProductRoot(""); }
  void Write(const std::string& text) { std::ofstream(m_file, std::ios::binary) << text; }
  Texts Names() {
    Texts names;
    for (const auto& entry : fs::directory_iterator(m_folder.Path())) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TempFolder m_folder;
  fs::path m_file = m_folder.Path() / "qmtapp";
  ApplicationMonitor m_monitor;
};

TEST_F(ApplicationFilesTest, TheListComesBackAndAFaultyFileIsKept) {
  EXPECT_EQ(m_monitor.read("/qmtapp"), 1);
  ASSERT_EQ(m_monitor.add("one"), 1);
  m_monitor.SetKind(0, 1, ApplicationMonitor::kCommandLine);
  EXPECT_EQ(m_monitor.SetRange(0, 1, "3-4"), 1);
  EXPECT_EQ(m_monitor.SetPattern(0, 1, "a b"), 1);
  EXPECT_EQ(m_monitor.write("/qmtapp"), 1);
  const std::string text =
      "A\tone\nP\t0\t0\t0\t\nP\t2\t3\t4\ta b\n" + Repeated("P\t0\t0\t0\t\n", 13);
  EXPECT_EQ(m_folder.Read("qmtapp"), text);
  {
    const FileSizeLimit limit(2);
    EXPECT_EQ(m_monitor.write("/qmtapp"), 0);
  }
  EXPECT_EQ(m_folder.Read("qmtapp"), text) << "it is the old one or the new one";
  fs::permissions(m_file, fs::perms{0640});
  EXPECT_EQ(m_monitor.read("/qmtapp"), 1);
  EXPECT_EQ(m_monitor.write("/qmtapp"), 1);
  EXPECT_EQ(m_folder.Read("qmtapp"), text);
  EXPECT_EQ(fs::status(m_file).permissions(), fs::perms{0640});
  EXPECT_EQ(Names(), Texts{"qmtapp"});

  for (const std::string faulty : {"A\ta:b\nA\tb\n", "A\tb\nX\n", "A\tb\nY\n"}) {
    g_isLinkForbidden = faulty.ends_with("Y\n");
    const fs::perms mode{g_isLinkForbidden ? 0600U : 0640U};
    Write(faulty);
    fs::permissions(m_file, mode);
    (void)m_monitor.read("/qmtapp");
    EXPECT_EQ(m_monitor.write("/qmtapp"), 1);
    EXPECT_EQ(m_monitor.write("/qmtapp"), 1);
    EXPECT_EQ(m_folder.Read("qmtapp.bak"), faulty) << "the second writing has replaced it";
    EXPECT_EQ(Names(), (Texts{"qmtapp", "qmtapp.bak"}));
    EXPECT_EQ(fs::status(m_folder.Path() / "qmtapp.bak").permissions(), mode);
  }
  g_isLinkForbidden = false;
  EXPECT_EQ(m_monitor.remove(0), 1);
  EXPECT_EQ(m_monitor.write("/qmtapp"), 1);
  EXPECT_EQ(Names(), Texts{"qmtapp.bak"});
  EXPECT_EQ(m_monitor.write("/qmtapp"), 0) << "there was nothing to remove";
}

TEST_F(ApplicationFilesTest, WhatCannotBeReadIsNotReplaced) {
  const struct {
    const char* what;
    void (*make)(const fs::path& file);
    std::string fault;
  } cases[] = {
      {"folder", [](const fs::path& file) { fs::create_directory(file); },
       "it is not a regular file"},
      {"pipe", [](const fs::path& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); },
       "it is not a regular file"},
      {"huge",
       [](const fs::path& file) {
         std::ofstream{file};
         fs::resize_file(file, std::uintmax_t{1} << 30U);
       },
       "the file is larger than 1048576 bytes"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    row.make(m_file);
    EXPECT_EQ(m_monitor.read("/qmtapp"), 0);
    ASSERT_EQ(m_monitor.Faults().size(), 1U);
    EXPECT_EQ(m_monitor.Faults()[0].line, 0);
    EXPECT_EQ(m_monitor.Faults()[0].text, row.fault);
    EXPECT_EQ(m_monitor.add("a"), 1);
    EXPECT_EQ(m_monitor.write("/qmtapp"), 0);
    EXPECT_EQ(Names(), Texts{"qmtapp"});
    fs::remove(m_file);
  }
  std::string binary(300'000, '\0');
  for (std::size_t i = 0; i < binary.size(); ++i) {
    binary[i] = static_cast<char>(i * i >> 3U);
  }
  Write(binary);
  EXPECT_EQ(m_monitor.read("/qmtapp"), 0);
  EXPECT_EQ(m_monitor.Faults().size(), ApplicationMonitor::kMaxFaults);
}

}  // namespace
