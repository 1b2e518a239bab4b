#include "client/Schedules.h"

#include "client/Answers.h"
#include "client/Connection.h"
#include "client/Errors.h"
#include "client/Render.h"
#include "client/Terminal.h"

namespace {

/// A refusal comes as an exception.
int Change(const CommonOptions& common, const Json& request) {
  Connection connection(common.socket);
  static_cast<void>(connection.Ask(request));
  return kExitDone;
}

}  // namespace

int RunScheduleList(const CommonOptions& common, bool json) {
  Connection connection(common.socket);
  const Json answer = connection.Ask({{"op", "status"}});
  const Status status = ReadStatus(answer);
  if (json) {
    WriteOutput(answer.at("status").at("schedules").dump(2) + '\n');
  } else {
    WriteOutput(ScheduleText(status.schedules, ReadScreen(common.color)));
  }
  return kExitDone;
}

int RunScheduleAdd(const CommonOptions& common, const std::string& record, long seconds) {
  const RecordName name = ParseRecordName(record);
  return Change(common, {{"op", "schedule_set"}, {"record", name.name}, {"seconds", seconds}});
}

int RunScheduleRemove(const CommonOptions& common, const std::string& record) {
  const RecordName name = ParseRecordName(record);
  return Change(common, {{"op", "schedule_remove"}, {"record", name.name}});
}
