#include "client/commands/Certificate.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string_view>

#include "client/ask/Errors.h"
#include "client/files/RemoveBelow.h"
#include "client/show/Terminal.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"
#include "support/WholeTransfer.h"

namespace {

using Words = std::vector<std::string>;

/// Where the files are to stand. Throws ClientError, for root also if others could put something
/// else in their place.
Descriptor OpenPlace(const std::string& path) {
  Descriptor place(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct ::stat status {};
  if (!place.IsOpen() || ::fstat(place.Get(), &status) != 0) {
    FailErrno(path);
  }
  // Of one that is sticky, as /tmp is, nobody takes what is root's.
  const bool isOpen =
      (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0;
  if (::geteuid() == 0 && (status.st_uid != 0 || isOpen)) {
    throw ClientError(path + ": others than root may write to this folder; name another one");
  }
  return place;
}

/// Why no key may be made in a folder; empty if it may.
std::string ProblemOf(const Descriptor& folder) {
  struct ::stat status {};
  if (!folder.IsOpen() || ::fstat(folder.Get(), &status) != 0) {
    return std::strerror(errno);
  }
  if (status.st_uid != ::geteuid()) {
    return "it belongs to others: the file system has given it away, or somebody has put another "
           "folder in its place";
  }
  return (status.st_mode & (S_IRWXG | S_IRWXO)) != 0 ? "others may enter the folder that was made"
                                                     : "";
}

/// A folder of the user's own beside the files, gone at the end with what was left in it. It is
/// reached by its descriptor alone: who may rename it could have another one under its name.
class WorkFolder {
 public:
  explicit WorkFolder(const std::string& beside)
      : m_parent(std::filesystem::absolute(beside).parent_path().string()),
        m_place(OpenPlace(m_parent)) {
    std::string path = beside + ".XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) {
      throw ClientError(beside + ": no folder can be made beside it: " + std::strerror(errno));
    }
    m_name = NameOf(path);
    m_folder = Descriptor(
        ::openat(m_place.Get(), m_name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (const std::string problem = ProblemOf(m_folder); !problem.empty()) {
      ::unlinkat(m_place.Get(), m_name.c_str(), AT_REMOVEDIR);
      throw ClientError(path + ": " + problem);
    }
  }
  ~WorkFolder() {
    EmptyFolder(m_folder.Get());
    ::unlinkat(m_place.Get(), m_name.c_str(), AT_REMOVEDIR);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  [[nodiscard]] int Get() const { return m_folder.Get(); }
  /// The beginning of what a program wrote.
  [[nodiscard]] std::string Read(const char* name) const {
    constexpr std::size_t kMaxText = 4096;
    std::string text(kMaxText, '\0');
    const Descriptor file = Open(name, O_RDONLY);
    const ssize_t count = ReadFully(file.Get(), text);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
  }
  void Write(const char* name, const std::string& text) const {
    const Descriptor file = Open(name, O_WRONLY | O_CREAT | O_TRUNC);
    if (!WriteFully(file.Get(), text)) {
      Fail(name);
    }
  }
  void LetAllRead(const char* name) const {
    const Descriptor file = Open(name, O_RDONLY);
    if (::fchmod(file.Get(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) != 0) {
      Fail(name);
    }
  }
  /// Gives a finished file its name beside the folder, which nothing may have yet.
  void PutInPlace(const char* made, const std::string& path) const {
    if (::linkat(m_folder.Get(), made, m_place.Get(), NameOf(path).c_str(), 0) != 0) {
      throw ClientError(path + ": " +
                        (errno == EEXIST ? "it is there already" : std::strerror(errno)));
    }
  }
  void TakeBack(const std::string& path) const {
    ::unlinkat(m_place.Get(), NameOf(path).c_str(), 0);
  }

 private:
  [[nodiscard]] static std::string NameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
  }
  [[noreturn]] void Fail(const char* name) const {
    FailErrno(m_parent + '/' + m_name + '/' + name);
  }
  [[nodiscard]] Descriptor Open(const char* name, int flags) const {
    Descriptor file(
        ::openat(m_folder.Get(), name, flags | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.IsOpen()) {
      Fail(name);
    }
    return file;
  }

  std::string m_parent;
  Descriptor m_place;
  std::string m_name;
  Descriptor m_folder;
};

/// Runs a program in the folder, with its output there. False if none that may be run is in PATH.
bool RunTool(const WorkFolder& folder, Words words) {
  std::vector<char*> pointers;
  std::transform(words.begin(), words.end(), std::back_inserter(pointers),
                 [](std::string& word) { return word.data(); });
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int kFresh = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addfchdir_np(&actions, folder.Get());
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "out", kFresh, S_IRUSR | S_IWUSR);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "err", kFresh, S_IRUSR | S_IWUSR);
  pid_t child = -1;
  const int error =
      ::posix_spawnp(&child, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error == ENOENT || error == EACCES) {
    return false;
  }
  int status = -1;
  while (error == 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (error != 0 || status != 0) {
    throw ClientError("cannot make the certificate by " + words[0] + ": " +
                      (error != 0 ? std::strerror(error) : folder.Read("err")));
  }
  return true;
}

bool IsAddressText(const std::string& host) {
  in6_addr bytes{};
  return ::inet_pton(AF_INET, host.c_str(), &bytes) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), &bytes) == 1;
}

/// Nothing that would end a line or a word of the programs' settings.
bool IsHostText(const std::string& host) {
  constexpr std::size_t kMaxHost = 253;
  return !host.empty() && host.size() <= kMaxHost && host.front() != '-' &&
         std::all_of(host.begin(), host.end(), [](char letter) {
           return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' ||
                  letter == '.' || letter == '_';
         });
}

/// The names and addresses, each once, this host's name first if it is one.
Words AllHosts(const Words& given) {
  std::array<char, HOST_NAME_MAX + 1> own{};
  static_cast<void>(::gethostname(own.data(), HOST_NAME_MAX));
  Words all;
  if (IsHostText(own.data())) {
    all.emplace_back(own.data());
  }
  for (const std::string& host : given) {
    if (!IsHostText(host) && !IsAddressText(host)) {
      throw UsageError("\"" + host + "\" is neither the name of a host nor an address");
    }
  }
  const Words usual{"localhost", "127.0.0.1", "::1"};
  for (const Words* hosts : {&given, &usual}) {
    std::copy_if(hosts->begin(), hosts->end(), std::back_inserter(all), [&](const auto& host) {
      return std::find(all.begin(), all.end(), host) == all.end();
    });
  }
  return all;
}

/// A certificate's subject may have so many letters.
std::string SubjectOf(const Words& hosts) {
  constexpr std::size_t kMaxSubject = 64;
  return hosts.front().size() <= kMaxSubject ? hosts.front() : "localhost";
}

bool MakeByOpenssl(const WorkFolder& folder, const Words& hosts, const std::string& days) {
  // The system's own settings would make an authority of it, which some browsers refuse.
  std::ostringstream settings;
  settings << "[req]\nprompt = no\ndistinguished_name = subject\nx509_extensions = uses\n"
           << "[subject]\nCN = " << SubjectOf(hosts)
           << "\n[uses]\nbasicConstraints = critical,CA:FALSE\n"
           << "keyUsage = critical,digitalSignature\nextendedKeyUsage = serverAuth\n"
           << "subjectAltName = ";
  for (const std::string& host : hosts) {
    settings << (&host == &hosts.front() ? "" : ",") << (IsAddressText(host) ? "IP:" : "DNS:")
             << host;
  }
  settings << '\n';
  folder.Write("settings", settings.str());
  return RunTool(folder, {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                          "ec_paramgen_curve:P-256", "-sha256", "-nodes", "-days", days, "-config",
                          "settings", "-keyout", "key", "-out", "crt"}) &&
         RunTool(folder, {"openssl", "x509", "-in", "crt", "-noout", "-sha256", "-fingerprint"});
}

bool MakeByCerttool(const WorkFolder& folder, const Words& hosts, const std::string& days) {
  std::ostringstream settings;
  settings << "cn = \"" << SubjectOf(hosts) << "\"\nexpiration_days = " << days
           << "\ntls_www_server\nsigning_key\n";
  for (const std::string& host : hosts) {
    settings << (IsAddressText(host) ? "ip_address" : "dns_name") << " = \"" << host << "\"\n";
  }
  folder.Write("settings", settings.str());
  return RunTool(folder, {"certtool", "--generate-privkey", "--key-type", "ecdsa", "--curve",
                          "secp256r1", "--no-text", "--outfile", "key"}) &&
         RunTool(folder, {"certtool", "--generate-self-signed", "--load-privkey", "key",
                          "--template", "settings", "--no-text", "--outfile", "crt"}) &&
         RunTool(folder, {"certtool", "--fingerprint", "--hash", "sha256", "--infile", "crt"});
}

/// The 32 bytes in pairs of digits, from the words of either program.
std::string FingerprintOf(const std::string& told) {
  constexpr std::size_t kDigits = 64;
  std::string digits;
  for (const char letter : told.substr(told.find('=') + 1)) {
    if (std::isxdigit(static_cast<unsigned char>(letter)) != 0) {
      digits += digits.size() % 3 == 2 ? ":" : "";
      digits += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    }
  }
  if (digits.size() != kDigits + kDigits / 2 - 1) {
    throw ClientError("the certificate's fingerprint can't be told");
  }
  return digits;
}

}  // namespace

int RunCertificateNew(const CertificateOptions& options) {
  const Words hosts = AllHosts(options.hosts);
  const std::string certificate = options.out + ".crt";
  const std::string key = options.out + ".key";
  for (const std::string& path : {certificate, key}) {
    if (::access(path.c_str(), F_OK) == 0) {
      throw ClientError(path + ": it is there already");
    }
  }
  ::umask(S_IRWXG | S_IRWXO);
  const WorkFolder folder(options.out);
  const std::string days = std::to_string(options.days);
  if (!MakeByOpenssl(folder, hosts, days) && !MakeByCerttool(folder, hosts, days)) {
    throw ClientError(
        "neither openssl nor certtool is installed: the package openssl or gnutls-bin has one");
  }
  const std::string fingerprint = FingerprintOf(folder.Read("out"));
  folder.LetAllRead("crt");
  folder.PutInPlace("crt", certificate);
  try {
    folder.PutInPlace("key", key);
  } catch (const ClientError&) {
    folder.TakeBack(certificate);
    throw;
  }
  static_cast<void>(SyncFolderOf(key));
  WriteOutput("SHA-256 " + fingerprint + '\n');
  return kExitDone;
}
