#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "agent/UnixAgent.h"
#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "support/ProductOptions.h"
#include "support/RegularFile.h"
#include "support/TraceLog.h"
#include "support/UserFileFormat.h"
#include "support/UserFileSemaphore.h"

namespace {

constexpr std::size_t kMaxPath = 4096;
constexpr int kMissing = -2;

/// Under the guard of the file. 0 or -1.
int Truncate(const std::string& path, const char* fileName) {
  const Descriptor file(OpenRegularFile(path, O_RDWR, 0));
  if (!file.IsOpen()) {
    Trace(20, kError, "Cannot open %1 file", fileName);
    return -1;
  }
  const int rc = ::ftruncate(file.Get(), 0);
  if (rc != 0) {
    MessageAt(20, 10101, "ftruncate()", rc, fileName, "", "");
  }
  return rc;
}

}  // namespace

int UnixAgent::truncateUserFile(int id, const char* fileName) {
  const std::string path =
      ProductPath((std::string(kUserDataDirectory) + '/' + fileName).substr(0, kMaxPath));
  struct ::stat status {};
  if (::lstat(path.c_str(), &status) != 0 && errno == ENOENT) {
    return kMissing;
  }
  const key_t key = ::ftok(ProductPath(kUserFileKeyPath).c_str(), id);
  if (key == -1) {
    MessageAt(20, 10101, "ftok()", -1, kUserFileKeyPath, id, "");
    return -1;
  }
  const char* mode = ProductOptions::Instance().Get("User", "GuardMode");
  UserFileSemaphore semaphore(key, UserFileSemaphore::kUnlocked, UserFileGuardRights(mode));
  if (semaphore.create() < 0) {
    Trace(20, kError, "Cannot create semaphore for user file %1", fileName);
    return -1;
  }
  if (semaphore.lock(false, 0) != 0) {
    Trace(20, kError, "Cannot lock semaphore for user file %1", fileName);
    return -1;
  }
  int rc = Truncate(path, fileName);
  if (semaphore.unlock() != 0) {
    Trace(20, kError, "Cannot unlock semaphore for user file %1", fileName);
    rc = -1;
  }
  if (semaphore.close() != 0) {
    Trace(20, kError, "Cannot close semaphore for user file %1", fileName);
    rc = -1;
  }
  return rc;
}
