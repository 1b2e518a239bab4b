#include <grp.h>
#include <pwd.h>

#include <nlohmann/json.hpp>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

/// A sleeping process of that program's name, gone with the object.
class Sleeper {
 public:
  Sleeper(const ProductRoot& root, const std::string& name, const std::string& seconds) {
    const std::string program = root.Path() / name;
    std::filesystem::copy_file("/bin/sleep", program);
    m_pid = ::fork();
    if (m_pid == 0) {
      ::execl(program.c_str(), name.c_str(), seconds.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  ~Sleeper() {
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
  }
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;
  [[nodiscard]] std::string Pid() const { return std::to_string(m_pid); }

 private:
  pid_t m_pid = -1;
};

json Ask(const ProductRoot& root, const std::string& words) {
  const std::string answer = root.Path() / "answer";
  const std::string command = "QMT_PRODUCT_ROOT='" + root.Path().string() + "' " + QMTCTL_PROGRAM +
                              " " + words + " --json >" + answer;
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return json::parse(root.Read("answer"));
}

TEST(WorkgroupTest, StartedProcessesFallWhereTheyShould) {
  const ProductRoot root;
  const std::string user = ::getpwuid(::geteuid())->pw_name;
  const std::string group = ::getgrgid(::getegid())->gr_name;
  std::ofstream(root.AgentFolder() / "wgfile")
      << "# by each kind of rule\n"
      << "workgroup = shop\nprograms = qmtshop\n"
      << "workgroup = nightly\narguments_02 = \"qmtnight 98765\"\n"
      << "workgroup = both\nregexp = {Programs=^qmt(shop|night)$},{Arguments_02=^no such$}\n"
      << "workgroup = mine\nusers = " << user << "\n"
      << "workgroup = ours\ngroups_02 = \"" << group << "\"\n"
      << "workgroup = nobody's\nusers = qmt-no-such-user\n";
  RunningDaemon daemon(root);
  const Sleeper night(root, "qmtnight", "98765");
  json counts;
  const auto look = [&] {
    const json answer = Ask(root, "get WGRP --raw");
    for (const json& row : answer.at(0).at("rows")) {
      counts[row.at("Workgroup").get<std::string>()] = row.at("Process Count").get<int>();
    }
  };
  {
    const Sleeper shop(root, "qmtshop", "98765");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    do {
      look();
    } while (counts.at("both") != 2 && std::chrono::steady_clock::now() < end);
    EXPECT_EQ(counts.at("shop"), 1) << counts;
    EXPECT_EQ(counts.at("nightly"), 1) << counts;
    EXPECT_EQ(counts.at("both"), 2) << counts;
    EXPECT_EQ(counts.at("nobody's"), 0) << counts;
    EXPECT_GE(std::min(counts.at("mine"), counts.at("ours")), 3) << counts;
    std::map<std::string, std::string> rules;
    const json report = Ask(root, "workgroup explain --pid " + shop.Pid());
    for (const json& row : report.at("rows")) {
      rules[row.at(4)] = row.at(5);
    }
    EXPECT_EQ(rules,
              (std::map<std::string, std::string>{{"shop", "programs = qmtshop"},
                                                  {"both", "regexp = {Programs=^qmt(shop|night)$}"},
                                                  {"mine", "users = " + user},
                                                  {"ours", "groups_02 = " + group}}));
  }
  look();
  EXPECT_EQ(counts.at("shop"), 0);
  EXPECT_EQ(counts.at("both"), 1);
}

}  // namespace
