#pragma once

#include <string>
#include <vector>

#include "json/Json.h"

/// What the daemon tells the gate to work by, of section Http of its settings.
struct GateSettings {
  std::string mode;  ///< "child", "unit" or "none"
  std::vector<std::string>
      listen;  ///< addresses, each with "http://" or "https://" before it or not
  std::vector<std::string> names;  ///< that requests may be for, besides addresses
  std::string certificate;         ///< paths, empty for none
  std::string key;
  std::string users;
  std::string tokens;
  bool showsArguments = true;

  friend bool operator==(const GateSettings&, const GateSettings&) = default;
};

/// The answer to the operation `gate`. False if it is none.
[[nodiscard]] bool ReadGateSettings(const Json& answer, GateSettings& settings);
