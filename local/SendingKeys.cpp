#include "local/SendingKeys.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "local/SectionReader.h"
#include "support/KeyFileLimit.h"
#include "support/SecretFile.h"
#include "support/TextFile.h"

namespace {

constexpr const char* kSendingUser = "User";
constexpr const char* kPasswordFile = "Password File";
constexpr const char* kTokenFile = "Token File";
constexpr const char* kAuthority = "Certificate Authority";
constexpr const char* kClientCertificate = "Client Certificate";
constexpr const char* kClientKey = "Client Key";

constexpr const char* kCertificateMark = "BEGIN CERTIFICATE";
constexpr const char* kKeyMark = "PRIVATE KEY";
constexpr const char* kEncryptedMark = "BEGIN ENCRYPTED PRIVATE KEY";

NamedFile ReadNamedFile(SectionReader& section, const char* key) {
  const IniSetting* const setting = section.Find(key);
  return setting == nullptr ? NamedFile{} : NamedFile{setting->value, setting->line};
}

/// What a setting says of the file that it names.
struct FileRule {
  const char* key;
  NamedFile SendingKeys::*file;
  bool isSecret;
  const char* mark;    ///< in the first line of a block of PEM; null for a line of text
  const char* marked;  ///< what it then holds
};

constexpr std::array kFileRules{
    FileRule{kPasswordFile, &SendingKeys::passwordFile, true, nullptr, "password"},
    FileRule{kTokenFile, &SendingKeys::tokenFile, true, nullptr, "token"},
    FileRule{kAuthority, &SendingKeys::authority, false, kCertificateMark, "certificate"},
    FileRule{kClientCertificate, &SendingKeys::clientCertificate, false, kCertificateMark,
             "certificate"},
    FileRule{kClientKey, &SendingKeys::clientKey, true, kKeyMark, "private key"}};

std::string WhyNotOpened(int code) {
  switch (code) {
    case EACCES:
    case EPERM:
      return "";
    case ENOENT:
    case ENOTDIR:
      return "is not there";
    case EINVAL:
    case ENXIO:
      return "is no regular file";
    default:
      return std::string("can't be read: ") + std::strerror(code);
  }
}

/// Whether the text has a block of PEM with that word in its heads: lines of base64 and an end. A
/// damaged one is found so, and not what lies behind the base64.
bool HoldsBlock(std::string_view text, std::string_view word) {
  constexpr std::string_view kDashes = "-----";
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::size_t title = text.find(std::string(word) + std::string(kDashes));
  const std::size_t begin = title == std::string_view::npos ? title : title + word.size() + 5;
  const std::size_t end = begin == std::string_view::npos ? begin : text.find("-----END ", begin);
  if (end == std::string_view::npos) {
    return false;
  }
  std::string block(text.substr(begin, end - begin));
  std::erase_if(block, [](char c) { return c == '\n' || c == '\r' || c == ' '; });
  const std::size_t digits = std::min(block.find_first_not_of(kDigits), block.size());
  return digits != 0 && block.size() % 4 == 0 && block.size() - digits <= 2 &&
         block.find_first_not_of('=', digits) == std::string::npos;
}

std::string FaultOfText(const std::string& text, const FileRule& rule) {
  if (rule.mark == nullptr) {
    return SecretLineOf(text).empty() ? std::string("has a first line that is no ") + rule.marked
                                      : "";
  }
  if (!HoldsBlock(text, rule.mark)) {
    return std::string("holds no ") + rule.marked + " as PEM";
  }
  return rule.isSecret && text.find(kEncryptedMark) != std::string::npos
             ? "holds a private key that needs a password"
             : "";
}

std::string FaultOfMode(mode_t mode) {
  switch (FaultOfSecretMode(mode)) {
    case SecretModeFault::kOthersReach:
      return "can be reached by others; \"chmod o=\" ends that";
    case SecretModeFault::kGroupWrites:
      return "can be written to by its group; \"chmod g-wx\" ends that";
    case SecretModeFault::kNone:
      break;
  }
  return "";
}

/// What is wrong with a file, to be read behind its path; empty for nothing.
std::string FaultOfFile(const std::string& path, const FileRule& rule) {
  const TextFilePtr file = OpenTextFile(path);
  struct ::stat status {};
  if (file == nullptr || ::fstat(::fileno(file.get()), &status) != 0) {
    return WhyNotOpened(errno);
  }
  const auto bytes = static_cast<std::size_t>(status.st_size);
  if (bytes > kMostKeyFileBytes) {
    return "is longer than " + std::to_string(kMostKeyFileBytes) + " bytes";
  }
  if (std::string fault = rule.isSecret ? FaultOfMode(status.st_mode) : ""; !fault.empty()) {
    return fault;
  }
  std::string text(bytes, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  return FaultOfText(text, rule);
}

}  // namespace

SendingKeys ReadSendingKeys(SectionReader& section) {
  SendingKeys keys;
  if (const IniSetting* user = section.Find(kSendingUser); user != nullptr) {
    keys.user = user->value;
    if (keys.user.find(':') != std::string::npos) {
      section.NoteWrong(*user, "a name without a colon");
      keys.isFaulty = true;
    }
  }
  keys.passwordFile = ReadNamedFile(section, kPasswordFile);
  keys.tokenFile = ReadNamedFile(section, kTokenFile);
  keys.authority = ReadNamedFile(section, kAuthority);
  section.Need(kSendingUser, kPasswordFile);
  section.Need(kPasswordFile, kSendingUser);
  section.Exclude(kTokenFile, kPasswordFile);
  keys.isFaulty = keys.isFaulty || keys.user.empty() != keys.passwordFile.path.empty() ||
                  (!keys.tokenFile.path.empty() && !keys.passwordFile.path.empty());
  for (const char* key : {kSendingUser, kPasswordFile, kTokenFile, kAuthority}) {
    keys.isFaulty = keys.isFaulty || section.IsBad(key);
  }
  return keys;
}

void ReadClientKeys(SectionReader& section, SendingKeys& keys) {
  keys.clientCertificate = ReadNamedFile(section, kClientCertificate);
  keys.clientKey = ReadNamedFile(section, kClientKey);
  section.Need(kClientCertificate, kClientKey);
  section.Need(kClientKey, kClientCertificate);
}

std::vector<IniProblem> KeyFileProblems(const SendingKeys& keys, std::string_view section,
                                        const std::filesystem::path& folder) {
  std::vector<IniProblem> problems;
  for (const FileRule& rule : kFileRules) {
    const NamedFile& named = keys.*rule.file;
    if (named.path.empty()) {
      continue;
    }
    const std::string path = (folder / named.path).lexically_normal().string();
    if (const std::string fault = FaultOfFile(path, rule); !fault.empty()) {
      problems.push_back({named.line, "[" + std::string(section) + "]: \"" + rule.key +
                                          "\": " + path + ' ' + fault +
                                          "; nothing is sent before it is right"});
    }
  }
  return problems;
}
