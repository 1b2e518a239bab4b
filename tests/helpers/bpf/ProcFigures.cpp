#include "tests/helpers/bpf/ProcFigures.h"

#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "collect/modern/process/TaskStream.h"

namespace {

namespace fs = std::filesystem;

using Numbers = std::map<std::string, std::int64_t>;

constexpr std::int64_t kTick = 10'000'000;
constexpr std::int64_t kSecond = 1'000'000'000;

std::string Text(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::int64_t PagesOf(std::int64_t kilobytes) { return kilobytes * 1024 / ::getpagesize(); }

/// Field N of the manual page of proc stands at N - 3.
void AddStat(const std::string& text, ProcessFigures& figures) {
  const std::size_t begin = text.find('(') + 1;
  const std::size_t end = text.rfind(')');
  figures.name = text.substr(begin, end - begin);
  std::istringstream rest(text.substr(end + 1));
  char letter = '\0';
  rest >> letter;
  std::vector<std::int64_t> fields{letter};
  // Two of the later ones have all 64 bits.
  for (std::uint64_t field = 0; fields.size() < 40;) {
    std::string word;
    rest >> word;
    field =
        word.starts_with("-") ? static_cast<std::uint64_t>(std::stoll(word)) : std::stoull(word);
    fields.push_back(static_cast<std::int64_t>(field));
  }
  Numbers& numbers = figures.numbers;
  const std::vector<std::pair<const char*, std::size_t>> places{
      {"state", 3},         {"parent", 4},         {"group", 5},       {"session", 6},
      {"terminal", 7},      {"terminal group", 8}, {"flags", 9},       {"minor faults", 10},
      {"major faults", 12}, {"system ticks", 15},  {"child user", 16}, {"child system", 17},
      {"priority", 18},     {"nice", 19},          {"threads", 20},    {"start", 22},
      {"processor", 39}};
  for (const auto& [name, place] : places) {
    numbers[name] = fields.at(place - 3);
  }
  numbers["ticks"] = fields.at(14 - 3) + fields.at(15 - 3);
}

void AddStatus(const fs::path& folder, Numbers& numbers) {
  std::istringstream file(Text(folder / "status"));
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    std::int64_t value = 0;
    if (key == "Uid:" || key == "Gid:") {
      for (const char* kind : {"real ", "effective ", "saved ", "file "}) {
        words >> numbers[kind + key];
      }
    } else if (key.starts_with("Vm") || key.starts_with("Rss")) {
      words >> value;
      numbers[key] = PagesOf(value);
    }
  }
  if (numbers.contains("VmExe:")) {
    numbers["code"] = numbers["VmExe:"] + numbers["VmLib:"];
  }
  for (const char* other :
       {"VmPeak:", "VmLck:", "VmPin:", "VmRSS:", "VmExe:", "VmLib:", "VmPTE:"}) {
    numbers.erase(other);
  }
}

void AddThreads(const fs::path& folder, Numbers& numbers) {
  for (const auto& thread : fs::directory_iterator(folder / "task")) {
    const std::string name = "thread " + thread.path().filename().string();
    const std::string status = Text(thread.path() / "status");
    for (const std::string key : {"\nvoluntary_ctxt_switches:", "\nnonvoluntary_ctxt_switches:"}) {
      if (const std::size_t place = status.find(key); place != std::string::npos) {
        numbers[name + key.substr(1)] = std::stoll(status.substr(place + key.size()));
      }
    }
    std::int64_t unused = 0;
    std::istringstream(Text(thread.path() / "schedstat")) >> unused >> numbers[name + " delay"];
  }
}

void AddTransfers(const fs::path& folder, Numbers& numbers) {
  std::istringstream file(Text(folder / "io"));
  std::string key;
  std::int64_t value = 0;
  while (file >> key >> value) {
    numbers[key] = value;
  }
}

/// The number of the folder of its group in the default hierarchy.
void AddControlGroup(const fs::path& folder, Numbers& numbers) {
  std::istringstream mounts(Text("/proc/self/mounts"));
  std::string root;
  for (std::string device, place, type, rest; mounts >> device >> place >> type;) {
    std::getline(mounts, rest);
    root = type == "cgroup2" ? place : root;
  }
  const std::string groups = "\n" + Text(folder / "cgroup");
  const std::size_t place = groups.find("\n0::");
  struct ::stat status {};
  if (!root.empty() && place != std::string::npos) {
    const std::string path = groups.substr(place + 4, groups.find('\n', place + 1) - place - 4);
    if (::stat((root + path).c_str(), &status) == 0) {
      numbers["control group"] = static_cast<std::int64_t>(status.st_ino);
    }
  }
}

/// What the stream tells of a group added up, by the names of the stream's members.
struct Sums {
  std::uint64_t user = 0, system = 0, run = 0, minor = 0, major = 0;
  std::uint64_t readChars = 0, writeChars = 0, readCalls = 0, writeCalls = 0;
  std::uint64_t readBytes = 0, writeBytes = 0, cancelledBytes = 0;

