#include "local/control/BucketSeries.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <new>
#include <numeric>
#include <utility>

namespace {

void AppendShort(std::string& text, double value) {
  constexpr int kDigits = 6;
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                 std::chars_format::general, kDigits)
                       .ptr;
  text.append(digits.data(), end);
}

/// About so many bytes a key takes with its series, its description and its place.
std::size_t KeyWeight(const std::string& key, const Json& description) {
  constexpr std::size_t kPlain = 256;
  std::size_t bytes = kPlain + 2 * key.size();
  if (description.IsObject()) {
    for (const auto& [label, value] : description.Members()) {
      bytes += sizeof label + sizeof value + label.size();
      bytes += value.IsString() ? value.Text().size() : 0;
    }
  }
  return bytes;
}

}  // namespace

Buckets::Buckets(std::int64_t begin, std::int64_t end, std::int64_t count)
    : since(begin), until(end), seconds((end - begin) / count + 1) {}

bool BucketSeries::Add(const std::string& key, std::int64_t time,
                       std::span<const std::optional<double>> values,
                       const std::function<Json()>& describe) {
  auto place = m_places.find(key);
  if (place == m_places.end()) {
    if (m_look == Look::kTakesKept) {
      return true;
    }
    if (m_series.size() == kMaxKeys) {
      return false;
    }
    if (m_series.size() == kMaxSeries) {
      m_look = Look::kCounts;
      ForgetCells();
    }
    place = m_places.emplace(key, AddSeries(key, describe())).first;
  }
  Series& series = m_series[place->second];
  ++series.rows;
  if (m_look == Look::kCounts) {
    return true;
  }
  series.columns.resize(m_columns);
  const std::uint32_t bucket = m_buckets.At(time);
  for (std::size_t column = 0; column < m_columns; ++column) {
    if (values[column]) {
      AddValue(series.columns[column], bucket, *values[column]);
    }
  }
  return true;
}

std::size_t BucketSeries::AddSeries(const std::string& key, Json description) {
  const std::size_t bytes = KeyWeight(key, description);
  if (bytes > kMaxKeyBytes - s_keyBytes) {
    throw std::bad_alloc();
  }
  m_series.push_back({std::move(description), key, 0, {}});
  s_keyBytes += bytes;
  m_keyBytes += bytes;
  return m_series.size() - 1;
}

void BucketSeries::AddValue(std::vector<Cell>& cells, std::uint32_t bucket, double value) {
  if (cells.empty() || cells.back().bucket != bucket) {
    if (s_cells == kMaxCells) {
      throw std::bad_alloc();
    }
    cells.push_back({bucket, 1, value, value, value});
    ++s_cells;
    ++m_cells;
    return;
  }
  Cell& cell = cells.back();
  ++cell.count;
  cell.least = std::min(cell.least, value);
  cell.sum += value;
  cell.greatest = std::max(cell.greatest, value);
}

void BucketSeries::ForgetCells() {
  for (Series& series : m_series) {
    series.columns = {};
  }
  s_cells -= std::exchange(m_cells, 0);
}

bool BucketSeries::WantsSecondLook() {
  if (m_look == Look::kCounts) {
    KeepLargest();
    m_look = Look::kTakesKept;
    return true;
  }
  std::ranges::stable_sort(m_series, std::ranges::greater(), &Series::rows);
  return false;
}

void BucketSeries::KeepLargest() {
  std::vector<std::size_t> order(m_series.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto end = order.begin() + static_cast<std::ptrdiff_t>(kMaxSeries);
  // Of as many rows the key that came first stays.
  const auto isBefore = [this](std::size_t a, std::size_t b) {
    return m_series[a].rows != m_series[b].rows ? m_series[a].rows > m_series[b].rows : a < b;
  };
  std::ranges::nth_element(order, end, isBefore);
  std::sort(order.begin(), end, isBefore);
  m_omitted = m_series.size() - kMaxSeries;
  std::vector<Series> kept;
  kept.reserve(kMaxSeries);
  m_places.clear();
  for (auto place = order.begin(); place != end; ++place) {
    kept.push_back(std::move(m_series[*place]));
    kept.back().rows = 0;
    m_places.emplace(kept.back().bytes, kept.size() - 1);
  }
  m_series = std::move(kept);
  s_keyBytes -= std::exchange(m_keyBytes, 0);
  for (const Series& series : m_series) {
    m_keyBytes += KeyWeight(series.bytes, series.key);
  }
  s_keyBytes += m_keyBytes;
}

void BucketSeries::AppendPoints(std::size_t series, std::size_t column, std::string& text) const {
  const auto& columns = m_series[series].columns;
  if (columns.empty()) {
    return;
  }
  for (const Cell& cell : columns[column]) {
    text += &cell == columns[column].data() ? "[" : ",[";
    text += std::to_string(m_buckets.Begin(cell.bucket));
    // A sum that a double can't hold, or rounds, gives no mean beyond what there was.
    const double mean = std::clamp(cell.sum / cell.count, cell.least, cell.greatest);
    for (const double value : {cell.least, mean, cell.greatest}) {
      text += ',';
      AppendShort(text, value);
    }
    text += ']';
  }
}
