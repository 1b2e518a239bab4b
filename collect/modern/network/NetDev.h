#pragma once

#include <string_view>

#include "collect/network/InterfaceSourceLINUX.h"

/// A line of /proc/net/dev.
struct NetDevRow {
  std::string_view name;  ///< in the text
  InterfaceCounters counters;
  /// Whether all counters were there; what stands behind the first that was not is 0.
  bool isWhole = false;
};

/// Reads "NAME:NUMBERS", with blanks before the name and with or without some behind the colon.
/// False for a line of the head and for a name that no interface can have: an empty one, one of
/// more than 39 bytes, or one that would lead to another folder of /sys/class/net.
[[nodiscard]] bool ParseNetDevLine(std::string_view line, NetDevRow& row);
