#include <cstddef>
#include <cstdint>
#include <string>

#include "process/ApplicationMonitor.h"
#include "support/AgentUtil.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

/// The list in the form of its file.
std::string TextOf(const ApplicationMonitor& monitor) {
  std::string text;
  for (int a = 0; a < monitor.GetCount(); ++a) {
    text += std::string("A\t") + monitor.GetName(a) + "\n";
    for (int p = 0; p < ApplicationMonitor::kProcesses; ++p) {
      text += "P\t" + std::to_string(monitor.GetKind(a, p)) + "\t" +
              std::to_string(monitor.GetRangeMin(a, p)) + "\t" +
              std::to_string(monitor.GetRangeMax(a, p)) + "\t" + monitor.GetPattern(a, p) + "\n";
    }
  }
  return text;
}

/// The match as its rules are told; exponential.
bool PlainMatch(const char* pattern, const char* text) {
  if (*pattern == '*') {
    return PlainMatch(pattern + 1, text) || (*text != '\0' && PlainMatch(pattern, text + 1));
  }
  if (*pattern == '\0' || *text == '\0') {
    return *pattern == *text;
  }
  return (*pattern == '?' || *pattern == *text) && PlainMatch(pattern + 1, text + 1);
}

}  // namespace

/// Any bytes as a file of applications, which must come back from what it is written as, and as a
/// pattern with its text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  ApplicationMonitor monitor;
  const bool isClean = monitor.ReadText(text) == 1;
  Require(isClean || !monitor.Faults().empty(), "a bad line is not named");
  const std::string written = TextOf(monitor);
  monitor.begin();
  monitor.countProcess(text.c_str(), text.c_str());
  monitor.end();
  Require(monitor.ReadText(written) == 1 && TextOf(monitor) == written, "not read back as written");

  const std::string pattern = text.substr(0, 8).c_str();
  const std::string subject = text.substr(0, 24).substr(pattern.size()).c_str();
  Require(WildcardMatch(pattern.c_str(), subject.c_str()) ==
              PlainMatch(pattern.c_str(), subject.c_str()),
          "the match differs from its rules");
  return 0;
}
