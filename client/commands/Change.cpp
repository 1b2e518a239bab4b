#include "client/commands/Change.h"

#include "client/ask/Answers.h"
#include "client/ask/Errors.h"
#include "client/show/Terminal.h"

int ChangeItem(Connection& connection, std::uint64_t item, const std::string& value,
               const std::string& refusal) {
  const Json answer = connection.Ask({{"op", "config_set"}, {"item", item}, {"value", value}});
  const ConfigOutcome outcome = ReadConfigOutcome(answer, item);
  switch (outcome.kind) {
    case ConfigOutcome::Kind::kDone:
      return kExitDone;
    case ConfigOutcome::Kind::kRefused:
      Complain("refused: " + refusal);
      return kExitRefused;
    case ConfigOutcome::Kind::kNotWritten:
      Complain("not written: the daemon's file stands as it was; its message log tells why");
      return kExitNotWritten;
    case ConfigOutcome::Kind::kFailed:
      break;
  }
  Complain("failed: the agent could not make the change (code " + std::to_string(outcome.code) +
           ")");
  return kExitFailed;
}
