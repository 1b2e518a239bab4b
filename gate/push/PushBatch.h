#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gate/push/SampleText.h"

/// The samples of one answer of the daemon on their way to a server: first all at once, and where
/// the server refuses that, in halves. Times are never mixed up: what is sent first is older.
class PushBatch {
 public:
  /// Takes the text of the lines.
  explicit PushBatch(std::string text);

  [[nodiscard]] std::string_view Text() const { return m_text; }
  /// What is to be sent next; empty when all is done.
  [[nodiscard]] std::span<const PlacedSample> Next() const;
  /// The next one is done with, sent or passed over.
  void Drop();
  /// Makes two of the next one by time, the older half first. False if all of it is of one time.
  [[nodiscard]] bool HalveByTime();
  /// The same of samples of one time. False if it is one sample.
  [[nodiscard]] bool Halve();
  /// Lines that were none.
  [[nodiscard]] std::size_t Broken() const { return m_broken; }
  /// How many samples it had at first, and lines that were none.
  [[nodiscard]] std::size_t Lines() const { return m_samples.size() + m_broken; }
  /// Whether nothing of it has been dropped or halved.
  [[nodiscard]] bool IsUntouched() const { return m_isUntouched; }

 private:
  struct Part {
    std::size_t begin;
    std::size_t end;
  };
  void PartAt(std::size_t middle);

  std::string m_text;
  std::vector<PlacedSample> m_samples;  ///< by time
  std::vector<Part> m_parts;            ///< the next one last
  std::size_t m_broken = 0;
  bool m_isUntouched = true;
};
