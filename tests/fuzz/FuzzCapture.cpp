// A capture as the daemon replays it, which anybody may have made.
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "local/capture/CapturedCalls.h"
#include "local/capture/HostReplay.h"
#include "support/Descriptor.h"
#include "support/OsCalls.h"
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

/// A capture with good facts and the calls of its two samples.
void WriteCapture(const FuzzFolder& folder, const std::array<std::string, 2>& calls) {
  struct ::utsname names {};
  Require(::uname(&names) == 0);
  CaptureFacts facts{"1", "h", "modern", "6", names.machine, true, false, {}};
  for (const long number : {1L, 2L}) {
    const std::string sample = SampleFolder(number);
    facts.samples.push_back({sample, static_cast<double>(number)});
    std::filesystem::create_directories(folder.Path(sample) + "/host/proc");
    folder.Write(sample + "/calls.jsonl", calls[static_cast<std::size_t>(number - 1)]);
  }
  folder.Write("capture.json", CaptureText(facts));
}

/// Answers to calls whose structures are as long as they must be, which no input would find. Each
/// tells by a byte which call it is of, by one its result, and up to a zero byte what it holds,
/// where 0xff stands for zero.
std::string SizedCalls(Input& input) {
  struct Call {
    std::string question;
    std::optional<std::size_t> size;  ///< none: a text
  };
  const std::string info = std::to_string(SEM_INFO);
  static const std::array kCalls{
      Call{"sysinfo", sizeof(struct ::sysinfo)},
      Call{"uname", sizeof(struct ::utsname)},
      Call{"get_nprocs", 0},
      Call{"getpagesize", 0},
      Call{"getpwuid 7", {}},
      Call{"getgrgid 7", {}},
      Call{"getpwent 1", {}},
      Call{"ioctl " + std::to_string(SIOCGIFADDR) + " eth0", sizeof(struct ::ifreq)},
      Call{"semctl 0 0 " + info, sizeof(struct ::seminfo)},
      Call{"semctl 0 0 " + std::to_string(SEM_STAT), sizeof(struct ::semid_ds)},
      Call{"gettimeofday", sizeof(struct ::timeval)},
      Call{"adjtimex", sizeof(struct ::timex)}};
  std::string lines;
  while (!input.IsEmpty()) {
    const Call& call = kCalls[input.Byte() % kCalls.size()];
    const auto result = static_cast<signed char>(input.Byte());
    std::string bytes(input.Until('\0'));
    if (call.size) {
      std::ranges::replace(bytes, '\xff', '\0');
      bytes.resize(*call.size);
    }
    lines += CallLine(call.question, {result, 5, bytes});
  }
  return lines;
}

/// What the daemon makes of what a capture answers its calls by.
void TakeSizedCalls(Input& input, const FuzzFolder& folder) {
  const std::string lines = SizedCalls(input);
  WriteCapture(folder, {lines, lines});
  std::string problem;
  const std::unique_ptr<HostReplay> replay = HostReplay::Open(folder.Path(), 1, problem);
  if (replay == nullptr) {
    return;
  }
  static const OsCalls kReal = Os();
  CaptureOsCalls(*replay);
  replay->BeginBatch();
  struct ::utsname names {};
  static_cast<void>(Os().uname(&names));
  Require(std::string(names.release).size() < sizeof names.release);
  Require(Os().get_nprocs() > 0 && Os().getpagesize() >= 4096);
  for (const ::passwd* user : {Os().getpwuid(7), (Os().setpwent(), Os().getpwent())}) {
    Require(user == nullptr || std::string_view(user->pw_name).find('\n') == std::string::npos);
  }
  static_cast<void>(Os().getgrgid(7));
  struct ::ifreq interface {};
  std::string_view("eth0").copy(interface.ifr_name, IFNAMSIZ);
  const Descriptor socket(Os().socket(AF_INET, SOCK_DGRAM, 0));
  static_cast<void>(Os().ioctl(socket.Get(), SIOCGIFADDR, &interface));
  struct ::seminfo info {};
  struct ::semid_ds set {};
  Require(Os().semctl(0, 0, SEM_INFO, &info) <= 65536);
  Require(Os().semctl(0, 0, SEM_STAT, &set) < 0 || set.sem_nsems <= 65536);
  struct ::timex clock {};
  struct ::sysinfo host {};
  static_cast<void>(Os().adjtimex(&clock));
  static_cast<void>(Os().sysinfo(&host));
  static_cast<void>(Os().time(nullptr));
  replay->EndBatch();
  Os() = kReal;
}

/// A capture with good facts: the calls of its two samples, and the name and target of a link in
/// its tree. What is asked for is answered from the capture and nowhere else.
void TakeReplay(std::string_view text, const FuzzFolder& folder) {
  Input input(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  std::array<std::string, 2> calls;
  for (std::string& lines : calls) {
    lines = input.Until('\0');
  }
  WriteCapture(folder, calls);
  const std::string link = folder.Path(SampleFolder(1)) + "/host/proc/link";
  const std::string target(input.Until('\0'));
  const bool hasLink = !target.empty() && ::symlink(target.c_str(), link.c_str()) == 0;
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
  switch (input.Byte() % 4) {
    case 0:
      TakeFacts(input.Rest());
      break;
    case 1:
      TakeCalls(input.Rest());
      break;
    case 2:
      TakeReplay(input.Rest(), folder);
      break;
    default:
      TakeSizedCalls(input, folder);
  }
  return 0;
}
