#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "local/log/ProblemReport.h"

/// A word that opens the console to who shows it.
struct ConsoleToken {
  std::string text;         ///< 256 random bits as base64url
  std::time_t expires = 0;  ///< seconds since the epoch
};

/// The console tokens that are good, kept in a file that its owner alone may read, so that a daemon
/// that is started anew still knows them. The file is read at the first call. What it holds is used
/// only if it is a regular file of this user that nobody else may touch, and all of it is right;
/// else the list begins anew, and the report says so.
class ConsoleTokens {
 public:
  static constexpr std::time_t kLifeSeconds = 12 * 3600;
  /// With one more the oldest goes.
  static constexpr std::size_t kMost = 64;
  using Clock = std::function<std::time_t()>;

  /// The file's folder exists by the first call. `clock` gives the seconds since the epoch.
  ConsoleTokens(
      std::string path, ProblemReport report, Clock clock = [] { return std::time(nullptr); });

  /// A new token; an empty one if the system gives no random bits. A file that can't be written is
  /// reported, and the token is good for as long as this object.
  [[nodiscard]] ConsoleToken Make();
  /// When the token expires; 0 if it is none. Takes the same time for every text of its length.
  [[nodiscard]] std::time_t Check(std::string_view text);

 private:
  void Load();
  [[nodiscard]] bool Read(std::string& problem);
  void DropExpired();
  void Save();

  std::string m_path;
  ProblemReport m_report;
  Clock m_clock;
  bool m_isLoaded = false;
  std::vector<ConsoleToken> m_tokens;  ///< the oldest first
};
