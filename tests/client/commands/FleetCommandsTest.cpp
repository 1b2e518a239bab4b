#include "client/ask/AlarmAnswers.h"
#include "client/ask/Errors.h"
#include "client/ask/PushAnswers.h"
#include "client/show/PushText.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/TempFolder.h"

namespace {

constexpr const char* kEndedAlarm = R"({"id": 17, "alarm": "disk-full", "record": "FSL",
  "key": {"Mount Point": "/a\u001b"}, "severity": "warning", "state": "ended",
  "since": 1700000000, "until": 1700000600, "text": "/a is 97.25 % full",
  "values": {"Used %": 97.25, "Free Inodes": null}, "captured": ["PD"]})";
constexpr const char* kActiveAlarm = R"({"id": 18, "alarm": "swap", "record": "PI", "key": {},
  "severity": "bad", "state": "active", "since": 1700000000, "until": null, "text": "t",
  "values": {}, "captured": []})";

Json AlarmListAnswer(const std::string& alarms) {
  return JsonOf(R"({"alarms": {"file": "/e/alarms", "definitions": [
    {"alarm": "swap", "record": "PI", "severity": "bad", "state": "active", "why": "", "active": 1,
     "line": 3},
    {"alarm": "odd", "record": "XX", "severity": "bad", "state": "off", "why": "no such record",
     "active": 0, "line": 9}], "list": [)" +
                alarms + "]}}");
}

Json AlarmWithRows() {
  Json alarm = JsonOf(kEndedAlarm);
  alarm["rows"] = JsonOf(R"([
    {"record": "PD", "time": 1700000000, "rows": [{"PID": 7, "Started": 1700000000}]},
    {"record": "OLD", "time": 1700000000, "rows": [{"A": 1}]},
    {"record": "CGRP", "time": 1700000000, "rows": []}])");
  return {{"alarm", std::move(alarm)}};
}

Json PushStatusAnswer() {
  return JsonOf(R"({"status": {"push": [
    {"name": "central", "url": "https://a.example/w", "error": "", "oldest": 0, "sent_rows": 5,
     "sent_samples": 600, "refused_samples": 1, "skipped_samples": 2, "requests": 3, "failures": 0,
     "bytes": 2048, "seconds": 0.5},
    {"name": "b\u001b", "url": "http://b.example", "error": "503\nslow down", "oldest": 1700000000,
     "sent_rows": 0, "sent_samples": 0, "refused_samples": 0, "skipped_samples": 0, "requests": 3,
     "failures": 3, "bytes": 0, "seconds": 0}],
    "notices": [{"url": "http://am.example", "sent": 4, "failures": 1, "dropped": 0}]}})");
}

class FleetCommandsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Path(const std::string& name) const { return m_folder.Path() / name; }
  Outcome Ask(std::vector<std::string> words, const RunOptions& options = {}) {
    words.insert(words.end(), {"--socket", m_server.Path()});
    return RunProgram(QMTCTL_PATH, words, options);
  }
  /// A program that prints its arguments.
  void WriteEcho(const std::string& name) const {
    std::ofstream(Path(name)) << "#!/bin/sh\necho \"$*\"\nexit 7\n";
    ::chmod(Path(name).c_str(), 0755);
  }

  TempFolder m_folder;
  Json m_alarms = AlarmListAnswer(kActiveAlarm + std::string(",") + kEndedAlarm);
  Json m_status = PushStatusAnswer();
  std::uint64_t m_asked = 0;  ///< the alarm
  const ScriptedServer m_server{
      m_folder.Path(), "sock", [this](const Json& request) {
        const std::string op = request["op"].Text();
        m_asked = op == "alarm" ? request["id"].Unsigned() : m_asked;
        if (op == "schema" && request["record"] == "OLD") {
          return R"({"ok": false, "error": {"code": "unknown-record", "message": "no"}, "id": )" +
                 JsonText(request["id"]) + "}\n";
        }
        return Answer(request,
                      op == "alarms"        ? m_alarms
                      : op == "alarm"       ? AlarmWithRows()
                      : op == "alarm_rules" ? JsonOf(R"({"rules": "groups:\n  - a\u001b\n"})")
                      : op == "status"      ? m_status
                                       : JsonOf(R"({"schema": {"record": "PD", "structure": "s",
      "category": "3", "size": 8, "fields": [{"label": "Started", "type": "long", "offset": 0,
      "width": 4, "meaning": "time"}]}})"));
      }};
};

