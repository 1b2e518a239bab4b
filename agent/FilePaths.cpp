#include "agent/FilePaths.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "support/TraceLog.h"
#include "support/TrimmedText.h"

namespace {

namespace fs = std::filesystem;

/// The absolute form of a directory as the kernel names it; empty if it can't be entered or the way
/// back is lost.
std::string ResolveDirectory(const std::string& directory) {
  // A descriptor finds the way back even where the working directory has been moved or removed.
  const int home = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (home < 0) {
    return {};
  }
  std::error_code error;
  fs::current_path(directory, error);
  std::string resolved;
  if (!error) {
    resolved = fs::current_path(error).string();
    if (::fchdir(home) != 0) {
      Message(10100, "fchdir", errno, home, "", "");
      resolved.clear();
    }
  }
  ::close(home);
  return error ? std::string() : resolved;
}

std::string PathBelow(const std::string& base, const std::string& path) {
  return base + "/" + path;
}

std::string ResolveDotted(const std::string& base, const std::string& path) {
  const std::size_t lastSlash = path.rfind('/');
  const std::string directory = ResolveDirectory(path.substr(0, lastSlash));
  if (!directory.empty()) {
    return directory + path.substr(lastSlash);
  }
  if (path.front() == '/') {
    return path;
  }
  return PathBelow(base, path.compare(0, 2, "./") == 0 ? path.substr(2) : path);
}

std::string FullPath(const std::string& base, const std::string& path) {
  if (path.find("./") != std::string::npos) {
    return ResolveDotted(base, path);
  }
  return path.compare(0, 1, "/") == 0 ? path : PathBelow(base, path);
}

}  // namespace

std::string GetFilePath(const std::string& base, const std::string& path) {
  TraceEntry("GetFilePath", base, path);
  TraceExit("GetFilePath");
  return FullPath(base, path).substr(0, kMaxFilePath);
}

char* TrimBlanks(char* text) {
  if (text == nullptr) {
    return nullptr;
  }
  const std::string_view kept = Trimmed(text, kWhiteSpace);
  char* const begin = text + (kept.data() - text);
  begin[kept.size()] = '\0';
  return begin;
}