  explicit Sums(const TaskFigures& task)
      : user(task.deadUtime),
        system(task.deadStime),
        run(task.deadRunTime),
        minor(task.deadMinorFaults),
        major(task.deadMajorFaults),
        readChars(task.deadReadChars),
        writeChars(task.deadWriteChars),
        readCalls(task.deadReadCalls),
        writeCalls(task.deadWriteCalls),
        readBytes(task.deadReadBytes),
        writeBytes(task.deadWriteBytes),
        cancelledBytes(task.deadCancelledBytes) {}
  void Add(const TaskFigures& task) {
    user += task.utime;
    system += task.stime;
    run += task.runTime;
    minor += task.minorFaults;
    major += task.majorFaults;
    readChars += task.readChars;
    writeChars += task.writeChars;
    readCalls += task.readCalls;
    writeCalls += task.writeCalls;
    readBytes += task.readBytes;
    writeBytes += task.writeBytes;
    cancelledBytes += task.cancelledBytes;
  }
  /// The kernel divides what it has measured exactly by what its clock has sampled.
  [[nodiscard]] std::int64_t SystemTicks() const {
    const long double all = static_cast<long double>(user) + static_cast<long double>(system);
    const long double part = system == 0 ? 0 : static_cast<long double>(system) / all;
    return static_cast<std::int64_t>(static_cast<long double>(run) * part) / kTick;
  }
};

void TellLeader(const TaskFigures& task, ProcessFigures& figures) {
  figures.name = task.name;
  Numbers& numbers = figures.numbers;
  const std::vector<std::pair<const char*, std::int64_t>> told{
      {"state", TaskStateLetter(task.state)},
      {"parent", task.ppid},
      {"group", task.pgrp},
      {"session", task.session},
      {"terminal", task.ttyNumber},
      {"terminal group", task.ttyGroup},
      {"flags", task.flags},
      {"child user", static_cast<std::int64_t>(task.childUtime) / kTick},
      {"child system", static_cast<std::int64_t>(task.childStime) / kTick},
      {"priority", task.priority},
      {"nice", task.nice},
      {"threads", task.threads},
      {"start", static_cast<std::int64_t>(task.startTime) / (kSecond / ::sysconf(_SC_CLK_TCK))},
      {"processor", task.lastCpu},
      {"real Uid:", task.uid},
      {"effective Uid:", task.euid},
      {"saved Uid:", task.suid},
      {"file Uid:", task.fsuid},
      {"real Gid:", task.gid},
      {"effective Gid:", task.egid},
      {"saved Gid:", task.sgid},
      {"file Gid:", task.fsgid},
      {"control group", static_cast<std::int64_t>(task.controlGroup)}};
  numbers.insert(told.begin(), told.end());
  if ((task.present & kTaskHasMemory) == 0) {
    return;
  }
  const std::vector<std::pair<const char*, std::uint64_t>> memory{
      {"VmSize:", task.virtualPages}, {"RssAnon:", task.anonymousPages},
      {"RssFile:", task.filePages},   {"RssShmem:", task.sharedPages},
      {"VmSwap:", task.swapPages},    {"VmHWM:", task.peakPages},
      {"VmData:", task.dataPages},    {"VmStk:", task.stackPages},
      {"code", task.execPages}};
  for (const auto& [name, pages] : memory) {
    numbers[name] = static_cast<std::int64_t>(pages);
  }
}

void TellThread(const TaskFigures& task, Numbers& numbers) {
  const std::string name = "thread " + std::to_string(task.pid);
  numbers[name + "voluntary_ctxt_switches:"] = static_cast<std::int64_t>(task.voluntarySwitches);
  numbers[name + "nonvoluntary_ctxt_switches:"] = static_cast<std::int64_t>(task.otherSwitches);
  if ((task.present & kTaskHasRunDelay) != 0) {
    numbers[name + " delay"] = static_cast<std::int64_t>(task.runDelay);
  }
}

void TellSums(const Sums& sums, std::uint32_t present, Numbers& numbers) {
  std::vector<std::pair<const char*, std::uint64_t>> told{
      {"minor faults", sums.minor}, {"major faults", sums.major}, {"ticks", sums.run / kTick}};
  if ((present & kTaskHasCharacters) != 0) {
    told.insert(told.end(), {{"rchar:", sums.readChars},
                             {"wchar:", sums.writeChars},
                             {"syscr:", sums.readCalls},
                             {"syscw:", sums.writeCalls}});
  }
  if ((present & kTaskHasBytes) != 0) {
    told.insert(told.end(), {{"read_bytes:", sums.readBytes},
                             {"write_bytes:", sums.writeBytes},
                             {"cancelled_write_bytes:", sums.cancelledBytes}});
  }
  for (const auto& [name, sum] : told) {
    numbers[name] = static_cast<std::int64_t>(sum);
  }
  numbers["system ticks"] = sums.SystemTicks();
}

/// Until 6.17 /proc tells the resident pages without what each processor still keeps for itself.
std::int64_t ResidentTolerance() {
  struct ::utsname system {};
  int major = 0;
  int minor = 0;
  if (::uname(&system) != 0 || std::sscanf(system.release, "%d.%d", &major, &minor) != 2 ||
      major > 6 || (major == 6 && minor >= 17)) {
    return 0;
  }
  const std::int64_t processors = ::sysconf(_SC_NPROCESSORS_CONF);
  return processors * std::max<std::int64_t>(32, 2 * processors);
}

/// How far below and above the figures of /proc that of the stream may lie.
std::pair<std::int64_t, std::int64_t> Tolerance(const std::string& name) {
  if (name == "ticks") {
    return {0, 1};  // two parts cut each, which are cut here as one
  }
  if (name == "system ticks") {
    return {1, 1};  // it never lets one of the parts go back
  }
  if (name.starts_with("Rss") || name == "VmHWM:" || name == "VmSwap:") {
    return {ResidentTolerance(), ResidentTolerance()};
  }
  return {0, 0};
}

}  // namespace

