// The file of settings, which an operator or a tool writes: its text, changes in it, and what the
// daemon makes of its sections. And the daemon's own file of console tokens.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "local/HttpSettings.h"
#include "local/IniCheck.h"
#include "local/NodeSettings.h"
#include "local/PushTargets.h"
#include "local/control/ConsoleTokens.h"
#include "local/ini/IniText.h"
#include "local/ini/LocalIniFile.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/local/FakeAgent.h"

namespace {

/// A change that is taken can be read, also from the text as a file, and a refused one changes
/// nothing.
void TakeChange(Input& input) {
  const std::string section(input.Until('\0'));
  const std::string key(input.Until('\0'));
  const std::string value(input.Until('\0'));
  IniText ini{std::string(input.Rest())};
  const std::string before = ini.Text();
  std::string error;
  if (!ini.Set(section, "", key, value, error)) {
    Require(!error.empty() && ini.Text() == before);
    return;
  }
  Require(ini.Find(section, "", key) == value);
  Require(IniText(ini.Text()).Find(section, "", key) == value);
  Require(ini.Remove(section, "", key) && !ini.Find(section, "", key));
}

/// Each problem is in words and names a line of the file, if any.
void TakeFile(std::string_view text, const FuzzFolder& folder) {
  folder.Write("qmtagt.ini", text);
  std::string error;
  const std::unique_ptr<LocalIniFile> ini = LocalIniFile::Open(folder.Path(), "qmtagt.ini", error);
  if (ini == nullptr) {
    Require(!error.empty());
    return;
  }
  EventLoop loop;
  BatchDesk desk;
  RecordSinks sinks{std::vector<RecordSink*>()};
  ScheduleBook book(loop, desk, sinks);
  const IniListing listing = ListIni(*ini, folder.Path(), book);
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
  for (const IniProblem& problem : listing.problems) {
    Require(!problem.text.empty() && problem.line <= lines);
  }
  static_cast<void>(ReadHttpSettings(*ini, false));
  const NodeSettings node = ReadNodeSettings(*ini);
  Require(node.history.days > 0 && node.history.megabytes > 0);
  static_cast<void>(ReadPushTargets(*ini));
}

/// Whatever the file holds, no token lives too long, and a new one is found by the next start.
void TakeTokens(std::string_view text, const FuzzFolder& folder) {
  constexpr std::time_t kNow = 1700000000;
  folder.Write("tokens", text);
  std::filesystem::permissions(folder.Path("tokens"), std::filesystem::perms{0600});
  const auto report = [](const std::string& line) { Require(!line.empty()); };
  const auto clock = [] { return kNow; };
  ConsoleTokens tokens(folder.Path("tokens"), report, clock);
  const std::time_t expires = tokens.Check(text.substr(0, text.find(' ')));
  Require(expires == 0 || (expires > kNow && expires <= kNow + ConsoleTokens::kLifeSeconds));
  const ConsoleToken made = tokens.Make();
  ConsoleTokens again(folder.Path("tokens"), report, clock);
  Require(again.Check(made.text) == made.expires);
}

}  // namespace

/// The first byte, a digit in the seeds, chooses between a change, which comes before its text, a
/// file, and a file of tokens.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  static const bool isPublished = (PublishFakeRecords(), true);
  static_cast<void>(isPublished);
  Input input(data, size);
  switch (input.Byte() % 3) {
    case 0:
      TakeChange(input);
      break;
    case 1:
      TakeFile(input.Rest(), folder);
      break;
    default:
      TakeTokens(input.Rest(), folder);
  }
  return 0;
}
