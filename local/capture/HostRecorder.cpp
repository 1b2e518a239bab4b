#include "local/capture/HostRecorder.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "support/Descriptor.h"
#include "support/WholeTransfer.h"

namespace {

/// More than any reader takes, so that what is too long for it stays so.
constexpr std::size_t kMostCopied = std::size_t{64} << 20U;
/// With "/." behind it.
constexpr std::size_t kLongestCopy = PATH_MAX - 3;
constexpr mode_t kCopyMode = S_IRUSR | S_IWUSR;

}  // namespace

HostRecorder::HostRecorder(std::string folder, const std::string& root)
    : CapturedHost(root, folder), m_folder(std::move(folder)), m_isRunning(root.empty()) {}

bool HostRecorder::BeginSample(long number) {
  m_sample = m_folder + '/' + SampleFolder(number);
  m_answers.clear();
  return MakeFolders(CopyOf("/."));
}

void HostRecorder::Fail(const std::string& path, int code) {
  if (m_problem.empty()) {
    m_problem = path + ": " + std::strerror(code);
  }
}

std::string HostRecorder::CopyOf(const std::string& name) const {
  return m_sample + '/' + kHostFolderName + name;
}

bool HostRecorder::MakeFolders(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  if (::mkdir(folder.c_str(), S_IRWXU) == 0 || errno == EEXIST) {
    return true;
  }
  if (errno == ENOENT && folder.size() > m_folder.size() && MakeFolders(folder) &&
      (::mkdir(folder.c_str(), S_IRWXU) == 0 || errno == EEXIST)) {
    return true;
  }
  Fail(folder, errno);
  return false;
}

int HostRecorder::Copy(int from, const std::string& path) {
  const Descriptor to(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kCopyMode));
  if (!to.IsOpen()) {
    Fail(path, errno);
    return EIO;
  }
  static std::array<char, 65536> piece;
  for (std::size_t copied = 0; copied < kMostCopied;) {
    const ssize_t count = ::read(from, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      const int code = errno;
      ::unlink(path.c_str());
      return code;
    }
    if (count == 0) {
      break;
    }
    copied += static_cast<std::size_t>(count);
    if (!WriteFully(to.Get(), {piece.data(), static_cast<std::size_t>(count)})) {
      Fail(path, errno);
      return EIO;
    }
  }
  return 0;
}

int HostRecorder::Refuse(const std::string& question, int code) {
  const CallAnswer answer = Ask(question, [code] { return CallAnswer{-1, code, {}}; });
  errno = answer.code;
  return -1;
}

int HostRecorder::Open(int folder, const char* name, int flags) {
  const std::optional<std::string> path = NameOf(folder, name);
  if (!path) {
    return Pass(::openat(folder, name, flags));
  }
  const std::string question = OpenQuestion(*path, flags);
  if (Find(question) != nullptr) {
    return Refuse(question, 0);
  }
  const std::string copy = CopyOf(*path);
  // Below the capture's folder a path may be too long that the host's folders reach step by step.
  if (copy.size() > kLongestCopy) {
    return Refuse(question, ENAMETOOLONG);
  }
  constexpr int kCopyFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW;
  if ((flags & O_DIRECTORY) == 0) {
    const int known = ::open(copy.c_str(), kCopyFlags);
    struct ::stat status {};
    if (known >= 0 && ::fstat(known, &status) == 0 && S_ISREG(status.st_mode)) {
      return known;
    }
    static_cast<void>(Descriptor(known));
  }
  Descriptor real(::openat(folder, name, flags));
  struct ::stat status {};
  if (!real.IsOpen() || ::fstat(real.Get(), &status) != 0) {
    return Refuse(question, errno);
  }
  if (S_ISDIR(status.st_mode)) {
    return MakeFolders(copy + "/.") ? Keep(real.Release(), *path) : Refuse(question, EIO);
  }
  // What is no regular file, no reader takes.
  if (!S_ISREG(status.st_mode)) {
    return Refuse(question, EINVAL);
  }
  if (!MakeFolders(copy)) {
    return Refuse(question, EIO);
  }
  if (const int code = Copy(real.Get(), copy); code != 0) {
    return Refuse(question, code);
  }
  return ::open(copy.c_str(), kCopyFlags);
}

const CallAnswer* HostRecorder::Find(const std::string& question) const {
  const auto found = m_answers.find(question);
  return found == m_answers.end() ? nullptr : &found->second;
}

CallAnswer HostRecorder::Ask(const std::string& question, const RealCall& real) {
  if (const CallAnswer* known = Find(question)) {
    return *known;
  }
  CallAnswer answer = m_answers.try_emplace(question, real()).first->second;
  const std::string path = m_sample + '/' + kCallsFile;
  // Not kept open: children close what they don't know.
  const Descriptor file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, kCopyMode));
  if (!file.IsOpen() || !WriteFully(file.Get(), CallLine(question, answer))) {
    Fail(path, errno);
  }
  return answer;
}
