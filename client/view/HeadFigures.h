#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/view/Sparkline.h"
#include "client/view/Wish.h"

/// The host at a glance. What has no source, or is not known yet, is nothing.
struct HeadFigures {
  using Figure = std::optional<double>;

  Figure cpuPercent;  ///< of all processors
  Figure waitPercent;
  std::vector<Figure> processors;  ///< percent of each
  Figure memoryPercent;
  Figure memoryBytes;  ///< in all
  Figure swapPercent;
  Figure swapBytes;
  std::array<Figure, 3> load;
  Figure processes;
  Figure upSeconds;
  Figure cpuPressure;  ///< percent of the time in which some waited
  Figure memoryPressure;
  Figure ioPressure;
  Figure diskRead;  ///< bytes a second
  Figure diskWrite;
  Figure diskBoth;  ///< where the two are not told apart
  Figure netIn;     ///< bytes a second, of interfaces whose traffic no other counts
  Figure netOut;
  Figure packetsIn;  ///< a second, where bytes are not told
  Figure packetsOut;
};

/// What has to be asked for, of the records that the daemon serves.
[[nodiscard]] std::vector<WantedRows> HeadRecords(const std::vector<Listing>& listing);
[[nodiscard]] HeadFigures ReadHeadFigures(const Sight& sight);

/// The figures that are drawn over the last minutes.
struct HeadTrends {
  Trend cpu;
  Trend diskRead;
  Trend diskWrite;
  Trend netIn;
  Trend netOut;

  /// Takes the figures of the `seconds` before `time`.
  void Add(std::int64_t time, double seconds, const HeadFigures& figures);
  /// Begins anew with the kept rows of a sight.
  void Fill(const Sight& sight);
};
