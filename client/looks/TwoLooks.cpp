#include "client/looks/TwoLooks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>

#include "client/show/RowValues.h"
#include "json/JsonText.h"

namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr std::string_view kInterval = "Interval";

/// `now` - `before`; of a counter that went backwards the growth over its wrap, where that is less
/// than half of its range, else nothing.
double GrowthOfCounter(double now, double before, bool wraps) {
  constexpr double kRange = 4294967296.0;
  const double growth = now - before;
  if (growth >= 0 || !wraps) {
    return growth >= 0 ? growth : kNothing;
  }
  return growth + kRange < kRange / 2 ? growth + kRange : kNothing;
}

/// Of an entry in a table of totals, with what the table and the heap take for it.
std::size_t BytesOf(const std::string& key, const std::vector<double>& totals) {
  constexpr std::size_t kPointers = 6;
  return sizeof(key) + sizeof(totals) + key.size() + totals.size() * sizeof(double) +
         kPointers * sizeof(void*);
}

/// A figure without the digits that a difference of fractions brings; null for none.
Json Figure(double value) {
  constexpr double kDigits = 1e6;
  if (!std::isfinite(value)) {
    return nullptr;
  }
  const double rounded = std::round(value * kDigits) / kDigits;
  return std::isfinite(rounded) ? rounded : value;
}

/// The member `label` of `row`, which stands at `place` as a rule; null without one.
Json* FindMember(Json& row, std::size_t place, const std::string& label) {
  auto& members = row.Members();
  const auto expected = members.begin() + static_cast<std::ptrdiff_t>(place);
  if (place < members.size() && expected->name == label) {
    return &expected->value;
  }
  return row.Find(label);
}

}  // namespace

TwoLooks::TwoLooks(const Schema& schema) {
  const std::vector<Field>& fields = schema.fields;
  const auto columnOf = [&](Kind kind, const Field& field) {
    return Column{kind, field.label, static_cast<std::size_t>(&field - fields.data()),
                  field.type == "ulong"};
  };
  for (const Field& field : fields) {
    if (field.meaning == "key") {
      m_columns.push_back(columnOf(Kind::kKey, field));
    } else if (field.label == kInterval) {
      m_columns.push_back(columnOf(Kind::kInterval, field));
    } else if (field.needsTwoLooks) {
      m_columns.push_back(columnOf(Kind::kShare, field));
    } else if (field.meaning == "counter") {
      Column counter = columnOf(Kind::kCounter, field);
      counter.total = TotalOf(counter);
      m_columns.push_back(std::move(counter));
    } else if (field.meaning == "rate") {
      const auto of = std::find_if(fields.begin(), fields.end(),
                                   [&](const Field& other) { return other.label == field.rateOf; });
      Column rate = columnOf(Kind::kRate, field);
      // A rate of nothing that is known is no counter: it finds no number and so shows none.
      rate.total = TotalOf(of == fields.end() ? Column{Kind::kCounter, "", fields.size()}
                                              : columnOf(Kind::kCounter, *of));
      m_columns.push_back(std::move(rate));
    }
  }
  m_areNeeded = std::any_of(m_columns.begin(), m_columns.end(), [](const Column& column) {
    return column.kind != Kind::kKey && column.kind != Kind::kInterval;
  });
}

std::size_t TwoLooks::TotalOf(const Column& counter) {
  const auto known = std::find_if(m_counters.begin(), m_counters.end(), [&](const Column& other) {
    return other.label == counter.label;
  });
  const auto place = static_cast<std::size_t>(known - m_counters.begin());
  if (known == m_counters.end()) {
    m_counters.push_back(counter);
  }
  return place;
}

std::string TwoLooks::KeyOf(const Json& row) const {
  Json key = Json::Array();
  for (const Column& column : m_columns) {
    if (column.kind == Kind::kKey) {
      key.PushBack(ValueOf(row, column.place, column.label));
    }
  }
  return JsonText(key);
}

TwoLooks::Totals TwoLooks::TotalsOf(const Json& row) const {
  Totals totals;
  totals.reserve(m_counters.size());
  for (const Column& counter : m_counters) {
    const Json& value = ValueOf(row, counter.place, counter.label);
    totals.push_back(value.IsNumber() ? value.Number() : kNothing);
  }
  return totals;
}

TwoLooks::Totals TwoLooks::GrowthOf(const Totals& now, const Totals* before) const {
  Totals growth(now.size(), kNothing);
  for (std::size_t i = 0; before != nullptr && i < now.size(); ++i) {
    growth[i] = GrowthOfCounter(now[i], (*before)[i], m_counters[i].wraps);
  }
  return growth;
}

void TwoLooks::Compare(Json& rows, TimePoint at) {
  Begin(at);
  for (Json& row : rows.Elements()) {
    CompareRow(row);
  }
  End();
}

void TwoLooks::Begin(TimePoint at) {
  m_seconds = m_hasLast ? std::chrono::duration<double>(at - m_at).count() : kNothing;
  m_at = at;
  // A capture that is played gives the same sample again: nothing is known of any time between.
  if (!(m_seconds > 0)) {
    m_seconds = kNothing;
    m_last = {};
  }
}

void TwoLooks::CompareRow(Json& row) {
  if (!m_areNeeded) {
    return;
  }
  std::string key = KeyOf(row);
  Totals totals = TotalsOf(row);
  // Of two rows with the same key the second is new: each is compared once.
  const auto last = m_last.totals.extract(key);
  m_last.bytes -= last.empty() ? 0 : BytesOf(last.key(), last.mapped());
  const Totals growth = GrowthOf(totals, last.empty() ? nullptr : &last.mapped());
  for (const Column& column : m_columns) {
    Json* value = FindMember(row, column.place, column.label);
    if (value == nullptr || column.kind == Kind::kKey) {
      continue;
    }
    if (column.kind == Kind::kInterval) {
      *value = Figure(m_seconds);
    } else if (column.kind == Kind::kRate) {
      *value = Figure(growth[column.total] / m_seconds);
    } else if (column.kind == Kind::kShare) {
      *value = last.empty() ? Json() : std::move(*value);
    } else if (value->IsWhole() && std::isfinite(growth[column.total])) {
      *value = static_cast<std::uint64_t>(growth[column.total]);
    } else {
      *value = Figure(growth[column.total]);
    }
  }
  const std::size_t bytes = BytesOf(key, totals);
  const bool isNew = m_now.totals.try_emplace(std::move(key), std::move(totals)).second;
  m_now.bytes += isNew ? bytes : 0;
}

void TwoLooks::End() {
  m_last = std::exchange(m_now, {});
  m_hasLast = true;
}
