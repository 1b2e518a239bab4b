#include "client/show/Labels.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <utility>
#include <vector>

#include "client/ask/Errors.h"
#include "support/TrimmedText.h"

namespace {

constexpr std::size_t kSuggestions = 3;
/// No label is near to a text that is longer than any label.
constexpr std::size_t kLongestLabel = 128;

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return out;
}

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

/// "; did you mean ...?", or where all labels are shown if nothing is near.
std::string Suggestion(const Schema& schema, std::string_view label) {
  const std::string all = "; \"qmtctl schema " + schema.record + "\" shows those it has";
  if (label.empty() || label.size() > kLongestLabel) {
    return all;
  }
  const std::string sought = Lower(label);
  std::set<std::pair<std::size_t, std::string>> near;
  for (const Field& field : schema.fields) {
    const std::string other = Lower(field.label.substr(0, kLongestLabel));
    const std::size_t distance = Distance(sought, other);
    if (distance <= std::max<std::size_t>(2, sought.size() / 3)) {
      near.emplace(distance, field.label);
    } else if (sought.size() > 1 && other.find(sought) != std::string::npos) {
      near.emplace(kLongestLabel + distance, field.label);
    }
  }
  std::string text;
  for (auto place = near.begin(); place != near.end(); ++place) {
    if (std::distance(near.begin(), place) == kSuggestions) {
      break;
    }
    text += (text.empty() ? "" : ", ") + ('"' + place->second + '"');
  }
  return text.empty() ? all : "; did you mean " + text + "?";
}

}  // namespace

const Field* FindField(const Schema& schema, std::string_view label) {
  const auto begin = schema.fields.begin();
  const auto end = schema.fields.end();
  const auto exact =
      std::find_if(begin, end, [&](const Field& field) { return field.label == label; });
  if (exact != end) {
    return &*exact;
  }
  const auto same = [sought = Lower(label)](const Field& field) {
    return Lower(field.label) == sought;
  };
  const auto found = std::find_if(begin, end, same);
  return found == end || std::find_if(found + 1, end, same) != end ? nullptr : &*found;
}

const Field& NeedField(const Schema& schema, std::string_view label) {
  const Field* field = FindField(schema, label);
  if (field == nullptr) {
    throw UsageError(RecordName{schema.record, schema.category}.Text() + " has no label \"" +
                     std::string(label) + "\"" + Suggestion(schema, label));
  }
  return *field;
}

bool IsTime(const Field& field) {
  return field.meaning == "time" ||
         (field.meaning == "key" && field.type == "long" && field.label.ends_with(" Time"));
}

std::string_view Trimmed(std::string_view text) { return Trimmed(text, " \t"); }
