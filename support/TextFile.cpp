#include "support/TextFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

TextFilePtr OpenTextFile(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (descriptor < 0) {
    return nullptr;
  }
  struct ::stat status {};
  if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    if (TextFilePtr file{::fdopen(descriptor, "r")}) {
      return file;
    }
  } else {
    errno = EINVAL;
  }
  const int code = errno;
  ::close(descriptor);
  errno = code;
  return nullptr;
}