TEST_F(FleetCommandsTest, ListAlarms) {
  const Outcome list = Ask({"alarms"});
  EXPECT_EQ(list.exit, kExitDone);
  EXPECT_EQ(
      list.out,
      "ID  Since                Until                Severity  Alarm      Key                 "
      "Text\n"
      "18  2023-11-14 22:13:20  active               bad       swap       -                   "
      "t\n"
      "17  2023-11-14 22:13:20  2023-11-14 22:23:20  warning   disk-full  Mount "
      "Point=/a\\x1B  /a is 97.25 % full\n");
  EXPECT_EQ(list.err, "qmtctl: /e/alarms:9: the alarm \"odd\" is off: no such record\n");
  EXPECT_EQ(JsonOf(Ask({"alarms", "--json"}).out), m_alarms["alarms"]);
  static_cast<void>(Ask({"alarms", "--active", "--since", "@5", "--until", "@6"}));
  EXPECT_EQ(m_server.Requests().front(), JsonOf(R"({"op": "alarms", "limit": 1000})"));
  EXPECT_EQ(
      m_server.Requests().back(),
      JsonOf(R"({"op": "alarms", "limit": 1000, "since": 5, "until": 6, "state": "active"})"));
  EXPECT_EQ(Ask({"alarms", "--since", "@6", "--until", "@5"}).exit, kExitUsage);

  for (int i = 2; i < 1000; ++i) {
    m_alarms["alarms"]["list"].PushBack(JsonOf(kEndedAlarm));
  }
  EXPECT_THAT(Ask({"alarms"}).err, HasSubstr("the newest 1000 alarms are shown"));
  m_alarms = AlarmListAnswer("");
  const Outcome none = Ask({"alarms", "--active"});
  EXPECT_EQ(none.exit, kExitDone) << "no alarm is no failure";
  EXPECT_EQ(none.out, "");
  EXPECT_THAT(none.err, HasSubstr("no alarm is active\n"));
  m_alarms["alarms"]["definitions"] = Json::Array();
  EXPECT_EQ(Ask({"alarms"}).err, "qmtctl: no alarm is defined in /e/alarms\n");
}

TEST_F(FleetCommandsTest, ShowAnAlarmAndItsRows) {
  EXPECT_EQ(Ask({"alarms", "show", "17"}).out,
            "Alarm        disk-full\n"
            "Severity     warning\n"
            "Since        2023-11-14 22:13:20\n"
            "Until        2023-11-14 22:23:20\n"
            "Record       FSL\n"
            "Key          Mount Point=/a\\x1B\n"
            "Text         /a is 97.25 % full\n"
            "Used %       97.25\n"
            "Free Inodes  -\n"
            "\nPD  2023-11-14 22:13:20\n"
            "PID  Started\n"
            "  7  2023-11-14 22:13:20\n"
            "\nOLD  2023-11-14 22:13:20\n"
            "A\n"
            "1\n"
            "\nCGRP  2023-11-14 22:13:20\n"
            "no rows\n");
  EXPECT_EQ(m_asked, 17U);
  EXPECT_EQ(JsonOf(Ask({"alarms", "show", "17", "--json"}).out), AlarmWithRows()["alarm"]);
  EXPECT_THAT(Ask({"alarms", "show", "18"}).err, HasSubstr("\"id\" is not the alarm that was"));

  EXPECT_EQ(Ask({"alarms", "rules"}).out, "groups:\n  - a\x1b\n");
  RunOptions terminal;
  terminal.terminal = true;
  EXPECT_EQ(Ask({"alarms", "rules"}, terminal).out, "groups:\r\n  - a\\x1B\r\n");
}

TEST_F(FleetCommandsTest, AnswersThatAreNone) {
  const struct {
    const char* member;
    const char* value;
  } cases[] = {{"id", "-1"},        {"key", R"({"a": [1]})"}, {"state", "\"odd\""},
               {"since", "1.5"},    {"until", "null"},        {"values", R"({"a": {}})"},
               {"captured", "[1]"}, {"severity", "5"}};
  for (const auto& each : cases) {
    Json alarm = JsonOf(kEndedAlarm);
    alarm[each.member] = JsonOf(each.value);
    Json answer = AlarmListAnswer(JsonText(alarm));
    try {
      static_cast<void>(ReadAlarms(answer));
      ADD_FAILURE() << each.member;
    } catch (const ClientError& error) {
      EXPECT_THAT(error.what(), HasSubstr(std::string("\"") + each.member + '"'));
    }
  }
  for (const char* part : {"push", "notices"}) {
    Json answer = PushStatusAnswer();
    answer["status"][part][0].Erase("url");
    EXPECT_THROW(static_cast<void>(ReadPushStatus(answer)), ClientError) << part;
  }
}

