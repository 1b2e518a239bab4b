#include "client/commands/Alarms.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "client/ask/AlarmAnswers.h"
#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/looks/RecordReader.h"
#include "client/show/AlarmText.h"
#include "client/show/Render.h"
#include "client/show/RowValues.h"
#include "client/show/Terminal.h"
#include "client/show/TimeText.h"

namespace {

/// As many as the daemon tells at once.
constexpr std::size_t kMostAlarmsShown = 1000;

/// What the operator has to know besides the list.
void ComplainOfDefinitions(const AlarmListing& listing, const AlarmOptions& options) {
  for (const AlarmDefinition& definition : listing.definitions) {
    if (definition.state == "off") {
      Complain(listing.file + ':' + std::to_string(definition.line) + ": the alarm \"" +
               definition.name + "\" is off: " + definition.why);
    }
  }
  if (listing.alarms.size() >= kMostAlarmsShown) {
    Complain("the newest " + std::to_string(kMostAlarmsShown) +
             " alarms are shown; there may be older ones: --until");
  }
  if (listing.alarms.empty()) {
    const bool isSpan = !options.since.empty() || !options.until.empty();
    Complain(listing.definitions.empty() ? "no alarm is defined in " + listing.file
             : options.isActive          ? "no alarm is active"
             : isSpan                    ? "there was no alarm in that time"
                                         : "there was no alarm");
  }
}

/// A layout makes the rows easier to read; what was kept outlives it.
Schema SchemaOfKept(Connection& connection, const std::string& record) {
  try {
    return ReadSchema(connection.Ask(SchemaRequest({record, ""})));
  } catch (const RefusedError&) {
    return {};
  }
}

std::string KeptText(Connection& connection, RecordAnswer answer, const Screen& screen) {
  const std::string title =
      Emphasize(SafeText(answer.record) + "  " + DateText(answer.time), screen) + '\n';
  if (answer.rows.Elements().empty()) {
    return title + "no rows\n";
  }
  Schema schema = SchemaOfKept(connection, answer.record);
  return title + RowsText({std::move(answer), std::move(schema)}, screen);
}

/// Line by line, so that what a terminal would obey is written out.
std::string SafeLines(std::string_view text) {
  std::string safe;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    safe += SafeText(text.substr(0, end)) + '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return safe;
}

}  // namespace

int RunAlarms(const CommonOptions& common, const AlarmOptions& options, bool json) {
  Json request{{"op", "alarms"}, {"limit", kMostAlarmsShown}};
  AddSpan(request, options.since, options.until);
  if (options.isActive) {
    request["state"] = "active";
  }
  Connection connection(common.socket);
  const Json answer = connection.Ask(std::move(request));
  const AlarmListing listing = ReadAlarms(answer);
  if (json) {
    WriteOutput(ShownJson(answer["alarms"], 2) + '\n');
  } else {
    WriteOutput(AlarmsText(listing.alarms, ReadScreen(common.color)));
    ComplainOfDefinitions(listing, options);
  }
  return kExitDone;
}

int RunAlarmShow(const CommonOptions& common, std::uint64_t id, bool json) {
  Connection connection(common.socket);
  // The number of the alarm is that of the request as well, which the daemon echoes.
  Json answer = connection.Ask({{"op", "alarm"}, {"id", id}});
  if (json) {
    const std::string text = ShownJson(answer["alarm"], 2) + '\n';
    static_cast<void>(ReadAlarm(answer, id));
    WriteOutput(text);
    return kExitDone;
  }
  AlarmDetails details = ReadAlarm(answer, id);
  const Screen screen = ReadScreen(common.color);
  std::string text = AlarmText(details.alarm, screen);
  for (RecordAnswer& record : details.rows) {
    text += '\n' + KeptText(connection, std::move(record), screen);
  }
  WriteOutput(text);
  return kExitDone;
}

int RunAlarmRules(const CommonOptions& common) {
  Connection connection(common.socket);
  const std::string rules = ReadAlarmRules(connection.Ask({{"op", "alarm_rules"}}));
  WriteOutput(WritesToTerminal() ? SafeLines(rules) : rules);
  return kExitDone;
}
