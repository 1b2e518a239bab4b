#include "agent/HostProfileChoice.h"

#include <array>
#include <cstdlib>
#include <optional>
#include <string>

#include "agent/ConfigNames.h"
#include "agent/IniSettings.h"
#include "node/FigureRegistry.h"
#include "node/IniFile.h"
#include "node/NodeLayer.h"
#include "records/RecordLayouts.h"
#include "support/HostProfile.h"
#include "support/TraceLog.h"

namespace {

constexpr const char* kVariable = "QMT_HOST_PROFILE";

/// A profile's name and where it stands, empty for the file; no name where nobody has written one.
struct WrittenProfile {
  std::string place;
  std::optional<std::string> name;
};

/// The place as "FILE:LINE", without the line where the node can't tell it.
std::string PlaceInFile() {
  std::string place = kIniName;
  for (const IniSetting& setting : ActiveNodeLayer().ListIniFile(kIniName).settings) {
    if (IsHostProfile(setting)) {
      return place + ':' + std::to_string(setting.line);
    }
  }
  return place;
}

WrittenProfile ReadProfile(CMBIniFile& ini) {
  if (const char* value = std::getenv(kVariable); value != nullptr && *value != '\0') {
    return {kVariable, value};
  }
  std::array<char, kShortText> text{};
  const bool isWritten = ini.ReadString(text.data(), static_cast<int>(text.size()), kProfileLabel,
                                        kHostSection, nullptr, nullptr, 0) != 0;
  return {"", isWritten ? std::optional<std::string>(text.data()) : std::nullopt};
}

}  // namespace

void ChooseHostProfile(CMBIniFile& ini) {
  const WrittenProfile written = ReadProfile(ini);
  const std::optional<HostProfile> profile =
      written.name ? HostProfileOf(*written.name) : std::nullopt;
  if (!profile && written.name) {
    Trace(10, kWarning, "%1: %2.", written.place.empty() ? PlaceInFile() : written.place,
          ProfileProblem(*written.name));
  }
  g_hostProfile = profile.value_or(HostProfile::kClassic);
  FigureRegistry::Instance().SetFact("host_profile", HostProfileName(g_hostProfile));
  PublishLayouts();
}
