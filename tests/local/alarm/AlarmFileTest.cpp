#include "local/alarm/AlarmFile.h"

#include <span>

#include "local/alarm/AlarmRules.h"
#include "tests/local/alarm/AlarmHarness.h"
#include "tests/support/Testing.h"

namespace {

/// A figure of two looks, or a counter.
constexpr FieldLayout FieldOf(const char* label, FieldMeaning meaning, const char* growthOf = "",
                              const char* growthBy = "") {
  return {label, FieldType::kFloat, 24, 4, meaning, "", "", true, "", true, growthOf, growthBy};
}

/// Publishes TOLD, whose rows tell what a program was started with, BARE without a time and CGRP,
/// whose rows are bounded.
void PublishMoreRecords() {
  static constexpr std::array kTold{
      FieldLayout{"Record Time", FieldType::kLong, 8, 4, FieldMeaning::time},
      FieldLayout{"Command Line", FieldType::kText, 12, 8, FieldMeaning::text}};
  static constexpr RecordLayout kToldLayout{"TOLD", "recordFake", '4', sizeof(recordFake), kTold};
  static constexpr RecordLayout kBareLayout{"BARE", "recordFake", '4', sizeof(recordFake),
                                            std::span(kTold).last<1>()};
  static constexpr std::array kGroup{
      kTold[0],
      FieldLayout{"Path", FieldType::kText, 12, 8, FieldMeaning::key},
      FieldOf("Read Seconds", FieldMeaning::counter),
      FieldOf("Reads", FieldMeaning::counter),
      FieldOf("User Seconds", FieldMeaning::counter),
      FieldOf("User %", FieldMeaning::percent),
      FieldOf("Read %", FieldMeaning::percent, "Read Seconds"),
      FieldOf("User Read %", FieldMeaning::percent, "Read Seconds", "User Seconds"),
      FieldOf("Avg Read Seconds", FieldMeaning::gauge, "Read Seconds", "Reads"),
      FieldOf("Lost %", FieldMeaning::percent, "Reads", "Lost")};
  static constexpr RecordLayout kGroupLayout{"CGRP", "recordFake", '4', sizeof(recordFake),
                                             kGroup, "",           {},  true};
  LayoutRegistry::Instance().Publish(kGroupLayout);
  LayoutRegistry::Instance().Publish(kToldLayout);
  LayoutRegistry::Instance().Publish(kBareLayout);
  std::vector<RecordListing> served{{"FAKE", '4', true},
                                    {"IDLE", '3', false},
                                    {"TOLD", '4', true},
                                    {"BARE", '4', true},
                                    {"CGRP", '4', true}};
  static constexpr std::array kNames{"R0", "R1", "R2", "R3", "R4", "R5", "R6", "R7", "R8"};
  static std::array<RecordLayout, kNames.size()> layouts;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    layouts[i] = kFakeLayout;
    layouts[i].name = kNames[i];
    LayoutRegistry::Instance().Publish(layouts[i]);
    served.push_back({kNames[i], '4', true});
  }
  LayoutRegistry::Instance().PublishListing(served);
}

std::string FaultsOf(const std::string& text) {
  PublishFakeRecords();
  PublishMoreRecords();
  AlarmFileText file = ParseAlarmFile(text);
  std::vector<IniProblem> faults = file.faults;
  for (const AlarmEntry& entry : file.entries) {
    static_cast<void>(MakeAlarmDefinition(entry, faults));
  }
  std::string all;
  for (const IniProblem& fault : faults) {
    all += std::to_string(fault.line) + ": " + fault.text + '\n';
  }
  return all;
}

