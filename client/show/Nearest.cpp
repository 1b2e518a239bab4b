#include "client/show/Nearest.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "json/RowText.h"

namespace {

constexpr std::size_t kSuggestions = 3;
/// Nothing is near to a text that is longer than any name that people type.
constexpr std::size_t kLongestSought = 128;

/// Letters to put in, take out or change until `a` is `b`.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

Nearest::Nearest(std::string_view sought)
    : m_sought(sought.size() > kLongestSought ? "" : LowerCase(sought)) {}

void Nearest::Add(std::string_view name, const std::string& shown) {
  if (m_sought.empty()) {
    return;
  }
  const std::string other = LowerCase(name);
  const std::size_t bound = std::max<std::size_t>(2, m_sought.size() / 3);
  // Names of another length are further away than that, which saves the most of the work.
  if (other.size() <= m_sought.size() + bound && m_sought.size() <= other.size() + bound) {
    if (const std::size_t distance = Distance(m_sought, other); distance <= bound) {
      m_near.emplace(distance, shown);
      return;
    }
  }
  if (m_sought.size() > 1 && other.find(m_sought) != std::string::npos) {
    m_near.emplace(kLongestSought + other.size() - m_sought.size(), shown);
  }
}

std::string Nearest::Question() const {
  std::vector<std::string> told;
  for (const auto& [distance, shown] : m_near) {
    if (told.size() < kSuggestions && std::ranges::find(told, shown) == told.end()) {
      told.push_back(shown);
    }
  }
  std::string text;
  for (const std::string& shown : told) {
    text += (text.empty() ? "" : ", ") + ('"' + shown + '"');
  }
  return text.empty() ? "" : "; did you mean " + text + "?";
}
