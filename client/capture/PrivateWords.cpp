#include "client/capture/PrivateWords.h"

#include <arpa/inet.h>
#include <grp.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <memory>

#include "client/capture/BinaryMask.h"

namespace {

/// From here on users and groups are those of people; below, they are a distribution's.
constexpr double kFirstPerson = 1000;
constexpr double kNobody = 65534;
constexpr std::size_t kShortestSerial = 6;

bool IsPerson(double number) { return number >= kFirstPerson && number != kNobody; }

std::vector<std::string> SplitAt(std::string_view text, char mark) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(mark), text.size());
    parts.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

std::string NameOfFile(std::string_view path) {
  return std::string(path.substr(path.rfind('/') + 1));
}

/// Empty for one of another kind and for one that stands for no one host.
std::string BytesOfAddress(const ::sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const auto& four = reinterpret_cast<const ::sockaddr_in&>(address).sin_addr;
    const bool isLoopback = (ntohl(four.s_addr) >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
    return isLoopback ? "" : std::string(reinterpret_cast<const char*>(&four), sizeof(four));
  }
  if (address.sa_family == AF_INET6) {
    const auto& six = reinterpret_cast<const ::sockaddr_in6&>(address).sin6_addr;
    const bool isLoopback = IN6_IS_ADDR_LOOPBACK(&six);
    return isLoopback ? "" : std::string(reinterpret_cast<const char*>(&six), sizeof(six));
  }
  constexpr std::size_t kHardware = 6;
  const auto& link = reinterpret_cast<const ::sockaddr_ll&>(address);
  const std::string bytes(reinterpret_cast<const char*>(link.sll_addr), kHardware);
  const bool isAny = address.sa_family == AF_PACKET && link.sll_halen == kHardware &&
                     bytes.find_first_not_of('\0') != bytes.npos;
  return isAny ? bytes : "";
}

std::string TextOfAddress(int family, const std::string& bytes) {
  if (family == AF_PACKET) {
    return TextOfPairs(bytes);
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  return ::inet_ntop(family, bytes.data(), text.data(), text.size());
}

}  // namespace

bool HoldsSerial(std::string_view path) {
  static const std::set<std::string> names{"serial",
                                           "serial_number",
                                           "product_serial",
                                           "board_serial",
                                           "chassis_serial",
                                           "product_uuid",
                                           "wwid",
                                           "wwn",
                                           "nguid",
                                           "eui",
                                           "uuid",
                                           "unique_id",
                                           "subsysnqn",
                                           "machine-id",
                                           "boot_id",
                                           "board_asset_tag",
                                           "chassis_asset_tag"};
  return names.contains(NameOfFile(path));
}

bool IsKernelPath(std::string_view path) {
  return path.starts_with("proc/") ||
         (path.starts_with("sys/") && !path.starts_with("sys/fs/cgroup/"));
}

void WordCollector::TakeName(const std::string& name, std::string_view number) {
  unsigned long id = 0;
  const auto [end, status] = std::from_chars(number.data(), number.data() + number.size(), id);
  const bool isNumber = status == std::errc{} && end == number.data() + number.size();
  if (isNumber && IsPerson(static_cast<double>(id)) && !name.empty()) {
    m_words.names.insert(name);
  }
}

void WordCollector::TakeAccounts(std::string_view text) {
  for (const std::string& line : SplitAt(text, '\n')) {
    constexpr std::size_t kId = 2;
    const std::vector<std::string> fields = SplitAt(line, ':');
    if (fields.size() > kId) {
      TakeName(fields[0], fields[kId]);
    }
  }
}

void WordCollector::TakeServers(std::string_view text) {
  for (const std::string& line : SplitAt(text, '\n')) {
    const std::vector<std::string> fields = SplitAt(line, ' ');
    for (const std::string& field : fields) {
      // SERVER:/PATH of NFS, //SERVER/SHARE of SMB.
      const std::size_t colon = field.find(":/");
      if (colon != field.npos && colon > 0 && field.find('/') == colon + 1) {
        TakeHost(field.substr(0, colon));
      } else if (field.starts_with("//") && field.find('/', 2) != field.npos) {
        TakeHost(field.substr(2, field.find('/', 2) - 2));
      }
    }
  }
}

