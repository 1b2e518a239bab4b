#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A sample of a text of them, of which it names the place.
struct PlacedSample {
  std::uint32_t place = 0;  ///< of its series in the text: name and labels as they stand there
  std::uint32_t size = 0;
  double value = 0;
  std::int64_t time = 0;  ///< milliseconds since the epoch

  [[nodiscard]] std::string_view SeriesIn(std::string_view text) const {
    return text.substr(place, size);
  }
};

/// The lines of a text.
struct SampleLines {
  std::vector<PlacedSample> samples;  ///< in the order of the lines
  std::size_t broken = 0;             ///< lines that are none
};

/// Reads lines `name{label="value",...} VALUE TIME\n`, as the daemon's operation `samples` gives
/// them; the text is of less than 4 GB. Of a series it is only looked where it ends.
[[nodiscard]] SampleLines ReadSampleLines(std::string_view text);

/// A label of a series.
struct SeriesLabel {
  std::string_view name;
  std::string_view value;
  bool isEscaped = false;  ///< the value holds escapes

  /// Bytes of the value without escapes.
  [[nodiscard]] std::size_t ValueSize() const;
  /// Puts the value without escapes behind `text`.
  void AppendValue(std::string& text) const;
};

/// The labels of a series in the order of their names, `__name__` among them; those with an empty
/// value, which say nothing, are left out. False if the series is none or has a label twice.
/// `labels` is filled anew.
[[nodiscard]] bool ReadSeries(std::string_view series, std::vector<SeriesLabel>& labels);
