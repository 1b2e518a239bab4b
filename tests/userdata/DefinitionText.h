#pragma once

#include "tests/support/TempFolder.h"
#include "userdata/FileFault.h"

/// A definition file of one test.
class DefinitionText {
 public:
  explicit DefinitionText(const std::string& text) {
    std::ofstream(Path(), std::ios::binary) << text;
  }
  [[nodiscard]] std::string Path() const { return (m_folder.Path() / "definitions").string(); }

 private:
  TempFolder m_folder;
};

/// "LINE: TEXT" for each fault, a newline behind each.
inline std::string FaultText(const std::vector<FileFault>& faults) {
  std::string text;
  for (const FileFault& fault : faults) {
    text += std::to_string(fault.line) + ": " + fault.text + "\n";
  }
  return text;
}
