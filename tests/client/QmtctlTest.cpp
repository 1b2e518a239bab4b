#include "client/ask/Errors.h"
#include "client/show/TerminalCodes.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using testing::MatchesRegex;

Json SchemaAnswer() {
  return JsonOf(R"({"schema": {"record": "CPUP", "structure": "recordPI_CPUP",
    "category": "4", "size": 188, "fields": [
      {"label": "Record Time", "type": "long", "offset": 8, "width": 4, "meaning": "time"},
      {"label": "Processor ID", "type": "char[12]", "offset": 16, "width": 12, "meaning": "key"},
      {"label": "CPU %", "type": "float", "offset": 116, "width": 4, "meaning": "percent"}]}})");
}

/// A record of which only two looks say something.
Json OpsSchemaAnswer() {
  return JsonOf(R"({"schema": {"record": "OPS", "structure": "recordOps",
    "category": "4", "size": 188, "fields": [
      {"label": "Interval", "type": "ulong", "offset": 12, "width": 4, "meaning": "duration"},
      {"label": "Ops", "type": "ulong", "offset": 16, "width": 4, "meaning": "counter"},
      {"label": "Ops/sec", "type": "float", "offset": 20, "width": 4, "meaning": "rate", "of": "Ops"},
      {"label": "Busy %", "type": "float", "offset": 24, "width": 4, "meaning": "percent",
       "two_looks": true}]}})");
}

Json StatusAnswer() {
  return JsonOf(R"({"status": {"pid": 4711, "uptime_seconds": 93784.2, "version": "0.1.0",
    "node": "n1", "http": "127.0.0.1:9964", "host": "h\u001b1", "schedules": [{"record": "CPUP", "category": "4",
    "seconds": 60, "runs": 3, "rows": 2, "last_time": 1700000000, "skipped": 1}],
    "last_batch": {"age_seconds": 1.5, "duration_seconds": 0.25, "records": 8, "errors": 2},
    "facts": {"host_profile": "modern", "process_source": "proc",
      "process_source_reason": "/x: \u001bgone"},
    "figures": [{"name": "kernel_variant", "help": "", "kind": "gauge", "value": 3.0},
      {"name": "collect_process_skipped", "help": "", "kind": "gauge", "value": 2.0}]}})");
}

Json ConfigAnswer() {
  return JsonOf(R"({"config": {"children": [{"kind": "folder", "label": "Agent", "help": "",
    "children": [{"kind": "text", "id": 15, "label": "Count", "help": "How many.",
    "value": "1440", "max_length": 2048, "flags": [0, 1]}, {"kind": "text", "id": 17,
    "label": "Day", "help": "", "value": "x", "max_length": 8, "flags": [0, 1]}]}]}})");
}

/// What a change of each item comes to: item 1 is done, item 2 refused and so on; item 6 is done.
Json ConfigSetAnswer(const Json& request) {
  static constexpr std::array kOutcomes{"done", "refused", "not-written", "failed"};
  static constexpr std::array kCodes{0, -36, 1, -1};
  const std::size_t item = request["item"].Unsigned();
  const std::size_t place = item == 6 ? 0 : (item - 1) % kOutcomes.size();
  return {
      {"result", {{"item", item}, {"outcome", kOutcomes.at(place)}, {"code", kCodes.at(place)}}}};
}

/// One processor a row, the percentages moving from request to request.
Json ResultOf(const std::string& record, int turn) {
  Json result{{"record", record}};
  if (record == "GONE" || record == "cpuq") {
    result["error"] = {{"code", "unknown-record"}, {"message", "no such record\x1b"}};
    return result;
  }
  result["category"] = record == "PD" ? "3" : "4";
  result["time"] = 1700000000;
  if (record == "OPS") {
    const Json ops = 1000 * turn * turn;
    result["rows"] = {{{"Interval", 1700000000}, {"Ops", ops}, {"Ops/sec", ops}, {"Busy %", turn}}};
    return result;
  }
  result["rows"] = Json::Array();
  for (int cpu = 0; cpu < (record == "NONE" ? 0 : 2); ++cpu) {
    result["rows"].PushBack({{"Record Time", 1700000000},
                             {"Processor ID", std::to_string(cpu)},
                             {"CPU %", 10.5 * cpu + turn},
                             {"Type", "A, \"B\"\n"}});
  }
  return result;
}