TEST_F(FleetCommandsTest, ShowHowPushingGoes) {
  EXPECT_EQ(
      PushText(ReadPushStatus(m_status), 1700090061, {}),
      "Target   URL                  State  Oldest Not Sent  Rows  Samples  Refused  Skipped  "
      "Requests  Failures  Mean Time  Bytes\n"
      "central  https://a.example/w  good                 -     5      600        1        2   "
      "      3         0    0.167 s   2.0K\n"
      "b\\x1B    http://b.example     fails      1d 01:01:01     0        0        0        0   "
      "      3         3    0.000 s      0\n"
      "\n"
      "b\\x1B: 503\\x0Aslow down\n"
      "\n"
      "Receiver of Alarms  Sent  Failures  Dropped\n"
      "http://am.example      4         1        0\n");
  EXPECT_THAT(PushText(ReadPushStatus(m_status), 1699999999, {}),
              HasSubstr("fails         00:00:00"));
  EXPECT_THAT(Ask({"push", "status"}).out, HasSubstr("central  https://a.example/w  good"));
  EXPECT_EQ(JsonOf(Ask({"push", "status", "--json"}).out), m_status["status"]);
  m_status = JsonOf(R"({"status": {}})");
  const Outcome none = Ask({"push", "status"});
  EXPECT_EQ(none.exit, kExitDone);
  EXPECT_EQ(none.out, "");
  EXPECT_THAT(none.err, HasSubstr("nothing is pushed"));
  EXPECT_EQ(JsonOf(Ask({"push", "status", "--json"}).out),
            JsonOf(R"({"push": [], "notices": []})"));
}

TEST_F(FleetCommandsTest, TryTargetsByTheGateBesideTheClient) {
  std::filesystem::create_directories(Path("bin"));
  std::filesystem::create_directories(Path("gate"));
  std::filesystem::copy_file(QMTCTL_PATH, Path("bin/qmtctl"));
  const auto run = [&](std::vector<std::string> words) {
    words.insert(words.end(), {"--socket", Path("sock")});
    RunOptions options;
    options.environment = {"QMT_PRODUCT_ROOT=" + m_folder.Path().string(), "PATH=/nowhere"};
    return RunProgram(Path("bin/qmtctl"), words, options);
  };
  EXPECT_EQ(run({"push", "test"}).exit, kExitUsage);
  EXPECT_THAT(run({"push", "test"}).err, HasSubstr("cannot run qmt_gate: No such file"));
  const bool isRoot = ::geteuid() == 0;
  const std::string user = !isRoot ? "" : " --user (qmtgate|nobody)";
  for (const char* place : {"opt/qmtrx/bin/qmt_gate", "gate/qmt_gate", "bin/qmt_gate"}) {
    std::filesystem::create_directories(std::filesystem::path(Path(place)).parent_path());
    WriteEcho(place);
    const Outcome all = run({"push", "test"});
    EXPECT_EQ(all.exit, 7) << place << all.err;
    EXPECT_TRUE(std::filesystem::remove(Path(place)));
    EXPECT_THAT(all.out, testing::ContainsRegex("^--push-test --control " + Path("sock") + user));
  }
  WriteEcho("bin/qmt_gate");
  EXPECT_THAT(run({"push", "test", "b"}).out, testing::ContainsRegex(" --push b" + user + "\n"));
  std::ofstream(Path("gate.sock")) << "no socket";
  EXPECT_THAT(run({"push", "test"}).out, HasSubstr("--control " + Path("sock")));
  std::filesystem::remove(Path("gate.sock"));
  const ScriptedServer other(m_folder.Path(), "gate.sock", [](const Json&) { return ""; });
  EXPECT_THAT(run({"push", "test"}).out,
              HasSubstr("--control " + Path(isRoot ? "gate.sock" : "sock")));
}

TEST_F(FleetCommandsTest, CheckAFileOfAlarms) {
  WriteEcho("daemon");
  const struct {
    std::vector<std::string> words;
    const char* told;
  } cases[] = {{{"check", "alarms", "a"}, "--check a --kind alarms\n"},
               {{"check", "alarms"}, "--check alarms --kind alarms\n"},
               {{"check", "wgfile"}, "--check wgfile\n"},
               {{"check", "x", "--kind", "ini"}, "--check x --kind ini\n"},
               {{"check", "./alarms"}, "--check ./alarms\n"}};
  for (const auto& each : cases) {
    std::vector<std::string> words = each.words;
    words.insert(words.end(), {"--daemon", Path("daemon")});
    EXPECT_EQ(RunProgram(QMTCTL_PATH, words).out, each.told);
  }
}

}  // namespace
