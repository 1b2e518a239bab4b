#include "client/doctor/DaemonChecks.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "client/show/RowValues.h"

namespace {

constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;

/// What the daemon needs besides the rights of any user, and for what.
constexpr std::array<std::pair<unsigned, const char*>, 2> kNeeded{
    {{19, "CAP_SYS_PTRACE (open files, I/O and links of others' processes)"},
     {2, "CAP_DAC_READ_SEARCH (files that only their owners may read)"}}};

bool Answers(const Facts& facts) { return facts.daemon.fault.empty(); }

std::string Megabytes(std::uint64_t bytes) { return std::to_string(bytes / kMegabyte) + " Mbytes"; }

/// Seconds from one batch to the next at the most frequent.
double ShortestInterval(const std::vector<Schedule>& schedules) {
  return std::ranges::min(schedules, {}, &Schedule::seconds).seconds;
}

}  // namespace

MaybeFinding CheckRights(const Facts& facts) {
  if (!Answers(facts)) {
    return std::nullopt;
  }
  const ProcessFacts& process = facts.daemon.process;
  if (!process.isTold) {
    return Look("the kernel does not show process " + std::to_string(facts.daemon.status.pid) +
                ": ask as root");
  }
  std::string missing;
  for (const auto& [bit, name] : kNeeded) {
    if ((process.capabilities >> bit & 1) == 0) {
      missing += (missing.empty() ? "" : " and ") + std::string(name);
    }
  }
  if (missing.empty()) {
    return Ok("runs as user " + process.user + " and may look at all processes");
  }
  return Look("runs as user " + process.user + " without " + missing +
              ": figures of these are missing; run it as root or by its unit");
}

MaybeFinding CheckVersion(const Facts& facts) {
  if (!Answers(facts)) {
    return std::nullopt;
  }
  const std::string& daemon = facts.daemon.status.version;
  return daemon == facts.version
             ? Ok("daemon and client are " + daemon)
             : Look("the daemon is " + daemon + ", this client " + facts.version +
                    ": start the daemon of the newer package: systemctl restart qmtdmon");
}

MaybeFinding CheckProfile(const Facts& facts) {
  if (!Answers(facts)) {
    return std::nullopt;
  }
  const std::string& profile = facts.daemon.status.hostProfile;
  return profile.empty() ? Look("the daemon does not say which is in force")
         : profile == "classic"
             ? Look(
                   "classic: many figures and records of today's kernels are missing; "
                   "\"Profile = modern\" in section [Host] of qmtagt.ini and a restart give them")
             : Ok(profile);
}

MaybeFinding CheckSchedule(const Facts& facts) {
  if (!Answers(facts)) {
    return std::nullopt;
  }
  const Status& status = facts.daemon.status;
  if (status.schedules.empty()) {
    return Look("no record is collected by itself: \"qmtctl schedule add PI 60\" begins one");
  }
  const double shortest = ShortestInterval(status.schedules);
  const std::string records = std::to_string(status.schedules.size()) + " records";
  const LastBatch& last = status.lastScheduledBatch;
  if (!last.any) {
    return status.uptimeSeconds > 3 * shortest + 5
               ? Fail("no batch yet, " + FixedText(status.uptimeSeconds, 0) +
                      " s after the start: log/qmtdmon.log says why")
               : Ok(records + ", the first batch is to come");
  }
  const std::string age = "the last batch was " + FixedText(last.ageSeconds, 0) + " s ago";
  if (last.ageSeconds > 3 * shortest + 5) {
    return Fail(age + ", though one is due every " + FixedText(shortest, 0) +
                " s: log/qmtdmon.log says why");
  }
  if (last.errors != 0) {
    return Look(std::to_string(last.errors) + " of " + std::to_string(last.records) +
                " records failed in the last batch: log/qmtdmon.log says why");
  }
  std::uint64_t skipped = 0;
  for (const Schedule& schedule : status.schedules) {
    skipped += schedule.skipped;
  }
  return skipped == 0 ? Ok(records + ", " + age)
                      : Look(std::to_string(skipped) +
                             " times were left out as the batch before was not done: "
                             "\"qmtctl schedule list\" shows of which records; make them seldomer");
}

MaybeFinding CheckHistory(const Facts& facts) {
  if (!Answers(facts)) {
    return std::nullopt;
  }
  const DaemonFacts& daemon = facts.daemon;
  if (daemon.historyFile.empty()) {
    return Look("no rows are kept: \"History File\" in section [Node] of qmtagt.ini is empty");
  }
  if (daemon.lostBatches != 0) {
    return Look(std::to_string(daemon.lostBatches) +
                " batches could not be kept since the start: log/qmtdmon.log says why");
  }
  return Ok(daemon.historyFile + ", " + Megabytes(daemon.historyBytes));
}

MaybeFinding CheckDisk(const Facts& facts) {
  const DiskFacts& disk = facts.host.disk;
  if (disk.place.empty()) {
    return std::nullopt;
  }
  if (disk.error != 0) {
    return Look(disk.place + ": " + std::generic_category().message(disk.error));
  }
  constexpr std::uint64_t kLeast = 32 * kMegabyte;
  const std::string free = Megabytes(disk.freeBytes) + " are free in " + disk.place;
  if (disk.freeBytes < kLeast) {
    return Fail(free + ": rows will be lost; make room there");
  }
  if (!disk.limitBytes) {
    return Look(free + "; the settings, which tell how large the history may grow, can't be read");
  }
  const std::uint64_t held = std::min(disk.heldBytes, *disk.limitBytes);
  const std::uint64_t growth = *disk.limitBytes - held;
  return growth > disk.freeBytes
             ? Look(free + ", but the history may grow by " + Megabytes(growth) +
                    ": make room, or lower \"History Megabytes\" in section [Node] of qmtagt.ini")
             : Ok(free + ", the history may grow by " + Megabytes(growth));
}
