#include "gate/console/EventFrame.h"

#include "json/JsonText.h"

namespace {

/// The value of a member of a line, as it stands there: of one that comes before the rows.
std::string_view MemberText(std::string_view line, std::string_view begin, std::string_view ends) {
  constexpr std::size_t kHead = 256;
  const std::size_t place = line.substr(0, kHead).find(begin);
  if (place == std::string_view::npos) {
    return "";
  }
  line.remove_prefix(place + begin.size());
  return line.substr(0, line.find_first_of(ends));
}

}  // namespace

EventFrame FrameOf(std::string_view event, std::string_view data) {
  std::string text = "event: ";
  text += event;
  text += "\ndata: ";
  text += data;
  text += "\n\n";
  return {std::make_shared<const std::string>(std::move(text)), ""};
}

EventFrame FrameOfLine(std::string_view line) {
  if (MemberText(line, "\"event\":\"", "\"") == "batch") {
    EventFrame frame = FrameOf("batch", line);
    const std::string_view time = MemberText(line, "\"time\":", ",}");
    frame.text =
        std::make_shared<const std::string>("id: " + std::string(time) + '\n' + *frame.text);
    return frame;
  }
  EventFrame frame = FrameOf("rows", line);
  frame.record = MemberText(line, "\"record\":\"", "\"");
  return frame;
}

EventFrame FrameOfAlarm(std::string_view line) {
  constexpr JsonLimits kAlarmLimits{.depth = 32};
  const Json told = ParseJson(line, kAlarmLimits).value;
  const Json* alarm = told.Find("alarm");
  if (alarm == nullptr || !alarm->IsObject()) {
    return {};
  }
  return FrameOf("alarm", JsonText(Json{{"alarm", *alarm}}));
}

EventFrame FrameOfRows(const std::string& record, const std::string& category, std::int64_t time,
                       std::string_view rows) {
  std::string data =
      JsonText(Json{{"event", "rows"}, {"record", record}, {"category", category}, {"time", time}});
  data.back() = ',';
  data += "\"rows\":[";
  data += rows;
  data += "]}";
  EventFrame frame = FrameOf("rows", data);
  frame.record = record;
  return frame;
}
