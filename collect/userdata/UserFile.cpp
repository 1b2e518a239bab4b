#include "collect/userdata/UserFile.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"
#include "support/WholeTransfer.h"

namespace {

constexpr int kTries = 6;
/// How often and after what pause a load tries again, for a writer that has come since the wait.
constexpr int kLoadTries = 5;
constexpr std::chrono::milliseconds kLoadPause{10};
/// A stranger may hold the guard's own lock too.
constexpr std::chrono::milliseconds kGuardPatience{25};
constexpr std::size_t kKeySize = 20;
constexpr std::size_t kTransTypeOffset = 0;
constexpr std::size_t kStringKeyOffset = 20;
constexpr std::size_t kDataKeyOffset = 40;
constexpr std::size_t kDataKeySize = 4;

/// The guard of that key as the settings have it.
std::unique_ptr<UserFileSemaphore> MakeGuard(key_t key) {
  const char* mode = ProductOptions::Instance().Get("User", "GuardMode");
  return std::make_unique<UserFileSemaphore>(key, UserFileSemaphore::kUnlocked,
                                             UserFileGuardRights(mode), kGuardPatience);
}

/// Whether another holds the guard.
bool IsHeld(const UserFileKind& kind) {
  const key_t key = ::ftok(ProductPath(kUserFileKeyPath).c_str(), kind.projectId);
  if (key == -1) {
    return false;
  }
  const std::unique_ptr<UserFileSemaphore> guard = MakeGuard(key);
  return (guard->create() < 0 || guard->lock(false, 0) != 0) && errno == EAGAIN;
}

/// Locks the guard for a load; -1 with errno.
int Take(UserFileSemaphore& guard) {
  int result = guard.lock(false, 0);
  for (int i = 0; result != 0 && errno == EAGAIN && i < kLoadTries; ++i) {
    std::this_thread::sleep_for(kLoadPause);
    result = guard.lock(false, 0);
  }
  return result;
}

bool HasSameKeys(const char* a, const char* b) {
  return std::strncmp(a + kTransTypeOffset, b + kTransTypeOffset, kKeySize) == 0 &&
         std::strncmp(a + kStringKeyOffset, b + kStringKeyOffset, kKeySize) == 0 &&
         std::memcmp(a + kDataKeyOffset, b + kDataKeyOffset, kDataKeySize) == 0;
}

}  // namespace

UserFile::UserFile(const UserFileKind& kind)
    : m_kind(kind), m_path(std::string(kUserDataDirectory) + '/' + kind.fileName) {}

UserFile::~UserFile() { Release(); }

bool UserFile::Load(std::vector<char>& records) {
  TraceEntry("UserFile::Load", m_path);
  records.clear();
  if (!Lock()) {
    TraceExit("UserFile::Load");
    return false;
  }
  {
    const Descriptor file(Open());
    if (file.Get() < 0 || !CheckSize(file.Get()) || !ValidateHeader(file.Get())) {
      TraceExit("UserFile::Load");
      return false;
    }
    Read(file.Get(), records);
  }
  Release();
  RemoveDupRecords(records);
  TraceExit("UserFile::Load");
  return true;
}

bool UserFile::Lock() {
  const key_t key = ::ftok(ProductPath(kUserFileKeyPath).c_str(), m_kind.projectId);
  if (key == -1) {
    MessageAt(20, 10101, "ftok()", -1, kUserFileKeyPath, m_kind.projectId, "");
    return false;
  }
  m_semaphore = MakeGuard(key);
  if (m_semaphore->create() < 0) {
    Trace(20, kError, "Cannot create semaphore for user file %1", m_kind.fileName);
    return false;
  }
  if (Take(*m_semaphore) != 0) {
    Trace(20, kError, "Cannot lock semaphore for user file %1", m_kind.fileName);
    return false;
  }
  return true;
}

int UserFile::Open() {
  // The group may write to the folder: a pipe must not be waited for, nor a link lead elsewhere.
  const int descriptor =
      ::open(ProductPath(m_path).c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) {
    Trace(20, kError, "Cannot open %1 file", m_kind.fileName);
  }
  return descriptor;
}

bool UserFile::CheckSize(int descriptor) const {
  struct ::stat status {};
  if (::fstat(descriptor, &status) != 0) {
    MessageAt(20, 10100, "fstat", errno, m_path, "", "");
    return false;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  if (!S_ISREG(status.st_mode) || size < kUserFileHeaderSize ||
      (size - kUserFileHeaderSize) % m_kind.recordSize != 0) {
    Trace(20, kError, "Invalid file format for %1. Stopping the further processing of this file.",
          m_kind.fileName);
    return false;
  }
  if (size == kUserFileHeaderSize) {
    Trace(20, kError, "File %1 does not contain any data", m_kind.fileName);
    return false;
  }
  return true;
}

bool UserFile::ValidateHeader(int descriptor) const {
  std::array<char, kUserFileHeaderSize> header{};
  const ssize_t got = ReadFully(descriptor, header);
  if (got < 0) {
    Trace(20, kError, "Error reading file %1.", m_kind.fileName);
    return false;
  }
  if (!IsUserFileHeader(header)) {
    Trace(20, kError, "Invalid Header line present for user data file %1.", m_kind.fileName);
    return false;
  }
  return true;
}

std::size_t UserFile::Limit() const {
  const char* text = ProductOptions::Instance().Get("User", "DataMaxCount");
  errno = 0;
  const long limit = text == nullptr ? 0 : std::strtol(text, nullptr, 10);
  if (text == nullptr || errno != 0) {
    Trace(20, kError, "Unable to retrieve Datamaxcount while collecting data from user file %1.",
          m_kind.fileName);
    return kUserFileDefaultLimit;
  }
  return limit < 0 ? 0 : static_cast<std::size_t>(limit);
}

void UserFile::Read(int descriptor, std::vector<char>& records) const {
  const std::size_t limit = Limit();
  for (std::size_t count = 0; count < limit; ++count) {
    const std::size_t place = records.size();
    records.resize(place + m_kind.recordSize);
    // What a file that is being cut still has of a record is one, with zeros behind it.
    if (ReadFully(descriptor, std::span(records).subspan(place)) <= 0) {
      records.resize(place);
      return;
    }
  }
}

void UserFile::RemoveDupRecords(std::vector<char>& records) const {
  const std::size_t size = m_kind.recordSize;
  const std::size_t count = records.size() / size;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const char* record = records.data() + i * size;
    if (kept > 0 && HasSameKeys(records.data() + (kept - 1) * size, record)) {
      continue;
    }
    std::memmove(records.data() + kept * size, record, size);
    ++kept;
  }
  records.resize(kept * size);
  if (kept != count) {
    Trace(30, kInformation, "%1 duplicate records deleted.", count - kept);
  }
}

void UserFile::Release() {
  if (m_semaphore == nullptr) {
    return;
  }
  if (m_semaphore->IsLocked() && m_semaphore->unlock() != 0) {
    Trace(20, kError, "Cannot unlock semaphore for user file %1.", m_kind.fileName);
  }
  if (m_semaphore->IsOpen() && m_semaphore->close() != 0) {
    Trace(20, kError, "Cannot Close semaphore for user file %1.", m_kind.fileName);
  }
  m_semaphore.reset();
}

void AwaitUserFiles(std::span<const UserFileKind* const> kinds, const std::function<bool()>& wait) {
  const auto isHeld = [](const UserFileKind* kind) { return IsHeld(*kind); };
  for (int tries = 0; tries < kTries && std::ranges::any_of(kinds, isHeld) && wait(); ++tries) {
  }
}
