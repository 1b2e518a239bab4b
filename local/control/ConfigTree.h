#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "local/history/RecordJson.h"
#include "node/NodeConfig.h"

/// A configuration tree that the agent has filled, with its tables of possible values looked up.
/// The request is its root; it must live as long as the tree.
class ConfigTree {
 public:
  explicit ConfigTree(const CMBNodeConfigRequest& root);

  /// {"children": [...]}: folders, texts and choices in the tree's order. The tables of possible
  /// values don't appear; each choice carries its own texts.
  [[nodiscard]] Json ToJson() const;
  /// The first item with that identifier in the tree's order; null if there is none.
  [[nodiscard]] const CMBNodeConfigItem* Find(std::uint16_t id) const;
  /// What a choice may be set to; empty if the tree lacks its table. Of two tables with the same
  /// identifier the first counts.
  [[nodiscard]] const std::vector<std::string>& Choices(const CMBNodeConfigItem& item) const;

 private:
  using Nodes = std::vector<std::unique_ptr<CMBNodeConfigBase>>;

  void Collect(const Nodes& nodes);
  [[nodiscard]] Json ChildrenJson(const Nodes& nodes) const;
  [[nodiscard]] Json ItemJson(const CMBNodeConfigItem& item) const;

  const CMBNodeConfigRequest& m_root;
  std::map<std::uint16_t, const CMBNodeConfigPossibleValues*> m_tables;
  std::map<std::uint16_t, const CMBNodeConfigItem*> m_items;
};

/// The index that a text chooses: it is one of the choices, as it stands or else without regard to
/// (ASCII) case, or else an index in decimal. Nothing if it is none of these, or if it might be two
/// choices.
[[nodiscard]] std::optional<std::uint16_t> FindChoice(const std::vector<std::string>& choices,
                                                      const std::string& text);

/// A whole number 0 to 65535 in decimal digits alone.
[[nodiscard]] std::optional<std::uint16_t> ParseIndex(std::string_view text);