/// Two processes: 7 is the greater, 8 uses half a second of CPU from request to request.
Json ProcessesOf(int turn) {
  Json result{{"record", "PDI"}, {"category", "3"}, {"time", 1700000000}, {"rows", Json::Array()}};
  for (int pid = 7; pid <= 8; ++pid) {
    result["rows"].PushBack({{"Record Time", 1700000000},
                             {"PID", pid},
                             {"Program", "p\x1b"},
                             {"User", "root"},
                             {"Start Time", 1699999900},
                             {"User CPU", pid == 8 ? 0.5 * turn : 50},
                             {"System CPU", 0.0},
                             {"Major Faults", 0},
                             {"Real Mem Kbytes", pid == 7 ? 900 : 100},
                             {"Virtual Mem Kbytes", 1000},
                             {"State", "RUN"},
                             {"Total I/O Ops", 0},
                             {"Total I/O Kbytes", 0.0},
                             {"Argument List", ""}});
  }
  return result;
}

std::string Daemon(const Json& request, int turn) {
  const std::string op = request["op"].Text();
  if (op == "schema") {
    return Answer(request, request["record"] == "OPS" ? OpsSchemaAnswer() : SchemaAnswer());
  }
  if (op == "status") {
    return Answer(request, StatusAnswer());
  }
  if (op == "config") {
    return Answer(request, ConfigAnswer());
  }
  if (op == "config_set") {
    return Answer(request, ConfigSetAnswer(request));
  }
  if (op == "history") {
    return Answer(request, {{"history",
                             {{"record", request["record"]},
                              {"category", "4"},
                              {"rows", Json::Array()},
                              {"next", nullptr}}}});
  }
  if (op.starts_with("schedule_")) {
    return Answer(request, Json::Object());
  }
  if (op == "records") {
    return Answer(request, JsonOf(R"({"records": [
        {"record": "CPUP", "category": "4", "served": true, "layout": true},
        {"record": "OPS", "category": "4", "served": false, "layout": true},
        {"record": "PD", "category": "3", "served": false, "layout": false}]})"));
  }
  Json results = Json::Array();
  for (const Json& name : request["records"].Elements()) {
    const std::string record = (name.IsString() ? name : name["record"]).Text();
    results.PushBack(record == "PDI" ? ProcessesOf(turn) : ResultOf(record, turn));
  }
  return Answer(request, {{"results", std::move(results)}});
}

/// The real program against the daemon above.
class Qmtctl : public testing::Test {
 protected:
  Outcome Run(std::vector<std::string> words, const RunOptions& options = {}) {
    words.insert(words.begin(), {"--socket", m_server.Path()});
    return RunProgram(QMTCTL_PATH, words, options);
  }

  ScratchFolder m_folder;
  int m_turn = 0;
  ScriptedServer m_server{m_folder.Path(), "s", [this](const Json& request) {
                            m_turn += request["op"] == "get" ? 1 : 0;
                            return Daemon(request, m_turn);
                          }};
};

TEST_F(Qmtctl, GetShowsATableOfOneSnapshot) {
  const Outcome run = Run({"get", "CPUP", "--rates"});
  EXPECT_EQ(run.exit, kExitDone) << run.err;
  EXPECT_EQ(run.out,
            "Record Time          Processor ID  CPU %  Type\n"
            "2023-11-14 22:13:20  0               1.0  A, \"B\"\\x0A\n"
            "2023-11-14 22:13:20  1              11.5  A, \"B\"\\x0A\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(m_server.Requests().at(1)["op"], "schema") << "nothing can be asked while rows come";
  EXPECT_EQ(JsonText(m_server.Requests().at(2)), R"({"op":"get","records":["CPUP"],"rates":true})");
}

TEST_F(Qmtctl, GetPrintsJsonInTheOrderAsked) {
  const Outcome run = Run({"get", "3:PD", "NONE", "CPUP", "--json"});
  EXPECT_EQ(run.exit, kExitDone);
  EXPECT_EQ(run.err, "");
  const Json array = JsonOf(run.out);
  ASSERT_EQ(array.Size(), 3u);
  EXPECT_EQ(array[0]["category"], "3");
  EXPECT_EQ(array[1]["rows"], Json::Array());
  EXPECT_EQ(JsonText(array[2]["rows"][1]),
            R"({"Record Time":1700000000,"Processor ID":"1","CPU %":11.5,"Type":"A, \"B\"\n"})");
  EXPECT_EQ(m_turn, 1) << "one look says all of these";
}

