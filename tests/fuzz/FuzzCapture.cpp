// A capture as the daemon replays it, which anybody may have made.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "local/capture/HostReplay.h"
#include "support/Descriptor.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

constexpr std::string_view kSecret = "secret";

/// What is read is written so that it is read again.
void TakeFacts(std::string_view text) {
  CaptureFacts facts;
  if (!ReadCaptureText(text, facts).empty()) {
    return;
  }
  CaptureFacts again;
  Require(ReadCaptureText(CaptureText(facts), again).empty());
  Require(again.host == facts.host && again.samples.size() == facts.samples.size());
}

void TakeCalls(std::string_view text) {
  CallAnswers answers;
  if (TakeCallLines(text, answers)) {
    return;
  }
  std::string lines;
  for (const auto& [question, answer] : answers) {
    lines += CallLine(question, answer);
  }
  CallAnswers again;
  Require(!TakeCallLines(lines, again) && again.size() == answers.size());
  for (const auto& [question, answer] : answers) {
    const auto found = again.find(question);
    Require(found != again.end() && found->second.bytes == answer.bytes &&
            found->second.result == answer.result && found->second.code == answer.code);
  }
}

/// A capture with good facts: the calls of its two samples, and the name and target of a link in
/// its tree. What is asked for is answered from the capture and nowhere else.
void TakeReplay(std::string_view text, const FuzzFolder& folder) {
  Input input(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  struct ::utsname names {};
  Require(::uname(&names) == 0);
  CaptureFacts facts{"1", "h", "modern", "6", names.machine, true, false, {}};
  for (const long number : {1L, 2L}) {
    const std::string sample = SampleFolder(number);
    facts.samples.push_back({sample, static_cast<double>(number)});
    std::filesystem::create_directories(folder.Path(sample) + "/host/proc");
    folder.Write(sample + "/calls.jsonl", input.Until('\0'));
  }
  const std::string link = folder.Path(SampleFolder(1)) + "/host/proc/link";
  const std::string target(input.Until('\0'));
  const bool hasLink = !target.empty() && ::symlink(target.c_str(), link.c_str()) == 0;
  folder.Write("capture.json", CaptureText(facts));
  folder.Write("outside", kSecret);
  std::string problem;
  std::unique_ptr<HostReplay> replay = HostReplay::Open(folder.Path(), 1, problem);
  Require((replay == nullptr) == !problem.empty());
  if (replay == nullptr && hasLink) {
    // Whoever owns a capture may also put the link there once it has been looked through.
    ::unlink(link.c_str());
    replay = HostReplay::Open(folder.Path(), 1, problem);
    Require(::symlink(target.c_str(), link.c_str()) == 0);
  }
  if (replay != nullptr) {
    const std::string asked(input.Rest());
    replay->BeginBatch();
    static_cast<void>(replay->Ask(asked, [] { return CallAnswer{-1, 2, {}}; }));
    const std::string name = folder.Path("proc/link");
    const Descriptor file(replay->Open(AT_FDCWD, name.c_str(), O_RDONLY | O_NONBLOCK));
    char bytes[8] = {};
    if (file.IsOpen() && ::read(file.Get(), bytes, sizeof bytes) > 0) {
      Require(!std::string_view(bytes).starts_with(kSecret));
    }
    replay->EndBatch();
  }
  if (hasLink) {
    ::unlink(link.c_str());
  }
}

}  // namespace

/// The first byte, a digit in the seeds, chooses what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  Input input(data, size);
  switch (input.Byte() % 3) {
    case 0:
      TakeFacts(input.Rest());
      break;
    case 1:
      TakeCalls(input.Rest());
      break;
    default:
      TakeReplay(input.Rest(), folder);
  }
  return 0;
}
