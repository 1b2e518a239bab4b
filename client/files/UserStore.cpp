#include "client/files/UserStore.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "client/ask/Errors.h"
#include "client/files/Settings.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "support/RegularFile.h"
#include "support/UserFileSemaphore.h"

namespace {

constexpr std::size_t kMaxBytes = std::size_t{256} << 20;

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
  throw ClientError(path + ": " + reason);
}

std::string ReadAll(int descriptor, const std::string& path) {
  std::string text;
  std::array<char, 65536> piece;
  for (;;) {
    const ssize_t got = ::read(descriptor, piece.data(), piece.size());
    if (got == 0) {
      return text;
    }
    if (got < 0 && errno != EINTR) {
      FailErrno(path);
    }
    text.append(piece.data(), static_cast<std::size_t>(got < 0 ? 0 : got));
    if (text.size() > kMaxBytes) {
      Fail(path, "longer than " + std::to_string(kMaxBytes) + " bytes");
    }
  }
}

}  // namespace

std::string ReadInput(const std::string& path) {
  if (path == "-") {
    return ReadAll(STDIN_FILENO, "standard input");
  }
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen()) {
    FailErrno(path);
  }
  return ReadAll(file.Get(), path);
}

UserStore::UserStore(const UserFileKind& kind, int waitSeconds)
    : m_kind(kind),
      m_waitSeconds(waitSeconds),
      m_path(ProductPath(std::string(kUserDataDirectory) + '/' + kind.fileName)) {}

std::string UserStore::Read() const {
  std::string records;
  Guarded([&] { records = Load(); });
  return records;
}

void UserStore::Change(const std::function<std::string(const std::string&)>& make) const {
  Guarded([&] { Replace(make(Load())); });
}

void UserStore::Guarded(const std::function<void()>& work) const {
  std::error_code error;
  std::filesystem::create_directories(ProductPath(kUserDataDirectory), error);
  if (error) {
    Fail(ProductPath(kUserDataDirectory), error.message());
  }
  const std::string guardMode =
      Settings(ProductPath("/opt/qmtrx/mond/agent/qmtagt.ini")).GuardMode();
  UserFileSemaphore guard(::ftok(ProductPath(kUserFileKeyPath).c_str(), m_kind.projectId),
                          UserFileSemaphore::kUnlocked, UserFileGuardRights(guardMode.c_str()));
  if (guard.create() < 0) {
    Fail(m_path, std::string("its guard can't be made: ") + std::strerror(errno));
  }
  if (guard.lock(false, m_waitSeconds) != 0) {
    Fail(m_path, errno == EAGAIN
                     ? "another program holds its guard"
                     : std::string("its guard can't be taken: ") + std::strerror(errno));
  }
  work();
}

std::string UserStore::Load() const {
  const Descriptor file(OpenRegularFile(m_path, O_RDONLY, 0));
  if (!file.IsOpen()) {
    if (errno == ENOENT) {
      return {};
    }
    FailErrno(m_path);
  }
  std::string text = ReadAll(file.Get(), m_path);
  if (text.empty()) {
    return {};  // as the agent leaves one that it has emptied
  }
  if (text.size() < kUserFileHeaderSize ||
      !IsUserFileHeader(
          std::span<const char, kUserFileHeaderSize>(text.data(), kUserFileHeaderSize))) {
    Fail(m_path, "its header is none of a file of user records");
  }
  text.erase(0, kUserFileHeaderSize);
  if (text.size() % m_kind.recordSize != 0) {
    Fail(m_path, "its size is that of no whole number of " + std::string(m_kind.name) + " records");
  }
  return text;
}

void UserStore::Replace(const std::string& records) const {
  const auto header = MakeUserFileHeader();
  std::string content(header.data(), header.size());
  content += records;
  std::string error;
  if (!ReplaceFile(m_path, content, error)) {
    throw ClientError(error);
  }
}
