#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "json/Json.h"

/// Equal stretches of time, counted from 0; the last one may reach beyond the range.
struct Buckets {
  /// Cuts since..until, both included and whole seconds of at most 53 bits, into at most `count`.
  Buckets(std::int64_t since, std::int64_t until, std::int64_t count);

  [[nodiscard]] std::uint32_t At(std::int64_t time) const {
    return static_cast<std::uint32_t>((time - since) / seconds);
  }
  [[nodiscard]] std::int64_t Begin(std::uint32_t bucket) const { return since + bucket * seconds; }

  std::int64_t since;
  std::int64_t until;
  std::int64_t seconds;  ///< of one of them
};

/// Least, mean and greatest value of some columns in each bucket, in a series for each key of rows.
/// Rows come in the order of their time. Of more keys than kMaxSeries those with the most rows are
/// kept, which takes a second look at the same rows.
class BucketSeries {
 public:
  static constexpr std::size_t kMaxSeries = 64;
  /// Different keys that can be counted.
  static constexpr std::size_t kMaxKeys = 100000;
  /// Buckets with a value that all objects together may hold.
  static constexpr std::size_t kMaxCells = std::size_t{1} << 22U;

  /// Bytes that the keys of all objects together may take, by a rough count.
  static constexpr std::size_t kMaxKeyBytes = std::size_t{64} << 20U;

  BucketSeries(Buckets buckets, std::size_t columns) : m_buckets(buckets), m_columns(columns) {}
  ~BucketSeries() {
    s_cells -= m_cells;
    s_keyBytes -= m_keyBytes;
  }
  BucketSeries(const BucketSeries&) = delete;
  BucketSeries& operator=(const BucketSeries&) = delete;

  /// Takes a row with one value for each column; `describe` says what the key means, where it is a
  /// new one. False, and nothing is taken, for more keys than kMaxKeys. Throws std::bad_alloc
  /// beyond kMaxCells and kMaxKeyBytes.
  bool Add(const std::string& key, std::int64_t time, std::span<const std::optional<double>> values,
           const std::function<Json()>& describe);
  /// After all rows: whether they have to be given once more, from the first on. If not, the series
  /// stand in their order now.
  [[nodiscard]] bool WantsSecondLook();

  /// Series that are kept; those with the most rows come first.
  [[nodiscard]] std::size_t Size() const { return m_series.size(); }
  [[nodiscard]] const Json& Key(std::size_t series) const { return m_series[series].key; }
  /// Keys that were left out.
  [[nodiscard]] std::size_t Omitted() const { return m_omitted; }
  [[nodiscard]] const Buckets& Cut() const { return m_buckets; }
  /// Appends [TIME,LEAST,MEAN,GREATEST] for each bucket that has a value, with commas in between,
  /// the values with 6 significant digits.
  void AppendPoints(std::size_t series, std::size_t column, std::string& text) const;

 private:
  struct Cell {
    std::uint32_t bucket;
    std::uint32_t count;
    double least;
    double sum;
    double greatest;
  };
  struct Series {
    Json key;
    std::string bytes;  ///< the key as it was given
    std::size_t rows = 0;
    std::vector<std::vector<Cell>> columns;  ///< their cells in the order of time
  };
  /// Of too many keys the first look only counts the rows.
  enum class Look { kTakesAll, kCounts, kTakesKept };

  std::size_t AddSeries(const std::string& key, Json description);
  void AddValue(std::vector<Cell>& cells, std::uint32_t bucket, double value);
  void ForgetCells();
  void KeepLargest();

  static inline std::size_t s_cells = 0;
  static inline std::size_t s_keyBytes = 0;

  Buckets m_buckets;
  std::size_t m_columns;
  std::vector<Series> m_series;
  std::unordered_map<std::string, std::size_t> m_places;  ///< of the keys among the series
  std::size_t m_cells = 0;
  std::size_t m_keyBytes = 0;
  std::size_t m_omitted = 0;
  Look m_look = Look::kTakesAll;
};