TEST_F(Qmtctl, GetShowsWhatHappensBetweenTwoLooks) {
  const Outcome run = Run({"get", "CPUP", "OPS", "--over", "0.2", "--json", "--where", "Ops>2000",
                           "--where", "CPU %>=2"});
  EXPECT_EQ(run.exit, kExitUsage) << "each record needs the fields that are chosen by";
  const Json json = JsonOf(Run({"get", "OPS", "CPUP", "--over", "0.2", "--json"}).out);
  EXPECT_EQ(json[1]["rows"][0]["CPU %"], 2.0) << "all records are those of the second look";
  const Json row = json[0]["rows"][0];
  const double seconds = row["Interval"].Number();
  EXPECT_GE(seconds, 0.15);
  EXPECT_LT(seconds, 10);
  EXPECT_EQ(row["Ops"], 3000);
  EXPECT_NEAR(row["Ops/sec"].Number(), 3000 / seconds, 0.1);
  EXPECT_EQ(row["Busy %"], 2);
  EXPECT_EQ(m_turn, 2);
  EXPECT_EQ(m_server.Connections(), 2);
  EXPECT_EQ(
      Run({"get", "OPS", "--over", "0.1", "--columns", "Ops", "--where", "Ops=7000", "--csv"}).out,
      "Ops\n7000\n");

  // One look each: turns 5 and 6.
  EXPECT_EQ(Run({"get", "OPS", "--raw", "--csv"}).out,
            "Interval,Ops,Ops/sec,Busy %\n1700000000,25000,25000,5\n");
  EXPECT_THAT(Run({"get", "OPS", "--since-boot"}).out, HasSubstr("36000"));
  EXPECT_EQ(m_turn, 6);
  EXPECT_EQ(m_server.Requests().back()["op"], "get");
  EXPECT_THAT(Run({"last", "OPS", "--csv"}).out, HasSubstr("1700000000,36000,"));
}

TEST_F(Qmtctl, WatchComparesFromItsSecondSampleOn) {
  std::istringstream lines(Run({"watch", "OPS", "--every", "0.1", "--count", "3", "--json"}).out);
  const struct { Json ops, busy; } samples[] = {{nullptr, nullptr}, {3000, 2}, {5000, 3}};
  for (const auto& sample : samples) {
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const Json row = JsonOf(line)[0]["rows"][0];
    EXPECT_EQ(row["Ops"], sample.ops);
    EXPECT_EQ(row["Busy %"], sample.busy);
    EXPECT_EQ(row["Ops/sec"].IsNull(), sample.ops.IsNull());
  }
  EXPECT_THAT(Run({"watch", "OPS", "--every", "1", "--count", "1"}).out,
              HasSubstr("-    -        -       -\n"));
  EXPECT_THAT(Run({"watch", "OPS", "--every", "1", "--count", "1", "--raw", "--json"}).out,
              HasSubstr(R"("Ops/sec":25000)"));
}

TEST_F(Qmtctl, GoodRecordsAreShownAndBadOnesNamed) {
  const Outcome table = Run({"get", "CPUP", "GONE", "NONE"});
  EXPECT_EQ(table.exit, kExitFailed);
  EXPECT_THAT(table.out, HasSubstr("4:CPUP  2023-11-14 22:13:20\nRecord Time"));
  EXPECT_EQ(table.err,
            "qmtctl: no record \"GONE\"; \"qmtctl records\" shows those there are\n"
            "qmtctl: NONE: no rows\n");
  const Outcome json = Run({"get", "GONE", "--json"});
  EXPECT_EQ(json.exit, kExitFailed);
  EXPECT_EQ(json.out, "[]\n");
}

