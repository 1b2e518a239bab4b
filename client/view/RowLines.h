#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/view/PaneKinds.h"
#include "client/view/RowFilter.h"

/// A row at its place in a list.
struct RowLine {
  const Json* row = nullptr;
  std::size_t depth = 0;  ///< rows that it lies below, in a tree
};

/// In what order and below what the rows are listed.
struct RowArrangement {
  std::string sort;  ///< a label; empty for the order in which they come
  bool isDescending = true;
  TreeKind tree = TreeKind::kNone;
};

/// The rows that the filter takes, sorted; in a tree each below its parent, and those above a taken
/// one with it. Rows without the value come last. Whatever the rows say of their parents, each is
/// listed once at most. Lines point into `rows`.
[[nodiscard]] std::vector<RowLine> ArrangeRows(const Json& rows, const RowFilter& filter,
                                               const RowArrangement& arrangement);

/// The labels that a tree of that kind is made from.
[[nodiscard]] std::vector<std::string> TreeLabels(TreeKind kind);

/// What tells a row from the others of its record: the values of its keys.
[[nodiscard]] std::string RowKey(const Json& row, const Schema& schema);
