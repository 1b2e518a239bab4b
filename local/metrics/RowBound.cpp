#include "local/metrics/RowBound.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>

#include "local/history/FieldValue.h"

namespace {

/// A record without an end of rows.
struct BoundRule {
  std::string_view record;
  std::string_view size;  ///< the label of what the largest are chosen by
  std::size_t most;
  std::string_view notSummed;  ///< the label of what a sum says nothing of
};
constexpr std::array kBoundRules{BoundRule{"CGRP", "Memory Bytes", 500, "Limit Bytes"}};
constexpr std::string_view kRoot = "/";
/// A path that is too long for the record begins so; what lies above it can't be told.
constexpr std::string_view kCutPath = "...";

const BoundRule* RuleOf(const RecordLayout& layout) {
  const auto found = std::ranges::find_if(
      kBoundRules, [&](const BoundRule& rule) { return rule.record == layout.name; });
  return found == kBoundRules.end() ? nullptr : &*found;
}

const FieldLayout* FindLabel(const RecordLayout& layout, std::string_view label) {
  const auto found = std::ranges::find_if(
      layout.fields, [&](const FieldLayout& field) { return field.label == label; });
  return found == layout.fields.end() ? nullptr : &*found;
}

const FieldLayout* FindKey(const RecordLayout& layout) {
  const auto found = std::ranges::find_if(
      layout.fields, [](const FieldLayout& field) { return field.meaning == FieldMeaning::key; });
  return found == layout.fields.end() ? nullptr : &*found;
}

/// Less than any size where it is not told.
double ToldSize(const FieldLayout& field, const CMBRecord& record) {
  return VisitField(field, RecordBytes(record), [](const auto& value) -> double {
    if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
      return static_cast<double>(value);
    } else {
      return -1;
    }
  });
}

std::string_view KeyOf(const FieldLayout& field, const CMBRecord& record) {
  return VisitField(field, RecordBytes(record), [](const auto& value) -> std::string_view {
    if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string_view>) {
      return value;
    } else {
      return {};
    }
  });
}

/// The root has all that there is, though its kernel may not tell its memory.
double SizeOf(const FieldLayout& size, const FieldLayout& key, const CMBRecord& record) {
  return KeyOf(key, record) == kRoot ? std::numeric_limits<double>::infinity()
                                     : ToldSize(size, record);
}

/// Whether one of those above it is among the keys, or may be.
bool LiesBelowOne(std::string_view key, const std::unordered_set<std::string_view>& keys) {
  if (key.starts_with(kCutPath)) {
    return true;
  }
  for (std::size_t slash = key.rfind('/'); slash != 0 && slash != std::string_view::npos;
       slash = key.rfind('/', slash - 1)) {
    if (keys.contains(key.substr(0, slash))) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool IsBounded(const RecordLayout& layout) { return RuleOf(layout) != nullptr; }

bool IsSummed(const RecordLayout& layout, const FieldLayout& field) {
  const BoundRule* const rule = RuleOf(layout);
  return rule != nullptr && field.meaning != FieldMeaning::percent &&
         rule->notSummed != field.label;
}

BoundedRows BoundRows(const RecordLayout& layout, std::span<const CMBRecord* const> rows) {
  const BoundRule* const rule = RuleOf(layout);
  const FieldLayout* const size = rule == nullptr ? nullptr : FindLabel(layout, rule->size);
  const FieldLayout* const key = FindKey(layout);
  if (size == nullptr || key == nullptr || rows.size() <= rule->most) {
    return {{rows.begin(), rows.end()}, {}, 0};
  }
  std::vector<std::pair<double, std::size_t>> order;
  order.reserve(rows.size());
  for (std::size_t place = 0; place < rows.size(); ++place) {
    order.emplace_back(-SizeOf(*size, *key, *rows[place]), place);
  }
  std::ranges::sort(order);
  std::vector<bool> isKept(rows.size());
  for (std::size_t i = 0; i < rule->most; ++i) {
    isKept[order[i].second] = true;
  }
  BoundedRows bounded;
  std::unordered_set<std::string_view> leftOut;
  for (std::size_t place = 0; place < rows.size(); ++place) {
    if (isKept[place]) {
      bounded.kept.push_back(rows[place]);
    } else {
      leftOut.insert(KeyOf(*key, *rows[place]));
    }
  }
  for (std::size_t place = 0; place < rows.size(); ++place) {
    if (!isKept[place] && !LiesBelowOne(KeyOf(*key, *rows[place]), leftOut)) {
      bounded.summed.push_back(rows[place]);
    }
  }
  bounded.leftOut = rows.size() - bounded.kept.size();
  return bounded;
}
