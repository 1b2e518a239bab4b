#include "client/commands/Console.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/show/Terminal.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"
#include "support/ListenAddress.h"
#include "support/RegularFile.h"

namespace {

[[noreturn]] void FailConsole(const char* member) {
  throw ClientError(std::string("the daemon's answer has no proper ") + member);
}

const Json& MemberOf(const Json& answer, const char* part, const char* name) {
  const Json* found = answer.Find(part);
  found = found == nullptr ? nullptr : found->Find(name);
  if (found == nullptr) {
    FailConsole(name);
  }
  return *found;
}

/// A token stands in an address and in a page as it is.
bool IsTokenText(std::string_view text) {
  constexpr std::size_t kMaxTokenText = 256;
  return !text.empty() && text.size() <= kMaxTokenText &&
         std::all_of(text.begin(), text.end(), [](char letter) {
           return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                  (letter >= '0' && letter <= '9') || letter == '-' || letter == '_';
         });
}

bool IsPort(std::string_view text) {
  constexpr std::size_t kMaxDigits = 5;
  return !text.empty() && text.size() <= kMaxDigits &&
         text.find_first_not_of("0123456789") == text.npos;
}

/// The address as a browser on this host reaches it, empty if none here does. One that stands for
/// all addresses shows the console with TLS alone.
std::string LoopbackAddress(const std::string& address, bool isTls) {
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || !IsPort(std::string_view(address).substr(colon + 1))) {
    return {};
  }
  const std::string port = address.substr(colon);
  const std::string host = address.substr(0, colon);
  in_addr four{};
  if (::inet_pton(AF_INET, host.c_str(), &four) == 1) {
    const bool isAny = four.s_addr == INADDR_ANY;
    const bool isLoopback = (ntohl(four.s_addr) >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
    return isAny && isTls ? "127.0.0.1" + port : isLoopback ? address : "";
  }
  in6_addr six{};
  if (!host.starts_with('[') || !host.ends_with(']') ||
      ::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &six) != 1) {
    return {};
  }
  const bool isHere = IN6_IS_ADDR_LOOPBACK(&six) || (isTls && IN6_IS_ADDR_UNSPECIFIED(&six));
  return isHere ? "[::1]" + port : "";
}

std::string VariableText(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// A page that leads to the link, in the user's own folder of the session: a command line would
/// show the link to everybody on the host. Empty if there is no such folder.
std::string WritePage(const std::string& link) {
  const std::string folder = VariableText("XDG_RUNTIME_DIR");
  if (!folder.starts_with('/')) {
    return {};
  }
  const std::string path = folder + "/qmtctl-console.html";
  std::string error;
  ::unlink(path.c_str());
  if (!Descriptor(OpenRegularFile(path, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR)).IsOpen() ||
      !ReplaceFile(path,
                   "<!DOCTYPE html><meta name=\"referrer\" content=\"no-referrer\">"
                   "<meta http-equiv=\"refresh\" content=\"0;url=" +
                       link + "\">\n",
                   error)) {
    return {};
  }
  return path;
}

/// Does nothing where no such program is installed.
void OpenPage(std::string path) {
  std::string program = "xdg-open";
  std::array<char*, 3> words{program.data(), path.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&actions, standard, "/dev/null", O_RDWR, 0);
  }
  // The browser is to have the usual handling, not this program's.
  std::signal(SIGPIPE, SIG_DFL);
  pid_t child = -1;
  static_cast<void>(
      ::posix_spawnp(&child, program.c_str(), &actions, nullptr, words.data(), environ));
  posix_spawn_file_actions_destroy(&actions);
}

}  // namespace

std::string ConsoleLink(const Json& answer) {
  const Json& token = MemberOf(answer, "console", "token");
  const Json& addresses = MemberOf(answer, "console", "addresses");
  if (!token.IsString() || !IsTokenText(token.Text())) {
    FailConsole("token");
  }
  if (!addresses.IsArray()) {
    FailConsole("addresses");
  }
  for (const Json& address : addresses.Elements()) {
    const SchemedAddress listener = SplitScheme(address.IsString() ? address.Text() : "");
    const bool isTls = listener.scheme == SchemedAddress::Scheme::kTls;
    const std::string here = LoopbackAddress(listener.address, isTls);
    if (!here.empty()) {
      return (isTls ? "https://" : "http://") + here + "/#token=" + token.Text();
    }
  }
  throw ClientError(addresses.Elements().empty()
                        ? "no gate is running"
                        : "the gate listens at no address of the loopback");
}

int RunConsole(const CommonOptions& common, bool isPrinting) {
  Connection connection(common.socket);
  const std::string link = ConsoleLink(connection.Ask({{"op", "console_token"}}));
  WriteOutput(link + '\n');
  const bool hasDesktop =
      !VariableText("DISPLAY").empty() || !VariableText("WAYLAND_DISPLAY").empty();
  const std::string page = isPrinting || !hasDesktop ? "" : WritePage(link);
  if (!page.empty()) {
    OpenPage(page);
  }
  return kExitDone;
}
