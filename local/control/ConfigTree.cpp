#include "local/control/ConfigTree.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "node/Trace.h"

ConfigTree::ConfigTree(const CMBNodeConfigRequest& root) : m_root(root) {
  Collect(root.Children());
}

void ConfigTree::Collect(const Nodes& nodes) {
  for (const auto& node : nodes) {
    if (const auto* table = dynamic_cast<const CMBNodeConfigPossibleValues*>(node.get())) {
      m_tables.try_emplace(table->Id(), table);
    } else if (const auto* item = dynamic_cast<const CMBNodeConfigItem*>(node.get())) {
      m_items.try_emplace(item->Id(), item);
    }
    Collect(node->Children());
  }
}

const CMBNodeConfigItem* ConfigTree::Find(std::uint16_t id) const {
  const auto found = m_items.find(id);
  return found == m_items.end() ? nullptr : found->second;
}

const std::vector<std::string>& ConfigTree::Choices(const CMBNodeConfigItem& item) const {
  static const std::vector<std::string> kNone;
  const auto found = m_tables.find(item.PossibleValuesId());
  return found == m_tables.end() ? kNone : found->second->Values();
}

Json ConfigTree::ToJson() const { return Json{{"children", ChildrenJson(m_root.Children())}}; }

Json ConfigTree::ChildrenJson(const Nodes& nodes) const {
  Json list = Json::Array();
  for (const auto& node : nodes) {
    if (const auto* folder = dynamic_cast<const CMBNodeConfigRequest*>(node.get())) {
      list.PushBack(Json{{"kind", "folder"},
                         {"label", folder->Label()},
                         {"help", folder->Help()},
                         {"children", ChildrenJson(folder->Children())}});
    } else if (const auto* item = dynamic_cast<const CMBNodeConfigItem*>(node.get())) {
      list.PushBack(ItemJson(*item));
    }
  }
  return list;
}

Json ConfigTree::ItemJson(const CMBNodeConfigItem& item) const {
  Json entry{{"kind", item.IsChoice() ? "choice" : "text"},
             {"id", item.Id()},
             {"label", item.Label()},
             {"help", item.Help()}};
  if (item.IsChoice()) {
    const std::vector<std::string>& choices = Choices(item);
    const std::size_t current = item.CurrentIndex();
    entry["value"] = current < choices.size() ? choices[current] : std::string();
    entry["current"] = current;
    entry["choices"] = choices;
    entry["flags"] = {item.FlagA()};
  } else {
    entry["value"] = item.Value();
    entry["max_length"] = item.MaxLength();
    entry["flags"] = {item.FlagA(), item.FlagB()};
  }
  return entry;
}

std::optional<std::uint16_t> ParseIndex(std::string_view text) {
  std::uint16_t index = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
  if (error != std::errc{} || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return index;
}

std::optional<std::uint16_t> FindChoice(const std::vector<std::string>& choices,
                                        const std::string& text) {
  const auto same = [&](const std::string& choice) {
    return xlb_stricmp(choice.c_str(), text.c_str()) == 0;
  };
  auto found = std::find(choices.begin(), choices.end(), text);
  if (found == choices.end()) {
    found = std::find_if(choices.begin(), choices.end(), same);
    if (found != choices.end() && std::any_of(found + 1, choices.end(), same)) {
      return std::nullopt;
    }
  }
  if (found != choices.end()) {
    return static_cast<std::uint16_t>(found - choices.begin());
  }
  const std::optional<std::uint16_t> index = ParseIndex(text);
  return index && *index < choices.size() ? index : std::nullopt;
}