TEST_F(Qmtctl, NamesOfRecordsAreThoseThatAreMeant) {
  // Each command that takes a record, and the request that it comes to.
  const struct {
    std::vector<std::string> words;
    const char* asked;
  } good[] = {{{"get", "cpup", "--raw"}, R"("op":"get","records":["CPUP"])"},
              {{"last", "4:cpup"}, R"({"record":"CPUP","category":"4"})"},
              {{"watch", "Cpup", "--raw", "--every", "1", "--count", "1"}, R"("records":["CPUP"])"},
              {{"history", "cpup", "--csv"}, R"("op":"history","record":"CPUP")"},
              {{"schema", "cpup"}, R"("op":"schema","record":"CPUP")"},
              {{"schedule", "add", "cpup", "9"}, R"("op":"schedule_set","record":"CPUP")"},
              {{"schedule", "remove", "cpup"}, R"("op":"schedule_remove","record":"CPUP")"}};
  for (const auto& entry : good) {
    const std::size_t before = m_server.Requests().size();
    static_cast<void>(Run(entry.words));
    std::string asked;
    const std::vector<Json> requests = m_server.Requests();
    for (std::size_t i = before; i < requests.size(); ++i) {
      asked += JsonText(requests[i]);
    }
    EXPECT_THAT(asked, HasSubstr(entry.asked)) << entry.words.front();
    EXPECT_THAT(asked, Not(HasSubstr("cpup")));
  }
  for (const char* words :
       {"get cpuq", "last cpuq", "watch cpuq --every 1", "history cpuq", "schema cpuq",
        "show cpuq --at 1h", "schedule add cpuq 9", "schedule remove cpuq"}) {
    const Outcome run = Run(WordsOf(words));
    EXPECT_EQ(run.exit, kExitFailed) << words;
    EXPECT_EQ(run.err, "qmtctl: no record \"cpuq\"; did you mean \"CPUP\"?\n") << words;
  }
}

TEST_F(Qmtctl, OtherCommandsShowWhatTheDaemonSays) {
  EXPECT_EQ(Run({"records"}).out,
            "Record  Category  Served\n"
            "CPUP    4         yes\n"
            "OPS     4         no\n"
            "PD      3         no\n");
  EXPECT_THAT(Run({"schema", "4:CPUP"}).out,
              HasSubstr("Offset  Width  Type      Label         Meaning\n"
                        "     8      4  long      Record Time   time\n"));
  EXPECT_THAT(JsonText(m_server.Requests().back()), HasSubstr(R"("record":"CPUP","category":"4")"));
  EXPECT_EQ(Run({"status"}).out,
            "Process         4711\n"
            "Version         0.1.0\n"
            "Node            n1\n"
            "Host            h\\x1B1\n"
            "Metrics         http://127.0.0.1:9964/metrics\n"
            "Up time         1d 02:03:04\n"
            "Host profile    modern\n"
            "Process source  proc: /x: \\x1Bgone\n"
            "Kernel variant  3\n"
            "Skipped         2 processes\n"
            "Last batch      1.500 s ago, took 0.250 s, records 8, errors 2\n"
            "\n"
            "Schedule  Category  Seconds  Runs  Rows  Skipped  Last Time\n"
            "CPUP      4              60     3     2        1  2023-11-14 22:13:20\n");
  EXPECT_EQ(JsonOf(Run({"status", "--json"}).out), StatusAnswer()["status"]);
  EXPECT_EQ(JsonOf(Run({"schema", "CPUP", "--json"}).out), SchemaAnswer()["schema"]);
}

TEST_F(Qmtctl, ConfigShowsTheTree) {
  EXPECT_EQ(Run({"config"}).out,
            "Agent\n"
            "     15  Count: 1440\n"
            "           How many.\n"
            "     17  Day: x\n");
  EXPECT_EQ(JsonOf(Run({"config", "--json"}).out), ConfigAnswer()["config"]);
}

