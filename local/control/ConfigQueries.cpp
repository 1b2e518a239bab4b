#include "local/control/ConfigQueries.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "local/control/ConfigTree.h"
#include "local/control/FactsJson.h"
#include "node/NodeConfig.h"

namespace {

/// What an update returns.
enum UpdateResult : int { kDone = 0, kNotWritten = 1, kRefused = -36 };

/// A change as a client asks for it.
struct WantedChange {
  std::uint16_t item = 0;
  std::string value;
};

const char* OutcomeText(int code) {
  switch (code) {
    case kDone:
      return "done";
    case kNotWritten:
      return "not-written";
    case kRefused:
      return "refused";
    default:
      return "failed";
  }
}

std::variant<WantedChange, ControlError> ReadChange(const Json& message) {
  const Json* item = message.Find("item");
  if (item == nullptr || !item->IsUnsigned() ||
      item->Unsigned() > std::numeric_limits<std::uint16_t>::max()) {
    return ControlError{"bad-field", "item must be a whole number from 0 to 65535", "item"};
  }
  const Json* value = message.Find("value");
  if (value == nullptr || !value->IsString()) {
    return ControlError{"bad-field", "value must be a text", "value"};
  }
  // The agent takes the text up to its first zero byte: it would store something else.
  if (value->Text().find('\0') != std::string::npos) {
    return ControlError{"bad-field", "value holds a zero byte", "value"};
  }
  return WantedChange{static_cast<std::uint16_t>(item->Unsigned()), value->Text()};
}

/// Has the agent fill the tree. An error for the client if it doesn't.
std::optional<ControlError> FillTree(CMBNode& node, CMBNodeConfigRequest& root) {
  const int status = node.Dispatch(&root);
  if (status == kNotifyDone) {
    return std::nullopt;
  }
  return ControlError{
      "config-failed",
      "the agent could not tell its configuration (status " + std::to_string(status) + ")", ""};
}

/// The index that goes with a change, if one does. Null, and `isOffered` false, for a value that a
/// choice of the tree does not offer. The agent also knows items that the tree doesn't hold: their
/// values are not checked.
std::optional<std::uint16_t> ReadChoice(const ConfigTree& tree, const WantedChange& change,
                                        bool& isOffered) {
  const CMBNodeConfigItem* item = tree.Find(change.item);
  isOffered = true;
  if (item == nullptr || !item->IsChoice()) {
    return ParseIndex(change.value);
  }
  const std::optional<std::uint16_t> index = FindChoice(tree.Choices(*item), change.value);
  isOffered = index.has_value();
  return index;
}

Json ResultJson(const WantedChange& change, int code) {
  return Json{{"item", change.item}, {"outcome", OutcomeText(code)}, {"code", code}};
}

void RunConfigSet(CMBNode& node, const ControlRequest& request, const WantedChange& change) {
  CMBNodeConfigRequest root;
  if (const auto error = FillTree(node, root)) {
    request.Fail(*error);
    return;
  }
  bool isOffered = false;
  const std::optional<std::uint16_t> choice = ReadChoice(ConfigTree(root), change, isOffered);
  if (!isOffered) {
    request.Succeed("result", ResultJson(change, kRefused));
    return;
  }
  CMBNodeConfigUpdate update = choice ? CMBNodeConfigUpdate(change.item, change.value, *choice)
                                      : CMBNodeConfigUpdate(change.item, change.value);
  request.Succeed("result", ResultJson(change, node.Dispatch(&update)));
}

}  // namespace

void ConfigQueries::Config(const std::shared_ptr<ControlRequest>& request) {
  LoopTask task;
  task.run = [request](CMBNode& node) {
    CMBNodeConfigRequest root;
    if (const auto error = FillTree(node, root)) {
      request->Fail(*error);
    } else {
      Json config = ConfigTree(root).ToJson();
      config["facts"] = FactsJson();
      request->Succeed("config", std::move(config));
    }
  };
  task.drop = [request] { request->Fail(StoppingError()); };
  task.fail = [request] { request->FailForMemory(); };
  m_loop.Post(std::move(task));
}

void ConfigQueries::ConfigSet(const std::shared_ptr<ControlRequest>& request) {
  auto change = ReadChange(request->Message());
  if (const auto* error = std::get_if<ControlError>(&change)) {
    request->Fail(*error);
    return;
  }
  LoopTask task;
  task.run = [request, wanted = std::get<WantedChange>(std::move(change))](CMBNode& node) {
    RunConfigSet(node, *request, wanted);
  };
  task.drop = [request] { request->Fail(StoppingError()); };
  task.fail = [request] { request->FailForMemory(); };
  m_loop.Post(std::move(task));
}
