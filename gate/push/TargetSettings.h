#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "gate/send/SendRequest.h"

/// A server that kept rows are pushed to.
struct TargetSettings {
  std::string name;  ///< letters, digits, - and _
  std::string url;
  std::vector<std::string> records;
  bool hasNodeNames = false;  ///< names of the node exporter
  SendIdentity sending;
  std::vector<std::pair<std::string, std::string>> labels;  ///< of every sample besides its own
  std::uint64_t bytesPerSecond = 0;                         ///< 0: no limit
  std::size_t batch = 10000;                                ///< samples of a request
  int days = 0;  ///< how far back a target begins that has had nothing yet

  friend bool operator==(const TargetSettings&, const TargetSettings&) = default;
};
