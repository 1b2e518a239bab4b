#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST(ClientTest, AThousandLooksInOneMessageAreOneCollection) {
  const ProductRoot root("[Node]\nMessage Log Level=30\n[Schedule]\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const std::size_t before = CountOf(daemon.Errors(), "Starting the collect routine");
  std::string words = "get --raw --json";
  for (int i = 0; i < 1000; ++i) {
    words += " CPUP";
  }
  const Outcome outcome = AskDaemon(root, words);
  ASSERT_EQ(outcome.exitValue, 0);
  const json answer = json::parse(outcome.output);
  ASSERT_EQ(answer.size(), 1000U);
  EXPECT_EQ(answer.front().at("rows").size(), std::thread::hardware_concurrency());
  EXPECT_EQ(CountOf(daemon.Errors(), "Starting the collect routine"), before + 1);
  const json status = json::parse(AskDaemon(root, "status --json").output);
  EXPECT_EQ(status.at("last_batch").at("records"), 1000);
}

TEST(ClientTest, AScheduleIsAddedWatchedAndRemoved) {
  const ProductRoot root("[Schedule]\nPI=60\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  EXPECT_EQ(ShownBy(root, "schedule add CPUP 1"), "CPUP is collected every second, from now on\n");
  EXPECT_NE(ShownBy(root, "schedule add NONE 1").find("no record"), std::string::npos);
  EXPECT_NE(ShownBy(root, "schedule add CPUP 0").find("failed"), std::string::npos);
  const std::string seen = ShownBy(root, "watch CPUP --scheduled --count 3 --json");
  std::set<std::int64_t> times;
  std::istringstream lines(seen);
  for (std::string line; std::getline(lines, line);) {
    times.insert(json::parse(line).at(0).at("time").get<std::int64_t>());
  }
  EXPECT_EQ(times.size(), 3U) << seen;
  EXPECT_EQ(json::parse(ShownBy(root, "schedule list --json")).size(), 2U);
  EXPECT_EQ(ShownBy(root, "schedule remove PI").find("PI is collected no more"), 0U);
  EXPECT_NE(ShownBy(root, "schedule remove PI").find("no schedule"), std::string::npos);
  EXPECT_EQ(ShownBy(root, "schedule list").find("PI"), std::string::npos);
  EXPECT_EQ(root.Read("opt/qmtrx/mond/agent/qmtagt.ini").find("PI=60"), std::string::npos);
  EXPECT_NE(ShownBy(root, "watch PI --scheduled").find("no schedule collects"), std::string::npos);
  EXPECT_NE(ShownBy(root, "watch PI").find("--every or --scheduled"), std::string::npos);
}

TEST(ClientTest, WatchShowsABusyProcessorAndAScheduleKeepsItsRows) {
  const ProductRoot root("[Schedule]\nCPUP=1\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  std::atomic<bool> stop{false};
  std::thread busy([&stop] {
    while (!stop) {
    }
  });
  const Outcome watch = AskDaemon(root, "watch CPUP --every 1 --count 3 --json");
  stop = true;
  busy.join();
  ASSERT_EQ(watch.exitValue, 0);
  double most = 0;
  std::size_t start = 0;
  for (std::size_t end = watch.output.find('\n'); end != std::string::npos;
       start = end + 1, end = watch.output.find('\n', start)) {
    const json answer = json::parse(watch.output.substr(start, end - start));
    for (const json& row : answer.at(0).at("rows")) {
      if (start == 0) {
        EXPECT_TRUE(row.at("CPU %").is_null()) << "nothing to compare with";
        continue;
      }
      EXPECT_GT(row.at("Idle Time").get<double>() + row.at("User Time").get<double>(), 0);
      most = std::max(most, row.at("CPU %").get<double>());
    }
  }
  EXPECT_GT(most, 20.0);
  const Outcome last = AskDaemon(root, "last CPUP --json");
  ASSERT_EQ(last.exitValue, 0);
  const json rows = json::parse(last.output).at(0).at("rows");
  EXPECT_EQ(rows.size(), std::thread::hardware_concurrency());
  EXPECT_LE(rows.at(0).at("Interval").get<int>(), 3);
}

/// The value that the daemon's tree shows for an item; empty if it has none.
std::string ValueOf(const json& folder, int item) {
  for (const json& child : folder.at("children")) {
    if (child.contains("children")) {
      if (const std::string value = ValueOf(child, item); !value.empty()) {
        return value;
      }
    } else if (child.at("id") == item) {
      return child.at("value");
    }
  }
  return "";
}

TEST(ClientTest, ASettingIsShownChangedAndKept) {
  const ProductRoot root("[Node]\nMessage Log Level=20\n");
  const std::string ini = "opt/qmtrx/mond/agent/qmtagt.ini";
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const auto shown = [&root](int item) {
    return ValueOf(json::parse(AskDaemon(root, "config --json").output), item);
  };
  EXPECT_EQ(shown(15), "1440");
  EXPECT_NE(AskDaemon(root, "config").output.find("15  User Defined Record DataMaxCount: 1440\n"),
            std::string::npos);

  const struct {
    const char* words;
    int exitValue;
    const char* line;  ///< of the ini file afterwards
  } cases[] = {
      {"15 99", 0, "User Defined Record DataMaxCount = 99\n"},
      {"15 0", 3, "User Defined Record DataMaxCount = 99\n"},
      {"15 +5", 3, "User Defined Record DataMaxCount = 99\n"},
      {"4 '../$(id);`x` \x1b'", 0, "Messages File = ../$(id);`x` \x1b\n"},
      {"4 'a\n[Node]'", 4, "Messages File = ../$(id);`x` \x1b\n"},
      {"5 ' /var/pacct'", 4, "Accounting File = /var/adm/pacct\n"},
      {"5 ''", 3, "Accounting File = /var/adm/pacct\n"},
      {"6 No", 3, "Use Accounting Data = Y\n"},
      {"6 1", 0, "Use Accounting Data = N\n"},
      {"22 Nobody", 3, "Use Accounting Data = N\n"},
      {"1003 5-9", 3, "Use Accounting Data = N\n"},
  };
  for (const auto& entry : cases) {
    const Outcome outcome = AskDaemon(root, std::string("config set ") + entry.words + " 2>&1");
    EXPECT_EQ(outcome.exitValue, entry.exitValue) << entry.words << ": " << outcome.output;
    EXPECT_NE(root.Read(ini).find(entry.line), std::string::npos) << entry.words;
  }
  EXPECT_EQ(shown(15), "99");
  EXPECT_NE(daemon.Errors().find("the value holds a line end"), std::string::npos);
  EXPECT_NE(daemon.Errors().find("QMTX10203-W"), std::string::npos);

  std::filesystem::permissions(root.Path() / ini, std::filesystem::perms{0444});
  EXPECT_EQ(AskDaemon(root, "config set 15 7 2>&1").exitValue, 4);
  EXPECT_EQ(shown(15), "99");
}

/// Sleeping children of this process, gone with the object.
class Children {
 public:
  explicit Children(int count) {
    for (int i = 0; i < count; ++i) {
      const pid_t pid = ::fork();
      if (pid == 0) {
        [[maybe_unused]] const int nice = ::nice(i);
        ::execlp("sleep", "sleep", "120", nullptr);
        ::_exit(127);
      }
      m_pids.push_back(pid);
    }
  }
  ~Children() {
    for (const pid_t pid : m_pids) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
  }
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;
  [[nodiscard]] const std::vector<pid_t>& Pids() const { return m_pids; }

 private:
  std::vector<pid_t> m_pids;
};

/// The words of a process's stat line behind its name, from its state on; empty if it has ended.
std::vector<std::string> StatOf(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  std::istringstream words(line.substr(line.rfind(')') + 1));
  return {std::istream_iterator<std::string>(words), {}};
}

std::set<pid_t> LiveProcesses() {
  std::set<pid_t> pids;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      pids.insert(std::stoi(name));
    }
  }
  return pids;
}

