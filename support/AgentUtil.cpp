#include "support/AgentUtil.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

namespace {

constexpr char kCutMark = '>';

bool IsCut(const char* text) {
  const std::size_t length = std::strlen(text);
  return length != 0 && text[length - 1] == kCutMark;
}

/// Adds `piece` if it fits with its terminator.
bool AppendWhole(char* text, std::string_view piece, std::size_t size) {
  const std::size_t length = std::strlen(text);
  if (length + piece.size() + 1 > size) {
    return false;
  }
  std::memcpy(text + length, piece.data(), piece.size());
  text[length + piece.size()] = '\0';
  return true;
}

void MarkCut(char* text, std::size_t size, char separator) {
  if (!AppendWhole(text, std::string_view{&kCutMark, 1}, size)) {
    CutAt(text, size, separator);
  }
}

}  // namespace

void AppendListItem(char* text, const char* item, std::size_t size) {
  if (size == 0 || IsCut(text)) {
    return;
  }
  const std::size_t length = std::strlen(text);
  if (length + std::strlen(item) + 2 > size) {
    MarkCut(text, size, ',');
    return;
  }
  std::snprintf(text + length, size - length, "%s%s", length == 0 ? "" : ",", item);
}

void CutAt(char* text, std::size_t size, char separator) {
  if (size == 0) {
    return;
  }
  text[size - 1] = '\0';
  char* place = std::strrchr(text, separator);
  if (place == nullptr) {
    const std::size_t length = std::strlen(text);
    if (length == 0) {
      return;
    }
    place = text + length - 1;
  }
  place[0] = kCutMark;
  place[1] = '\0';
}

void BuildParentChain(const ParentMap& processMap, std::int32_t pid, char* text, std::size_t size) {
  if (size == 0) {
    return;
  }
  text[0] = '\0';
  while (true) {
    if (!AppendWhole(text, '<' + std::to_string(pid), size)) {
      MarkCut(text, size, '<');
      return;
    }
    const auto process = pid == 0 ? processMap.end() : processMap.find(pid);
    if (process == processMap.end() || process->second == pid) {
      return;
    }
    pid = process->second;
  }
}

void BuildChildList(const ParentMap& processMap, std::int32_t parent, char* text,
                    std::size_t size) {
  if (size == 0) {
    return;
  }
  text[0] = '\0';
  const auto nextChild = [&](ParentMap::const_iterator from) {
    while (from != processMap.end() && from->second != parent) {
      ++from;
    }
    return from;
  };
  auto child = nextChild(processMap.begin());
  while (child != processMap.end()) {
    const std::string number = std::to_string(child->first);
    child = nextChild(std::next(child));
    const bool isLast = child == processMap.end();
    if (!AppendWhole(text, number + ' ', size) && !(isLast && AppendWhole(text, number, size))) {
      MarkCut(text, size, ' ');
      return;
    }
  }
}

void OpenFlagsText(int flags, char* buffer, std::size_t size) {
  struct FlagName {
    int bit;
    const char* name;
  };
  // The bits as the kernel has them on this platform; a name of several bits stands once for each.
  static constexpr std::array kNames{
      FlagName{0x1, "WRONLY "},   FlagName{0x2, "RDWR "},     FlagName{0x800, "NDELAY "},
      FlagName{0x400, "APPEND "}, FlagName{0x1000, "SYNC "},  FlagName{0x1000, "DSYNC "},
      FlagName{0x1000, "RSYNC"},  FlagName{0x40, "CREAT "},   FlagName{0x200, "TRUNC "},
      FlagName{0x80, "EXCL "},    FlagName{0x100, "NOCTTY "}, FlagName{0x800, "NONBLOCK "}};
  if (size == 0) {
    return;
  }
  buffer[0] = '\0';
  if (flags == 0) {
    if (!AppendWhole(buffer, "RDONLY ", size)) {
      MarkCut(buffer, size, ' ');
    }
    return;
  }
  for (const FlagName& flag : kNames) {
    if ((flags & flag.bit) != 0 && !AppendWhole(buffer, flag.name, size)) {
      MarkCut(buffer, size, ' ');
      return;
    }
  }
}

bool WildcardMatch(const char* pattern, const char* text) {
  // Only the last '*' is ever widened: what an earlier one took can't help a later part.
  const char* afterStar = nullptr;
  const char* starText = nullptr;
  while (*text != '\0') {
    if (*pattern == '*') {
      afterStar = ++pattern;
      starText = text;
    } else if (*pattern == '?' || (*pattern != '\0' && *pattern == *text)) {
      ++pattern;
      ++text;
    } else if (afterStar != nullptr) {
      pattern = afterStar;
      text = ++starText;
    } else {
      return false;
    }
  }
  while (*pattern == '*') {
    ++pattern;
  }
  return *pattern == '\0';
}
