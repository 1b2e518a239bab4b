// A capture as the daemon replays it, which anybody may have made.
#include <fcntl.h>
#include <linux/dqblk_xfs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/quota.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "local/capture/CapturedCalls.h"
#include "local/capture/HostReplay.h"
#include "support/Descriptor.h"
#include "support/OsCalls.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

constexpr std::string_view kSecret = "secret";
constexpr int kQuota = QCMD(Q_GETQUOTA, USRQUOTA);

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
  const auto slot = [](const char* call, int command) {
    return std::string(call) + " 0 0 " + std::to_string(command);
  };
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
      Call{"clock_gettime 7", sizeof(struct ::timespec)},
      Call{"adjtimex", sizeof(struct ::timex)},
      Call{"list /proc", {}},
      Call{"readlink /proc/link", {}},
      Call{"stat /proc/link", sizeof(struct ::stat)},
      Call{"netlink 0 q", 0},
      Call{"netlink 0 q#0", {}},
      Call{"statfs /proc", sizeof(struct ::statfs64)},
      Call{"quotactl " + std::to_string(kQuota) + " 7 /proc", sizeof(struct ::fs_disk_quota)},
      Call{slot("shmctl", SHM_INFO), sizeof(struct ::shm_info)},
      Call{slot("shmctl", SHM_STAT), sizeof(struct ::shmid_ds)},
      Call{slot("msgctl", MSG_INFO), sizeof(struct ::msginfo)},
      Call{slot("msgctl", MSG_STAT), sizeof(struct ::msqid_ds)}};
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

/// What the sources ask of the host's tree, and over netlink.
void ReadHost(HostReplay& replay, const FuzzFolder& folder) {
  const std::string proc = folder.Path("proc");
  const std::string link = folder.Path("proc/link");
  struct ::stat status {};
  for (const int flags : {0, AT_SYMLINK_NOFOLLOW}) {
    const int found = replay.Stat(AT_FDCWD, link.c_str(), &status, flags);
    Require(found == 0 || found == -1);
  }
  char target[8] = {};
  Require(replay.ReadLink(AT_FDCWD, link.c_str(), target, sizeof target - 1) < 8);
  const Descriptor opened(replay.Open(AT_FDCWD, proc.c_str(), O_RDONLY | O_DIRECTORY));
  if (opened.IsOpen()) {
    std::vector<::dirent> entries;
    static_cast<void>(replay.List(opened.Get(), entries));
    for (const ::dirent& entry : entries) {
      const std::string_view name = entry.d_name;
      Require(!name.empty() && name != "." && name != ".." && name.find('/') == name.npos);
      static_cast<void>(replay.Stat(opened.Get(), entry.d_name, &status, 0));
    }
  }
  HeardTalk heard;
  Require(replay.FindTalk(0, "q", heard));
}

/// Asks for the slots of shared memory or of queues of messages.
template <class Info, class Set>
void AskSlots(int (*call)(int, int, Set*), int infoCommand, int setCommand) {
  Info info{};
  Set set{};
  Require(call(0, infoCommand, reinterpret_cast<Set*>(&info)) <= 65536);
  static_cast<void>(call(0, setCommand, &set));
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
  AskSlots<struct ::shm_info>(Os().shmctl, SHM_INFO, SHM_STAT);
  AskSlots<struct ::msginfo>(Os().msgctl, MSG_INFO, MSG_STAT);
  const std::string proc = folder.Path("proc");
  struct ::statfs64 fileSystem {};
  struct ::fs_disk_quota quota {};
  static_cast<void>(Os().statfs64(proc.c_str(), &fileSystem));
  static_cast<void>(Os().quotactl(kQuota, proc.c_str(), 7, reinterpret_cast<char*>(&quota)));
  ReadHost(*replay, folder);
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
    ReadHost(*replay, folder);
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
