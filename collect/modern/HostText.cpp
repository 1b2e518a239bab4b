#include "collect/modern/HostText.h"

#include <cerrno>
#include <cstdio>

#include "collect/HostFile.h"
#include "collect/modern/ToldOnce.h"

namespace {

/// What /proc hands out at a time at most for most of its files.
constexpr std::size_t kPiece = 4096;

}  // namespace

bool ReadHostText(const char* path, std::string& text) {
  text.clear();
  const TextFilePtr file = OpenHostFile(path);
  if (file == nullptr) {
    MissingInHost(path);
    return false;
  }
  std::size_t count = kPiece;
  for (std::size_t size = 0; count == kPiece; size += count) {
    text.resize(size + kPiece);
    count = std::fread(text.data() + size, 1, kPiece, file.get());
    text.resize(size + count);
  }
  if (std::ferror(file.get()) != 0) {
    // The source tells of one beyond its limit itself.
    if (errno != EFBIG) {
      MissingInHost(path);
    }
    text.clear();
    return false;
  }
  FoundInHost(path);
  return true;
}

void TellFound(const char* path, std::string_view name, bool isFound) {
  if (isFound) {
    FoundInHost(path, name);
  } else {
    MissingInHost(path, name);
  }
}
