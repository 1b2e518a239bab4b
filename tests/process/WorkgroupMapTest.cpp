#include "process/WorkgroupMap.h"

#include "tests/process/ProcessRecordFixture.h"

namespace {

class WorkgroupMapTest : public ProcessRecordFixture {
 protected:
  WorkGroup& Add(const char* name) { return *(m_map[name] = std::make_unique<WorkGroup>(name)); }
  void Update(const Process& process, std::span<const Process> old) {
    const Process* const current = &process;
    UpdateWgMap({&current, 1}, old, m_map, m_names, ProcessRulesOf(g_hostProfile));
  }
  static Process Make(int pid, const std::string& name, int start, int user, int uid = 33) {
    Process process;
    process.pid = pid;
    name.copy(process.x_proc::name.data(), name.size());
    process.startTime.seconds = start;
    process.userTime = {user, 250'000'000};
    process.euid = uid;
    process.ruid = 77;
    process.residentBytes = 1536;
    return process;
  }

  WgMap m_map;
  BatchNames m_names;
};

TEST_F(WorkgroupMapTest, TheFirstOldEntryOfTheSameProcessIsSubtracted) {
  const Process now = Make(7, "longnamex", 100, 10);
  Process zombie = Make(7, "<defunct>", 100, 10);
  Process idleZombie = zombie;
  idleZombie.userTime = {};
  Process ended = Make(-1, "longname", 100, 9);
  Process otherGroup = ended;
  otherGroup.egid = 1;
  const struct {
    const char* what;
    Process process;
    std::vector<Process> old;
    int seconds;  // that count
  } cases[] = {
      {"none", now, {}, 10},
      {"its number alone", now, {Make(8, "longname", 100, 5), Make(7, "z", 1, 4, 0)}, 6},
      {"ended, 8 characters agree", now, {Make(-1, "longnamey", 100, 7)}, 3},
      {"ended, other name", now, {Make(-1, "longnam", 100, 7)}, 10},
      {"ended, other start", now, {Make(-1, "longname", 101, 7)}, 10},
      {"ended, other user", now, {Make(-1, "longname", 100, 7, 34)}, 10},
      {"ended, other group", now, {otherGroup}, 10},
      {"zombie, other user time", zombie, {Make(-1, "<defunct>", 100, 9)}, 10},
      {"zombie, same user time", zombie, {Make(-1, "<defunct>", 100, 10)}, 0},
      {"zombie without user time", idleZombie, {Make(-1, "<defunct>", 100, 9)}, 0},
      {"ended in front", now, {ended, Make(7, "longname", 100, 5)}, 1},
      {"number in front", now, {Make(7, "longname", 100, 5), ended}, 5},
  };
  for (const auto& one : cases) {
    const WorkGroup& other = Add(kOtherWorkgroup);
    Update(one.process, one.old);
    const std::uint32_t rest = one.old.empty() || one.seconds == 10 ? 25 : 0;
    EXPECT_EQ(other.totals.userCpu, static_cast<std::uint32_t>(one.seconds) * 100 + rest)
        << one.what;
    EXPECT_EQ(other.totals.realMemKbytes, 2U) << "a level, 1.5 rounded";
  }
}

TEST_F(WorkgroupMapTest, AProcessIsInEveryWorkgroupThatTakesItElseInOther) {
  Os().getpwuid = [](uid_t uid) {
    static std::string name(43, 'u');  // longer than the field of a record
    static ::passwd entry{};
    entry.pw_name = name.data();
    return uid == 70 ? &entry : nullptr;
  };
  Add("by user").AddUsers(std::string(43, 'u').c_str(), false);
  Add("by cut user").AddUsers(std::string(35, 'u').c_str(), false);
  Add("by group").AddGroups02("^N/A gid = 0$", true);
  Add("by arguments").AddArguments02(std::string(120, 'a').c_str(), false);
  Add(kOtherWorkgroup).AddPrograms("httpd", false);
  Process process = Make(5, "httpd", 1'699'999'000, 1, 70);
  process.cmdline.fill('a');  // as long as can be, so without a terminator
  Update(process, {});
  Process unborn = Make(6, "httpd", 0, 1, 71);
  unborn.egid = 1;
  Update(unborn, {});
  std::string counts;
  for (const auto& [name, group] : m_map) {
    counts += name + ":" + std::to_string(group->count) + " ";
  }
  EXPECT_EQ(counts, "Other:1 by arguments:1 by cut user:0 by group:1 by user:1 ");
  EXPECT_EQ(m_map["by user"]->totals.elapsed, 1000U);
}

}  // namespace
