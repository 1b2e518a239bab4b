#include "gate/daemon/AnswerErrors.h"

#include <array>

#include "json/JsonText.h"

unsigned StatusOfCode(std::string_view code) {
  struct Row {
    std::string_view code;
    unsigned status;
  };
  static constexpr std::array kRows{
      Row{"bad-json", 400},       Row{"bad-field", 400},      Row{"too-long", 413},
      Row{"unknown-record", 404}, Row{"unknown-report", 404}, Row{"not-scheduled", 404},
      Row{"not-served", 404},     Row{"unknown-alarm", 404},  Row{"permission-denied", 403}};
  for (const Row& row : kRows) {
    if (row.code == code) {
      return row.status;
    }
  }
  return 503;
}

HttpAnswer ErrorAnswer(unsigned status, std::string_view code, const std::string& message,
                       const std::string& field) {
  Json error{{"code", code}, {"message", message}};
  if (!field.empty()) {
    error["field"] = field;
  }
  HttpAnswer answer{status, "application/json",
                    JsonText(Json{{"ok", false}, {"error", error}}) + '\n'};
  answer.headers = {{"Cache-Control", "no-store"}};
  return answer;
}

HttpAnswer ErrorAnswer(DaemonDesk::End end) {
  switch (end) {
    case DaemonDesk::End::kBusy:
      return ErrorAnswer(503, "busy", "too many questions wait for the daemon");
    case DaemonDesk::End::kTimeOut:
      return ErrorAnswer(503, "no-daemon", "the daemon does not answer");
    default:
      return ErrorAnswer(503, "no-daemon", "the daemon can't be asked");
  }
}
