#include "client/ask/Errors.h"

#include <cerrno>
#include <system_error>

void FailErrno(const std::string& path) {
  const int code = errno;
  throw ClientError(path + ": " +
                    (code == ELOOP || code == ENXIO ? "this is no regular file"
                                                    : std::generic_category().message(code)));
}
