#include "client/view/RowFilter.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "client/ask/Errors.h"
#include "client/show/Labels.h"
#include "client/show/Nearest.h"
#include "client/show/RowValues.h"
#include "json/RowText.h"

namespace {

bool IsCondition(const std::string& text, const Schema& schema) {
  const std::size_t sign = text.find_first_of("=!<>~");
  if (sign == std::string::npos) {
    return false;
  }
  const std::string_view label = Trimmed(std::string_view(text).substr(0, sign));
  if (FindField(schema, label) != nullptr) {
    return true;
  }
  // Arguments have such signs too; what is nearly a label was meant as one.
  Nearest nearest(label);
  for (const Field& field : schema.fields) {
    nearest.Add(field.label, field.label);
  }
  return !nearest.Question().empty();
}

RowField RowFieldOf(const Schema& schema, std::string_view label) {
  const Field& field = NeedField(schema, label);
  return {field.label, static_cast<std::size_t>(&field - schema.fields.data()), IsNumeric(field),
          IsTime(field)};
}

}  // namespace

RowFilter::RowFilter(const std::string& text, const Schema& schema) {
  if (Trimmed(text).empty()) {
    return;
  }
  if (!IsCondition(text, schema)) {
    m_plain = LowerCase(Trimmed(text));
    return;
  }
  try {
    m_condition.emplace(text, [&](std::string_view label) { return RowFieldOf(schema, label); });
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  }
}

std::string RowFilter::Label() const { return m_condition ? m_condition->Field().label : ""; }

bool RowFilter::Holds(const Json& row) const {
  if (m_condition) {
    const RowField& field = m_condition->Field();
    return m_condition->Holds(ValueOf(row, field.place, field.label));
  }
  return m_plain.empty() ||
         std::any_of(row.Members().begin(), row.Members().end(), [&](const JsonMember& member) {
           return !member.value.IsNull() &&
                  LowerCase(ShownValue(member.value, false)).find(m_plain) != std::string::npos;
         });
}
