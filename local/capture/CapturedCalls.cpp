#include "local/capture/CapturedCalls.h"

#include <linux/dqblk_xfs.h>
#include <sys/ipc.h>
#include <sys/quota.h>
#include <sys/sem.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "local/capture/CapturedHost.h"
#include "support/OsCalls.h"

namespace {

CapturedHost* g_capturedHost = nullptr;
OsCalls g_realCalls;
/// Which entry of the user data base comes next.
int g_nextUser = 0;

/// Asks a call that fills in `size` bytes at `out`, which may be null.
template <class Real>
int AskCall(const std::string& question, void* out, std::size_t size, const Real& real) {
  const CallAnswer answer = g_capturedHost->Ask(question, [&] {
    CallAnswer told;
    errno = 0;
    told.result = real();
    told.code = told.result < 0 ? errno : 0;
    if (out != nullptr && told.result >= 0) {
      told.bytes.assign(static_cast<const char*>(out), size);
    }
    return told;
  });
  if (out != nullptr && answer.result >= 0) {
    if (answer.bytes.size() != size) {
      errno = EPROTO;
      return -1;
    }
    std::memcpy(out, answer.bytes.data(), size);
  }
  errno = answer.code;
  return static_cast<int>(answer.result);
}

template <class T, class Real>
int AskCall(const std::string& question, T* out, const Real& real) {
  return AskCall(question, static_cast<void*>(out), sizeof(T), real);
}

std::string Numbered(const char* call, long first, long second = 0) {
  return std::string(call) + ' ' + std::to_string(first) +
         (second == 0 ? "" : ' ' + std::to_string(second));
}

int CapturedSysinfo(struct ::sysinfo* info) {
  return AskCall("sysinfo", info, [&] { return g_realCalls.sysinfo(info); });
}
int CapturedUname(struct ::utsname* names) {
  const int result = AskCall("uname", names, [&] { return g_realCalls.uname(names); });
  // A capture may come from anywhere.
  for (char* text : {names->sysname, names->nodename, names->release, names->version,
                     names->machine, names->domainname}) {
    text[sizeof(names->sysname) - 1] = '\0';
  }
  return result;
}

constexpr int kMostProcessorsTold = 65536;

int CapturedNprocs() {
  return std::clamp(AskCall("get_nprocs", nullptr, 0, [] { return g_realCalls.get_nprocs(); }), 1,
                    kMostProcessorsTold);
}
int CapturedNprocsConf() {
  return std::clamp(
      AskCall("get_nprocs_conf", nullptr, 0, [] { return g_realCalls.get_nprocs_conf(); }), 1,
      kMostProcessorsTold);
}
int CapturedPageSize() {
  constexpr int kSmallest = 4096;
  constexpr int kLargest = 1 << 20;
  return std::clamp(AskCall("getpagesize", nullptr, 0, [] { return g_realCalls.getpagesize(); }),
                    kSmallest, kLargest);
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

unsigned NumberOf(const std::string& text) {
  return static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10));
}

/// A user as name, number, number of the group and home; null for an answer that is none.
struct ::passwd* UserOf(const CallAnswer& answer) {
  static std::array<std::string, 2> texts;
  static std::string none;
  static struct ::passwd user;
  const std::vector<std::string> lines = LinesOf(answer.bytes);
  if (answer.result < 0 || lines.size() != 4) {
    errno = answer.code;
    return nullptr;
  }
  texts = {lines[0], lines[3]};
  user = {};
  user.pw_name = texts[0].data();
  user.pw_uid = NumberOf(lines[1]);
  user.pw_gid = NumberOf(lines[2]);
  user.pw_dir = texts[1].data();
  user.pw_passwd = user.pw_gecos = user.pw_shell = none.data();
  return &user;
}

CallAnswer AnswerOf(const struct ::passwd* user) {
  if (user == nullptr) {
    return {-1, errno, {}};
  }
  return {0, 0,
          std::string(user->pw_name) + '\n' + std::to_string(user->pw_uid) + '\n' +
              std::to_string(user->pw_gid) + '\n' + user->pw_dir + '\n'};
}

