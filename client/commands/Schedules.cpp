#include "client/commands/Schedules.h"

#include <algorithm>
#include <vector>

#include "client/ask/Answers.h"
#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/looks/RecordNames.h"
#include "client/show/Render.h"
#include "client/show/RowValues.h"
#include "client/show/Terminal.h"

namespace {

/// The schedule of the record; null if it has none.
const Schedule* FindSchedule(const std::vector<Schedule>& schedules, const std::string& record) {
  const auto found =
      std::find_if(schedules.begin(), schedules.end(),
                   [&](const Schedule& schedule) { return schedule.record == record; });
  return found == schedules.end() ? nullptr : &*found;
}

}  // namespace

std::string EverySeconds(double seconds) {
  return seconds == 1 ? "every second" : "every " + FixedText(seconds, 0) + " s";
}

int RunScheduleList(const CommonOptions& common, bool json) {
  Connection connection(common.socket);
  const Json answer = connection.Ask({{"op", "status"}});
  const Status status = ReadStatus(answer);
  if (json) {
    WriteOutput(ShownJson(answer["status"]["schedules"], 2) + '\n');
  } else {
    WriteOutput(ScheduleText(status.schedules, ReadScreen(common.color)));
  }
  return kExitDone;
}

int RunScheduleAdd(const CommonOptions& common, const std::string& record, long seconds) {
  const RecordName typed = ParseRecordName(record);
  Connection connection(common.socket);
  const RecordName name = RecordNames(connection).Need(typed);
  const Status status = ReadStatus(connection.Ask({{"op", "status"}}));
  static_cast<void>(
      connection.Ask({{"op", "schedule_set"}, {"record", name.name}, {"seconds", seconds}}));
  const std::string every = EverySeconds(static_cast<double>(seconds));
  if (const Schedule* former = FindSchedule(status.schedules, name.name)) {
    const std::string before = EverySeconds(former->seconds);
    WriteOutput(SafeText(name.name + " is collected " + every +
                         (before == every ? ", as before" : ", no longer " + before) +
                         "; next in " + std::to_string(seconds) + " s") +
                '\n');
  } else {
    WriteOutput(SafeText(name.name + " is collected " + every + ", from now on") + '\n');
  }
  return kExitDone;
}

int RunScheduleRemove(const CommonOptions& common, const std::string& record) {
  const RecordName typed = ParseRecordName(record);
  Connection connection(common.socket);
  const RecordName name = RecordNames(connection).Need(typed);
  static_cast<void>(connection.Ask({{"op", "schedule_remove"}, {"record", name.name}}));
  WriteOutput(SafeText(name.name + " is collected no more, from now on") +
              "; rows that are kept stay until they are too old\n");
  return kExitDone;
}