TEST_F(Qmtctl, ConfigSetTellsTheOutcomeByWordAndExitValue) {
  const struct {
    std::vector<std::string> words;
    const char* sent;
    int exit;
    const char* said;
  } cases[] = {
      {{"17", "07:30"},
       R"("item":17,"value":"07:30")",
       kExitDone,
       "done: item 17 (Day) is set to \"07:30\", in use from the next collection on\n"},
      {{"1002", ""}, R"("item":1002,"value":"")", kExitRefused, "or there is no such item"},
      {{"15", "status"}, R"("item":15,"value":"status")", kExitNotWritten, "qmtctl: not written: "},
      {{"4", "set"}, R"("item":4,"value":"set")", kExitFailed, "(code -1)"},
      {{"6", "y"},
       R"("item":6,"value":"y")",
       kExitDone,
       "in use from the daemon's next start on\n"},
      {{"17", "-5"}, R"("item":17,"value":"-5")", kExitDone, "done: "},
      {{"17", "--", "--x"}, R"("item":17,"value":"--x")", kExitDone, "done: "},
      {{"65533", "a b\n"}, R"("item":65533,"value":"a b\n")", kExitDone, "\"a b\\x0A\""},
      {{"99", "foo"}, R"("op":"config")", kExitRefused, "refused: this host has no setting 99;"},
      {{"3", "24:00"}, R"("op":"config")", kExitRefused, "refused: this host has no setting 3;"},
  };
  for (const auto& entry : cases) {
    std::vector<std::string> words{"config", "set"};
    words.insert(words.end(), entry.words.begin(), entry.words.end());
    const Outcome run = Run(words);
    EXPECT_EQ(run.exit, entry.exit) << run.err;
    EXPECT_THAT(run.exit == kExitDone ? run.out : run.err, HasSubstr(entry.said));
    EXPECT_THAT(JsonText(m_server.Requests().back()), HasSubstr(entry.sent));
  }
  for (const std::string& value : {std::string("\xff"), std::string(70000, 'x')}) {
    EXPECT_EQ(Run({"config", "set", "17", value}).exit, kExitUsage);
    EXPECT_EQ(m_server.Requests().back()["op"], "config") << "the change is not sent";
  }
}

TEST_F(Qmtctl, ChangesAndEmptyAnswersSayWhatIsSo) {
  const struct {
    std::vector<std::string> words;
    int exit;
    const char* said;
  } cases[] = {
      {{"schedule", "add", "OPS", "1"}, kExitDone, "OPS is collected every second, from now on\n"},
      {{"schedule", "add", "CPUP", "10"},
       kExitDone,
       "CPUP is collected every 10 s, no longer every 60 s; next in 10 s\n"},
      {{"schedule", "add", "OPS", "010"}, kExitDone, "OPS is collected every 10 s, from now on\n"},
      {{"schedule", "add", "CPUP", "60"}, kExitDone, "every 60 s, as before; next in 60 s\n"},
      {{"schedule", "remove", "CPUP"}, kExitDone, "CPUP is collected no more, from now on"},
      {{"history", "CPUP"}, kExitFailed, "kept; the record is collected every 60 s\n"},
      {{"history", "OPS"}, kExitFailed, "kept, and no schedule collects the record; \"qmtctl sch"},
      {{"get", "CPUP", "--sort", "xyz"}, kExitUsage, "\"qmtctl schema CPUP\" shows those it has"},
      {{"getCPUP"}, kExitUsage, "qmtctl: no command \"getCPUP\"; \"qmtctl help\" tells more\n"},
      {{"app", "ad", "x"}, kExitUsage, "qmtctl: no command \"ad\"; did you mean \"add\"?\n"},
      {{"app", "--ad"}, kExitUsage, "qmtctl: no option \"--ad\"; \"qmtctl help app\" tells more\n"},
      {{"complete-labels", "--", "qmtctl", "last", "4:CPUP", "--sort"},
       kExitDone,
       "Record Time\nProcessor ID\nCPU %\n"},
      {{"history", "CPUP", "--since", "1m", "--until", "5m"},
       kExitUsage,
       "the end (--until 5m) lies before the beginning (--since 1m)\n"},
  };
  for (const auto& entry : cases) {
    const Outcome run = Run(entry.words);
    EXPECT_EQ(run.exit, entry.exit) << run.err;
    EXPECT_THAT(run.exit == kExitDone ? run.out : run.err, HasSubstr(entry.said));
  }
  EXPECT_EQ(Run({"complete-labels", "--", "qmtctl", "get", "OPS", "PD"}).out, "");
}

TEST_F(Qmtctl, WatchKeepsOneConnectionAndEndsBySignal) {
  RunOptions options;
  options.onOutput = [](int pid, const std::string& out) {
    if (std::count(out.begin(), out.end(), '\n') >= 3) {
      ::kill(pid, SIGINT);
    }
  };
  const Outcome run = Run({"watch", "CPUP", "--every", "0.1", "--json"}, options);
  EXPECT_EQ(run.exit, kExitDone) << run.err;
  std::istringstream lines(run.out);
  std::string line;
  for (double turn = 1; turn <= 3; ++turn) {
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(JsonOf(line)[0]["rows"][0]["CPU %"], turn);
  }
  EXPECT_EQ(m_server.Connections(), 1);
}

