#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "gate/push/TargetSettings.h"
#include "gate/send/SendRequest.h"
#include "json/Json.h"

/// Who the gate is to a server that it sends to, and whom it trusts.
using SendingSettings = SendIdentity;

/// Who is told of alarms.
struct AlarmReceivers {
  std::vector<std::string> alertmanagers;  ///< addresses, as the next
  std::vector<std::string> webhooks;
  std::string link;         ///< an address that receivers may show; empty for none
  SendingSettings sending;  ///< for all of them

  friend bool operator==(const AlarmReceivers&, const AlarmReceivers&) = default;
};

/// What the daemon tells the gate to work by, of the sections Http, Push and Alarms of its
/// settings.
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
  std::string host;                  ///< the host's own name
  std::string state;                 ///< the folder that the gate may write to; empty for none
  std::vector<TargetSettings> push;  ///< their labels tell the host (instance) and the names (job)
  AlarmReceivers alarms;

  friend bool operator==(const GateSettings&, const GateSettings&) = default;
};

/// The answer to the operation `gate`. False if it is none.
[[nodiscard]] bool ReadGateSettings(const Json& answer, GateSettings& settings);
