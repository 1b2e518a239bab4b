#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

/// Remembers for a while who has proved right, without the secrets: each is kept under a hash by a
/// key that this process alone has.
class GoodLogins {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  GoodLogins();

  /// What stands for a login here; of any other name, secret or hash it is another. Nobody who
  /// lacks the key can aim at one, so it may be compared in the plain way.
  [[nodiscard]] std::string KeyOf(std::string_view kind, std::string_view name,
                                  std::string_view secret, std::string_view hash) const;
  /// The `end` that it was kept with; nothing if it has to prove right again.
  [[nodiscard]] std::optional<std::int64_t> EndOf(const std::string& key, TimePoint now) const;
  /// Keeps 1,024 of them; where there are more, all are forgotten and have to prove right again.
  void Add(const std::string& key, TimePoint until, std::int64_t end);

 private:
  std::string m_secret;
  struct Good {
    TimePoint until;
    std::int64_t end;
  };
  std::unordered_map<std::string, Good> m_good;
};
