#include "client/commands/Token.h"

#include <crypt.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "client/ask/Errors.h"
#include "client/show/Terminal.h"
#include "support/AccountText.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"
#include "support/RegularFile.h"
#include "support/TextFile.h"

namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kMaxTokenFile = 1'000'000;  ///< a gate reads no more
constexpr mode_t kTokenFileMode = 0640;

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

std::string ReadTokenFile(const std::string& path) {
  const TextFilePtr file = OpenTextFile(path);
  if (file == nullptr) {
    FailTokenFile(path, errno == EINVAL ? "it is no regular file" : std::strerror(errno));
  }
  std::string text(kMaxTokenFile + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0 || text.size() > kMaxTokenFile) {
    FailTokenFile(path, "it can't be read, or is too long");
  }
  return text;
}

/// Makes the file with its rights, if it is not there: a replaced one keeps them.
void MakeTokenFile(const std::string& path) {
  const Descriptor made(OpenRegularFile(path, O_WRONLY | O_CREAT | O_EXCL, kTokenFileMode));
  if (made.IsOpen() ? ::fchmod(made.Get(), kTokenFileMode) != 0 : errno != EEXIST) {
    FailTokenFile(path, std::strerror(errno));
  }
}

void AppendLine(const std::string& path, const std::string& name, const std::string& line) {
  MakeTokenFile(path);
  std::string text = ReadTokenFile(path);
  if (("\n" + text).find("\n" + name + ":") != std::string::npos) {
    FailTokenFile(path, "it has a token " + name + " already");
  }
  if (!text.empty() && text.back() != '\n') {
    text += '\n';
  }
  std::string error;
  if (!ReplaceFile(BehindLinks(path), text + line, error)) {
    throw ClientError(error);
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
  AppendLine(options.file, options.name, line);
  WriteOutput(token);
  return kExitDone;
}
