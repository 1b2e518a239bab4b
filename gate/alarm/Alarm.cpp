#include "gate/alarm/Alarm.h"

#include <algorithm>
#include <utility>

namespace {

std::string AlarmText(const Json& told, const char* name) {
  const Json* member = told.Find(name);
  return member != nullptr && member->IsString() ? member->Text() : "";
}

/// 0 for what is no whole number from 1 on.
std::int64_t AlarmNumber(const Json& told, const char* name) {
  const Json* member = told.Find(name);
  constexpr std::uint64_t kMost = std::uint64_t{1} << 62;
  return member != nullptr && member->IsUnsigned() && member->Unsigned() <= kMost ? member->Whole()
                                                                                  : 0;
}

}  // namespace

AlarmPtr ReadAlarm(const Json& told) {
  const auto alarm = std::make_shared<Alarm>();
  alarm->id = AlarmNumber(told, "id");
  alarm->name = AlarmText(told, "alarm");
  alarm->severity = AlarmText(told, "severity");
  alarm->record = AlarmText(told, "record");
  alarm->text = AlarmText(told, "text");
  alarm->since = AlarmNumber(told, "since");
  if (alarm->id == 0 || alarm->since == 0 || alarm->name.empty()) {
    return nullptr;
  }
  // One that has ended has a time of its end, whatever is told of it.
  if (AlarmText(told, "state") == "ended") {
    alarm->until = std::max(AlarmNumber(told, "until"), alarm->since);
  }
  alarm->told = told;
  return alarm;
}

std::vector<AlarmPtr> ReadAlarms(const Json& list) {
  std::vector<AlarmPtr> alarms;
  if (list.IsArray()) {
    for (const Json& told : list.Elements()) {
      if (AlarmPtr alarm = ReadAlarm(told)) {
        alarms.push_back(std::move(alarm));
      }
    }
  }
  std::ranges::sort(alarms, AlarmOrder{});
  return alarms;
}

AlarmPtr EndedAlarm(const Alarm& alarm, std::int64_t until) {
  const auto ended = std::make_shared<Alarm>(alarm);
  ended->until = std::max(until, alarm.since);
  ended->told["state"] = "ended";
  ended->told["until"] = ended->until;
  return ended;
}
