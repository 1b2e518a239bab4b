#pragma once

#include <string_view>

#include "collect/TextScanner.h"
#include "collect/modern/HostText.h"

/// Shows the columns of a text like /proc/net/snmp and /proc/net/netstat, where a protocol has a
/// line of names and one of values, each behind the same label, and a value belongs to the name at
/// its place: `visit(label, name, value)`, the label with its colon. What has no partner is passed
/// over.
template <class Visit>
void VisitSnmpColumns(std::string_view text, const Visit& visit) {
  std::string_view label;
  std::string_view names;
  for (std::string_view line; NextTextLine(text, line);) {
    TextScanner values(line);
    std::string_view word;
    if (!values.Word(word)) {
      continue;
    }
    if (word != label) {
      label = word;
      names = line;
      continue;
    }
    TextScanner columns(names);
    columns.SkipWord();
    std::string_view value;
    for (std::string_view name; columns.Word(name) && values.Word(value);) {
      visit(label, name, value);
    }
    label = {};
  }
}
