#include "bench/ProcessFloor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

struct CloseDir {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

constexpr std::string_view kPrefix = "/proc/";
std::array<char, 8192> g_buffer;

/// The path of one file of a process; the directory's part stands from one file to the next.
class ProcessPath {
 public:
  ProcessPath(int directory, FloorPaths paths)
      : m_directory(paths == FloorPaths::kRelative ? directory : AT_FDCWD),
        m_skipped(paths == FloorPaths::kRelative ? kPrefix.size() : 0) {
    kPrefix.copy(m_text.data(), kPrefix.size());
  }
  void SetProcess(const char* pid) {
    m_length = kPrefix.size() + std::strlen(pid);
    std::memcpy(m_text.data() + kPrefix.size(), pid, m_length - kPrefix.size());
  }
  void ReadFile(std::string_view leaf, std::size_t limit) {
    Append(leaf);
    const int descriptor = ::openat(m_directory, m_text.data() + m_skipped, O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
      [[maybe_unused]] const ssize_t length = ::read(descriptor, g_buffer.data(), limit);
      ::close(descriptor);
    }
  }
  void LookUpTarget(std::string_view leaf) {
    Append(leaf);
    const ssize_t length =
        ::readlinkat(m_directory, m_text.data() + m_skipped, g_buffer.data(), 256);
    if (length >= 0) {
      g_buffer[static_cast<std::size_t>(length)] = '\0';
      struct ::stat status {};
      [[maybe_unused]] const int result = ::stat(g_buffer.data(), &status);
    }
  }

 private:
  void Append(std::string_view leaf) {
    leaf.copy(m_text.data() + m_length, leaf.size());
    m_text[m_length + leaf.size()] = '\0';
  }

  int m_directory;
  std::size_t m_skipped;
  std::size_t m_length = 0;
  std::array<char, 288> m_text{};
};

}  // namespace

std::size_t WalkFloor(FloorPaths paths, HostProfile profile) {
  const std::unique_ptr<DIR, CloseDir> directory(::opendir("/proc"));
  if (directory == nullptr) {
    return 0;
  }
  const bool isModern = profile == HostProfile::kModern;
  std::size_t processes = 0;
  ProcessPath path(::dirfd(directory.get()), paths);
  while (const dirent* entry = ::readdir(directory.get())) {
    if (entry->d_name[0] < '0' || entry->d_name[0] > '9') {
      continue;
    }
    path.SetProcess(entry->d_name);
    path.ReadFile("/stat", 1023);
    path.ReadFile("/statm", 1023);
    path.ReadFile("/cmdline", 120);
    path.ReadFile("/status", isModern ? 8192 : 1024);
    if (isModern) {
      path.ReadFile("/io", 1024);
    }
    path.LookUpTarget("/cwd");
    path.LookUpTarget("/root");
    ++processes;
  }
  return processes;
}
