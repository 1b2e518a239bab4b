// Files that the client reads of settings: that of the full screen's columns, which its user may
// edit, and the daemon's. And what the system tells of units.
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "client/doctor/UnitText.h"
#include "client/files/Settings.h"
#include "client/view/ViewSettings.h"
#include "support/UserFileSemaphore.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

constexpr const char* kDaemonsFolder = "opt/qmtrx/mond/agent";

/// What is remembered is read again, and the other lines stay.
void TakeView(std::string_view text, const FuzzFolder& folder) {
  folder.Write("qmtctl/view.ini", text);
  ViewSettings settings;
  const std::vector<std::string> former = settings.ColumnsOf("CPUP");
  const std::vector<std::string> labels{"Some Label", "Other"};
  if (settings.SetColumns("PI", labels)) {
    const ViewSettings again;
    Require(again.ColumnsOf("PI") == labels && again.ColumnsOf("CPUP") == former);
  } else {
    Require(!settings.Complaint().empty());
  }
}

/// As the doctor reads them, and for the mode of a guard.
void TakeDaemons(std::string_view text, const FuzzFolder& folder) {
  const std::string name = std::string(kDaemonsFolder) + "/qmtagt.ini";
  folder.Write(name, text);
  const Settings settings(folder.Path(name));
  Require(settings.HistoryBytes().has_value() && !settings.WorkgroupFile().empty());
  static_cast<void>(settings.EventFile());
  static_cast<void>(settings.HistoryFile());
  for (const std::string& address : settings.Listen()) {
    Require(!address.empty() && address.find_first_of(" \t,") == std::string::npos);
  }
  // Whoever makes a guard can open it.
  Require((UserFileGuardRights(settings.GuardMode().c_str()).mode & 0600) == 0600);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  static const bool isSet = ::setenv("XDG_CONFIG_HOME", folder.Path().c_str(), 1) == 0 &&
                            std::filesystem::create_directories(folder.Path("qmtctl")) &&
                            std::filesystem::create_directories(folder.Path(kDaemonsFolder));
  Require(isSet);
  const std::string_view text = Input(data, size).Rest();
  TakeView(text, folder);
  TakeDaemons(text, folder);
  for (const UnitFacts& unit : ParseUnits(text)) {
    Require(!unit.name.empty() && unit.load.find('\n') == std::string::npos);
  }
  return 0;
}
