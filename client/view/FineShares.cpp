#include "client/view/FineShares.h"

#include <algorithm>
#include <utility>

#include "client/show/Labels.h"
#include "client/view/RowMembers.h"
#include "json/JsonText.h"

namespace {

constexpr const char* kUserTime = "User CPU";
constexpr const char* kSystemTime = "System CPU";
constexpr const char* kShareOfAll = "CPU %";

bool HasTimes(const Schema& schema) {
  const auto has = [&](const char* label) { return FindField(schema, label) != nullptr; };
  return has("PID") && has(kUserTime) && has(kSystemTime);
}

void SetMember(Json& row, const char* label, const Json& value) {
  if (Json* member = row.Find(label); member != nullptr) {
    *member = value;
  }
}

}  // namespace

FineShares::FineShares(const Schema& schema) : m_isOn(HasTimes(schema)) {
  for (const Field& field : schema.fields) {
    if (field.meaning == "key") {
      m_keys.push_back(field.label);
    }
  }
}

std::string FineShares::KeyOf(const Json& row) const {
  std::string key;
  for (const std::string& label : m_keys) {
    const Json* value = row.Find(label);
    key += (value == nullptr ? "" : JsonText(*value)) + ' ';
  }
  return key;
}

void FineShares::Set(Json& rows, TimePoint at, double processors) {
  if (!m_isOn) {
    return;
  }
  const double between = std::chrono::duration<double>(at - m_lastAt).count();
  std::unordered_map<std::string, double> now;
  now.reserve(rows.Size());
  for (Json& row : rows.Elements()) {
    std::string key = KeyOf(row);
    const double total =
        FigureOf(row, kUserTime).value_or(0) + FigureOf(row, kSystemTime).value_or(0);
    const auto last = m_last.find(key);
    const bool isKnown = last != m_last.end();
    // One that is younger than the look before has had no more than the time since then; an older
    // one that the look missed is shown by its whole life.
    const double age =
        FigureOf(row, kRecordTime).value_or(0) - FigureOf(row, "Start Time").value_or(0);
    const double seconds = isKnown ? between : std::max(between, age);
    const double growth = std::max(total - (isKnown ? last->second : 0), 0.0);
    const bool isTold = m_hasLast && seconds > 0;
    const Json ofOne = isTold ? Json(100 * growth / seconds) : Json();
    SetMember(row, "CPU % Each", ofOne);
    SetMember(row, kShareOfAll,
              isTold && processors > 0 ? Json(100 * growth / seconds / processors) : Json());
    now.insert_or_assign(std::move(key), total);
  }
  m_last = std::move(now);
  m_lastAt = at;
  m_hasLast = true;
}