TEST_F(Qmtctl, WatchCountsItsSamples) {
  const auto start = std::chrono::steady_clock::now();
  const Outcome run = Run({"watch", "CPUP", "GONE", "--every", "0.2", "--count", "3"});
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
  EXPECT_EQ(run.exit, kExitFailed);
  EXPECT_THAT(run.out, HasSubstr("0               2.0"));
  EXPECT_THAT(run.out, HasSubstr("\n\n4:CPUP"));
  EXPECT_EQ(run.err, "qmtctl: no record \"GONE\"; \"qmtctl records\" shows those there are\n");
  EXPECT_EQ(Run({"watch", "GONE", "--every", "1"}).exit, kExitFailed);
  EXPECT_EQ(Run({"watch", "CPUP", "--scheduled", "--count", "1"}).exit, kExitDone);
  EXPECT_EQ(Run({"watch", "CPUP", "GONE", "--scheduled", "--count", "1"}).exit, kExitFailed);
}

TEST_F(Qmtctl, ADaemonThatEndsLeavesTheLastFrameWhole) {
  int looks = 0;
  const ScriptedServer server(m_folder.Path(), "ends", [&looks](const Json& request) {
    const bool isLook = request.Find("records") != nullptr;
    return isLook && ++looks % 2 == 0 ? ScriptedServer::kHangUp : Daemon(request, 1);
  });
  RunOptions terminal;
  terminal.terminal = true;
  for (const char* how : {"--every=0.1", "--scheduled"}) {
    const Outcome run = RunProgram(
        QMTCTL_PATH, {"--socket", server.Path(), "watch", "CPUP", "GONE", how}, terminal);
    EXPECT_EQ(run.exit, kExitFailed) << how;
    EXPECT_THAT(run.out, testing::EndsWith("\r\n")) << how;
    EXPECT_THAT(run.err, MatchesRegex("qmtctl: no record \"GONE\";.*\nqmtctl: .*\n")) << how;
  }
}