void WordCollector::TakeHost(const std::string& name) {
  const std::string first = name.substr(0, name.find('.'));
  const bool isAddress = name.find_first_not_of("0123456789.:[]") == name.npos;
  if (name.empty() || isAddress || first == "localhost" || first == "(none)") {
    return;
  }
  m_words.names.insert(name);
  m_words.names.insert(first);
}

void WordCollector::TakeFile(std::string_view path, std::string_view text) {
  if (path == "etc/passwd" || path == "etc/group") {
    TakeAccounts(text);
  } else if (path == "etc/hostname" || path == "proc/sys/kernel/hostname") {
    TakeHost(std::string(text.substr(0, text.find('\n'))));
  } else if (path.starts_with("proc/") &&
             (NameOfFile(path) == "mountinfo" || NameOfFile(path) == "mounts")) {
    TakeServers(text);
  } else if (HoldsSerial(path)) {
    for (const std::string& line : SplitAt(text, '\n')) {
      const std::size_t begin = line.find_first_not_of(' ');
      const std::size_t end = line.find_last_not_of(' ');
      if (begin != line.npos && end - begin + 1 >= kShortestSerial) {
        m_words.serials.insert(line.substr(begin, end - begin + 1));
      }
    }
  }
}

void WordCollector::TakeCall(std::string_view question, std::string_view answer) {
  const std::vector<std::string> lines = SplitAt(answer, '\n');
  if (question.starts_with("getpw") && lines.size() > 1) {
    TakeName(lines[0], lines[1]);
  } else if (question.starts_with("getgrgid ")) {
    TakeName(std::string(answer), question.substr(question.find(' ') + 1));
  }
}

void WordCollector::TakeNameOfRow(const std::string& name, const Json* number) {
  const ::passwd* user = ::getpwnam(name.c_str());
  const ::group* group = ::getgrnam(name.c_str());
  const bool isNumber = name.find_first_not_of("0123456789") == name.npos;
  const bool isOther = (number != nullptr && number->IsNumber() && !IsPerson(number->Number())) ||
                       (user != nullptr && !IsPerson(user->pw_uid)) ||
                       (group != nullptr && !IsPerson(group->gr_gid));
  if (!isNumber && !isOther) {
    m_words.names.insert(name);
  }
}

void WordCollector::TakeRow(const Json& row) {
  if (!row.IsObject()) {
    return;
  }
  // With the label of its number, where the row has one.
  static const std::map<std::string, const char*, std::less<>> names{
      {"User", "User ID"},        {"Real User", "Real User ID"},
      {"Group", "Group ID"},      {"Real Group", "Real Group ID"},
      {"Creator Login Name", ""}, {"Creator Group Name", ""},
      {"Creator Name", ""},       {"Creator Group", ""},
      {"Owner Login Name", ""},   {"Owner Login name", ""},
      {"Owner Group Name", ""},   {"Owner Name", ""},
      {"Owner Group", ""}};
  for (const JsonMember& member : row.Members()) {
    const std::string text = member.value.IsString() ? member.value.Text() : "";
    if (const auto name = names.find(member.name); name != names.end()) {
      TakeNameOfRow(text, row.Find(name->second));
    } else if (member.name == "Host") {
      TakeHost(text);
    } else if (member.name == "Remote File System") {
      TakeServers(text);
    }
  }
}

void WordCollector::TakeSystem() {
  ::setpwent();
  while (const ::passwd* user = ::getpwent()) {
    TakeName(user->pw_name, std::to_string(user->pw_uid));
  }
  ::endpwent();
  ::setgrent();
  while (const ::group* group = ::getgrent()) {
    TakeName(group->gr_name, std::to_string(group->gr_gid));
  }
  ::endgrent();
}

OwnAddresses ReadOwnAddresses() {
  OwnAddresses own;
  ::ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) {
    return own;
  }
  const std::unique_ptr<::ifaddrs, void (*)(::ifaddrs*)> owner(first, ::freeifaddrs);
  for (const ::ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    const std::string bytes = entry->ifa_addr == nullptr ? "" : BytesOfAddress(*entry->ifa_addr);
    if (!bytes.empty()) {
      own.bytes.push_back(bytes);
      own.texts.push_back(TextOfAddress(entry->ifa_addr->sa_family, bytes));
    }
  }
  return own;
}
