#pragma once

#include <span>
#include <string>
#include <vector>

/// A column of a pane's table.
struct PaneColumn {
  std::string label;    ///< of the record's field
  std::string heading;  ///< short
  /// Bytes of one, for a size that is shown as "1.5M"; 0 for what is no size.
  double bytes = 0;
};

/// What groups rows below others.
enum class TreeKind { kNone, kParents, kPaths };

/// A record that a pane can show.
struct PaneRecord {
  std::string record;
  std::string title;  ///< in the words of who looks for it
  std::string sort;   ///< the label that rows are sorted by at first, as --sort takes it; or empty
  /// None: those that the record's layout shows first.
  std::vector<PaneColumn> columns = {};
  TreeKind tree = TreeKind::kNone;
  bool isTreeAtFirst = false;
};

/// A pane: records that are looked at one after the other with "v". Those that the daemon does not
/// serve are left out.
struct PaneKind {
  char key;
  std::string title;
  std::string shortTitle;
  std::vector<PaneRecord> records;
};

/// The pane of alarms and that of all records show other things than the rows of its records.
inline constexpr char kAlarmPane = '7';
inline constexpr char kRecordPane = '8';

/// All panes, by their keys.
[[nodiscard]] std::span<const PaneKind> PaneKinds();
