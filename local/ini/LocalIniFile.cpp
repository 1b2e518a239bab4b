#include "local/ini/LocalIniFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "local/log/LogText.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"

namespace {

bool Fail(const std::string& path, const std::string& reason, std::string& error) {
  error = path + ": " + reason;
  return false;
}

/// The path for people, to whom "." tells nothing.
std::string ShownPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path whole =
      std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
  return error ? path : whole.string();
}

/// Has words that begin with a path begin with the one that is shown.
void ShowPath(const std::string& path, const std::string& shownPath, std::string& words) {
  if (words.starts_with(path)) {
    words.replace(0, path.size(), shownPath);
  }
}

std::string TooLong(std::size_t limit) { return "longer than " + std::to_string(limit) + " bytes"; }

bool ReadAll(int fd, std::size_t limit, std::string& text) {
  std::array<char, 16384> piece;
  text.clear();
  while (text.size() <= limit) {
    const ssize_t got = ::read(fd, piece.data(), std::min(piece.size(), limit + 1 - text.size()));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      return false;
    }
    if (got == 0) {
      break;
    }
    text.append(piece.data(), static_cast<std::size_t>(got));
  }
  return true;
}

/// A file that doesn't exist leaves `text` empty.
bool ReadRegularFile(const std::string& path, std::size_t limit, std::string& text,
                     std::string& error) {
  // Without O_NONBLOCK the open of a pipe would wait for its writer.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.IsOpen()) {
    return errno == ENOENT || Fail(path, std::strerror(errno), error);
  }
  struct stat status {};
  if (::fstat(file.Get(), &status) != 0) {
    return Fail(path, std::strerror(errno), error);
  }
  if (!S_ISREG(status.st_mode)) {
    return Fail(path, "no regular file", error);
  }
  if (!ReadAll(file.Get(), limit, text)) {
    return Fail(path, std::strerror(errno), error);
  }
  return text.size() <= limit || Fail(path, TooLong(limit), error);
}

/// What is no ini text is refused: nothing in it could be used, and a write would spoil a file that
/// is something else.
bool ReadIniText(const std::string& path, IniText& ini, std::string& error) {
  std::string text;
  if (!ReadRegularFile(path, LocalIniFile::kMaxSize, text, error)) {
    return false;
  }
  if (text.find('\0') != std::string::npos) {
    return Fail(path, "no text file, since it holds a zero byte", error);
  }
  ini = IniText(std::move(text));
  if (ini.HasSections() ? ini.IsMostlyUsable() : ini.Faults().empty()) {
    return true;
  }
  const IniFault& fault = ini.Faults().front();
  return Fail(path + ":" + std::to_string(fault.line),
              fault.problem + (ini.HasSections() ? "; so it is in most lines of the file"
                                                 : "; there is no section in the file"),
              error);
}

/// Whether the file may be replaced. The folder's permissions alone would allow that for a
/// read-only file too, and root may write any.
bool CheckWritable(const std::string& path, std::string& error) {
  constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return errno == ENOENT || Fail(path, std::strerror(errno), error);
  }
  if ((status.st_mode & kWriteBits) == 0 ||
      ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    return Fail(path, "read-only", error);
  }
  return true;
}

std::optional<long> ParseLong(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) {
    text.remove_prefix(1);
  }
  long value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (end != text.data() + text.size() || status == std::errc::invalid_argument) {
    return std::nullopt;
  }
  if (status == std::errc::result_out_of_range) {
    return text.starts_with('-') ? LONG_MIN : LONG_MAX;
  }
  return value;
}

}  // namespace

std::unique_ptr<LocalIniFile> LocalIniFile::Open(const std::string& directory,
                                                 const std::string& name, std::string& error) {
  // A write replaces the file and not the link.
  const std::string path = BehindLinks(directory + '/' + name);
  const std::string shownPath = ShownPath(path);
  IniText ini;
  if (!ReadIniText(path, ini, error)) {
    ShowPath(path, shownPath, error);
    return nullptr;
  }
  return std::unique_ptr<LocalIniFile>(new LocalIniFile(path, shownPath, std::move(ini)));
}

int LocalIniFile::ReadString(char* out, int size, const char* key, const char* section,
                             const char* subSection, void*, int) {
  if (out == nullptr || size <= 0) {
    return 0;
  }
  const std::optional<std::string> value =
      m_ini.Find(OrEmpty(section), OrEmpty(subSection), OrEmpty(key));
  const std::size_t length =
      value ? value->copy(out, static_cast<std::size_t>(size) - 1) : std::size_t{0};
  out[length] = '\0';
  return value ? 1 : 0;
}

int LocalIniFile::ReadLong(long* out, const char* key, const char* section, const char* subSection,
                           void*) {
  const std::optional<std::string> text =
      m_ini.Find(OrEmpty(section), OrEmpty(subSection), OrEmpty(key));
  const std::optional<long> value = text ? ParseLong(*text) : std::nullopt;
  if (out == nullptr || !value) {
    return 0;
  }
  *out = *value;
  return 1;
}

int LocalIniFile::WriteString(const char* value, const char* key, const char* section,
                              const char* subSection, void*, int) {
  std::string error;
  const bool isWritten = Write(value, key, section, subSection, error);
  if (!error.empty() && m_onWriteProblem) {
    m_onWriteProblem(error);
  }
  return isWritten ? 1 : 0;
}

int LocalIniFile::WriteLong(long value, const char* key, const char* section,
                            const char* subSection, void* unused, int unused2) {
  return WriteString(std::to_string(value).c_str(), key, section, subSection, unused, unused2);
}

bool LocalIniFile::Write(const char* value, const char* key, const char* section,
                         const char* subSection, std::string& error, KeySpelling spelling) {
  const std::string place =
      m_shownPath + ": can't set \"" + OrEmpty(key) + "\" of section \"" + OrEmpty(section) + "\"";
  if (value == nullptr) {
    return Fail(place, "there is no value", error);
  }
  return Change(
      [&](IniText& edited) -> std::string {
        std::string reason;
        if (!edited.Set(OrEmpty(section), OrEmpty(subSection), OrEmpty(key), value, reason)) {
          return place + ": " + reason;
        }
        if (spelling == KeySpelling::kGiven) {
          edited.Respell(OrEmpty(section), OrEmpty(subSection), OrEmpty(key));
        }
        return "";
      },
      error);
}

bool LocalIniFile::Remove(const char* key, const char* section, std::string& error) {
  return Change(
      [&](IniText& edited) {
        edited.Remove(section, {}, key);
        return std::string();
      },
      error);
}

bool LocalIniFile::Change(const std::function<std::string(IniText&)>& edit, std::string& error) {
  const bool isChanged = Replace(edit, error);
  ShowPath(m_path, m_shownPath, error);
  return isChanged;
}

bool LocalIniFile::Replace(const std::function<std::string(IniText&)>& edit, std::string& error) {
  // Others may have edited the file since it was read.
  IniText edited;
  if (!ReadIniText(m_path, edited, error) || !CheckWritable(m_path, error)) {
    return false;
  }
  if (std::string reason = edit(edited); !reason.empty()) {
    error = std::move(reason);
    return false;
  }
  if (edited.Text().size() > kMaxSize) {
    return Fail(m_path, "the file would be " + TooLong(kMaxSize), error);
  }
  if (!ReplaceFile(m_path, edited.Text(), error)) {
    return false;
  }
  m_ini = std::move(edited);
  return true;
}
