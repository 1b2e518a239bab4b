#include "client/view/ListedRows.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace {

std::shared_ptr<const Schema> ListSchema(std::initializer_list<Field> fields) {
  auto schema = std::make_shared<Schema>();
  schema->fields = fields;
  return schema;
}

Field ListField(const char* label, const char* type, const char* meaning) {
  Field field;
  field.label = label;
  field.type = type;
  field.meaning = meaning;
  return field;
}

}  // namespace

const PaneRecord& AlarmListKind() {
  static const PaneRecord kind{"",
                               "alarms of the day before",
                               "",
                               {{"State", "State"},
                                {"Severity", "Severity"},
                                {"Since", "Since"},
                                {"Until", "Until"},
                                {"Alarm", "Alarm"},
                                {"Number", "Number"},
                                {"Text", "Text"}}};
  return kind;
}

const PaneRecord& RecordListKind() {
  static const PaneRecord kind{"",
                               "records that are served",
                               "",
                               {{"Record", "Record"},
                                {"Category", "Category"},
                                {"Seconds", "Every s"},
                                {"Rows", "Rows"},
                                {"Last", "Last"}}};
  return kind;
}

std::shared_ptr<const SeenRows> AlarmRows(const Sight& sight) {
  static const std::shared_ptr<const Schema> schema =
      ListSchema({ListField("Number", "ulong", "key"), ListField("State", "char[8]", "text"),
                  ListField("Severity", "char[16]", "text"), ListField("Since", "long", "time"),
                  ListField("Until", "long", "time"), ListField("Alarm", "char[64]", "text"),
                  ListField("Text", "char[1024]", "text")});
  auto seen = std::make_shared<SeenRows>();
  seen->schema = schema;
  seen->time = sight.time;
  if (!sight.alarms) {
    return seen;
  }
  for (const Alarm& alarm : sight.alarms->alarms) {
    const bool isActive = !alarm.until || *alarm.until > sight.time;
    seen->rows.PushBack({{"Number", alarm.id},
                         {"State", isActive ? "active" : "ended"},
                         {"Severity", alarm.severity},
                         {"Since", alarm.since},
                         {"Until", isActive ? Json() : Json(*alarm.until)},
                         {"Alarm", alarm.name},
                         {"Text", alarm.text}});
  }
  return seen;
}

std::shared_ptr<const SeenRows> RecordRows(const Sight& sight) {
  static const std::shared_ptr<const Schema> schema =
      ListSchema({ListField("Record", "char[8]", "key"), ListField("Category", "char[2]", "key"),
                  ListField("Seconds", "ulong", "gauge"), ListField("Rows", "ulong", "gauge"),
                  ListField("Last", "long", "time")});
  auto seen = std::make_shared<SeenRows>();
  seen->schema = schema;
  seen->time = sight.time;
  for (const Listing& record : sight.listing) {
    if (!record.served) {
      continue;
    }
    const auto schedule = std::find_if(
        sight.status.schedules.begin(), sight.status.schedules.end(), [&](const Schedule& one) {
          return one.record == record.record && one.category == record.category;
        });
    const bool isScheduled = schedule != sight.status.schedules.end();
    seen->rows.PushBack(
        {{"Record", record.record},
         {"Category", record.category},
         {"Seconds", isScheduled ? Json(schedule->seconds) : Json()},
         {"Rows", isScheduled ? Json(schedule->rows) : Json()},
         {"Last", isScheduled && schedule->lastTime != 0 ? Json(schedule->lastTime) : Json()}});
  }
  return seen;
}
