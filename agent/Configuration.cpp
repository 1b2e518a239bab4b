#include <array>
#include <cstddef>
#include <string>

#include "agent/ConfigNames.h"
#include "agent/DayTime.h"
#include "agent/HostProfileChoice.h"
#include "agent/IniSettings.h"
#include "agent/UnixAgent.h"
#include "collect/modern/cgroup/ControlGroupSource.h"
#include "support/HostProfile.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr int kOptionFailed = -61;
/// Seconds, unless the site sets another limit.
constexpr long kModernMountTimeout = 2;
constexpr long kLongestMountTimeout = 3600;

}  // namespace

bool UnixAgent::WriteOption(const char* label, const std::string& value) {
  CMBIniFile* ini = GetIniFile();
  return ini != nullptr &&
         ini->WriteString(value.c_str(), label, kAgentSection, nullptr, nullptr, 0) != 0;
}

int UnixAgent::InitConfigOption(char* value, std::size_t size, const char* label,
                                const char* defaultValue, bool isTime) {
  // The name stays what readers of these traces look for.
  TraceEntry("UnixAgent::ShouldStopAccounting", label, defaultValue);
  const int rc = ReadOption(value, size, label, defaultValue, isTime);
  TraceExit("UnixAgent::InitConfigOption", rc);
  return rc;
}

int UnixAgent::ReadOption(char* value, std::size_t size, const char* label,
                          const char* defaultValue, bool isTime) {
  if (value == nullptr || size == 0) {
    Trace(30, kError, "%1: Invalid parameter pszValue(Label = %2)", "UnixAgent::InitConfigOption",
          label);
    return kOptionFailed;
  }
  if (GetIniFile() == nullptr) {
    return kOptionFailed;
  }
  value[0] = '\0';
  GetIniFile()->ReadString(value, static_cast<int>(size), label, kAgentSection, nullptr, nullptr,
                           0);
  const std::string found = value;
  if (found.empty() || (isTime && isValidTime(value) == 0)) {
    value[std::string(defaultValue).copy(value, size - 1)] = '\0';
  } else if (found == value) {
    return 0;
  }
  return WriteOption(label, value) ? 0 : kOptionFailed;
}

int UnixAgent::InitConfigOption(long* value, const char* label, long defaultValue) {
  TraceEntry("UnixAgent::InitConfigOption", label, defaultValue);
  int rc = kOptionFailed;
  if (CMBIniFile* ini = GetIniFile(); ini != nullptr) {
    rc = 0;
    long found = 0;
    ini->ReadLong(&found, label, kAgentSection, nullptr, nullptr);
    if (found < 1) {
      found = defaultValue;
      rc =
          ini->WriteLong(found, label, kAgentSection, nullptr, nullptr, 0) != 0 ? 0 : kOptionFailed;
    }
    *value = found;
  }
  TraceExit("UnixAgent::InitConfigOption", rc);
  return rc;
}

int UnixAgent::ReadConfiguration() {
  // In the order of kAgentTextSettings.
  static constexpr std::array<std::string UnixAgent::*, kAgentTextSettings.size()> kMembers{
      &UnixAgent::m_ufssTime,           &UnixAgent::m_messagesFile,
      &UnixAgent::m_workgroupFilePath,  &UnixAgent::m_accountingFile,
      &UnixAgent::m_useAccounting,      &UnixAgent::m_logDied,
      &UnixAgent::m_truncateAccounting, &UnixAgent::m_microstate,
      &UnixAgent::m_deviceNameCache};
  for (std::size_t i = 0; i < kMembers.size(); ++i) {
    const AgentTextSetting& option = kAgentTextSettings[i];
    std::string buffer(option.size, '\0');
    if (const int rc = InitConfigOption(buffer.data(), buffer.size(), option.label,
                                        option.defaultValue, option.isTime);
        rc != 0) {
      return rc;
    }
    this->*kMembers[i] = buffer.substr(0, buffer.find('\0'));
  }
  m_workgroupFilePath = GetFilePath(m_workgroupFilePath);
  long dataMaxCount = 0;
  if (const int rc = InitConfigOption(&dataMaxCount, kDataMaxCountLabel, kDefaultDataMaxCount);
      rc != 0) {
    return rc;
  }
  m_dataMaxCount = std::to_string(dataMaxCount);
  PublishConfiguration();
  ChooseHostProfile(*GetIniFile());
  PublishMountTimeout();
  PublishGroupDepth();
  PublishProcessSource();
  PublishGuardMode();
  return 0;
}

void UnixAgent::PublishGuardMode() {
  std::array<char, kShortText> mode{};
  GetIniFile()->ReadString(mode.data(), static_cast<int>(mode.size()), kGuardModeLabel,
                           kAgentSection, nullptr, nullptr, 0);
  ProductOptions::Instance().Set("User", "GuardMode", mode.data());
}

void UnixAgent::PublishGroupDepth() {
  const long usual = ControlGroupWalk{}.depth;
  long depth = usual;
  GetIniFile()->ReadLong(&depth, kGroupDepthLabel, kHostSection, nullptr, nullptr);
  // The check of the settings tells of one that is out of range.
  if (depth < 0 || depth > kMostGroupDepth) {
    depth = usual;
  }
  ProductOptions::Instance().Set(kHostSection, kGroupDepthLabel, std::to_string(depth).c_str());
}

void UnixAgent::PublishProcessSource() {
  // The check of the settings tells of others than these.
  std::array<char, kShortText> source{};
  GetIniFile()->ReadString(source.data(), static_cast<int>(source.size()), kProcessSourceLabel,
                           kHostSection, nullptr, nullptr, 0);
  ProductOptions::Instance().Set(kHostSection, kProcessSourceLabel,
                                 IsProcessSource(source.data()) ? source.data() : "auto");
  long refresh = kUsualProcessRefresh;
  GetIniFile()->ReadLong(&refresh, kProcessRefreshLabel, kHostSection, nullptr, nullptr);
  if (refresh < 1 || refresh > kMostProcessRefresh) {
    refresh = kUsualProcessRefresh;
  }
  ProductOptions::Instance().Set(kHostSection, kProcessRefreshLabel,
                                 std::to_string(refresh).c_str());
}

void UnixAgent::PublishMountTimeout() {
  const long usual = g_hostProfile == HostProfile::kModern ? kModernMountTimeout : 0;
  long seconds = usual;
  GetIniFile()->ReadLong(&seconds, kMountTimeoutLabel, kNodeSection, nullptr, nullptr);
  // The check of the section's settings tells of one that is out of range.
  if (seconds < 0 || seconds > kLongestMountTimeout) {
    seconds = usual;
  }
  ProductOptions::Instance().Set(kNodeSection, kMountTimeoutLabel, std::to_string(seconds).c_str());
}

void UnixAgent::PublishConfiguration() const {
  ProductOptions& options = ProductOptions::Instance();
  options.Set("Process", "Microstate", m_microstate.c_str());
  options.Set("Messages", "FileName", m_messagesFile.c_str());
  options.Set("Acct", "FileName", m_accountingFile.c_str());
  options.Set("Acct", "GetDiedProcess", m_logDied.c_str());
  options.Set("Acct", "Truncate", m_truncateAccounting.c_str());
  options.Set("Device", "DeviceNameCache", m_deviceNameCache.c_str());
  options.Set("Process", "AgentWaitTime", "");
  options.Set("Process", "CollectorWaitTime", "");
  options.Set("User", "DataMaxCount", m_dataMaxCount.c_str());
  if (m_useAccounting == "n" || m_useAccounting == "N") {
    options.Set("Acct", "UseAcct", "n");
  }
}