TEST_F(Qmtctl, ATerminalGetsColourWidthAndRedrawing) {
  RunOptions terminal;
  terminal.terminal = true;
  const TerminalCodes codes = CodesOfTerminal("xterm");
  const Outcome get = Run({"get", "CPUP"}, terminal);
  EXPECT_THAT(get.out, HasSubstr(codes.bold + "Record Time          Processor ID  CPU %" +
                                 codes.plain + "\r\n"));
  EXPECT_THAT(get.out, HasSubstr("\r\n\r\n\x1b[1mProcessor ID  Type"));
  const Outcome watch = Run({"watch", "CPUP", "--every", "0.1", "--count", "2"}, terminal);
  EXPECT_THAT(watch.out, testing::StartsWith("\x1b[H\x1b[J\x1b[1m4:CPUP"));
  EXPECT_THAT(Run({"last", "CPUP", "--csv"}, terminal).out, HasSubstr("\"A, \"\"B\"\"\\x0A\"\r\n"));
  terminal.environment = {"NO_COLOR=1"};
  EXPECT_THAT(Run({"get", "CPUP"}, terminal).out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(Run({"get", "CPUP", "--color", "always"}).out, HasSubstr("\x1b[1mRecord Time"));
}

TEST_F(Qmtctl, ChoicesHoldForEachFormAndNeedNoRows) {
  EXPECT_EQ(Run({"get", "CPUP", "--where", "CPU %>5", "--columns", "cpu %,Processor ID"}).out,
            "CPU %  Processor ID\n 11.5  1\n");
  EXPECT_EQ(Run({"last", "CPUP", "--sort", "-Processor ID", "--columns", "CPU %", "--columns",
                 "Processor ID", "--csv"})
                .out,
            "CPU %,Processor ID\n11.5,1\n1.0,0\n");
  const Outcome none = Run({"watch", "CPUP", "--every", "1", "--count", "1", "--json", "--where",
                            "Processor ID=0", "--where", "Processor ID=1"});
  EXPECT_THAT(none.out, HasSubstr(R"("rows":[])"));
  const std::size_t before = m_server.Requests().size();
  const Outcome unknown = Run({"get", "NONE", "--where", "Procesor ID=0"});
  EXPECT_EQ(unknown.exit, kExitUsage);
  EXPECT_THAT(unknown.err, HasSubstr("\"Procesor ID\"; did you mean \"Processor ID\"?"));
  EXPECT_EQ(m_server.Requests().size(), before + 2) << "nothing is collected for a wrong choice";
}

TEST_F(Qmtctl, TopComparesItsLooks) {
  const Outcome run = Run({"top", "--every", "0.5", "--count", "2", "--rows", "1"});
  EXPECT_EQ(run.exit, kExitDone) << run.err;
  EXPECT_THAT(run.out,
              testing::StartsWith("2023-11-14 22:13:20  2 processes  by cpu, since start"));
  EXPECT_THAT(run.out, HasSubstr("\np\\x1B      7  root  RUN     50.0     50.00     900"));
  EXPECT_THAT(run.out, HasSubstr("\np\\x1B      8  root  RUN    "));
  EXPECT_EQ(m_server.Connections(), 1);
  RunOptions terminal;
  terminal.terminal = true;
  terminal.onOutput = [](int pid, const std::string&) { ::kill(pid, SIGINT); };
  const Outcome redrawn = Run({"top", "--by", "memory"}, terminal);
  EXPECT_EQ(redrawn.exit, kExitDone) << redrawn.err;
  EXPECT_THAT(redrawn.out, testing::StartsWith("\x1b[H\x1b[J"));
  EXPECT_THAT(redrawn.out, HasSubstr("p\\x1B      7"));
  EXPECT_THAT(redrawn.out, testing::EndsWith("\r\n"));
}

TEST_F(Qmtctl, JsonOnATerminalSteersNothingAndIsOfTheSameValue) {
  const std::string odd =
      "\xc2\x9b"
      "2J\x7f\xe2\x80\xae";
  const ScriptedServer server(m_folder.Path(), "t", [&](const Json& request) {
    Json result = ResultOf("CPUP", 1);
    result["rows"][0]["Type"] = odd;
    return request["op"] == "get" ? Answer(request, {{"results", Json::Array({result})}})
                                  : Daemon(request, 1);
  });
  const std::vector<std::string> words{"--socket", server.Path(), "get", "CPUP", "--json"};
  const Outcome piped = RunProgram(QMTCTL_PATH, words);
  RunOptions options;
  options.terminal = true;
  const Outcome shown = RunProgram(QMTCTL_PATH, words, options);
  EXPECT_THAT(piped.out, HasSubstr(odd));
  EXPECT_THAT(shown.out, HasSubstr(R"("\u009b2J\u007f\u202e")"));
  EXPECT_EQ(JsonOf(shown.out), JsonOf(piped.out));
}

TEST_F(Qmtctl, PagesThatDoNotFollowEachOtherAreFailures) {
  const struct {
    const char* second;
    const char* words;
  } cases[] = {
      {R"({"rows": [{"B": 2}], "next": null})", "rows of one record with different labels"},
      {R"({"rows": [], "next": [1, 1]})", "the pages of CPUP that the daemon gives"}};
  for (const auto& each : cases) {
    int pages = 0;
    const ScriptedServer server(
        m_folder.Path(), each.words[0] == 'r' ? "r" : "p", [&](const Json& request) {
          if (request["op"] != "history") {
            return Daemon(request, 1);
          }
          Json page =
              JsonOf(++pages == 1 ? R"({"rows": [{"A": 1}], "next": [1, 1]})" : each.second);
          page["record"] = "CPUP";
          page["category"] = "4";
          return pages > 9 ? ScriptedServer::kHangUp : Answer(request, {{"history", page}});
        });
    const Outcome outcome =
        RunProgram(QMTCTL_PATH, {"--socket", server.Path(), "history", "CPUP", "--csv"});
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_EQ(outcome.out, "A\n1\n");
    EXPECT_THAT(outcome.err, HasSubstr(each.words));
  }
}

TEST_F(Qmtctl, AReaderThatLeftEndsItQuietly) {
  RunOptions options;
  options.closedReader = true;
  const Outcome run = Run({"watch", "CPUP", "--every", "1"}, options);
  EXPECT_EQ(run.exit, kExitDone);
  EXPECT_EQ(run.err, "");
  const Outcome help = Run({"--help"}, options);
  EXPECT_EQ(help.exit, kExitDone);
  EXPECT_EQ(help.err, "");
}

TEST(QmtctlAlone, WrongUsageExitsWith2) {
  std::vector<std::vector<std::string>> cases{{"status", "--socket", ""}};
  std::istringstream lines(
      "bogus, get, get CPUP --json --csv, get 5:CPUP, get CPUP --color pink, records CPUP, "
      "schema CPUP PI, config CPUP, config set, config set 3, config set 3 x y, "
      "config set x y, config set -3 y, config set 65536 y, config set 3 y --json, watch CPUP, "
      "watch CPUP --every 0.05, watch CPUP --every nan, watch CPUP --every 1 --count 0, "
      "watch CPUP --every 1 --csv, top --by name, top --every 0, top --count 0, "
      "get CPUP --where, get CPUP --over 0, get CPUP --raw --over 1, "
      "get CPUP --raw --since-boot, watch CPUP --scheduled --raw, alarms --since soon, "
      "alarms show, alarms show x, alarms show 1 --active, alarms rules --json, push, "
      "push test a b, check, check x alarms, watch CPUP --every 1 --count=-1, top --rows=-1, "
      "top --count 99999999999999999999, cgroups --depth=-1, capture /x/y --every 0x2, "
      "capture /x/y --count 2.0, userdata check UPI x --limit=-1, userdata clear UPI --wait=-1, "
      "schedule add PI +5, schedule add PI 0, alarms show 0x1f, app set x 1_0 --name y, "
      "workgroup explain --pid 1.5, cert new --out /x/y --days 1e2, replay /x/y --speed nan");
  for (std::string line; std::getline(lines, line, ',');) {
    cases.push_back(WordsOf(line));
  }
  for (const auto& words : cases) {
    const Outcome run = RunProgram(QMTCTL_PATH, words);
    EXPECT_EQ(run.exit, kExitUsage) << testing::PrintToString(words);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, testing::StartsWith("qmtctl: ")) << testing::PrintToString(words);
  }
}

