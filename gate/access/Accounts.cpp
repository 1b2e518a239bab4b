#include "gate/access/Accounts.h"

#include <crypt.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <utility>

#include "gate/access/AccessError.h"
#include "support/AccountText.h"
#include "support/TrimmedText.h"

namespace {

constexpr std::string_view kCryptLetters =
    "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
/// What yescrypt is told of each cost from 1; the next takes 128 MB of memory for a check.
constexpr std::array<std::string_view, 7> kYescryptCosts{"j75", "j85", "j7T", "j8T",
                                                         "j9T", "jAT", "jBT"};
constexpr std::string_view kYescryptStart = "$y$";
constexpr std::size_t kBcryptStart = 7;  ///< "$2b$10$"
constexpr unsigned long kMaxBcryptCost = 14;
/// Of a file without lines.
constexpr std::string_view kUsualUserHash = "$2b$10$";

/// How a hash begins before its salt, and the same for crypt_gensalt.
struct HashSetting {
  std::string start;
  std::string method;
  unsigned long cost = 0;
};

bool IsCryptText(std::string_view text, std::size_t least, std::size_t most) {
  return text.size() >= least && text.size() <= most &&
         text.find_first_not_of(kCryptLetters) == text.npos;
}

/// Salt and hash with a dollar between them.
bool IsSaltAndHash(std::string_view text, std::size_t maxSalt) {
  constexpr std::size_t kHashLetters = 43;
  const std::size_t dollar = text.find('$');
  return dollar != text.npos && IsCryptText(text.substr(0, dollar), 1, maxSalt) &&
         IsCryptText(text.substr(dollar + 1), kHashLetters, kHashLetters);
}

/// Empty if the hash begins with none of the kinds of bcrypt, its cost and salt included.
HashSetting BcryptSetting(std::string_view hash) {
  constexpr std::size_t kSaltAndHash = 53;
  const bool isBcrypt = hash.size() == kBcryptStart + kSaltAndHash && hash[3] == '$' &&
                        hash[6] == '$' && hash[4] >= '0' && hash[4] <= '9' && hash[5] >= '0' &&
                        hash[5] <= '9' && std::string_view("aby").find(hash[2]) != hash.npos &&
                        IsCryptText(hash.substr(kBcryptStart), kSaltAndHash, kSaltAndHash);
  if (!isBcrypt) {
    return {};
  }
  const auto cost = static_cast<unsigned long>((hash[4] - '0') * 10 + hash[5] - '0');
  return {std::string(hash.substr(0, kBcryptStart)), std::string(hash.substr(0, 4)), cost};
}

HashSetting YescryptSetting(std::string_view hash) {
  constexpr std::size_t kMaxSalt = 86;
  const std::size_t dollar = hash.find('$', kYescryptStart.size());
  if (dollar == hash.npos || !IsSaltAndHash(hash.substr(dollar + 1), kMaxSalt)) {
    return {};
  }
  const std::string_view told = hash.substr(kYescryptStart.size(), dollar - kYescryptStart.size());
  const auto* found = std::find(kYescryptCosts.begin(), kYescryptCosts.end(), told);
  return {std::string(hash.substr(0, dollar + 1)), std::string(kYescryptStart),
          found == kYescryptCosts.end()
              ? 0
              : static_cast<unsigned long>(found - kYescryptCosts.begin()) + 1};
}

HashSetting SettingOfUser(std::string_view hash) {
  const bool isBcrypt = hash.starts_with("$2");
  if (!isBcrypt && !hash.starts_with(kYescryptStart)) {
    throw AccessError("the hash is neither bcrypt ($2y$) nor yescrypt ($y$)");
  }
  HashSetting setting = isBcrypt ? BcryptSetting(hash) : YescryptSetting(hash);
  const bool isMade = !setting.start.empty() && (!isBcrypt || setting.cost >= 4) &&
                      ::crypt_checksalt(std::string(hash).c_str()) != CRYPT_SALT_INVALID;
  if (!isMade) {
    throw AccessError("the hash is broken");
  }
  if (setting.cost == 0 || setting.cost > kMaxBcryptCost) {
    throw AccessError("a check of this hash would take too long: bcrypt may have a cost up to " +
                      std::to_string(kMaxBcryptCost) + ", yescrypt up to " +
                      std::to_string(kYescryptCosts.size()));
  }
  return setting;
}

HashSetting SettingOfToken(std::string_view hash) {
  constexpr std::size_t kMaxSalt = 16;
  if (!hash.starts_with(kTokenHashStart) ||
      !IsSaltAndHash(hash.substr(kTokenHashStart.size()), kMaxSalt)) {
    throw AccessError("the hash is none that \"qmtctl token new\" makes");
  }
  return {std::string(kTokenHashStart), "$5$", 1000};
}

HashSetting SettingOf(AccountKind kind, std::string_view hash) {
  return kind == AccountKind::kUsers ? SettingOfUser(hash) : SettingOfToken(hash);
}

Role RoleOf(AccountKind kind, const std::string_view* role) {
  if (role == nullptr && kind == AccountKind::kUsers) {
    return Role::kRead;
  }
  if (role == nullptr || (*role != "read" && *role != "metrics")) {
    throw AccessError("the role is neither read nor metrics");
  }
  return *role == "read" ? Role::kRead : Role::kMetrics;
}

/// A setting with a salt of its own.
std::string MakeDecoy(const HashSetting& setting) {
  std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> made{};
  const char* salt = ::crypt_gensalt_rn(setting.method.c_str(), setting.cost, nullptr, 0,
                                        made.data(), static_cast<int>(made.size()));
  if (salt == nullptr) {
    throw AccessError("crypt(3) makes no salt of the kind " + setting.start);
  }
  return salt;
}

/// The settings of a file, each with the number of its lines.
using SettingCounts = std::map<std::string, std::pair<std::size_t, HashSetting>>;

std::string DecoyOf(AccountKind kind, const SettingCounts& counts) {
  const auto most = std::max_element(
      counts.begin(), counts.end(),
      [](const auto& a, const auto& b) { return a.second.first < b.second.first; });
  if (most != counts.end()) {
    return MakeDecoy(most->second.second);
  }
  return MakeDecoy(kind == AccountKind::kUsers
                       ? HashSetting{std::string(kUsualUserHash), "$2b$", 10}
                       : HashSetting{std::string(kTokenHashStart), "$5$", 1000});
}

void AddLine(AccountKind kind, std::string_view line, AccountTable& table, SettingCounts& counts) {
  const std::size_t first = line.find(':');
  const std::string_view name = line.substr(0, first);
  if (first == line.npos || !IsAccountName(name)) {
    throw AccessError("the line is not of the form name:hash:role");
  }
  std::string_view hash = line.substr(first + 1);
  std::string_view role;
  const std::size_t second = hash.find(':');
  if (second != hash.npos) {
    role = hash.substr(second + 1);
    hash = hash.substr(0, second);
  }
  HashSetting setting = SettingOf(kind, hash);
  Account account{std::string(hash), RoleOf(kind, second == hash.npos ? nullptr : &role)};
  if (!table.accounts.emplace(name, std::move(account)).second) {
    throw AccessError("the name " + std::string(name) + " stands in the file already");
  }
  auto& counted = counts[setting.start];
  ++counted.first;
  counted.second = std::move(setting);
}

}  // namespace

const char* RoleName(Role role) {
  switch (role) {
    case Role::kMetrics:
      return "metrics";
    case Role::kRead:
      return "read";
    case Role::kNone:
      break;
  }
  return "none";
}

AccountTable ParseAccounts(AccountKind kind, std::string_view text, const std::string& path) {
  AccountTable table;
  SettingCounts counts;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = Trimmed(text.substr(0, end), kWhiteSpace);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty() || line.front() == '#') {
      continue;
    }
    try {
      AddLine(kind, line, table, counts);
    } catch (const AccessError& error) {
      throw AccessError(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  table.decoy = DecoyOf(kind, counts);
  return table;
}
