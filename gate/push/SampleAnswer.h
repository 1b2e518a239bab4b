#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "json/Json.h"

/// The daemon's answer to the operation `samples`, as it comes in pieces.
class SampleAnswer {
 public:
  static constexpr std::size_t kMostHead = std::size_t{256} << 10;
  static constexpr std::size_t kMostText = std::size_t{64} << 20;

  /// Takes the next bytes; false once it needs no more, as it is whole or wrong.
  bool Take(std::string_view bytes);
  [[nodiscard]] bool IsWhole() const { return m_hasHead && m_text.size() == m_size; }
  /// What is wrong with what has come, in words; empty if nothing is.
  [[nodiscard]] const std::string& Error() const { return m_error; }

  // Of a whole one:
  /// The samples' lines, once.
  [[nodiscard]] std::string TakeText() { return std::move(m_text); }
  /// By record the place of the last row given, [time, row], or [time, -row] of the one up to which
  /// there was none.
  [[nodiscard]] const Json& Next() const { return m_next; }
  [[nodiscard]] bool HasMore() const { return m_hasMore; }
  /// The first row's time in seconds since the epoch; 0 without a row.
  [[nodiscard]] std::int64_t Oldest() const { return m_oldest; }
  [[nodiscard]] std::uint64_t Rows() const { return m_rows; }
  /// How long it is until there can be new rows, a day at most; 0 if the daemon does not know.
  [[nodiscard]] std::chrono::seconds Wait() const { return m_wait; }

 private:
  void ReadHead(std::string_view line);

  std::string m_head;
  bool m_hasHead = false;
  std::string m_error;
  std::string m_text;
  std::size_t m_size = 0;
  Json m_next = Json::Object();
  bool m_hasMore = false;
  std::int64_t m_oldest = 0;
  std::uint64_t m_rows = 0;
  std::chrono::seconds m_wait{0};
};