TEST(AlarmFileTest, EachFaultIsToldWithItsLine) {
  const std::string good = "alarm = a\nrecord = FAKE\ncondition = Count > 1\n";
  const struct {
    std::string text;
    std::string fault;  ///< the begin of it; empty for none
  } cases[] = {
      {good, ""},
      {"# c\n\nALARM=a\nRecord = FAKE\ncondition = Label = x=y\ncapture = FAKE,\n  FAKE", ""},
      {good + "until = Count < 1\nfor = 5m\nkeep=2d\nseverity = low\ntext = {{{label}}} is", ""},
      {"record = FAKE\n" + good, "1: \"record\" stands before the first \"alarm\""},
      {good + "no\n", "4: no '=' in the line"},
      {good + "for =\n", "4: nothing stands behind"},
      {good + "color = red\n", "4: unknown keyword \"color\""},
      {good + "for = 5x\n", "4: \"for\" is a time"},
      {good + "keep = 32d\n", "4: \"keep\" is a time"},
      {good + "severity = a b\n", "4: a severity is a word"},
      {good + good, "4: the alarm \"a\" stands in line 1 already"},
      {"alarm = a b\nrecord = FAKE\n", "1: an alarm's name has"},
      {"alarm = a\ncondition = Count > 1\n", "1: the alarm has no \"record\""},
      {"alarm = a\nrecord = FAKE\n", "1: the alarm has no \"condition\""},
      {"alarm = a\nrecord = NONE\ncondition = X > 1\n", "2: no record \"NONE\""},
      {"alarm = a\nrecord = IDLE\ncondition = Count > 1\n", "2: the record IDLE is not served"},
      {"alarm = a\nrecord = FAKE\ncondition = Size > 1\n", "3: FAKE has no label \"Size\""},
      {"alarm = a\nrecord = FAKE\ncondition = Count > x\n", "3: \"Count\" is compared with a num"},
      {"alarm = a\nrecord = FAKE\ncondition = Count < 0\n", "3: no row fulfils all lines \"cond"},
      {good + "until = Count > 5\nuntil = Count <= 5\n", "4: no row fulfils all lines \"until\""},
      {good + "until = Count > 5\n", "4: a row that fulfils all lines \"until\" fulfils"},
      {good + "until = Count < 5\nuntil = Label ~ *\n", ""},
      {"alarm = a\nrecord = AGENT\ncondition = Skipped Times >= 0\n",
       "3: every row fulfils all lines"},
      {"alarm = a\nrecord = AGENT\nwhere = Skipped Times > 5\ncondition = Skipped Times >= 0\n",
       ""},
      {good + "for = 1m\ntext = x\nfor = 2m\n", "6: the alarm has a line \"for\" already, line 4"},
      {good + "where = Label = x\nwhere = Label = y\n", "4: no row fulfils all lines \"where\""},
      {good + "predict = 1h\n", "4: \"predict\" and \"over\" go together"},
      {good + "capture = NONE\n", "4: no record \"NONE\""},
      {good + "capture = AGENT\n", "4: AGENT has no rows to capture"},
      {good + "text = {Size}\n", "4: FAKE has no label \"Size\""},
      {good + "text = {Count\n", "4: a \"{\" has no \"}\""},
      {good + "text = " + std::string(3000, 'x') + "\n", "4: the line and those it goes on in"},
      {good + "text = " + std::string(kMostAlarmLineBytes - 7, 'x') + "\n", ""},
      {good + "text = " + std::string(kMostAlarmLineBytes - 6, 'x') + "\n",
       "4: the line and those"},
      {good + "capture = FAKE,\n", "4: the file ends where the line should go on"},
      {good + "where = " + std::string(2100, 'x') + ",\n", "4: the file ends where the line shou"},
      {good + "where = " + std::string(2100, 'x') + ",\nx\n", "4: the line and those"},
      {good + "where = Label ~ *********\n", "4: a condition has"},
      {"alarm = a\nrecord = AGENT\ncondition = Skipped Times > 0\n", ""},
      {good + "record = IDLE\n", "4: the alarm has a record already, in line 2"},
      {good + Repeated("condition = Count > 1\n", 15), ""},
      {good + Repeated("condition = Count > 1\n", 16), "19: there are more than 16 lines \"cond"},
      {good + "where = Label = " + std::string(249, 'x') + "\n", "4: a condition has 256 bytes"},
      {good + "text = a } b\n", "4: a \"}\" has no \"{\""},
      {good + std::string("for = 5m\0\n", 10), "4: the line holds a NUL byte"},
      {good + "for = 31d\nkeep = 0\n", ""},
      {good + "for = 2678401\n", "4: \"for\" is a time"},
      {good + "for = -1s\n", "4: \"for\" is a time"},
      {good + "severity = " + std::string(65, 'x') + "\n", "4: a severity is a word"},
      {"alarm = a\nrecord = FAKE\ncondition = Label = x\npredict = 1h\nover = 1h\n",
       "4: \"predict\" needs a number"},
      {"alarm = a\nrecord = BARE\ncondition = Command Line = x\n",
       "2: the record BARE has no time"},
      {good + "capture = R0, R1, R2, R3, R4, R5, R6, R7, R7\n", ""},
      {good + "capture = R0, R1, R2, R3, R4, R5, R6, R7, R8\n", "4: an alarm captures 8 records"},
      // What a program was started with may hold passwords; an alarm goes to other hosts.
      {"alarm = a\nrecord = TOLD\ncondition = Command Line ~ *x\n",
       "3: \"Command Line\" holds arguments"},
      {"alarm = a\nrecord = TOLD\nwhere = Command Line ~ *x\ncondition = Record Time > 1\n"
       "text = {Command Line}\n",
       "5: \"Command Line\" holds arguments"},
  };
  for (const auto& row : cases) {
    const std::string faults = FaultsOf(row.text);
    EXPECT_EQ(faults.substr(0, row.fault.size()), row.fault) << row.text;
    EXPECT_EQ(faults.empty(), row.fault.empty()) << row.text << faults;
  }
}

TEST(AlarmFileTest, FaultsOfOneAlarmAreCounted) {
  std::string text = "alarm = a\nrecord = FAKE\n";
  for (int i = 0; i < 100; ++i) {
    text += "condition = Size > 1\n";
  }
  const std::string faults = FaultsOf(text);
  EXPECT_EQ(std::ranges::count(faults, '\n'), 21);
  EXPECT_THAT(faults, HasSubstr("1: and 80 more faults of the alarm a\n"));
}

