#include "client/commands/Token.h"

#include <crypt.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <thread>

#include "client/ask/Errors.h"
#include "client/show/Terminal.h"
#include "support/AccountText.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"
#include "support/KeyFileLimit.h"
#include "support/RegularFile.h"

namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr mode_t kTokenFileMode = 0640;
constexpr std::chrono::seconds kLockPatience{20};
constexpr std::chrono::milliseconds kLockPause{20};

std::string RandomBytes(std::size_t count) {
  std::string bytes(count, '\0');
  if (::getrandom(bytes.data(), count, 0) != static_cast<ssize_t>(count)) {
    throw ClientError("there are no random bits");
  }
  return bytes;
}

/// In the letters that may stand in an address, without padding.
std::string Base64Url(std::string_view bytes) {
  constexpr std::string_view kLetters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  unsigned bits = 0;
  unsigned count = 0;
  for (const char byte : bytes) {
    bits = (bits << 8 | static_cast<unsigned char>(byte)) & 0xffff;
    for (count += 8; count >= 6; count -= 6) {
      text += kLetters[bits >> (count - 6) & 0x3f];
    }
  }
  return count == 0 ? text : text + kLetters[bits << (6 - count) & 0x3f];
}

std::string HashOf(const std::string& secret) {
  constexpr unsigned long kRounds = 1000;
  std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> salt{};
  const auto data = std::make_unique<crypt_data>();
  const char* hash =
      ::crypt_gensalt_rn("$5$", kRounds, nullptr, 0, salt.data(), salt.size()) == nullptr
          ? nullptr
          : ::crypt_r(secret.c_str(), salt.data(), data.get());
  if (hash == nullptr || !std::string_view(hash).starts_with(kTokenHashStart)) {
    throw ClientError("crypt(3) makes no hash of the kind " + std::string(kTokenHashStart));
  }
  return hash;
}

[[noreturn]] void FailTokenFile(const std::string& path, const std::string& reason) {
  throw ClientError(path + ": " + reason);
}

/// Whether a path still leads to the file that was opened by it.
bool IsSameFile(const std::string& path, int fd) {
  struct stat named {};
  struct stat opened {};
  return ::stat(path.c_str(), &named) == 0 && ::fstat(fd, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// Opens the file and locks it against others that add a line, for as long as it is open. It is
/// not the folder that is locked: that one is open to everybody, who then could keep it locked.
TextFilePtr OpenLocked(const std::string& path) {
  const auto end = std::chrono::steady_clock::now() + kLockPatience;
  while (std::chrono::steady_clock::now() < end) {
    TextFilePtr file = OpenRegularStream(path, O_RDONLY, 0, "r");
    if (file == nullptr) {
      FailTokenFile(path, errno == ENXIO ? "it is no regular file" : std::strerror(errno));
    }
    const int fd = ::fileno(file.get());
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
      // Who had the lock before has put another file in its place.
      if (IsSameFile(path, fd)) {
        return file;
      }
    } else if (errno != EWOULDBLOCK && errno != EINTR) {
      FailTokenFile(path, std::string("it can't be locked: ") + std::strerror(errno));
    } else {
      std::this_thread::sleep_for(kLockPause);
    }
  }
  FailTokenFile(path, "another program keeps it locked");
}

std::string ReadTokenFile(const std::string& path, std::FILE* file) {
  std::string text(kMostKeyFileBytes + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  if (std::ferror(file) != 0 || text.size() > kMostKeyFileBytes) {
    FailTokenFile(path, "it can't be read, or is too long");
  }
  return text;
}

/// Makes the file with its rights, if it is not there: a replaced one keeps them. Whether it did.
bool MakeTokenFile(const std::string& path) {
  const Descriptor made(OpenRegularFile(path, O_WRONLY | O_CREAT | O_EXCL, kTokenFileMode));
  if (made.IsOpen() ? ::fchmod(made.Get(), kTokenFileMode) != 0 : errno != EEXIST) {
    FailTokenFile(path, std::strerror(errno));
  }
  return made.IsOpen();
}

/// Adds the line to a locked file, unless `token` can't be shown before: its secret stands nowhere
/// else.
void AppendLine(const std::string& path, std::FILE* file, const std::string& name,
                const std::string& line, const std::string& token) {
  std::string text = ReadTokenFile(path, file);
  if (("\n" + text).find("\n" + name + ":") != std::string::npos) {
    FailTokenFile(path, "it has a token " + name + " already");
  }
  if (!text.empty() && text.back() != '\n') {
    text += '\n';
  }
  text += line;
  // A gate would take none of it.
  if (text.size() > kMostKeyFileBytes) {
    FailTokenFile(path, "with another token it is longer than " +
                            std::to_string(kMostKeyFileBytes) + " bytes");
  }
  try {
    WriteOutput(token);
  } catch (const OutputClosed&) {
    FailTokenFile(path, "nobody reads the token, so that it is not added");
  }
  std::string error;
  if (!ReplaceFile(path, text, error)) {
    throw ClientError(error);
  }
}

bool IsEmpty(std::FILE* file) {
  struct stat status {};
  return ::fstat(::fileno(file), &status) == 0 && status.st_size == 0;
}

/// Adds the line as AppendLine() does; a file that would stay empty, which lets nobody in, is not
/// left behind.
void AddToken(const std::string& given, const std::string& name, const std::string& line,
              const std::string& token) {
  const bool isMade = MakeTokenFile(given);
  const std::string path = BehindLinks(given);
  const TextFilePtr file = OpenLocked(path);
  try {
    AppendLine(path, file.get(), name, line, token);
  } catch (...) {
    // Who takes no lock may have put another file in its place.
    if (isMade && IsEmpty(file.get()) && IsSameFile(path, ::fileno(file.get()))) {
      ::unlink(path.c_str());
    }
    throw;
  }
}

}  // namespace

int RunTokenNew(const TokenOptions& options) {
  if (!IsAccountName(options.name)) {
    throw UsageError("the name of a token is 1 to 64 of A-Z a-z 0-9 - _ . @ +");
  }
  const std::string secret = Base64Url(RandomBytes(kSecretBytes));
  const std::string token = options.name + kTokenDot + secret + '\n';
  const std::string line = options.name + ':' + HashOf(secret) + ':' + options.role + '\n';
  if (options.file.empty()) {
    WriteOutput(token + line);
    return kExitDone;
  }
  AddToken(options.file, options.name, line, token);
  return kExitDone;
}
