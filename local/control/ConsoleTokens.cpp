#include "local/control/ConsoleTokens.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "support/Descriptor.h"
#include "support/RegularFile.h"
#include "support/Uninterrupted.h"
#include "support/WholeTransfer.h"

namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr std::size_t kTokenLength = 43;
constexpr std::size_t kMostTokenFile = 8192;
constexpr mode_t kTokenFileMode = 0600;
constexpr mode_t kOthersMode = 077;
constexpr std::string_view kBase64Url =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string Base64Url(const std::array<unsigned char, kTokenBytes>& bytes) {
  std::string text;
  unsigned bits = 0;
  int count = 0;
  for (const unsigned char byte : bytes) {
    bits = (bits << 8 | byte) & 0xffff;
    for (count += 8; count >= 6; count -= 6) {
      text += kBase64Url[bits >> (count - 6) & 63U];
    }
  }
  text += kBase64Url[bits << (6 - count) & 63U];
  return text;
}

bool IsTokenText(std::string_view text) {
  return text.size() == kTokenLength && text.find_first_not_of(kBase64Url) == std::string::npos;
}

bool IsSameInConstantTime(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  unsigned difference = 0;
  for (std::size_t place = 0; place < a.size(); ++place) {
    difference |= static_cast<unsigned>(static_cast<unsigned char>(a[place]) ^
                                        static_cast<unsigned char>(b[place]));
  }
  return difference == 0;
}

bool IsOwnAlone(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() &&
         (status.st_mode & kOthersMode) == 0;
}

/// "TOKEN EXPIRES" as a line holds it.
std::optional<ConsoleToken> ParseTokenLine(std::string_view line) {
  const std::string_view text = line.substr(0, line.find(' '));
  if (!IsTokenText(text) || text.size() == line.size()) {
    return std::nullopt;
  }
  ConsoleToken token{std::string(text), 0};
  const char* end = line.data() + line.size();
  const auto [stop, status] = std::from_chars(line.data() + text.size() + 1, end, token.expires);
  return status == std::errc{} && stop == end ? std::optional(std::move(token)) : std::nullopt;
}

/// Puts a file of the daemon's own in the place of whatever is there; false with errno. Nothing is
/// synced: that would hold the loop, and tokens that a crash takes are soon made again.
bool ReplaceTokenFile(const std::string& path, std::string_view text) {
  const std::string next = path + ".new";
  ::unlink(next.c_str());
  const Descriptor file(OpenRegularFile(next, O_WRONLY | O_CREAT | O_EXCL, kTokenFileMode));
  if (!file.IsOpen()) {
    return false;
  }
  const ssize_t written =
      Uninterrupted([&] { return ::write(file.Get(), text.data(), text.size()); });
  if (written >= 0 && written != static_cast<ssize_t>(text.size())) {
    errno = ENOSPC;
  }
  if (written == static_cast<ssize_t>(text.size()) && ::rename(next.c_str(), path.c_str()) == 0) {
    return true;
  }
  const int reason = errno;
  ::unlink(next.c_str());
  errno = reason;
  return false;
}

}  // namespace

ConsoleTokens::ConsoleTokens(std::string path, ProblemReport report, Clock clock)
    : m_path(std::move(path)), m_report(std::move(report)), m_clock(std::move(clock)) {}

ConsoleToken ConsoleTokens::Make() {
  Load();
  DropExpired();
  std::array<unsigned char, kTokenBytes> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    return {};
  }
  if (m_tokens.size() >= kMost) {
    m_tokens.erase(m_tokens.begin());
  }
  m_tokens.push_back({Base64Url(bytes), m_clock() + kLifeSeconds});
  Save();
  return m_tokens.back();
}

std::time_t ConsoleTokens::Check(std::string_view text) {
  Load();
  const std::time_t now = m_clock();
  std::time_t expires = 0;
  for (const ConsoleToken& token : m_tokens) {
    if (IsSameInConstantTime(token.text, text)) {
      expires = token.expires;
    }
  }
  return expires > now ? expires : 0;
}

void ConsoleTokens::Load() {
  if (std::exchange(m_isLoaded, true)) {
    return;
  }
  std::string problem;
  if (!Read(problem)) {
    m_tokens.clear();
    m_report(m_path + ": " + problem + "; console tokens begin anew");
  }
}

bool ConsoleTokens::Read(std::string& problem) {
  const Descriptor file(OpenRegularFile(m_path, O_RDONLY, 0));
  if (!file.IsOpen()) {
    const int code = errno;
    problem = std::strerror(code);
    return code == ENOENT;
  }
  struct stat status {};
  if (::fstat(file.Get(), &status) != 0 || !IsOwnAlone(status)) {
    problem = "not a file that this user alone may touch";
    return false;
  }
  std::array<char, kMostTokenFile + 1> buffer{};
  const ssize_t size = ReadFully(file.Get(), buffer);
  if (size < 0 || size > static_cast<ssize_t>(kMostTokenFile)) {
    problem = size < 0 ? std::strerror(errno) : "longer than it ever is";
    return false;
  }
  std::string_view text(buffer.data(), static_cast<std::size_t>(size));
  const std::time_t latest = m_clock() + kLifeSeconds;
  for (std::size_t line = 1; !text.empty(); ++line) {
    const std::size_t end = text.find('\n');
    std::optional<ConsoleToken> token = ParseTokenLine(text.substr(0, end));
    // None lives longer, whoever has written it.
    if (end == std::string::npos || !token || token->expires > latest || m_tokens.size() >= kMost) {
      problem = "line " + std::to_string(line) + " is no token";
      return false;
    }
    m_tokens.push_back(*std::move(token));
    text.remove_prefix(end + 1);
  }
  return true;
}

void ConsoleTokens::DropExpired() {
  std::erase_if(m_tokens,
                [now = m_clock()](const ConsoleToken& token) { return token.expires <= now; });
}

void ConsoleTokens::Save() {
  std::string text;
  for (const ConsoleToken& token : m_tokens) {
    text += token.text + ' ' + std::to_string(token.expires) + '\n';
  }
  if (!ReplaceTokenFile(m_path, text)) {
    m_report(m_path + ": " + std::strerror(errno) + "; console tokens end with the daemon");
  }
}
