#include "client/capture/CaptureFolder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "client/ask/Errors.h"
#include "support/Descriptor.h"
#include "support/OpenBelow.h"
#include "support/RegularFile.h"
#include "support/WholeTransfer.h"

namespace {

/// What is left to read of the file at `path`.
std::string ReadRest(const Descriptor& file, const std::string& path, std::size_t limit) {
  std::string text;
  std::array<char, 65536> piece;
  for (;;) {
    const ssize_t count = ::read(file.Get(), piece.data(), piece.size());
    if (count < 0 && errno != EINTR) {
      FailErrno(path);
    }
    if (count == 0) {
      return text;
    }
    text.append(piece.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
    if (text.size() > limit) {
      throw ClientError(path + ": it has more than " + std::to_string(limit) + " bytes");
    }
  }
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  const char* base = std::getenv("TMPDIR");
  std::error_code error;
  m_path =
      std::filesystem::canonical(base == nullptr || *base == '\0' ? "/tmp" : base, error).string();
  if (error) {
    throw ClientError("TMPDIR: " + error.message());
  }
  m_path += "/qmtctl-XXXXXX";
  if (::mkdtemp(m_path.data()) == nullptr) {
    FailErrno(m_path);
  }
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  std::filesystem::remove_all(m_path, error);
}

std::string ReadWhole(const std::string& path) {
  const Descriptor file(OpenRegularFile(path, O_RDONLY, 0));
  if (!file.IsOpen()) {
    FailErrno(path);
  }
  return ReadRest(file, path, kMostFileBytes);
}

std::optional<std::string> ReadBelow(const std::string& folder, const std::string& path,
                                     std::size_t limit) {
  const std::string whole = folder + '/' + path;
  const Descriptor top(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!top.IsOpen()) {
    FailErrno(folder);
  }
  const Descriptor file(OpenRegularBelow(top.Get(), path));
  if (!file.IsOpen() && errno == ENOENT) {
    return std::nullopt;
  }
  if (!file.IsOpen()) {
    FailErrno(whole);
  }
  return ReadRest(file, whole, limit);
}

void WriteWhole(const std::string& path, std::string_view text) {
  const Descriptor file(OpenRegularFile(path, O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR));
  if (!file.IsOpen() || !WriteFully(file.Get(), text)) {
    FailErrno(path);
  }
}

std::vector<FolderEntry> ListFolder(const std::string& folder) {
  std::vector<FolderEntry> entries;
  std::error_code error;
  std::filesystem::recursive_directory_iterator walk(folder, error);
  for (; !error && walk != std::filesystem::recursive_directory_iterator(); walk.increment(error)) {
    const std::filesystem::file_status status = walk->symlink_status(error);
    entries.push_back(
        {walk->path().lexically_relative(folder).string(), std::filesystem::is_directory(status)});
  }
  if (error) {
    throw ClientError(folder + ": " + error.message());
  }
  std::sort(entries.begin(), entries.end(), [](const FolderEntry& left, const FolderEntry& right) {
    return left.path < right.path;
  });
  return entries;
}

void EndIfStopped(int stop) {
  ::pollfd ready{stop, POLLIN, 0};
  if (stop >= 0 && ::poll(&ready, 1, 0) > 0) {
    throw Interrupted();
  }
}