TEST(ClientTest, TheProcessListIsTheSystems) {
  const ProductRoot root("[Node]\nMessage Log Level=20\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const std::time_t begin = std::time(nullptr);
  const Children children(5);
  const std::set<pid_t> before = LiveProcesses();
  const Outcome outcome = AskDaemon(root, "get PD --raw --json");
  const std::set<pid_t> after = LiveProcesses();
  ASSERT_EQ(outcome.exitValue, 0);
  std::map<pid_t, json> rows;
  const json answer = json::parse(outcome.output);
  for (const json& row : answer.at(0).at("rows")) {
    rows[row.at("PID")] = row;
    // All but those that came and went in between stand in /proc.
    const pid_t pid = row.at("PID");
    EXPECT_TRUE(before.contains(pid) || after.contains(pid) || row.at("Start Time") >= begin - 2)
        << row;
  }
  std::size_t missing = 0;
  for (const pid_t pid : before) {
    missing += after.contains(pid) && !rows.contains(pid) ? 1 : 0;
  }
  // A process whose name holds a blank is skipped.
  std::size_t blankNames = 0;
  for (const pid_t pid : before) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    blankNames += name.find(' ') != std::string::npos ? 1 : 0;
  }
  EXPECT_LE(missing, blankNames);

  std::ifstream uptime("/proc/uptime");
  double seconds = 0;
  uptime >> seconds;
  const double boot = static_cast<double>(std::time(nullptr)) - seconds;
  for (const pid_t pid : children.Pids()) {
    SCOPED_TRACE(pid);
    ASSERT_TRUE(rows.contains(pid));
    const json& row = rows.at(pid);
    const std::vector<std::string> stat = StatOf(pid);
    ASSERT_GT(stat.size(), 19U);
    EXPECT_EQ(row.at("Parent PID"), ::getpid());
    EXPECT_EQ(row.at("User ID"), ::geteuid());
    EXPECT_EQ(row.at("Priority"), std::stoi(stat[15]) + 60);
    EXPECT_EQ(row.at("Niceness"), std::stoi(stat[16]));
    EXPECT_NEAR(row.at("Start Time").get<double>(), boot + std::stod(stat[19]) / 100, 2);
  }
}

}  // namespace
