#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"

/// Turns the dumps of records on for its life, and counts the lines that are dumped meanwhile.
class DumpedLines {
 public:
  DumpedLines() {
    g_msgDataLevel = 40;
    m_node->dataTrace.clear();
  }
  ~DumpedLines() { g_msgDataLevel = 0; }
  DumpedLines(const DumpedLines&) = delete;
  DumpedLines& operator=(const DumpedLines&) = delete;

  [[nodiscard]] std::size_t Count() const {
    const std::string& dump = m_node->dataTrace;
    return static_cast<std::size_t>(std::count(dump.begin(), dump.end(), '\n'));
  }

 private:
  ScriptedNode* m_node = &ScriptedNode::Instance();
};
