#include "client/ask/AlarmAnswers.h"

#include <algorithm>
#include <utility>

#include "client/ask/AnswerMembers.h"

namespace {

/// An object of plain values.
Json PlainObject(const Json& object, const char* name) {
  const Json& value = ObjectMember(object, name);
  if (std::ranges::any_of(value.Members(),
                          [](const JsonMember& each) { return each.value.IsStructured(); })) {
    FailMember(name, "an object of plain values");
  }
  return value;
}

Alarm AlarmOf(const Json& object) {
  Alarm alarm;
  alarm.id = CountMember(object, "id");
  alarm.name = TextMember(object, "alarm");
  alarm.record = TextMember(object, "record");
  alarm.key = PlainObject(object, "key");
  alarm.severity = TextMember(object, "severity");
  const std::string state = TextMember(object, "state");
  alarm.isActive = state == "active";
  if (!alarm.isActive && state != "ended") {
    FailMember("state", "the state of an alarm");
  }
  alarm.since = WholeMember(object, "since");
  if (!alarm.isActive) {
    alarm.until = WholeMember(object, "until");
  }
  alarm.text = TextMember(object, "text");
  alarm.values = PlainObject(object, "values");
  alarm.captured = TextsMember(object, "captured");
  return alarm;
}

}  // namespace

AlarmListing ReadAlarms(const Json& answer) {
  const Json& part = ObjectMember(answer, "alarms");
  AlarmListing listing;
  listing.file = TextMember(part, "file");
  for (const Json& each : ObjectsMember(part, "definitions").Elements()) {
    const Json& why = AnyMember(each, "why");
    listing.definitions.push_back({TextMember(each, "alarm"), CountMember(each, "line"),
                                   TextMember(each, "state"),
                                   why.IsNull() ? "" : TextMember(each, "why")});
  }
  for (const Json& each : ObjectsMember(part, "list").Elements()) {
    listing.alarms.push_back(AlarmOf(each));
  }
  return listing;
}

AlarmDetails ReadAlarm(Json& answer, std::uint64_t id) {
  const Json& part = ObjectMember(answer, "alarm");
  AlarmDetails details{AlarmOf(part), {}};
  if (details.alarm.id != id) {
    FailMember("id", "the alarm that was asked");
  }
  static_cast<void>(ObjectsMember(part, "rows"));
  for (Json& captured : answer["alarm"]["rows"].Elements()) {
    RecordAnswer& record = details.rows.emplace_back();
    record.record = TextMember(captured, "record");
    record.time = WholeMember(captured, "time");
    CheckRows(ObjectsMember(captured, "rows"));
    record.rows = std::move(captured["rows"]);
  }
  return details;
}

std::string ReadAlarmRules(const Json& answer) { return TextMember(answer, "rules"); }
