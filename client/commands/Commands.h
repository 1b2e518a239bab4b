#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/looks/RecordReader.h"
#include "client/show/Terminal.h"

/// What holds for every command.
struct CommonOptions {
  std::string socket;
  ColorMode color = ColorMode::kAuto;
};

struct WatchOptions {
  RecordOptions what;
  double everySeconds = 1;
  std::uint64_t count = 0;  ///< samples to show, 0 for no end
  /// Show what the schedule makes as it makes it, instead of collecting.
  bool isScheduled = false;
};

/// $QMT_PRODUCT_ROOT and the daemon's socket below it.
[[nodiscard]] std::string DefaultSocket();

// One function for each command. Each prints its data and returns the exit value; failures come out
// as the exceptions of client/ask/Errors.h.

[[nodiscard]] int RunRecords(const CommonOptions& common, bool json);
/// Shows what happens within `overSeconds`, for which it takes two looks where one is not enough.
/// A signal of `stop`, where there is one, ends it with Interrupted.
[[nodiscard]] int RunGet(const CommonOptions& common, const RecordOptions& options,
                         double overSeconds, const StopSignals* stop = nullptr);
[[nodiscard]] int RunLast(const CommonOptions& common, const RecordOptions& options);
[[nodiscard]] int RunWatch(const CommonOptions& common, const WatchOptions& options);
[[nodiscard]] int RunSchema(const CommonOptions& common, const std::string& record, bool json);
[[nodiscard]] int RunStatus(const CommonOptions& common, bool json);
[[nodiscard]] int RunConfig(const CommonOptions& common, bool json);
/// `item` is the identifier as typed.
[[nodiscard]] int RunConfigSet(const CommonOptions& common, const std::string& item,
                               const std::string& value);
