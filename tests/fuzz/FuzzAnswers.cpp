// What the client is answered by whoever listens on the socket, and what it shows of it.
#include <functional>
#include <string>
#include <string_view>

#include "client/ask/AlarmAnswers.h"
#include "client/ask/Answers.h"
#include "client/ask/Errors.h"
#include "client/ask/PushAnswers.h"
#include "client/ask/SafeText.h"
#include "client/report/Points.h"
#include "client/show/GroupTree.h"
#include "json/JsonText.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

/// Whoever reads an answer tells in words why it is none.
void Take(const Json& answer, const std::function<void(Json&)>& read) {
  Json copy = answer;
  try {
    read(copy);
  } catch (const ClientError& error) {
    Require(*error.what() != '\0');
  } catch (const UsageError& error) {
    Require(*error.what() != '\0');
  }
}

void TakeAll(const Json& answer) {
  Take(answer, [](Json& part) { static_cast<void>(ReadResults(part, {{"FAKE", "4"}})); });
  Take(answer, [](Json& part) { static_cast<void>(ReadHistory(part, {"FAKE", ""})); });
  Take(answer, [](Json& part) { static_cast<void>(ReadSchema(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadListing(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadStatus(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadConfig(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadReport(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadConfigOutcome(part, 1)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadAlarms(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadAlarm(part, 1)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadAlarmRules(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadPushStatus(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadPoints(part)); });
  Take(answer, [](Json& part) {
    std::vector<RecordAnswer> results = ReadResults(part, {{"CGRP", ""}});
    std::vector<GroupNode> groups = MakeGroupTree(std::move(results.at(0).rows));
    CutGroups(groups, 3);
    static_cast<void>(GroupsText(groups, {}));
  });
}

/// What comes to the terminal holds nothing that steers it, and is gone through step by step.
void TakeShown(std::string_view text) {
  const std::string safe = SafeText(text);
  std::size_t columns = 0;
  for (std::string_view rest = safe; !rest.empty();) {
    Require(static_cast<unsigned char>(rest[0]) >= ' ' && rest[0] != '\x7f');
    const TextStep step = FirstCharacter(rest);
    Require(step.bytes > 0 && step.bytes <= rest.size());
    columns += step.columns;
    rest.remove_prefix(step.bytes);
  }
  Require(TextWidth(safe) == columns);
  Require(SafeText(safe) == safe || text.find('\\') != text.npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = Input(data, size).Rest();
  TakeShown(text);
  try {
    // What is no object is refused with the line.
    if (const Json answer = ParseAnswer(text); answer.IsObject()) {
      TakeAll(answer);
    }
  } catch (const ClientError& error) {
    Require(SafeText(error.what()).size() < 2000 + 8 * text.size());
  }
  return 0;
}
