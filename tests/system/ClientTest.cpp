#include <atomic>
#include <nlohmann/json.hpp>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

TEST(ClientTest, AScheduleIsAddedWatchedAndRemoved) {
  const ProductRoot root("[Schedule]\nPI=60\n");
  RunningDaemon daemon(root);
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

/// What the last screen of `top` has of this process under CPU %; -1 if it has nothing there.
double ShareOfThisProcess(const std::string& top) {
  std::istringstream lines(top.substr(std::min(top.rfind("Program"), top.size())));
  std::string line;
  std::getline(lines, line);
  // Numbers end where their heading does.
  const std::size_t end = line.find("CPU % ") + std::string_view("CPU %").size();
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string program;
    pid_t pid = 0;
    if (words >> program >> pid && pid == ::getpid()) {
      const std::string before = line.substr(0, end);
      std::istringstream cell(before.substr(before.rfind(' ') + 1));
      double share = -1;
      return cell >> share ? share : -1;
    }
  }
  return -1;
}

TEST(ClientTest, WatchShowsABusyProcessorAndAScheduleKeepsItsRows) {
  const ProductRoot root("[Schedule]\nCPUP=1\n");
  RunningDaemon daemon(root);
  std::atomic<bool> stop{false};
  std::thread busy([&stop] {
    while (!stop) {
    }
  });
  const Outcome watch = AskDaemon(root, "watch CPUP --every 1 --count 3 --json");
  const std::string top = ShownBy(root, "top --by cpu --count 2 --every 1 --rows 1000");
  stop = true;
  busy.join();
  ASSERT_EQ(watch.exitValue, 0);
  double most = 0;
  std::istringstream lines(watch.output);
  int sample = 0;
  for (std::string line; std::getline(lines, line); ++sample) {
    const json answer = json::parse(line);
    for (const json& row : answer.at(0).at("rows")) {
      if (sample == 0) {
        EXPECT_TRUE(row.at("CPU %").is_null()) << "nothing to compare with";
        continue;
      }
      EXPECT_GT(row.at("Idle Time").get<double>() + row.at("User Time").get<double>(), 0);
      most = std::max(most, row.at("CPU %").get<double>());
    }
  }
  EXPECT_GT(most, 20.0);
  EXPECT_GT(ShareOfThisProcess(top), 0) << top;
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
  RunningDaemon daemon(root);
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

}  // namespace
