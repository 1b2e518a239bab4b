#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/Json.h"
#include "local/SendingKeys.h"
#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

/// A server that the gate pushes kept rows to: section "Push" or "Push.NAME".
struct PushSettings {
  std::string section;  ///< as the file has it
  std::string name;     ///< NAME, "push" for the section without one
  std::string url;
  std::optional<std::vector<std::string>> records;  ///< none: those of a scrape that names none
  std::size_t recordsLine = 0;  ///< where the file sets them; else where the section begins
  bool hasNodeNames = false;    ///< names of the node exporter instead of ours
  std::size_t namesLine = 0;    ///< where the file says so
  SendingKeys keys;
  std::vector<std::pair<std::string, std::string>> labels;  ///< of every sample besides its own
  std::uint64_t bytesPerSecond = 0;                         ///< 0: no limit
  std::size_t batch = 10000;                                ///< samples of a request
  int days = 0;  ///< how far back a target begins that has had nothing yet
};

/// Targets of one file; more are a fault.
inline constexpr std::size_t kMostPushTargets = 16;

/// What the message of a target ends in that is left out.
inline constexpr const char* kNotPushed = "; nothing is pushed there";

/// Whether a section holds a target of pushes, be it a faulty one.
[[nodiscard]] bool IsPushSection(std::string_view section);
/// The targets in the order of the file; one with a fault is left out.
[[nodiscard]] std::vector<PushSettings> ReadPushSettings(const LocalIniFile& ini);
/// What is wrong in the sections of targets, the names of records apart.
[[nodiscard]] std::vector<IniProblem> PushProblems(const LocalIniFile& ini);
/// A target as the operation `gate` tells it, with these records; its paths as `path` makes them.
[[nodiscard]] Json PushJson(const PushSettings& push, const std::vector<std::string>& records,
                            std::string (*path)(const std::string&));