TEST(QmtctlAlone, OffersPlainNamesOfRecordsAlone) {
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [](const Json& request) {
    return Answer(request, JsonOf(R"({"records": [
        {"record": "`x`", "category": "4", "served": true, "layout": true},
        {"record": "PI", "category": "4", "served": true, "layout": true}]})"));
  });
  EXPECT_EQ(RunProgram(QMTCTL_PATH, {"complete-records", "--socket", server.Path()}).out, "PI\n");
}

TEST(QmtctlAlone, SaysWhichDaemonIsMissing) {
  const ScratchFolder folder;
  RunOptions options;
  options.environment = {"QMT_PRODUCT_ROOT=" + folder.Path()};
  const Outcome run = RunProgram(QMTCTL_PATH, {"get", "CPUP"}, options);
  EXPECT_EQ(run.exit, kExitFailed);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, HasSubstr(folder.Path() + "/opt/qmtrx/mond/agent/run/control.sock"));
  EXPECT_THAT(run.err, HasSubstr("qmtdmon seems not to run"));

  const Outcome version = RunProgram(QMTCTL_PATH, {"--version"});
  EXPECT_EQ(version.exit, kExitDone);
  EXPECT_EQ(version.out, "qmtctl " QMT_VERSION "\n");
}

TEST(QmtctlAlone, AForeignServerIsAFailureOfEveryCommand) {
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [](const Json& request) {
    return Answer(request, {{"results", 1},
                            {"schema", "x"},
                            {"status", {}},
                            {"records", {1}},
                            {"config", {}},
                            {"result", {}}});
  });
  for (const char* text :
       {"get CPUP", "last CPUP", "watch CPUP --every 1", "schema CPUP", "status", "records",
        "config", "top", "config set 3 x", "alarms", "alarms show 1", "alarms rules"}) {
    std::vector<std::string> words = WordsOf(text);
    words.insert(words.end(), {"--socket", server.Path()});
    const Outcome run = RunProgram(QMTCTL_PATH, words);
    EXPECT_EQ(run.exit, kExitFailed) << words.front();
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("qmtctl: broken answer")) << words.front();
  }
}

}  // namespace
