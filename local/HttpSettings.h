#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

inline constexpr const char* kHttpSection = "Http";

/// Who starts the program that serves by HTTP.
enum class GateMode {
  kChild,  ///< the daemon, as its child
  kUnit,   ///< the service manager, or whoever wants it
  kNone,   ///< nobody: there is none
};

/// The settings of section "Http", and of those keys of section "Node" that come before it had one.
struct HttpSettings {
  std::vector<std::string> listen{"127.0.0.1:9964"};  ///< none: no HTTP
  std::optional<std::vector<std::string>> records;    ///< see docs/metrics.md for the default
  std::size_t recordsLine = 0;                        ///< where the file sets them
  std::vector<std::string> names;  ///< names, besides the host's own, that requests may be for
  std::string certificate;         ///< paths, empty for none, of this and the next three
  std::string key;
  std::string users;
  std::string tokens;
  bool arguments = true;  ///< whether arguments of processes are shown
  GateMode gate = GateMode::kChild;
};

/// A value that is missing leaves the default, one that is wrong too, but that `arguments` are not
/// shown then and `gate` is kNone. The default of `listen` is the environment variable
/// QMT_HTTP_LISTEN where it is set; that of `gate` is kUnit for a daemon that the service manager
/// has started.
[[nodiscard]] HttpSettings ReadHttpSettings(const LocalIniFile& ini, bool isService);
/// "child", "unit" or "none".
[[nodiscard]] const char* GateModeName(GateMode mode);
/// What is wrong in section "Http" and with its keys in section "Node".
[[nodiscard]] std::vector<IniProblem> HttpProblems(const LocalIniFile& ini);
/// Whether section "Node" may hold the key for what section "Http" sets: HttpProblems looks at it.
[[nodiscard]] bool IsHttpKeyOfNode(std::string_view key);