struct ::passwd* CapturedGetpwuid(uid_t uid) {
  return UserOf(g_capturedHost->Ask(Numbered("getpwuid", uid), [uid] {
    errno = 0;
    return AnswerOf(g_realCalls.getpwuid(uid));
  }));
}

struct ::group* CapturedGetgrgid(gid_t gid) {
  static std::string name;
  static struct ::group group;
  static std::array<char*, 1> members{};
  const CallAnswer answer = g_capturedHost->Ask(Numbered("getgrgid", gid), [gid] {
    errno = 0;
    const struct ::group* found = g_realCalls.getgrgid(gid);
    return found == nullptr ? CallAnswer{-1, errno, {}} : CallAnswer{0, 0, found->gr_name};
  });
  if (answer.result < 0) {
    errno = answer.code;
    return nullptr;
  }
  static std::string none;
  name = answer.bytes;
  group = {name.data(), none.data(), gid, members.data()};
  return &group;
}

void CapturedSetpwent() {
  g_nextUser = 0;
  g_realCalls.setpwent();
}
struct ::passwd* CapturedGetpwent() {
  return UserOf(g_capturedHost->Ask(Numbered("getpwent", ++g_nextUser), [] {
    errno = 0;
    return AnswerOf(g_realCalls.getpwent());
  }));
}

/// The socket serves for questions that are answered here; only a failure is kept.
int CapturedSocket(int domain, int type, int protocol) {
  const CallAnswer answer = g_capturedHost->Ask(Numbered("socket", domain, protocol), [&] {
    const int made = g_realCalls.socket(domain, type, protocol);
    const int code = errno;
    if (made >= 0) {
      ::close(made);
    }
    return made < 0 ? CallAnswer{-1, code, {}} : CallAnswer{};
  });
  errno = answer.code;
  return answer.result < 0 ? -1 : g_realCalls.socket(domain, type, protocol);
}

int CapturedIoctl(int fd, unsigned long request, struct ::ifreq* argument) {
  const std::string name(argument->ifr_name, ::strnlen(argument->ifr_name, IFNAMSIZ));
  return AskCall("ioctl " + std::to_string(request) + ' ' + name, argument,
                 [&] { return g_realCalls.ioctl(fd, request, argument); });
}

int CapturedAcct(const char*) {
  errno = EPERM;
  return -1;
}

int CapturedStat(const char* path, struct ::stat* status) {
  return g_capturedHost->Stat(AT_FDCWD, path, status, 0);
}

int CapturedStatfs(const char* path, struct ::statfs64* status) {
  const std::optional<std::string> name = g_capturedHost->NameOf(AT_FDCWD, path);
  if (!name) {
    return g_realCalls.statfs64(path, status);
  }
  return AskCall("statfs " + *name, status, [&] { return g_realCalls.statfs64(path, status); });
}

/// Those who ask have room for the answer of any quota command; this is the largest one.
constexpr std::size_t kQuotaSize = sizeof(::fs_disk_quota);

int CapturedQuotactl(int command, const char* device, int id, char* address) {
  const std::string name = g_capturedHost->NameOf(AT_FDCWD, device).value_or(device);
  return AskCall("quotactl " + std::to_string(command) + ' ' + std::to_string(id) + ' ' + name,
                 address, kQuotaSize,
                 [&] { return g_realCalls.quotactl(command, device, id, address); });
}

/// What a capture may tell of slots and of semaphores, which are walked one by one.
constexpr int kMostSlotsTold = 65536;
constexpr unsigned long kMostSemaphoresTold = 65536;

/// The highest slot, where that was asked for.
int BoundSlot(int command, int infoCommand, int result) {
  return command == infoCommand ? std::min(result, kMostSlotsTold) : result;
}

std::string IpcQuestion(const char* call, long id, long number, long command) {
  return std::string(call) + ' ' + std::to_string(id) + ' ' + std::to_string(number) + ' ' +
         std::to_string(command);
}

