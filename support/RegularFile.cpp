#include "support/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/Descriptor.h"

int OpenRegularFile(const std::string& path, int flags, mode_t mode) {
  // What is cut is cut behind the check.
  const int descriptor = ::open(
      path.c_str(), (flags & ~O_TRUNC) | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
  if (descriptor < 0) {
    return -1;
  }
  struct ::stat status {};
  int code = ::fstat(descriptor, &status) != 0 ? errno : S_ISREG(status.st_mode) ? 0 : ENXIO;
  if (code == 0 && (flags & O_TRUNC) != 0 && ::ftruncate(descriptor, 0) != 0) {
    code = errno;
  }
  if (code == 0) {
    return descriptor;
  }
  ::close(descriptor);
  errno = code;
  return -1;
}

TextFilePtr OpenRegularStream(const std::string& path, int flags, mode_t mode,
                              const char* streamMode) {
  Descriptor descriptor(OpenRegularFile(path, flags, mode));
  TextFilePtr stream(descriptor.IsOpen() ? ::fdopen(descriptor.Get(), streamMode) : nullptr);
  if (stream != nullptr) {
    static_cast<void>(descriptor.Release());
  }
  return stream;
}
