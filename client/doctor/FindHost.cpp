#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <set>
#include <system_error>

#include "client/doctor/FindFacts.h"
#include "client/doctor/PortProbe.h"
#include "client/doctor/QuickProgram.h"
#include "client/doctor/UnitText.h"
#include "client/files/Programs.h"
#include "client/files/Settings.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kPackageSocket = "/opt/qmtrx/mond/agent/run/control.sock";
constexpr int kExitNoFaults = 0;
constexpr int kExitFaults = 1;  ///< of `qmtdmon --check`

std::optional<bool> IsSynchronised() {
  struct ::timex clock {};
  const int state = Os().adjtimex(&clock);
  return state < 0 ? std::nullopt
                   : std::optional(state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0);
}

DiskFacts FindDisk(const fs::path& folder, const DaemonFacts& daemon, const Settings& settings) {
  DiskFacts disk;
  const bool isTold = daemon.fault.empty();
  const std::string history = isTold ? daemon.historyFile : settings.HistoryFile();
  if (history.empty()) {
    return disk;
  }
  const fs::path place = (folder / history).parent_path();
  disk.place = place.empty() ? "." : place.string();
  struct ::statvfs state {};
  if (::statvfs(disk.place.c_str(), &state) != 0) {
    disk.error = errno;
    return disk;
  }
  disk.freeBytes = std::uint64_t{state.f_bavail} * state.f_frsize;
  disk.totalBytes = std::uint64_t{state.f_blocks} * state.f_frsize;
  disk.limitBytes = settings.HistoryBytes();
  struct ::stat file {};
  disk.heldBytes = isTold                                           ? daemon.historyBytes
                   : ::stat((folder / history).c_str(), &file) == 0 ? std::uint64_t(file.st_size)
                                                                    : 0;
  return disk;
}

ProgramFacts FindStartable(const std::string& name, const std::string& path) {
  return {name, path, ::access(path.c_str(), X_OK) == 0 ? 0 : errno};
}

std::vector<ProgramFacts> FindPrograms(const fs::path& folder, const DaemonFacts& daemon) {
  std::vector<ProgramFacts> programs;
  for (const char* name : {"qmt_hostutil", "qmt_ufss"}) {
    programs.push_back(FindStartable(name, folder / name));
  }
  if (daemon.gateMode == "child") {
    // The daemon looks beside itself, which the kernel shows to root and to its user alone.
    std::error_code error;
    const fs::path own =
        fs::read_symlink(HostPath("/proc/" + std::to_string(daemon.status.pid) + "/exe"), error);
    const fs::path beside = own.parent_path() / "qmt_gate";
    if (!error) {
      programs.push_back(
          FindStartable("qmt_gate", fs::exists(beside, error)
                                        ? beside
                                        : own.parent_path().parent_path() / "gate" / "qmt_gate"));
    }
  }
  return programs;
}

std::vector<std::string> AddressesOf(const DaemonFacts& daemon, const Settings& settings) {
  if (!daemon.fault.empty()) {
    std::vector<std::string> addresses = settings.Listen();
    // Port 0 is any that is free.
    std::erase_if(addresses, [](const std::string& each) { return each.ends_with(":0"); });
    return addresses;
  }
  if (daemon.status.http.empty()) {
    return daemon.gateMode == "none" ? std::vector<std::string>{} : daemon.listen;
  }
  std::vector<std::string> addresses;
  constexpr std::string_view kBetween = ", ";
  std::string_view rest = daemon.status.http;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(kBetween), rest.size());
    addresses.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + kBetween.size(), rest.size()));
  }
  return addresses;
}

/// Units are those of the daemon in the place where the package has it, or of the very process that
/// they have started.
bool IsOfPackage(const std::string& path, const DaemonFacts& daemon,
                 const std::vector<UnitFacts>& units) {
  return path == kPackageSocket ||
         (daemon.status.pid > 0 &&
          std::ranges::find(units, daemon.status.pid, &UnitFacts::mainPid) != units.end());
}

void FindUnits(const std::string& path, const DaemonFacts& daemon, HostFacts& facts) {
  facts.isOfPackage = IsOfPackage(path, daemon, {});
  struct ::stat status {};
  facts.hasManager = ::stat(HostPath("/run/systemd/system").c_str(), &status) == 0;
  if (!facts.hasManager) {
    return;
  }
  std::vector<std::string> words{"systemctl", "show",
                                 "--property=Id,LoadState,ActiveState,Result,UnitFileState,MainPID",
                                 "qmtdmon.service"};
  if (daemon.gateMode == "unit") {
    words.emplace_back("qmt_gate.service");
  }
  const QuickResult run = RunQuickly(std::move(words));
  facts.units = ParseUnits(run.output);
  facts.isOfPackage = IsOfPackage(path, daemon, facts.units);
  if (!run.fault.empty()) {
    facts.unitsFault = run.fault;
  } else if (run.exit != 0 || facts.units.empty()) {
    facts.unitsFault =
        run.output.empty() ? "no answer" : run.output.substr(0, run.output.find('\n'));
  }
}

FileFacts CheckFile(const std::string& path, const char* kind) {
  FileFacts facts;
  facts.path = path;
  if (::access(path.c_str(), R_OK) != 0) {
    facts.isChecked = false;
    facts.fault = std::generic_category().message(errno);
    return facts;
  }
  const QuickResult run =
      RunQuickly({FindProgram("qmtdmon", "agent"), "--check", path, "--kind", kind});
  const std::string first = run.output.substr(0, run.output.find('\n'));
  facts.isChecked = run.fault.empty() && (run.exit == kExitNoFaults || run.exit == kExitFaults);
  facts.fault = !facts.isChecked          ? (run.fault.empty() ? first : run.fault)
                : run.exit == kExitFaults ? first
                                          : "";
  return facts;
}

std::vector<FileFacts> CheckAllFiles(const fs::path& folder, const Settings& settings) {
  std::vector<FileFacts> files{CheckFile(folder / "qmtagt.ini", "ini")};
  const std::pair<std::string, const char*> others[] = {{settings.WorkgroupFile(), "workgroup"},
                                                        {settings.EventFile(), "event"},
                                                        {"alarms", "alarms"}};
  for (const auto& [name, kind] : others) {
    struct ::stat status {};
    // Each of them may be missing.
    if (!name.empty() && (::stat((folder / name).c_str(), &status) == 0 || errno == EACCES)) {
      files.push_back(CheckFile(folder / name, kind));
    }
  }
  return files;
}

}  // namespace

HostFacts FindHost(const std::string& path, const DaemonFacts& daemon) {
  HostFacts facts;
  facts.now = std::time(nullptr);
  facts.isSynchronised = IsSynchronised();
  FindUnits(path, daemon, facts);
  const fs::path folder = fs::path(path).parent_path().parent_path();
  const std::string ini = folder / "qmtagt.ini";
  struct ::stat status {};
  if (!daemon.fault.empty() && ::stat(ini.c_str(), &status) != 0 && errno != EACCES) {
    // No agent has its folder there: all that an agent needs would be missing.
    facts.files.push_back(CheckFile(ini, "ini"));
    return facts;
  }
  const Settings settings(ini);
  facts.disk = FindDisk(folder, daemon, settings);
  facts.programs = FindPrograms(folder, daemon);
  for (const std::string& address : AddressesOf(daemon, settings)) {
    facts.ports.push_back(ProbePort(address));
  }
  facts.files = CheckAllFiles(folder, settings);
  return facts;
}
