#include "collect/accounting/AcctSourceLINUX.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "collect/AccountingCount.h"
#include "support/CollectorLog.h"
#include "support/HostPaths.h"
#include "support/HostReads.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"
#include "support/Uninterrupted.h"

namespace {

constexpr const char* kDefaultFile = "/var/log/pacct";
constexpr std::int64_t kDefaultSize = 10000;
constexpr mode_t kFileMode = 0664;
constexpr std::size_t kRecordBytes = 64;
constexpr std::size_t kCommBytes = 8;

using AcctBytes = std::array<unsigned char, kRecordBytes>;
using Comm = std::array<char, kCommBytes>;

/// What outlives the source objects.
struct AcctState {
  std::string fileName;
  bool opened = false;
  bool truncateEnabled = false;
  std::int64_t maxSize = kDefaultSize;
  std::int64_t offset = 0;  ///< bytes consumed
  bool atEndOfFile = false;
  Comm prevComm{};
  std::uint32_t prevBtime = 0;
  struct ::stat savedStat {};
  struct ::stat currentStat {};
  bool accountingWasOn = false;
};

AcctState& RememberedAcct() {
  static AcctState state;
  return state;
}

const char* AcctOption(const char* name) { return ProductOptions::Instance().Get("Acct", name); }

bool BeginsWith(const char* value, std::string_view letters) {
  return value != nullptr && value[0] != '\0' && letters.find(value[0]) != std::string_view::npos;
}

template <class Number>
Number NumberAt(const AcctBytes& bytes, std::size_t offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

/// A 13-bit mantissa and, above it, a 3-bit exponent to base 8.
std::uint64_t CompressedAt(const AcctBytes& bytes, std::size_t offset) {
  const auto packed = NumberAt<std::uint16_t>(bytes, offset);
  return static_cast<std::uint64_t>(packed & 0x1fffU) << (3U * (packed >> 13U));
}

Comm CommOf(const AcctBytes& bytes) {
  Comm comm;
  std::memcpy(comm.data(), bytes.data() + 36, comm.size());
  return comm;
}

std::uint32_t BeginOf(const AcctBytes& bytes) { return NumberAt<std::uint32_t>(bytes, 8); }

void Fill(const AcctBytes& bytes, x_acct& record) {
  record.uid = NumberAt<std::uint16_t>(bytes, 2);
  record.gid = NumberAt<std::uint16_t>(bytes, 4);
  record.tty = NumberAt<std::uint16_t>(bytes, 6);
  record.beginTime = BeginOf(bytes);
  record.userTime = TicksToUTIME(CompressedAt(bytes, 12));
  record.systemTime = TicksToUTIME(CompressedAt(bytes, 14));
  record.elapsedTime = TicksToUTIME(CompressedAt(bytes, 16));
  record.mem = static_cast<std::uint32_t>(CompressedAt(bytes, 18));
  record.io = static_cast<std::uint32_t>(CompressedAt(bytes, 20));
  record.rw = static_cast<std::uint32_t>(CompressedAt(bytes, 22));
  const Comm comm = CommOf(bytes);
  std::memcpy(record.comm.data(), comm.data(), comm.size());
}

/// To the accounts that own accounting, as far as the host has them.
void GiveToAccounting(int fd) {
  const struct ::passwd* user = ::getpwnam("adm");
  user = user == nullptr ? ::getpwnam("root") : user;
  const struct ::group* group = ::getgrnam("adm");
  group = group == nullptr ? ::getgrnam("sys") : group;
  // Without the right to it the file stays the agent's, which serves as well.
  [[maybe_unused]] const int rc =
      ::fchown(fd, user == nullptr ? 0 : user->pw_uid, group == nullptr ? 0 : group->gr_gid);
}

}  // namespace

AcctSourceUser::AcctSourceUser()
    : m_useAcct(!BeginsWith(AcctOption("UseAcct"), "nN")),
      m_updatePtr(!BeginsWith(AcctOption("UpdatePtr"), "fFnN")) {
  TraceEntry("AcctSourceUser::AcctSourceUser");
  ++s_statistics.constructed;
  const char* file = AcctOption("FileName");
  initialize(file == nullptr || *file == '\0' ? kDefaultFile : file);
  TraceExit("AcctSourceUser::AcctSourceUser");
}

AcctSourceUser::~AcctSourceUser() {
  CloseFile();
  ++s_statistics.destroyed;
}

bool AcctSourceUser::AccountingWasOn() { return RememberedAcct().accountingWasOn; }
void AcctSourceUser::ResetState() {
  RememberedAcct() = AcctState{};
  g_accountingRecords = 0;
}

void AcctSourceUser::initialize(const char* file) {
  AcctState& state = RememberedAcct();
  m_pendingError.reset();
  if (state.fileName != file) {
    state.fileName = file;
    // The place in another file means nothing here.
    state.offset = 0;
    state.atEndOfFile = false;
    state.prevComm = {};
    state.prevBtime = 0;
    const char* truncate = AcctOption("Truncate");
    state.truncateEnabled =
        truncate == nullptr ? state.truncateEnabled : BeginsWith(truncate, "yY");
    if (state.truncateEnabled) {
      const char* size = AcctOption("Size");
      state.maxSize = size == nullptr ? kDefaultSize : std::strtoll(size, nullptr, 10);
    }
    if (!checkacct()) {
      m_pendingError =
          std::make_unique<UtlError>("Can't find or open accounting file", __FILE__, __LINE__);
    }
    return;
  }
  const bool hadBeenOpen = state.opened;
  struct ::stat ignored {};
  if (!OpenFile(m_updatePtr ? state.currentStat : ignored)) {
    if (hadBeenOpen) {
      m_pendingError = std::make_unique<UtlError>("Can't open accounting file", __FILE__, __LINE__);
    }
    return;
  }
  if (state.currentStat.st_size < state.savedStat.st_size) {
    CollectorLog::Instance().Log("WARNING: New accounting file detected\n");
  } else if (state.currentStat.st_size > state.savedStat.st_size && acctchanged() != 0) {
    Trace(30, kInformation, "Accounting file Modified.");
  }
}

bool AcctSourceUser::OpenFile(struct ::stat& status) {
  CloseFile();
  // A pipe or a device in the file's place must neither hold the agent nor feed it without end.
  m_fd = ::open(HostPath(RememberedAcct().fileName.c_str()).c_str(),
                O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (m_fd < 1) {
    CloseFile();
    return false;
  }
  if (::fstat(m_fd, &status) != 0) {
    Trace(20, kError, "An error occurred in fstat. (%1) (err=%2)", RememberedAcct().fileName,
          errno);
  }
  if (!S_ISREG(status.st_mode)) {
    CloseFile();
    return false;
  }
  RememberedAcct().opened = true;
  return true;
}

void AcctSourceUser::CloseFile() {
  if (m_fd >= 0) {
    ::close(m_fd);
    m_fd = -1;
  }
}

bool AcctSourceUser::CreateFile() const {
  const std::string path = HostPath(RememberedAcct().fileName.c_str());
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, kFileMode);
  if (fd < 0) {
    return false;
  }
  GiveToAccounting(fd);
  ::close(fd);
  return true;
}

bool AcctSourceUser::checkacct() {
  AcctState& state = RememberedAcct();
  state.opened = false;
  if (g_hostReads != nullptr) {
    return false;  // neither a capture nor its replay turns anything on
  }
  struct ::stat status {};
  if (::stat(HostPath(state.fileName.c_str()).c_str(), &status) != 0 && !CreateFile()) {
    return false;
  }
  if (doacct(state.fileName.c_str())) {
    if (m_useAcct) {
      Trace(30, kInformation, "Accounting Enabled.");
    } else {
      (void)doacct(nullptr);
    }
  } else if (m_lastErrno == EBUSY) {
    Trace(30, kInformation, "Accounting already enabled.");
    state.accountingWasOn = true;
  } else if (m_useAcct) {
    Trace(30, kWarning, "Couldn't start accounting:");
  }
  if (!OpenFile(state.currentStat)) {
    return false;
  }
  state.savedStat = state.currentStat;
  return true;
}

bool AcctSourceUser::doacct(const char* file) {
  const int rc = Os().acct(file == nullptr ? nullptr : HostPath(file).c_str());
  m_lastErrno = rc == 0 ? 0 : errno;
  return rc == 0;
}

bool AcctSourceUser::Seek(std::int64_t place, bool tell) {
  if (::lseek(m_fd, place, SEEK_SET) >= 0) {
    return true;
  }
  if (tell) {
    Trace(20, kError, "An error occurred in lseek. (%1) (err=%2)", RememberedAcct().fileName,
          errno);
  }
  return false;
}

void AcctSourceUser::read(x_acct* record) {
  TraceEntry("AcctSourceUser::read", AddressOf(record));
  ReadRecord(*record);
  TraceExit("AcctSourceUser::read");
}

void AcctSourceUser::ReadRecord(x_acct& record) {
  AcctState& state = RememberedAcct();
  if (m_pendingError != nullptr || !state.opened || m_fd < 0) {
    m_more = false;
    return;
  }
  if (state.atEndOfFile) {
    (void)Seek(state.offset, false);
    state.atEndOfFile = false;
    if (::fstat(m_fd, &state.currentStat) != 0) {
      Trace(20, kError, "An error occurred in fstat. (%1) (err=%2).", state.fileName, errno);
    }
  }
  AcctBytes bytes;
  ssize_t got = 0;
  if (state.currentStat.st_size != state.offset) {
    got = Uninterrupted([&] { return ::read(m_fd, bytes.data(), bytes.size()); });
    if (got < 0) {
      Trace(20, kError, "An error occurred in OS API read. (%1) (err=%2)", state.fileName, errno);
    }
  }
  if (got != static_cast<ssize_t>(bytes.size())) {
    EndOfFile();
    return;
  }
  record.sequence = ++g_accountingRecords;
  Fill(bytes, record);
  if (m_updatePtr) {
    state.offset += kRecordBytes;
    state.prevComm = CommOf(bytes);
    state.prevBtime = record.beginTime;
  }
}

void AcctSourceUser::EndOfFile() {
  AcctState& state = RememberedAcct();
  state.atEndOfFile = true;
  m_more = false;
  if (state.truncateEnabled && state.opened && state.offset >= state.maxSize) {
    truncatefile();
  }
}

void AcctSourceUser::truncatefile() {
  AcctState& state = RememberedAcct();
  (void)doacct(nullptr);
  CloseFile();
  ::unlink(HostPath(state.fileName.c_str()).c_str());
  if (!CreateFile()) {
    Trace(20, kWarning, "Failed to access the file or directory (%1).", state.fileName);
    state.opened = false;
    return;
  }
  if (!doacct(state.fileName.c_str())) {
    Trace(30, kWarning, "Failed to enable accounting %s");
    state.opened = false;
  }
  if (!OpenFile(state.currentStat)) {
    Message(10104, state.fileName);
    state.opened = false;
    return;
  }
  state.savedStat = state.currentStat;
  if (m_updatePtr) {
    state.offset = state.currentStat.st_size;
  }
}

int AcctSourceUser::acctchanged() {
  AcctState& state = RememberedAcct();
  const std::int64_t last = state.offset - static_cast<std::int64_t>(kRecordBytes);
  if (state.prevComm[0] == '\0' || last <= 0) {
    return 0;
  }
  int changed = 0;
  AcctBytes bytes;
  if (Seek(last, true)) {
    if (Uninterrupted([&] { return ::read(m_fd, bytes.data(), bytes.size()); }) !=
        static_cast<ssize_t>(bytes.size())) {
      CollectorLog::Instance().Log("Error reading acct file\n");
    } else if (CommOf(bytes) != state.prevComm || BeginOf(bytes) != state.prevBtime) {
      const Comm comm = CommOf(bytes);
      const int width = static_cast<int>(kCommBytes);
      CollectorLog::Instance().Log("acctchanged():: prevCom=%.*s, curCom=%.*s, prevOffset=%d\n",
                                   width, state.prevComm.data(), width, comm.data(),
                                   static_cast<int>(state.offset));
      CollectorLog::Instance().Log("acctchanged():: prevBtime=%d, curBtime=%d, Diedcnt=%d\n\n",
                                   static_cast<int>(state.prevBtime),
                                   static_cast<int>(BeginOf(bytes)),
                                   static_cast<int>(g_accountingRecords));
      changed = 1;
    }
  }
  (void)Seek(state.offset, true);
  return changed;
}

void AcctSourceUser::bit2flags(char* out, unsigned int flags) {
  if (out == nullptr) {
    Trace(30, kError, "bit2flags passed NULL pointer.");
    return;
  }
  struct Flag {
    unsigned int bit;
    const char* name;
  };
  static constexpr std::array kFlags{Flag{1, "Forked,"}, Flag{2, "SU_used,"},
                                     Flag{8, "Core_dumped,"}, Flag{16, "Signal_kill,"}};
  std::string text(out);
  for (const Flag& flag : kFlags) {
    text += (flags & flag.bit) != 0 ? flag.name : "";
  }
  text.resize(std::min(text.rfind(','), text.size()));
  std::memcpy(out, text.c_str(), text.size() + 1);
}
