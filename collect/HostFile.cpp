#include "collect/HostFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/HostReads.h"
#include "support/Uninterrupted.h"
#include "support/UtlError.h"

namespace {

constexpr std::uint64_t kMiB = 1U << 20U;

struct FileLimit {
  std::string_view path;
  std::uint64_t bytes;
  /// Where each line becomes a row, or a question to the kernel.
  std::uint64_t lines;
};
constexpr FileLimit kUsual{"", 4 * kMiB, 4 * kMiB};
constexpr FileLimit kLimits[] = {
    {"/proc/cpuinfo", 16 * kMiB, 16 * kMiB},  {"/proc/interrupts", 32 * kMiB, 32 * kMiB},
    {"/proc/net/dev", 4 * kMiB, 16384},       {"/proc/partitions", 4 * kMiB, 16384},
    {"/proc/diskstats", 4 * kMiB, 16384},     {"/etc/mtab", 16 * kMiB, 131072},
    {"/proc/1/mountinfo", 16 * kMiB, 131072}, {"/proc/self/mountinfo", 16 * kMiB, 131072},
    {"/proc/net/tcp", 16 * kMiB, 131072},     {"/proc/net/tcp6", 32 * kMiB, 131072}};

std::unique_ptr<UtlError> g_error;

const FileLimit& LimitOfFile(std::string_view path) {
  const auto* const found =
      std::find_if(std::begin(kLimits), std::end(kLimits),
                   [&](const FileLimit& limit) { return limit.path == path; });
  return found == std::end(kLimits) ? kUsual : *found;
}

void Fail(const char* path, std::uint64_t limit, const char* unit) {
  g_error = std::make_unique<UtlError>(__FILE__, __LINE__);
  g_error->GetStream() << path << " has more than " << limit << ' ' << unit;
  g_error->CloseStream();
  errno = EFBIG;
}

/// That a file can't be opened for once tells nothing of the host.
void FailForDescriptors(const char* path, int code) {
  g_error = std::make_unique<UtlError>(__FILE__, __LINE__);
  g_error->GetStream() << path << " can't be opened: " << std::strerror(code);
  g_error->CloseStream();
  errno = code;
}

/// What stands behind a stream.
class BoundedFile {
 public:
  BoundedFile(int descriptor, const char* path)
      : m_descriptor(descriptor), m_path(path), m_limit(LimitOfFile(path)) {}
  BoundedFile(const BoundedFile&) = delete;
  BoundedFile& operator=(const BoundedFile&) = delete;
  ~BoundedFile() = default;

  [[nodiscard]] bool IsWithin(std::uint64_t size) const {
    if (size > m_limit.bytes) {
      Fail(m_path.c_str(), m_limit.bytes, "bytes");
    }
    return size <= m_limit.bytes;
  }
  ssize_t Read(char* buffer, std::size_t size) {
    const ssize_t count = Uninterrupted([&] { return ::read(m_descriptor, buffer, size); });
    if (count <= 0) {
      return count;
    }
    m_bytes += static_cast<std::uint64_t>(count);
    m_lines += static_cast<std::uint64_t>(std::count(buffer, buffer + count, '\n'));
    if (!IsWithin(m_bytes)) {
      return -1;
    }
    if (m_lines > m_limit.lines) {
      Fail(m_path.c_str(), m_limit.lines, "lines");
      return -1;
    }
    return count;
  }
  int Seek(off64_t* place, int whence) {
    const off64_t reached = ::lseek64(m_descriptor, *place, whence);
    if (reached == 0) {
      m_bytes = 0;
      m_lines = 0;
    }
    *place = reached;
    return reached < 0 ? -1 : 0;
  }
  int Close() const { return ::close(m_descriptor); }

 private:
  int m_descriptor;
  std::string m_path;
  const FileLimit& m_limit;
  std::uint64_t m_bytes = 0;
  std::uint64_t m_lines = 0;
};

const cookie_io_functions_t kFunctions{
    .read = [](void* file, char* buffer,
               std::size_t size) { return static_cast<BoundedFile*>(file)->Read(buffer, size); },
    .write = nullptr,
    .seek = [](void* file, off64_t* place,
               int whence) { return static_cast<BoundedFile*>(file)->Seek(place, whence); },
    .close =
        [](void* file) {
          const std::unique_ptr<BoundedFile> owned(static_cast<BoundedFile*>(file));
          return owned->Close();
        }};

}  // namespace

TextFilePtr OpenHostFile(const char* path) { return OpenHostFileAt(HostPath(path), path); }

TextFilePtr OpenHostFileAt(const std::string& place, const char* path) {
  Descriptor descriptor(
      OpenHost(AT_FDCWD, place.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!descriptor.IsOpen()) {
    // For `classic` a file that can't be opened is one that is not there.
    if (g_hostProfile == HostProfile::kModern && IsLackOfDescriptors(errno)) {
      FailForDescriptors(path, errno);
    }
    return nullptr;
  }
  auto file = std::make_unique<BoundedFile>(descriptor.Get(), path);
  struct ::stat status {};
  if (::fstat(descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    errno = EINVAL;
  } else if (file->IsWithin(static_cast<std::uint64_t>(status.st_size))) {
    if (TextFilePtr stream{::fopencookie(file.get(), "r", kFunctions)}) {
      static_cast<void>(file.release());
      static_cast<void>(descriptor.Release());
      return stream;
    }
  }
  const int code = errno;
  descriptor.Close();
  errno = code;
  return nullptr;
}

std::unique_ptr<UtlError> TakeHostFileError() { return std::move(g_error); }
