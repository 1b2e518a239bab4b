#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/Json.h"
#include "node/LayoutRegistry.h"

/// What an alarm says: a text with fields in it, as in "{File System} is full"; "{{" and "}}" stand
/// for the braces themselves.
class AlarmText {
 public:
  static constexpr std::size_t kMostBytes = 1024;  ///< of an expanded text; the rest is cut

  struct Part {
    std::string text;                  ///< as it is written; of a field its label
    std::optional<std::size_t> field;  ///< its place in the layout
    bool isTime = false;
  };

  AlarmText() = default;
  /// Throws std::invalid_argument for a label that the record doesn't have, one that holds
  /// arguments of programs, and a brace without its other.
  AlarmText(std::string_view text, const RecordLayout& layout);

  [[nodiscard]] const std::vector<Part>& Parts() const { return m_parts; }
  /// The text with the values as tables show them; `valueAt` gives that of the field at a place.
  [[nodiscard]] std::string Expand(const std::function<Json(std::size_t)>& valueAt) const;

 private:
  void AddLiteral(char letter);

  std::vector<Part> m_parts;
};
