#include "collect/modern/HostFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "support/HostPaths.h"
#include "support/HostReads.h"
#include "support/NotTold.h"
#include "support/TrimmedText.h"

namespace {

constexpr std::size_t kFirstPiece = 4096;
/// Beyond these a double can't hold each number, and a sum of two might not fit.
constexpr std::size_t kMostNumberDigits = 18;

bool IsRegular(int descriptor) {
  struct ::stat status {};
  if (::fstat(descriptor, &status) != 0) {
    return false;
  }
  errno = S_ISREG(status.st_mode) ? 0 : EINVAL;
  return S_ISREG(status.st_mode);
}

/// Reads to the end; false with `errno` for a failure or more than `limit` bytes.
bool ReadToEnd(int descriptor, std::string& text, std::size_t limit) {
  std::size_t size = 0;
  for (;;) {
    text.resize(std::min(limit + 1, std::max(size + size / 2, size + kFirstPiece)));
    const ssize_t count = ::read(descriptor, text.data() + size, text.size() - size);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      text.resize(count < 0 ? 0 : size);
      return count == 0;
    }
    size += static_cast<std::size_t>(count);
    if (size > limit) {
      errno = EFBIG;
      return false;
    }
  }
}

}  // namespace

HostFolder::HostFolder(const std::string& path)
    : m_descriptor(OpenHost(AT_FDCWD, HostPath(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
}

HostFolder HostFolder::Below(const char* name, bool follow) const {
  HostFolder below;
  below.m_descriptor = Descriptor(OpenHost(
      m_descriptor.Get(), name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW)));
  return below;
}

bool HostFolder::Read(const char* name, std::string& text, std::size_t limit) const {
  const Descriptor file(
      OpenHost(m_descriptor.Get(), name, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (file.IsOpen() && IsRegular(file.Get()) && ReadToEnd(file.Get(), text, limit)) {
    return true;
  }
  text.clear();
  return false;
}

std::string HostFolder::Line(const char* name) const { return FindLine(name).value_or(""); }

std::optional<std::string> HostFolder::FindLine(const char* name) const {
  std::string text;
  if (!Read(name, text)) {
    return std::nullopt;
  }
  text.resize(std::min(text.find('\n'), text.size()));
  std::replace_if(
      text.begin(), text.end(),
      [](char letter) { return static_cast<unsigned char>(letter) < ' ' || letter == '\x7f'; },
      ' ');
  return std::string(Trimmed(text, " "));
}

double HostFolder::Number(const char* name) const { return HostNumber(Line(name)); }

double HostFolder::ChangeTime(const char* name) const {
  struct ::stat status {};
  return StatHost(m_descriptor.Get(), name, &status, 0) == 0
             ? static_cast<double>(status.st_mtim.tv_sec)
             : kNotTold;
}

std::string HostFolder::LinkName(const char* name) const {
  std::array<char, 4096> target;
  const ssize_t length = ReadHostLink(m_descriptor.Get(), name, target.data(), target.size());
  if (length <= 0) {
    return {};
  }
  const std::string_view whole(target.data(), static_cast<std::size_t>(length));
  return std::string(whole.substr(whole.rfind('/') + 1));
}

bool HostFolder::IsFolder(const dirent& entry) const {
  if (entry.d_type != DT_UNKNOWN) {
    return entry.d_type == DT_DIR;
  }
  // Some file systems, as a captured tree may lie on, don't say it.
  struct ::stat status {};
  return StatHost(m_descriptor.Get(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode);
}

bool HostFolder::ForEach(const std::function<bool(const char* name, bool isFolder)>& visit) const {
  HostEntries entries(OpenHost(m_descriptor.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!entries.IsOpen()) {
    return false;
  }
  errno = 0;
  while (const dirent* entry = entries.Next()) {
    const char* const name = entry->d_name;
    if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
        !visit(name, IsFolder(*entry))) {
      return true;
    }
    errno = 0;
  }
  return errno == 0;
}

double HostNumber(std::string_view text) {
  text = Trimmed(text, kWhiteSpace);
  std::int64_t number = 0;
  const auto [stop, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  const std::size_t digits = text.size() - (text.starts_with('-') ? 1 : 0);
  return code == std::errc{} && stop == text.data() + text.size() && digits <= kMostNumberDigits
             ? static_cast<double>(number)
             : kNotTold;
}
