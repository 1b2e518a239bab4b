#include "local/AlarmCheck.h"

#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "local/IniCheck.h"
#include "local/alarm/AgentRow.h"
#include "local/alarm/AlarmDefinition.h"
#include "local/alarm/AlarmFile.h"
#include "local/control/ScheduleQueries.h"
#include "local/ini/LocalIniFile.h"

namespace {

constexpr const char* kIniBeside = "qmtagt.ini";

/// Whether there is a schedule to hold the alarms against.
bool LoadScheduleBeside(const std::string& path, ScheduleBook& book) {
  std::string folder = std::filesystem::path(path).parent_path().string();
  folder = folder.empty() ? "." : folder;
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(folder + '/' + kIniBeside, ignored)) {
    return false;
  }
  std::string error;
  const std::unique_ptr<LocalIniFile> ini = LocalIniFile::Open(folder, kIniBeside, error);
  if (ini == nullptr) {
    return false;
  }
  book.Load(ini->HasSection("Schedule") ? ScheduleLines(*ini) : DefaultSchedule(),
            [](std::size_t, const std::string&) {});
  return true;
}

}  // namespace

IniListing ListAlarms(const std::string& path, ScheduleBook& book) {
  const AlarmFileText file = ReadAlarmFile(path);
  IniListing listing{file.error, {}, file.faults};
  if (!file.error.empty()) {
    return listing;
  }
  const bool hasSchedule = LoadScheduleBeside(path, book);
  for (const AlarmEntry& entry : file.entries) {
    const AlarmDefinition definition = MakeAlarmDefinition(entry, listing.problems);
    if (hasSchedule && definition.layout != nullptr && definition.layout != &AgentLayout() &&
        !book.Holds(definition.record, definition.layout->category)) {
      listing.problems.push_back(
          {definition.recordLine, "no schedule of " + std::string(kIniBeside) +
                                      " collects the record " + definition.record +
                                      ", so the alarm is off"});
    }
  }
  return listing;
}
