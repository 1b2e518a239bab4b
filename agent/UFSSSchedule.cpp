#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "agent/DayTime.h"
#include "agent/UnixAgent.h"
#include "collect/filesystem/StorageSource.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr long kDay = 86400;
constexpr int kWithoutEnd = -1;
constexpr int kFirstRun = 1;
constexpr int kLaterRun = 0;

void DiscardResults() {
  const std::string& directory = StorageDirectory();
  struct stat status {};
  if (::lstat(directory.c_str(), &status) != 0 && errno == ENOENT) {
    return;
  }
  std::error_code error;
  std::filesystem::remove_all(directory, error);
  if (error) {
    Message(10100, "remove_all", error.value(), directory, "", "");
  }
}

/// Today's or tomorrow's moment of that time of day, with the seconds of now.
std::time_t NextRun(const DayTime& time, std::time_t now) {
  std::tm parts{};
  ::localtime_r(&now, &parts);
  parts.tm_hour = time.hour;
  parts.tm_min = time.minute;
  const std::time_t run = std::mktime(&parts);
  return std::difftime(run, now) < 0 ? run + kDay : run;
}

/// Whether no scan has happened since the moment that lies a day before `nextRun`.
bool IsRunOverdue(std::time_t nextRun) {
  struct stat status {};
  return ::stat(StorageDirectory().c_str(), &status) != 0 || status.st_mtime < nextRun - kDay;
}

}  // namespace

void UnixAgent::ScheduleUFSS() {
  TraceEntry("UnixAgent::ScheduleUFSS", m_ufssTime);
  if (m_pUFSSEvent != nullptr) {
    CancelEvent(m_pUFSSEvent, 1);
    m_pUFSSEvent = nullptr;
  }
  Trace(20, kInformation, "Scheduling UFSS collection event for: %1", m_ufssTime);
  if (IsNever(m_ufssTime.c_str())) {
    DiscardResults();
    TraceExit("UnixAgent::ScheduleUFSS");
    return;
  }
  const std::optional<DayTime> time = ReadDayTime(m_ufssTime);
  if (!time) {
    TraceExit("UnixAgent::ScheduleUFSS");
    return;
  }
  const std::time_t nextRun = NextRun(*time, Os().time(nullptr));
  auto event = std::make_unique<UFSSEvent>();
  if (ScheduleEvent(event.get(), kDay, kWithoutEnd, 0, nextRun) == 0) {
    m_pUFSSEvent = event.release();
  }
  if (IsRunOverdue(nextRun)) {
    // A failure has told of itself, and the next day's event tries again.
    static_cast<void>(RunUFSS(kFirstRun));
  }
  TraceExit("UnixAgent::ScheduleUFSS");
}

int UnixAgent::NotifyEvent(UFSSEvent*) {
  TraceEntry("UnixAgent::NotifyEvent");
  if (RunUFSS(kLaterRun) != 0) {
    Trace(20, kError, "Unable to start up UFSS data collection script.");
  }
  TraceExit("UnixAgent::NotifyEvent");
  return kNotifyDone;
}
