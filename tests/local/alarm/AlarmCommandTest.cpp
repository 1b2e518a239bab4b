#include "local/alarm/AlarmCommand.h"

#include "local/alarm/CommandFile.h"
#include "tests/local/alarm/AlarmBookFixture.h"

namespace {

/// Writes a shell script and gives its path.
std::string AlarmScript(const std::string& text) {
  std::ofstream("command") << "#!/bin/sh\n" << text;
  ::chmod("command", 0700);
  return std::filesystem::absolute("command").string();
}

TEST_F(AlarmBookTest, TheCommandGetsItsFiguresAndNeverStaysForLong) {
  settings.command = {AlarmScript("grep CapEff /proc/self/status >>env.txt\n"
                                  "env | grep -a ^QMT_ | sort >>env.txt\n"
                                  "[ $QMT_ALARM_STATE = ended ] && { echo hangs; sleep 60; }\n"
                                  "exit 0\n"),
                      std::chrono::seconds(1), 1};
  Start();
  Batch(95);
  Batch(5);
  EXPECT_TRUE(WaitUntil([&] {
    Turns(5);
    return life->book.Figures().commandFailures != 0;
  }));
  EXPECT_THAT(FileText("env.txt"),
              AllOf(HasSubstr("QMT_ALARM_KEY_LABEL=a\uFFFD\nQMT_ALARM_NAME=full\n"),
                    HasSubstr("QMT_ALARM_STATE=ended"), HasSubstr("CapEff:\t0000000000000000\n"),
                    HasSubstr("QMT_ALARM_VALUE_COUNT=95")));
  EXPECT_THAT(told, ::testing::Contains(HasSubstr("/command: hangs")));
  EXPECT_THAT(told.back(), HasSubstr("took longer than 1 seconds and has been ended"));
}

TEST_F(AlarmBookTest, CommandsBeyondTheBoundsWaitOrAreCountedAndGoAsAGroup) {
  EventLoop loop;
  FakeAgent agent;
  AlarmCommand command(loop, [this](const std::string& text) { told.push_back(text); });
  command.Configure(
      {AlarmScript("sleep 1000 & echo $! >pid.$$; yes\n"), std::chrono::seconds(1), 2});
  for (std::size_t i = 0; i < AlarmCommand::kMostWaiting + 5; ++i) {
    command.Run({"A=b"});
  }
  EXPECT_EQ(command.Runs(), 2U);
  EXPECT_EQ(command.Dropped(), 3U);
  EXPECT_TRUE(WaitUntil([&] {
    RunATurn(loop, agent);
    return command.Failures() == 2;
  }));
  // Of what `yes` says, 20 lines, how many more and why it has ended, of each command.
  EXPECT_EQ(std::ranges::count_if(told, [](const auto& text) { return text.ends_with(": y"); }),
            40);
  EXPECT_EQ(
      std::ranges::count_if(told, [](const auto& t) { return t.ends_with("lines were left out"); }),
      2);
  int pid = 0;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    if (entry.path().string().starts_with("./pid.")) {
      std::ifstream(entry.path()) >> pid;
      break;
    }
  }
  command.Stop();
  EXPECT_THAT(told.back(), HasSubstr("the daemon stops: "));
  command.Run({"A=b"});
  EXPECT_EQ(command.Runs() + command.Dropped(), AlarmCommand::kMostWaiting + 6);
  EXPECT_NE(pid, 0);
  // The kernel takes its time over who was killed.
  EXPECT_TRUE(WaitUntil([&] {
    std::string state;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    stat >> state >> state >> state;
    return state.empty() || state == "Z";
  }));
}