ProcessFigures FiguresFromProc(pid_t process) {
  const fs::path folder = fs::path("/proc") / std::to_string(process);
  ProcessFigures figures;
  const std::string stat = Text(folder / "stat");
  if (stat.empty()) {
    return figures;
  }
  AddStat(stat, figures);
  AddStatus(folder, figures.numbers);
  AddThreads(folder, figures.numbers);
  AddTransfers(folder, figures.numbers);
  AddControlGroup(folder, figures.numbers);
  return figures;
}

ProcessFigures FiguresFromStream(const std::vector<TaskFigures>& tasks, pid_t process) {
  ProcessFigures figures;
  const auto leader = std::find_if(tasks.begin(), tasks.end(), [process](const TaskFigures& task) {
    return task.pid == process && task.tgid == process;
  });
  if (leader == tasks.end()) {
    return figures;
  }
  TellLeader(*leader, figures);
  Sums sums(*leader);
  for (const TaskFigures& task : tasks) {
    if (task.tgid == process) {
      sums.Add(task);
      TellThread(task, figures.numbers);
    }
  }
  TellSums(sums, leader->present, figures.numbers);
  return figures;
}

std::string Differences(const ProcessFigures& before, const ProcessFigures& now,
                        const ProcessFigures& after) {
  std::string told;
  if (now.name != before.name && now.name != after.name) {
    told += "name: " + now.name + " for " + before.name + "\n";
  }
  for (const auto& [name, number] : now.numbers) {
    const auto first = before.numbers.find(name);
    const auto last = after.numbers.find(name);
    if (first == before.numbers.end() || last == after.numbers.end()) {
      told += name + ": " + std::to_string(number) + " for none\n";
      continue;
    }
    const auto [below, above] = Tolerance(name);
    const auto [low, high] = std::minmax(first->second, last->second);
    if (number < low - below || number > high + above) {
      told += name + ": " + std::to_string(number) + " for " + std::to_string(low) + " to " +
              std::to_string(high) + "\n";
    }
  }
  for (const auto& [name, number] : before.numbers) {
    if (!now.numbers.contains(name)) {
      told += name + ": none for " + std::to_string(number) + "\n";
    }
  }
  return told;
}
