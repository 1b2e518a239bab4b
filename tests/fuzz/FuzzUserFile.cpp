#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "client/files/UserRows.h"
#include "collect/userdata/UserFile.h"
#include "json/JsonText.h"
#include "support/HostPaths.h"

// The first byte chooses between the agent's file and an operator's rows. Files mostly have a good
// header and whole records, or else hardly an input would be read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::string root = (std::filesystem::temp_directory_path() / "qmtfuzz.XXXXXX").string();
  static const bool isMade = ::mkdtemp(root.data()) != nullptr;
  SetProductRoot(root);
  if (size == 0 || !isMade) {
    return 0;
  }
  const UserFileKind& kind = UserFileKinds()[data[0] % 4U];
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  if (data[0] >= 128) {
    std::vector<UserFault> faults;
    static_cast<void>(MakeUserRecords(kind, ReadUserTable(text, faults), 0));
    return 0;
  }
  std::filesystem::create_directories(root + kUserDataDirectory);
  const auto header = MakeUserFileHeader();
  std::ofstream file(root + kUserDataDirectory + "/" + kind.fileName, std::ios::binary);
  if (data[0] % 8U < 4) {
    file.write(header.data(), header.size());
  }
  if (data[0] < 96) {
    text.resize((text.size() + kind.recordSize - 1) / kind.recordSize * kind.recordSize);
  }
  file << text;
  file.close();
  std::vector<char> records;
  if (UserFile(kind).Load(records)) {
    static_cast<void>(
        JsonText(UserRowsJson(kind, std::string_view(records.data(), records.size()))));
  }
  return 0;
}
