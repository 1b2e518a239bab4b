#include "process/WorkgroupReport.h"

#include <charconv>
#include <optional>
#include <stdexcept>
#include <utility>

#include "collect/CategoryFlags.h"
#include "process/WorkgroupMap.h"
#include "support/UtlError.h"

namespace {

constexpr const char* kReportName = "workgroups";

struct Question {
  std::optional<std::string> name;
  std::optional<std::int32_t> pid;
};

std::int32_t PidOf(const std::string& text) {
  std::int32_t pid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  if (error != std::errc{} || end != text.data() + text.size() || pid < 0) {
    throw std::invalid_argument("pid must be a process number, not \"" + text + "\"");
  }
  return pid;
}

Question Understand(const ReportArguments& arguments, const WgMap& map) {
  Question question;
  for (const auto& [key, value] : arguments) {
    if (key == "name") {
      if (!map.contains(value)) {
        throw std::invalid_argument("no workgroup \"" + value + "\"");
      }
      question.name = value;
    } else if (key == "pid") {
      question.pid = PidOf(value);
    } else {
      throw std::invalid_argument("no argument \"" + key + "\"");
    }
  }
  return question;
}

/// As the definition file has it.
std::string TextOf(const WorkGroup::Rule& rule) {
  struct Keys {
    const char* literal;
    const char* expression;
  };
  // In the order of WorkgroupList.
  static constexpr std::array<Keys, kWorkgroupLists> kKeys{{{"users", "Users"},
                                                            {"groups", "Groups"},
                                                            {"programs", "Programs"},
                                                            {"arguments_02", "Arguments_02"},
                                                            {"users_02", "Users_02"},
                                                            {"groups_02", "Groups_02"},
                                                            {"programs_02", "Programs_02"}}};
  const Keys& keys = kKeys[static_cast<std::size_t>(rule.list)];
  return rule.isRegexp ? std::string("regexp = {") + keys.expression + "=" + rule.text + "}"
                       : std::string(keys.literal) + " = " + rule.text;
}

/// A workgroup that takes a process, and the text of the rule; "Other" has none.
struct Catch {
  std::string workgroup;
  std::string rule;
};

std::vector<Catch> CatchesOf(const ProcessSubject& subject, const WgMap& map) {
  std::vector<Catch> catches;
  for (const auto& [name, group] : map) {
    if (name == kOtherWorkgroup) {
      continue;
    }
    if (const std::optional<WorkGroup::Rule> rule = subject.RuleOf(*group)) {
      catches.push_back({name, TextOf(*rule)});
    }
  }
  if (catches.empty()) {
    catches.push_back({kOtherWorkgroup, ""});
  }
  return catches;
}

std::string NamesBut(const std::vector<Catch>& catches, const Catch* left) {
  std::string names;
  for (const Catch& one : catches) {
    if (&one != left) {
      names += (names.empty() ? "" : ", ") + one.workgroup;
    }
  }
  return names;
}

struct Counts {
  std::size_t processes = 0;
  std::size_t overlaps = 0;
  std::size_t others = 0;
};

std::string CountText(std::size_t count, const char* what) {
  return std::to_string(count) + (count == 1 ? " process " : " processes ") + what + ".";
}

/// Adds the rows of one process that the question is about.
void AddProcess(Report& report, Counts& counts, const Process& process,
                const ProcessSubject& subject, const WgMap& map, const Question& question) {
  const std::vector<Catch> catches = CatchesOf(subject, map);
  bool isShown = false;
  for (const Catch& one : catches) {
    if (question.name && one.workgroup != *question.name) {
      continue;
    }
    isShown = true;
    report.rows.push_back({std::to_string(process.pid), process.GetName(), subject.userName,
                           subject.groupName, one.workgroup, one.rule, NamesBut(catches, &one)});
  }
  if (isShown) {
    ++counts.processes;
    counts.overlaps += catches.size() > 1 ? 1 : 0;
    counts.others += catches.front().workgroup == kOtherWorkgroup ? 1 : 0;
  } else if (question.pid) {
    report.notes.push_back("Process " + std::to_string(process.pid) + " is not in \"" +
                           *question.name + "\" but in: " + NamesBut(catches, nullptr) + ".");
  }
}

}  // namespace

WorkgroupReport::WorkgroupReport(const WgMap& map, Collector& collector)
    : m_map(map), m_collector(collector) {
  ReportRegistry::Instance().Add(
      kReportName, [this](const ReportArguments& arguments) { return Make(arguments); });
}

WorkgroupReport::~WorkgroupReport() { ReportRegistry::Instance().Remove(kReportName); }

Report WorkgroupReport::Make(const ReportArguments& arguments) const {
  const Question question = Understand(arguments, m_map);
  // Each batch collects for itself, so no schedule sees this list.
  if (const UtlErrorPtr error{m_collector.collect(COLLECT_PROCESS, 0)}) {
    throw std::runtime_error(std::string("the processes can't be read: ") + error->GetMessage());
  }
  Report report;
  report.columns = {"PID", "Program", "User", "Group", "Workgroup", "Rule", "Also In"};
  Counts counts;
  bool isFound = false;
  BatchNames names;
  for (const Process& process : *m_collector.GetProcess()) {
    if (!question.pid || process.pid == *question.pid) {
      isFound = true;
      AddProcess(report, counts, process, ProcessSubject(process, names), m_map, question);
    }
  }
  if (question.pid) {
    if (!isFound) {
      throw std::invalid_argument("no process " + std::to_string(*question.pid));
    }
    return report;
  }
  report.notes.push_back(CountText(counts.processes, question.name ? "in it" : "in all"));
  report.notes.push_back(CountText(counts.overlaps, "in more than one workgroup"));
  if (!question.name) {
    report.notes.push_back(CountText(counts.others, "in no workgroup but \"Other\""));
  }
  return report;
}
