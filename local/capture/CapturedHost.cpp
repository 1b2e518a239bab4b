#include "local/capture/CapturedHost.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

/// More than a host has processes: entries take a hundred times what their text does.
constexpr std::ptrdiff_t kMostEntries = std::ptrdiff_t{1} << 20U;

bool IsBelow(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string TalkQuestion(int protocol, std::string_view question) {
  return "netlink " + std::to_string(protocol) + ' ' + std::string(question);
}

/// A type and a name, as often as there are entries; no name has a slash.
std::string PackEntries(int folder) {
  std::string packed;
  const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const DirectoryPtr directory(own < 0 ? nullptr : ::fdopendir(own));
  if (directory == nullptr) {
    return packed;
  }
  errno = 0;
  while (const ::dirent* entry = ::readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      packed += static_cast<char>('a' + entry->d_type);
      packed.append(name).append("/");
    }
  }
  return packed;
}

void UnpackEntries(std::string_view packed, std::vector<::dirent>& entries) {
  while (!packed.empty()) {
    const std::size_t end = std::min(packed.find('/'), packed.size());
    ::dirent entry{};
    entry.d_type = static_cast<unsigned char>(packed.front() - 'a');
    const std::string_view letters = packed.substr(0, end);
    letters.substr(std::min<std::size_t>(1, end)).copy(entry.d_name, sizeof(entry.d_name) - 1);
    // No kernel tells of the others, which lead to the folder itself or to the one above.
    const std::string_view name = entry.d_name;
    if (!name.empty() && name != "." && name != "..") {
      entries.push_back(entry);
    }
    packed.remove_prefix(std::min(end + 1, packed.size()));
  }
}

/// What a call returns that knows success and failure alone, whatever a capture says.
int Give(const CallAnswer& answer) {
  errno = answer.code;
  return answer.result == 0 ? 0 : -1;
}

}  // namespace

std::optional<std::string> CapturedHost::NameOf(int folder, std::string_view name) const {
  std::string path(name);
  if (!name.starts_with('/')) {
    const auto known = m_names.find(folder);
    if (known == m_names.end()) {
      return std::nullopt;
    }
    path = known->second + '/' + path;
  } else if (IsBelow(path, m_own) || !IsBelow(path, m_root)) {
    return std::nullopt;
  } else {
    path.erase(0, m_root.size());
  }
  path = std::filesystem::path('/' + path).lexically_normal().string();
  path.erase(0, std::min(path.find_first_not_of('/'), path.size()));
  while (path.ends_with('/')) {
    path.pop_back();
  }
  return '/' + path;
}

std::string CapturedHost::OpenQuestion(const std::string& name, int flags) {
  const char* const how = (flags & O_NOFOLLOW) != 0    ? "opennofollow "
                          : (flags & O_DIRECTORY) != 0 ? "opendir "
                                                       : "open ";
  return how + name;
}

ssize_t CapturedHost::ReadLink(int folder, const char* name, char* target, std::size_t size) {
  const std::optional<std::string> path = NameOf(folder, name);
  if (!path) {
    return ::readlinkat(folder, name, target, size);
  }
  const CallAnswer answer = Ask("readlink " + *path, [&] {
    std::array<char, 4096> text;
    const ssize_t length = ::readlinkat(folder, name, text.data(), text.size());
    return length < 0
               ? CallAnswer{-1, errno, {}}
               : CallAnswer{0, 0, std::string(text.data(), static_cast<std::size_t>(length))};
  });
  if (answer.result < 0) {
    return Give(answer);
  }
  return static_cast<ssize_t>(answer.bytes.copy(target, size));
}

int CapturedHost::Stat(int folder, const char* name, struct ::stat* status, int flags) {
  const std::optional<std::string> path = NameOf(folder, name);
  if (!path) {
    return ::fstatat(folder, name, status, flags);
  }
  const char* const call = (flags & AT_SYMLINK_NOFOLLOW) != 0 ? "lstat " : "stat ";
  const CallAnswer answer = Ask(call + *path, [&] {
    struct ::stat found {};
    return ::fstatat(folder, name, &found, flags) != 0
               ? CallAnswer{-1, errno, {}}
               : CallAnswer{0, 0,
                            std::string(reinterpret_cast<const char*>(&found), sizeof(found))};
  });
  if (answer.result == 0 && answer.bytes.size() != sizeof(*status)) {
    errno = EPROTO;
    return -1;
  }
  if (answer.result == 0) {
    std::memcpy(status, answer.bytes.data(), sizeof(*status));
  }
  return Give(answer);
}

bool CapturedHost::List(int folder, std::vector<::dirent>& entries) {
  const std::optional<std::string> path = NameOf(folder, ".");
  if (!path) {
    UnpackEntries(PackEntries(folder), entries);
    return true;
  }
  const CallAnswer answer = Ask("list " + *path, [&] {
    std::string packed = PackEntries(folder);
    return CallAnswer{0, 0, std::move(packed)};
  });
  if (std::ranges::count(answer.bytes, '/') > kMostEntries) {
    errno = EOVERFLOW;
    return false;
  }
  UnpackEntries(answer.bytes, entries);
  return Give(answer) == 0;
}

bool CapturedHost::FindTalk(int protocol, std::string_view question, HeardTalk& heard) {
  const std::string text = TalkQuestion(protocol, question);
  const CallAnswer* count = Find(text);
  if (count == nullptr) {
    return false;
  }
  heard.error = count->code;
  for (long place = 0; place < count->result; ++place) {
    const CallAnswer* datagram = Find(text + '#' + std::to_string(place));
    if (datagram == nullptr) {
      heard.error = EPROTO;
      break;
    }
    heard.datagrams.push_back(datagram->bytes);
  }
  return true;
}

void CapturedHost::KeepTalk(int protocol, std::string_view question, const HeardTalk& heard) {
  const std::string text = TalkQuestion(protocol, question);
  const auto keep = [this](const std::string& words, CallAnswer answer) {
    static_cast<void>(Ask(words, [&answer] { return answer; }));
  };
  for (std::size_t place = 0; place < heard.datagrams.size(); ++place) {
    keep(text + '#' + std::to_string(place), {0, 0, heard.datagrams[place]});
  }
  keep(text, {static_cast<long>(heard.datagrams.size()), heard.error, {}});
}
