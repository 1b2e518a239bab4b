#include "local/loop/ServiceStatus.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "support/Uninterrupted.h"

namespace {

constexpr mode_t kFolderMode = 0755;
// Who may open the file may lock it too, and so keep the service from starting.
constexpr mode_t kFileMode = 0600;

bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool LockNow(int fd) {
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

/// The process number that a lock file holds; empty if it holds none.
std::string ReadHolder(int fd) {
  std::array<char, 20> buffer{};
  const ssize_t got = Uninterrupted([&] { return ::pread(fd, buffer.data(), buffer.size(), 0); });
  const std::string text(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  return text.substr(0, text.find_first_not_of("0123456789"));
}

bool WriteHolder(int fd) {
  const std::string text = std::to_string(::getpid()) + '\n';
  std::size_t done = 0;
  if (::ftruncate(fd, 0) != 0) {
    return false;
  }
  while (done < text.size()) {
    const ssize_t written =
        ::pwrite(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (written == 0 || (written < 0 && errno != EINTR)) {
      return false;
    }
    done += written > 0 ? static_cast<std::size_t>(written) : 0;
  }
  return true;
}

}  // namespace

ServiceStatus::ServiceStatus(std::string directory) : m_directory(std::move(directory)) {}

short ServiceStatus::Fail(short result, std::string reason) {
  m_reason = std::move(reason);
  return result;
}

short ServiceStatus::Initialize(char first, char second, char third) {
  m_reason.clear();
  if (!IsLetter(first) || !IsLetter(second) || !IsLetter(third)) {
    return Fail(kFailed, "the service's registration isn't three letters");
  }
  const std::string folder = m_directory + "/run";
  if (::mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    return Fail(kFailed, folder + ": can't be made: " + std::strerror(errno));
  }
  const std::string path = folder + '/' + first + second + third + ".lock";
  // Without O_NONBLOCK the open of a pipe that stands there could wait for ever.
  Descriptor lock(
      ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kFileMode));
  struct stat status {};
  if (!lock.IsOpen() || ::fstat(lock.Get(), &status) != 0) {
    return Fail(kFailed, path + ": can't be opened: " + std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    return Fail(kFailed, path + ": no regular file");
  }
  if (!LockNow(lock.Get())) {
    if (errno != EWOULDBLOCK) {
      return Fail(kFailed, path + ": can't be locked: " + std::strerror(errno));
    }
    const std::string holder = ReadHolder(lock.Get());
    return Fail(kRunsAlready,
                path + ": locked by " + (holder.empty() ? "another process" : "process " + holder));
  }
  m_lock = std::move(lock);
  if (!WriteHolder(m_lock.Get())) {
    m_reason = path + ": can't be written: " + std::strerror(errno);
  }
  return 0;
}

int ServiceStatus::SetStatus(short status, const char*, int, short& out) {
  if (!m_lock.IsOpen()) {
    return kFailed;
  }
  m_status = status;
  out = status;
  return 0;
}

void ServiceStatus::Terminate() {
  if (m_lock.IsOpen()) {
    // The number is a courtesy to whoever looks; that it can't be taken back changes nothing.
    [[maybe_unused]] const int ignored = ::ftruncate(m_lock.Get(), 0);
    // A child that was forked meanwhile shares the lock: closing alone would leave it held.
    ::flock(m_lock.Get(), LOCK_UN);
    m_lock.Close();
  }
}
