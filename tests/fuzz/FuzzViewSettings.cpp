// The file of the full screen's columns, which its user may edit.
#include <cstdlib>
#include <string>
#include <vector>

#include "client/view/ViewSettings.h"
#include "tests/fuzz/FuzzHelp.h"

/// What is remembered is read again, and the other lines stay.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  static const bool isSet = ::setenv("XDG_CONFIG_HOME", folder.Path().c_str(), 1) == 0 &&
                            std::filesystem::create_directories(folder.Path("qmtctl"));
  Require(isSet);
  folder.Write("qmtctl/view.ini", Input(data, size).Rest());
  ViewSettings settings;
  const std::vector<std::string> former = settings.ColumnsOf("CPUP");
  const std::vector<std::string> labels{"Some Label", "Other"};
  if (settings.SetColumns("PI", labels)) {
    const ViewSettings again;
    Require(again.ColumnsOf("PI") == labels && again.ColumnsOf("CPUP") == former);
  } else {
    Require(!settings.Complaint().empty());
  }
  return 0;
}
