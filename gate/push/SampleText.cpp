#include "gate/push/SampleText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace {

constexpr std::string_view kNameLabel = "__name__";

template <class Number>
bool ReadWhole(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

bool ReadValue(std::string_view text, double& value) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
  }
  if (!ReadWhole(text, value)) {
    return false;
  }
  if (std::isnan(value)) {
    // One of the other kinds says in the protocol that a series has ended.
    value = std::numeric_limits<double>::quiet_NaN();
  }
  return true;
}

/// `line` without its end, which stands at `place` in the text.
bool ReadSampleLine(std::string_view line, std::size_t place, PlacedSample& sample) {
  const std::size_t time = line.rfind(' ');
  if (time == std::string_view::npos || time == 0) {
    return false;
  }
  const std::size_t value = line.rfind(' ', time - 1);
  if (value == std::string_view::npos || value == 0) {
    return false;
  }
  sample.place = static_cast<std::uint32_t>(place);
  sample.size = static_cast<std::uint32_t>(value);
  return ReadValue(line.substr(value + 1, time - value - 1), sample.value) &&
         ReadWhole(line.substr(time + 1), sample.time);
}

bool IsNameLetter(char c, bool isFirst) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' ||
         (!isFirst && c >= '0' && c <= '9');
}

/// Takes a name from the begin of `text`; empty if there is none.
std::string_view TakeName(std::string_view& text) {
  std::size_t size = 0;
  while (size < text.size() && IsNameLetter(text[size], size == 0)) {
    ++size;
  }
  const std::string_view name = text.substr(0, size);
  text.remove_prefix(size);
  return name;
}

bool TakeLetter(std::string_view& text, char letter) {
  const bool isThere = text.starts_with(letter);
  text.remove_prefix(isThere ? 1 : 0);
  return isThere;
}

/// Takes what stands up to the quote that ends a value, and that.
bool TakeQuoted(std::string_view& text, SeriesLabel& label) {
  for (std::size_t end = 0; end < text.size(); ++end) {
    if (text[end] == '\\') {
      label.isEscaped = true;
      ++end;
    } else if (text[end] == '"') {
      label.value = text.substr(0, end);
      text.remove_prefix(end + 1);
      return true;
    }
  }
  return false;
}

bool TakeLabel(std::string_view& text, SeriesLabel& label) {
  label.name = TakeName(text);
  return !label.name.empty() && TakeLetter(text, '=') && TakeLetter(text, '"') &&
         TakeQuoted(text, label);
}

}  // namespace

SampleLines ReadSampleLines(std::string_view text) {
  SampleLines lines;
  lines.samples.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    PlacedSample sample;
    if (ReadSampleLine(text.substr(begin, end - begin), begin, sample)) {
      lines.samples.push_back(sample);
    } else {
      ++lines.broken;
    }
    begin = end + 1;
  }
  return lines;
}

std::size_t SeriesLabel::ValueSize() const {
  if (!isEscaped) {
    return value.size();
  }
  std::size_t size = 0;
  for (std::size_t i = 0; i < value.size(); ++i, ++size) {
    i += value[i] == '\\' ? 1 : 0;
  }
  return size;
}

void SeriesLabel::AppendValue(std::string& text) const {
  if (!isEscaped) {
    text += value;
    return;
  }
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool isMarked = value[i] == '\\' && i + 1 < value.size();
    i += isMarked ? 1 : 0;
    text += isMarked && value[i] == 'n' ? '\n' : value[i];
  }
}

bool ReadSeries(std::string_view series, std::vector<SeriesLabel>& labels) {
  labels.clear();
  const std::string_view name = TakeName(series);
  if (name.empty()) {
    return false;
  }
  labels.push_back({kNameLabel, name, false});
  if (TakeLetter(series, '{')) {
    bool isEnd = TakeLetter(series, '}');
    while (!isEnd) {
      SeriesLabel label;
      if (!TakeLabel(series, label)) {
        return false;
      }
      if (!label.value.empty()) {
        labels.push_back(label);
      }
      const bool isParted = TakeLetter(series, ',');
      isEnd = TakeLetter(series, '}');
      if (!isParted && !isEnd) {
        return false;
      }
    }
  }
  std::ranges::sort(labels, {}, &SeriesLabel::name);
  return series.empty() &&
         std::ranges::adjacent_find(labels, {}, &SeriesLabel::name) == labels.end();
}
