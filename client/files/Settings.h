#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What the client needs of the agent's settings, of at most 1 Mbyte; where they can't be read, the
/// defaults.
class Settings {
 public:
  explicit Settings(const std::string& path);

  /// What the history may hold; nothing if the settings can't be read.
  [[nodiscard]] std::optional<std::uint64_t> HistoryBytes() const;
  /// As it is named there, below the daemon's folder or absolute.
  [[nodiscard]] std::string WorkgroupFile() const;
  /// Empty for none.
  [[nodiscard]] std::string EventFile() const;

  /// As the workgroup file is named; empty for none.
  [[nodiscard]] std::string HistoryFile() const;
  /// Where the gate is to listen; nothing for no gate.
  [[nodiscard]] std::vector<std::string> Listen() const;
  /// Of the guards of user records, as it is written there; empty for none.
  [[nodiscard]] std::string GuardMode() const;

 private:
  /// The value under the key, which may be empty; null where there is none.
  [[nodiscard]] const std::string* Find(const std::string& key) const;
  /// `other` where the key is missing or empty.
  [[nodiscard]] std::string Value(const std::string& key, const std::string& other) const;

  bool m_isRead = false;
  std::map<std::string, std::string> m_values;  ///< by "SECTION/KEY" in small letters
};
