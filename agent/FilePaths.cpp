#include "agent/FilePaths.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "support/TraceLog.h"

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

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

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
  while (IsBlank(*text)) {
    ++text;
  }
  std::size_t length = std::strlen(text);
  while (length > 0 && IsBlank(text[length - 1])) {
    --length;
  }
  text[length] = '\0';
  return text;
}
