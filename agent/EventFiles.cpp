#include <array>
#include <string>

#include "agent/UnixAgent.h"
#include "support/HostPaths.h"
#include "support/ProductOptions.h"
#include "support/TextFile.h"
#include "support/TraceLog.h"
#include "support/UtlDebug.h"
#include "userdata/EventFile.h"

namespace {

constexpr std::size_t kEventFileSize = 512;
using EntryText = std::array<char, mondEvFile::kBufferSize>;

void PrintEntryLine(const char* label, const EntryText& value) {
  if (IsTraced(30)) {
    const std::string line = std::string(label) + value.data() + "\n";
    UtlDebug::PrintData(line.data(), line.size());
  }
}

std::string OptionName(int number) { return "EventFile" + std::to_string(number); }

/// Stores the entries whose log files can be opened as options, which are numbered without gaps.
void StoreEntries(mondEvFile& file, const std::string& path) {
  EntryText logfile{};
  EntryText id{};
  EntryText regexp{};
  int count = 0;
  for (int rc = 0;
       (rc = file.mondGetEvFileEntry(logfile.data(), id.data(), regexp.data())) != -1;) {
    if (rc != 0) {
      continue;
    }
    PrintEntryLine("Logfile = ", logfile);
    PrintEntryLine("ID = ", id);
    PrintEntryLine("Regexp = ", regexp);
    if (OpenTextFile(HostPath(logfile.data())) == nullptr) {
      MessageAndCopy(10203, path);
      Trace(20, kWarning, "Failed to access the file or directory(%1).", logfile.data());
      continue;
    }
    const std::string value = std::string(logfile.data()) + '*' + id.data() + '*' + regexp.data();
    ProductOptions::Instance().Set("Messages", OptionName(++count).c_str(), value.c_str());
  }
  // An empty option ends the list: what an earlier, longer file left behind it is not read.
  const std::string end = OptionName(count + 1);
  if (ProductOptions::Instance().Get("Messages", end.c_str()) != nullptr) {
    ProductOptions::Instance().Set("Messages", end.c_str(), "");
  }
}

}  // namespace

int UnixAgent::InitEventFile() {
  constexpr const char* kKey = "Eventfile";
  CMBIniFile* ini = GetIniFile();
  if (ini == nullptr) {
    Trace(20, kInformation, "GetIniFile failed");
    return -1;
  }
  std::array<char, kEventFileSize> name{};
  ini->ReadString(name.data(), static_cast<int>(name.size()), kKey, "Log Records", "MESS", nullptr,
                  0);
  if (name[0] == '\0') {
    Trace(20, kError, "Failed to access the file or directory (%1).", kKey);
    return 0;
  }
  m_eventFilePath = GetFilePath(name.data());
  mondEvFile file;
  // The data directory is where it is, below no root.
  if (file.mondInitFileAnalyze(m_eventFilePath.c_str()) != 0) {
    Trace(20, kError, "Failed to Initialize the file for reading (%1).", m_eventFilePath);
    return 0;
  }
  StoreEntries(file, m_eventFilePath);
  return 0;
}
