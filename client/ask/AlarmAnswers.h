#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/ask/Answers.h"

/// An alarm that is, or was.
struct Alarm {
  std::uint64_t id = 0;
  std::string name;  ///< of its definition
  std::string record;
  Json key;  ///< object of labels and plain values, which tell the alarms of one record apart
  std::string severity;
  bool isActive = false;
  std::int64_t since = 0;             ///< seconds since the epoch
  std::optional<std::int64_t> until;  ///< seconds since the epoch; nothing while it is active
  std::string text;
  Json values;                        ///< object of the fields that its conditions are about
  std::vector<std::string> captured;  ///< the records whose rows are kept with it
};

/// What the definition file says of one alarm, and how it does.
struct AlarmDefinition {
  std::string name;
  std::uint64_t line = 0;
  std::string state;  ///< "ok", "pending", "active" or "off"
  std::string why;    ///< of one that is off
};

struct AlarmListing {
  std::string file;  ///< that of the definitions
  std::vector<AlarmDefinition> definitions;
  std::vector<Alarm> alarms;  ///< the newest first
};

/// An alarm with the rows of other records that were kept with it.
struct AlarmDetails {
  Alarm alarm;
  std::vector<RecordAnswer> rows;
};

/// The answer to `alarms`, checked as those of client/ask/Answers.h are.
[[nodiscard]] AlarmListing ReadAlarms(const Json& answer);
/// The answer to `alarm` for that id. Takes the rows out of `answer`.
[[nodiscard]] AlarmDetails ReadAlarm(Json& answer, std::uint64_t id);
/// The answer to `alarm_rules`: text of a file of rules.
[[nodiscard]] std::string ReadAlarmRules(const Json& answer);