int CapturedSemctl(int id, int number, int command, void* answer) {
  const std::size_t size = command == IPC_INFO || command == SEM_INFO ? sizeof(struct ::seminfo)
                                                                      : sizeof(struct ::semid_ds);
  const int result = AskCall(IpcQuestion("semctl", id, number, command), answer, size,
                             [&] { return g_realCalls.semctl(id, number, command, answer); });
  if (command == SEM_STAT && result >= 0 && answer != nullptr) {
    auto* const set = static_cast<struct ::semid_ds*>(answer);
    set->sem_nsems = std::min(set->sem_nsems, kMostSemaphoresTold);
  }
  return BoundSlot(command, SEM_INFO, result);
}
int CapturedShmctl(int id, int command, struct ::shmid_ds* answer) {
  const std::size_t size = command == IPC_INFO   ? sizeof(struct ::shminfo)
                           : command == SHM_INFO ? sizeof(struct ::shm_info)
                                                 : sizeof(struct ::shmid_ds);
  return BoundSlot(command, SHM_INFO,
                   AskCall(IpcQuestion("shmctl", id, 0, command), answer, size,
                           [&] { return g_realCalls.shmctl(id, command, answer); }));
}
int CapturedMsgctl(int id, int command, struct ::msqid_ds* answer) {
  const std::size_t size = command == IPC_INFO || command == MSG_INFO ? sizeof(struct ::msginfo)
                                                                      : sizeof(struct ::msqid_ds);
  return BoundSlot(command, MSG_INFO,
                   AskCall(IpcQuestion("msgctl", id, 0, command), answer, size,
                           [&] { return g_realCalls.msgctl(id, command, answer); }));
}

/// One clock of the day behind both calls: they tell one moment.
int CapturedGettimeofday(struct ::timeval* now) {
  if (!g_capturedHost->IsInBatch()) {
    return g_realCalls.gettimeofday(now);
  }
  return AskCall("gettimeofday", now, [&] { return g_realCalls.gettimeofday(now); });
}
std::time_t CapturedTime(std::time_t* out) {
  struct ::timeval now {};
  if (CapturedGettimeofday(&now) != 0) {
    return g_realCalls.time(out);
  }
  if (out != nullptr) {
    *out = now.tv_sec;
  }
  return now.tv_sec;
}
int CapturedClockGettime(clockid_t clock, struct ::timespec* now) {
  if (!g_capturedHost->IsInBatch()) {
    return g_realCalls.clock_gettime(clock, now);
  }
  return AskCall(Numbered("clock_gettime", clock), now,
                 [&] { return g_realCalls.clock_gettime(clock, now); });
}
int CapturedAdjtimex(struct ::timex* clock) {
  return AskCall("adjtimex", clock, [&] { return g_realCalls.adjtimex(clock); });
}

}  // namespace

void CaptureOsCalls(CapturedHost& host) {
  g_capturedHost = &host;
  OsCalls& calls = Os();
  g_realCalls = calls;
  calls.sysinfo = CapturedSysinfo;
  calls.uname = CapturedUname;
  calls.get_nprocs = CapturedNprocs;
  calls.get_nprocs_conf = CapturedNprocsConf;
  calls.getpagesize = CapturedPageSize;
  calls.getpwuid = CapturedGetpwuid;
  calls.getgrgid = CapturedGetgrgid;
  calls.socket = CapturedSocket;
  calls.ioctl = CapturedIoctl;
  calls.acct = CapturedAcct;
  calls.stat = CapturedStat;
  calls.statfs64 = CapturedStatfs;
  calls.quotactl = CapturedQuotactl;
  calls.semctl = CapturedSemctl;
  calls.shmctl = CapturedShmctl;
  calls.msgctl = CapturedMsgctl;
  calls.setpwent = CapturedSetpwent;
  calls.getpwent = CapturedGetpwent;
  calls.time = CapturedTime;
  calls.gettimeofday = CapturedGettimeofday;
  calls.clock_gettime = CapturedClockGettime;
  calls.adjtimex = CapturedAdjtimex;
}
