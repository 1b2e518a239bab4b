#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/commands/Change.h"
#include "client/commands/Commands.h"

namespace {

/// Below are the settings of the agent; from here on those of applications.
constexpr std::uint16_t kFirstApplicationItem = 1001;
/// Settings that the agent takes although its tree does not show them.
constexpr std::array<std::uint16_t, 5> kUnshownItems{4, 5, 6, 10, 11};
/// Of these, and of those in the tree, the ones that the agent reads at its start only.
constexpr std::array<std::uint16_t, 3> kItemsOfTheStart{6, 10, 11};

/// Decimal digits alone.
std::uint16_t ParseItem(const std::string& text) {
  std::uint16_t item = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), item);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw UsageError("\"" + text + "\" is not the id of an item, a whole number from 0 to 65535");
  }
  return item;
}

/// The item of that number; null if there is none.
const ConfigNode* FindItem(const std::vector<ConfigNode>& nodes, std::uint16_t id) {
  for (const ConfigNode& node : nodes) {
    if (node.kind != ConfigNode::Kind::kFolder && node.id == id) {
      return &node;
    }
    if (const ConfigNode* found = FindItem(node.children, id)) {
      return found;
    }
  }
  return nullptr;
}

template <std::size_t N>
bool Holds(const std::array<std::uint16_t, N>& items, std::uint16_t id) {
  return std::find(items.begin(), items.end(), id) != items.end();
}

}  // namespace

int RunConfigSet(const CommonOptions& common, const std::string& item, const std::string& value) {
  const std::uint16_t id = ParseItem(item);
  Connection connection(common.socket);
  const std::vector<ConfigNode> tree = ReadConfig(connection.Ask({{"op", "config"}}));
  const ConfigNode* node = FindItem(tree, id);
  // The agent says "done" to these and does nothing.
  if (node == nullptr && id < kFirstApplicationItem && !Holds(kUnshownItems, id)) {
    Complain("refused: this host has no setting " + item +
             "; \"qmtctl config\" shows those it has");
    return kExitRefused;
  }
  const int exitValue = ChangeItem(connection, id, value,
                                   "item " + item + " does not take this value" +
                                       (node == nullptr ? ", or there is no such item" : ""));
  if (exitValue == kExitDone) {
    WriteOutput(SafeText("done: item " + item + (node == nullptr ? "" : " (" + node->label + ")") +
                         " is set to \"" + value + "\", in use from the " +
                         (Holds(kItemsOfTheStart, id) ? "daemon's next start" : "next collection") +
                         " on") +
                '\n');
  }
  return exitValue;
}
