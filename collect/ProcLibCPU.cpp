#include <algorithm>
#include <cerrno>

#include "collect/ProcLib.h"
#include "collect/TextScanner.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

// Where the kernel puts the text behind the colon: "processor\t: 0" and "model name\t: Text".
constexpr std::size_t kProcessorColumn = 11;
constexpr std::size_t kModelNameColumn = 13;
constexpr std::size_t kModelNameLimit = 40;

std::string_view TextFrom(const char* line, std::size_t column) {
  const std::string_view text(line);
  return text.substr(std::min(column, text.size()));
}

/// Whether that is what stands before the line's colon, without the blanks between.
bool HasCPUKey(const char* line, std::string_view key) {
  std::string_view text(line);
  text = text.substr(0, text.find(':'));
  return text.substr(0, text.find_last_not_of(" \t\n") + 1) == key;
}

}  // namespace

bool ProcLib::NextProcessor(ProcLine& line, std::optional<std::uint32_t>& id) {
  while (GetString(line) == 0) {
    if (HasCPUKey(line.data(), "processor")) {
      std::uint32_t number = 0;
      id.reset();
      if (TextScanner(TextFrom(line.data(), kProcessorColumn)).Unsigned(number)) {
        id = number;
      }
      return true;
    }
  }
  return false;
}

std::optional<std::vector<std::uint32_t>> ProcLib::GetCPUIds() {
  if (m_fp == nullptr) {
    return std::nullopt;
  }
  const int configured = Os().get_nprocs_conf();
  if (configured < 0) {
    Trace(20, kError, "The error occured by OS API (get_nprocs_conf).(en=%1).", errno);
    return std::nullopt;
  }
  std::vector<std::uint32_t> ids(static_cast<std::size_t>(configured));
  std::uint32_t id = 0;
  std::optional<std::uint32_t> found;
  auto place = ids.begin();
  for (ProcLine line; place != ids.end() && NextProcessor(line, found);) {
    // A line without a number gets the one before.
    id = found.value_or(id);
    if (!found) {
      Trace(20, kWarning, "The error occured by OS API(sscanf).(en = %1,arg1 = %2,arg2 = %3).",
            errno, line.data(), "%u");
    }
    *place++ = id;
  }
  return ids;
}

std::optional<std::vector<std::string>> ProcLib::GetCPUTypes() {
  if (m_fp == nullptr) {
    return std::nullopt;
  }
  const int configured = Os().get_nprocs_conf();
  if (configured < 0) {
    Trace(20, kError, "The error occured by OS API(get_nprocs_conf).(en=%1).", errno);
    return std::nullopt;
  }
  std::vector<std::string> types(static_cast<std::size_t>(configured));
  auto place = types.begin();
  for (ProcLine line; place != types.end() && GetString(line) == 0;) {
    if (HasCPUKey(line.data(), "model name")) {
      *place++ = TextFrom(line.data(), kModelNameColumn).substr(0, kModelNameLimit);
    }
  }
  return types;
}
