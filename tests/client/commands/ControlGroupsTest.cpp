#include "client/commands/ControlGroups.h"

#include "client/ask/Errors.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

Json GroupSchemaAnswer() {
  return JsonOf(R"({"schema": {"record": "CGRP", "structure": "recordPI_CGRP",
    "category": "4", "size": 928, "fields": [
      {"label": "Path", "type": "char[512]", "offset": 16, "width": 512, "meaning": "key"},
      {"label": "CPU %", "type": "float", "offset": 736, "width": 4, "meaning": "percent",
       "two_looks": true},
      {"label": "Memory Bytes", "type": "double", "offset": 780, "width": 8, "meaning": "gauge"},
      {"label": "OOM Kills", "type": "double", "offset": 832, "width": 8, "meaning": "counter"},
      {"label": "Reads", "type": "double", "offset": 872, "width": 8, "meaning": "counter"}]}})");
}

/// Four groups; with each look the first has read ten times more, and killed nobody.
Json GroupsAnswer(int turn) {
  Json rows = Json::Array();
  const char* const paths[] = {"/", "/a.slice", "/a.slice/web.service", "/b.slice"};
  for (std::size_t i = 0; i < std::size(paths); ++i) {
    const Json memory = i == 0 ? Json() : Json(100 * i);
    rows.PushBack({{"Path", paths[i]},
                   {"CPU %", 1.5 * turn},
                   {"Memory Bytes", memory},
                   {"OOM Kills", 3},
                   {"Reads", i == 0 ? 10 * turn : 0}});
  }
  return {{"results",
           Json::Array({Json{
               {"record", "CGRP"}, {"category", "4"}, {"time", 1700000000}, {"rows", rows}}})}};
}

/// The real program and a daemon that has control groups, or, under another profile, none.
class ControlGroupsTest : public testing::Test {
 protected:
  Outcome Run(std::vector<std::string> words) {
    words.insert(words.begin(), {"--socket", m_server.Path(), "cgroups", "--over", "0.1"});
    return RunProgram(QMTCTL_PATH, words);
  }
  std::string Reply(const Json& request) {
    if (request["op"] == "status") {
      return Answer(request, JsonOf(R"({"status": {"pid": 1, "uptime_seconds": 1, "version": "",
        "node": "", "host": "", "schedules": [], "last_batch": null, "figures": [],
        "facts": {"host_profile": ")" +
                                    m_profile + R"("}}})"));
    }
    if (request["op"] == "schema") {
      return m_profile == "modern"
                 ? Answer(request, GroupSchemaAnswer())
                 : JsonText({{"id", request["id"]},
                             {"ok", false},
                             {"error", {{"code", "unknown-record"}, {"message", "none"}}}}) +
                       "\n";
    }
    return Answer(request, m_answer.IsNull() ? GroupsAnswer(++m_looks) : m_answer);
  }

  std::string m_profile = "modern";
  Json m_answer;  ///< to each look, if it is not null
  int m_looks = 0;
  ScratchFolder m_folder;
  ScriptedServer m_server{m_folder.Path(), "s",
                          [this](const Json& request) { return Reply(request); }};
};

TEST_F(ControlGroupsTest, ShowWhatHappensBetweenTwoLooks) {
  const Outcome table = Run({});
  EXPECT_EQ(table.exit, kExitDone) << table.err;
  EXPECT_EQ(table.out,
            "Group            Procs  CPU%  Thr%  Memory  Limit%  Swap  Read/s  Write/s  OOM\n"
            "/                    -   3.0     -     400       -     -       -        -    3\n"
            "  b.slice            -   3.0     -     300       -     -       -        -    3\n"
            "  a.slice            -   3.0     -     100       -     -       -        -    3\n"
            "    web.service      -   3.0     -     200       -     -       -        -    3\n");
  EXPECT_EQ(m_looks, 2);
  const Json json = JsonOf(Run({"--json", "--depth", "0"}).out);
  EXPECT_EQ(JsonText(json),
            R"([{"path":"/","name":"/","CPU %":6.0,"Memory Bytes":400.0,"OOM Kills":3,"Reads":10,)"
            R"("children":[]}])")
      << "kills are those of all time, what a group lacks is summed before groups are cut";
}

TEST_F(ControlGroupsTest, ShowTheGroupThatIsAskedFor) {
  for (const char* path : {"/a.slice", "a.slice/"}) {
    const Outcome run = Run({path});
    EXPECT_THAT(run.out, HasSubstr("\na.slice          ")) << run.err;
    EXPECT_THAT(run.out, HasSubstr("\n  web.service    "));
  }
  EXPECT_THAT(Run({"/", "--depth", "1", "--sort", "path"}).out,
              HasSubstr("\n  a.slice      -   9.0"))
      << "the order is that of --sort";
}

TEST_F(ControlGroupsTest, WrongUsageIsTold) {
  const struct {
    std::vector<std::string> words;
    const char* said;
    int looks;
  } cases[] = {
      {{"/a.slice/wbe.service"},
       "no control group \"/a.slice/wbe.service\"; did you mean \"/a.slice/web.service\"?",
       1},
      {{"web.servce"}, "\"/web.servce\"; did you mean \"/a.slice/web.service\"?", 1},
      {{"/somewhere/else"}, "; \"qmtctl cgroups\" shows those it has", 1},
      {{"--sort", "memry bytes"}, "did you mean \"Memory Bytes\"?", 0},
      {{"--depth", "-1"}, "--depth", 0},
      {{"--over", "0"}, "--over", 0},
  };
  for (const auto& row : cases) {
    m_looks = 0;
    const Outcome run = Run(row.words);
    EXPECT_EQ(run.exit, kExitUsage);
    EXPECT_THAT(run.err, HasSubstr(row.said));
    EXPECT_EQ(m_looks, row.looks);
  }
}

TEST_F(ControlGroupsTest, WithoutTheRecordTheReasonIsTold) {
  m_profile = "classic";
  const Outcome classic = Run({});
  EXPECT_EQ(classic.exit, kExitFailed);
  EXPECT_EQ(classic.out, "");
  EXPECT_THAT(classic.err, HasSubstr("CGRP is there under the host profile modern alone, and this "
                                     "agent's is classic"));
  m_profile = "modern";
  m_answer = JsonOf(R"({"results": [{"record": "CGRP",
    "error": {"code": "failed", "message": "no luck"}}]})");
  const Outcome failed = Run({});
  EXPECT_EQ(failed.exit, kExitFailed);
  EXPECT_EQ(failed.err, "qmtctl: CGRP: no luck (failed)\n");
  m_answer = JsonOf(R"({"results": [{"record": "CGRP", "category": "4", "time": 1, "rows": []}]})");
  EXPECT_EQ(Run({}).err, "qmtctl: CGRP: no rows\n");
  EXPECT_EQ(Run({"--json"}).out, "[]\n");
}

}  // namespace