TEST(AlarmFileTest, AFileOfAnyContentOrKindEnds) {
  const ScratchDirectory folder;
  std::ofstream("big") << std::string(3 << 20, '=');
  ::mkfifo("fifo", 0600);
  EXPECT_FALSE(ReadAlarmFile("big").faults.empty());
  EXPECT_EQ(ReadAlarmFile("fifo").error, "fifo: is no regular file");
  EXPECT_TRUE(ReadAlarmFile("none").isMissing);
  std::string many;
  for (int i = 0; i < 700; ++i) {
    many += "alarm = a" + std::to_string(i) + "\nx\nx\n";
  }
  const AlarmFileText file = ParseAlarmFile(many);
  EXPECT_EQ(file.entries.size(), kMostAlarms);
  std::size_t faults = file.faults.size();
  for (const AlarmEntry& entry : file.entries) {
    faults += entry.faults.size();
  }
  EXPECT_EQ(faults, kMostAlarmFaults + 1);
}

TEST(AlarmFileTest, RulesSayTheSameOrWhyNot) {
  const struct {
    std::string lines;
    std::string part;
  } cases[] = {
      {"condition = Count > 60\nfor = 5m", "rate(qmt_fake_count_total[5m]) * 30 > 60"},
      {"condition = Rate >= 5\nwhere = Label = /x\"",
       R"(rate(qmt_fake_count_total{label=\"/x\\\"\"}[5m]) >= 5)"},
      {"condition = Count > 1\nwhere = Label ~ a.*", R"({label=~\"a\\\\..*\"})"},
      {"condition = CPU > 1", "# a: no rule, since no metric tells \"CPU\"."},
      {"condition = Count > 1\npredict = 1h\nover = 1h", "# a: no rule, since \"Count\" is no"},
      {"condition = Label = x", "# a: no rule, since it compares keys alone"},
      {"condition = Count > 5\nuntil = Count < 2\nkeep = 1h", "keep_firing_for: 1h"},
      {"condition = Count > 5\ntext = {{x}} {Label} has {Count}",
       R"({{ \"{\" }}x} {{ $labels.label }} has (Count))"},
      {"condition = Size > 5\ntext = a\x01", "# a: no rule, since it is off, line 3: FAKE has"},
      {"condition = Count > 1\nwhere = Label ~ [ab]", "since its pattern has a set of letters"},
      {"condition = Count > 1\nwhere = Label ~ \\*\\x?", R"({label=~\"\\\\*x.\"})"},
      {"condition = Count > 1\nwhere = Label < x", "\"Label\" is a text, which rules don't sort"},
      {"record = AGENT\ncondition = Skipped Times > 5",
       "sum by (instance, job) (increase(qmt_agent_schedule_skipped_total[5m])) > 5"},
      {"record = AGENT\ncondition = Failed Commands > 5",
       "sum by (instance, job) (increase(qmt_agent_alarm_command_failures_total[5m])) + sum by "
       "(instance, job) (increase(qmt_agent_alarm_dropped_commands_total[5m])) > 5"},
      {"record = AGENT\ncondition = Batch Seconds >= 0.5",
       "expr: \"max by (instance, job) (qmt_agent_batch_duration_seconds) >= 0.5\""},
      {"record = CGRP\ncondition = User % > 90", "# a: no rule, since no metric tells \"User %\"."},
      {"record = CGRP\ncondition = Lost % > 9", "# a: no rule, since no metric tells \"Lost %\"."},
      {"record = CGRP\ncondition = Read % > 20\nwhere = Path = /a",
       R"("rate(qmt_cgrp_read_seconds_total{path!=\"other\",path=\"/a\"}[5m]) > 0.2")"},
      {"record = CGRP\ncondition = User Read % > 20",
       R"("rate(qmt_cgrp_read_seconds_total{path!=\"other\"}[5m]) / )"
       R"(rate(qmt_cgrp_user_seconds_total{path!=\"other\"}[5m]) > 0.2")"},
      {"record = CGRP\ncondition = Avg Read Seconds > 20",
       R"( / rate(qmt_cgrp_reads_total{path!=\"other\"}[5m]) > 20")"},
      {"record = FAKE", "# a: no rule, since it is off, line 1: the alarm has no \"condition\""},
  };
  constexpr const char* kFake = "record = FAKE\n";
  const ScratchDirectory folder;
  PublishFakeRecords();
  PublishMoreRecords();
  int count = 0;
  for (const auto& row : cases) {
    const AlarmFileText file =
        ParseAlarmFile("alarm = a\n" + std::string(row.lines.starts_with("record") ? "" : kFake) +
                       row.lines + "\n");
    std::vector<IniProblem> faults;
    const AlarmDefinition definition = MakeAlarmDefinition(file.entries.at(0), faults);
    const std::string rules =
        AlarmRules({&definition}, [](const std::string&) { return std::chrono::seconds(30); });
    EXPECT_THAT(rules, HasSubstr(row.part));
    std::ofstream("rules." + std::to_string(++count) + ".yml") << rules;
  }
  if (std::system("command -v promtool >/dev/null") == 0) {
    EXPECT_EQ(std::system("promtool check rules rules.*.yml >out 2>&1 || { cat out; false; }"), 0);
  }
}

}  // namespace