TEST_F(AlarmBookTest, ACommandThatFailsSaysWhy) {
  const struct {
    const char* script;             ///< null for a program that there is not
    std::vector<std::string> told;  ///< behind the program's name
  } cases[] = {
      {nullptr,
       {"No such file or directory, so it is not started for alarms",
        "can't be started: No such file or directory", "has ended with status 127"}},
      {"exit 3\n", {"has ended with status 3"}},
      {"echo x; kill -9 $$\n", {"x", "has ended by signal 9"}},
  };
  for (const auto& row : cases) {
    told.clear();
    const std::string program = row.script == nullptr ? "/none" : AlarmScript(row.script);
    EventLoop loop;
    FakeAgent agent;
    AlarmCommand command(loop, [this](const std::string& text) { told.push_back(text); });
    command.Configure({program, std::chrono::seconds(20), 1});
    command.Run({"A=b"});
    EXPECT_TRUE(WaitUntil([&] {
      RunATurn(loop, agent);
      return command.Failures() != 0;
    }));
    std::vector<std::string> expected;
    for (const std::string& text : row.told) {
      expected.push_back(program + ": " + text);
    }
    EXPECT_EQ(told, expected);
  }
}

TEST_F(AlarmBookTest, CommandsGoOnWhereTheirWordsLackMemory) {
  EventLoop loop;
  FakeAgent agent;
  AlarmCommand command(loop, [&](const std::string&) {
    if (command.Failures() == 2) {
      EventLoop::RequestStop();
    }
    throw std::bad_alloc();
  });
  // More than a pipe holds.
  command.Configure({AlarmScript("echo x; sleep 0.1; head -c 90000 /dev/zero | tr '\\0' '\\n'\n"
                                 "exit 3\n"),
                     std::chrono::seconds(60), 1});
  command.Run({"A=b"});
  command.Run({"A=b"});
  LoopTimer limit(loop);
  limit.After(std::chrono::seconds(20), [] { EventLoop::RequestStop(); });
  loop.Run(agent);
  EXPECT_EQ(command.Failures(), 2U);
  loop.Try([&] { command.Stop(); });
}

TEST(AlarmEnvironmentTest, NamesAreThoseOfAShellAndValuesAreBounded) {
  const std::vector<std::string> all =
      AlarmEnvironment(Json{{"alarm", std::string("a\0b", 3)},
                            {"text", std::string(5000, 'x')},
                            {"until", nullptr},
                            {"key", Json{{"Mount Point", "/a"}, {"mount-point", "/b"}}},
                            {"values", Json{{"Free %", 1.5}}}});
  EXPECT_THAT(all, ElementsAre("QMT_ALARM_NAME=ab", "QMT_ALARM_STATE=", "QMT_ALARM_SEVERITY=",
                               "QMT_ALARM_TEXT=" + std::string(4096, 'x'), "QMT_ALARM_RECORD=",
                               "QMT_ALARM_ID=", "QMT_ALARM_SINCE=", "QMT_ALARM_UNTIL=",
                               "QMT_ALARM_KEY_MOUNT_POINT=/a", "QMT_ALARM_VALUE_FREE__=1.5"));
}

TEST(CommandFileTest, NobodyElseMayBeAbleToReplaceTheCommand) {
  const ScratchDirectory folder;
  std::filesystem::create_directory("open");
  std::filesystem::create_directory("own");
  for (const char* name : {"open/run", "own/run", "own/wide"}) {
    std::ofstream(name) << "#!/bin/sh\n";
  }
  ::chmod("open/run", 0755);
  ::chmod("own/run", 0755);
  ::chmod("own/wide", 0775);
  ::chmod("own", 0755);
  ::chmod("open", 0757);
  std::filesystem::create_symlink("../open/run", "own/link");
  const struct {
    const char* path;
    uid_t user;
    const char* fault;  ///< null for none
  } cases[] = {{"own/run", ::geteuid(), nullptr},
               {"own/run", ::geteuid() + 1, "it belongs to another user"},
               {"own/wide", ::geteuid(), "it may be written to by others"},
               {"open/run", ::geteuid(), "its folder may be written to by others"},
               {"own/link", ::geteuid(), "its folder may be written to by others"},
               {"own", ::geteuid(), "it is no regular file"},
               {"own/none", ::geteuid(), "No such file or directory"}};
  for (const auto& row : cases) {
    if (row.user != ::geteuid() && ::geteuid() == 0) {
      continue;  // what is root's may be anybody's command
    }
    EXPECT_STREQ(CommandFault(row.path, row.user), row.fault) << row.path;
  }
}

}  // namespace
