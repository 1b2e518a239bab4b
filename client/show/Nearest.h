#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <utility>

/// Finds among many names those that come nearest to a text which is none of them, in any (ASCII)
/// case.
class Nearest {
 public:
  explicit Nearest(std::string_view sought);

  /// Looks at a name, to be told as `shown`.
  void Add(std::string_view name, const std::string& shown);

  /// "; did you mean "a", "b"?", or nothing if none is near.
  [[nodiscard]] std::string Question() const;

 private:
  std::string m_sought;  ///< empty if nothing can be near to it
  std::set<std::pair<std::size_t, std::string>> m_near;
};
