#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

/// What who asks may see; each role includes those before it.
enum class Role { kNone, kMetrics, kRead };

/// "none", "metrics" or "read".
[[nodiscard]] const char* RoleName(Role role);

/// A line of a file of users or of tokens.
struct Account {
  std::string hash;  ///< as crypt(3) writes it
  Role role = Role::kNone;
};

/// The lines of such a file.
struct AccountTable {
  std::unordered_map<std::string, Account> accounts;
  /// A setting for crypt(3) of the kind and cost that most of the lines have, which no password
  /// belongs to: who has no account is checked against it and takes as long as who has one.
  std::string decoy;
};

enum class AccountKind { kUsers, kTokens };

/// Reads lines `name:hash[:role]` of users (bcrypt of a cost up to 14, or yescrypt of a cost up to
/// 7; without a role `read`) or `name:hash:role` of tokens (kTokenHashStart). Blank lines and those
/// that begin with # say nothing. Throws AccessError "path:line: ..." for the first that is broken
/// or names an account again.
[[nodiscard]] AccountTable ParseAccounts(AccountKind kind, std::string_view text,
                                         const std::string& path);
