#include "client/show/Labels.h"

#include "client/ask/Errors.h"
#include "client/show/Nearest.h"

namespace {

/// "; did you mean ...?", or where all labels are shown if nothing is near.
std::string Suggestion(const Schema& schema, std::string_view label) {
  Nearest nearest(label);
  for (const Field& field : schema.fields) {
    nearest.Add(field.label, field.label);
  }
  const std::string question = nearest.Question();
  return question.empty() ? "; \"qmtctl schema " + schema.record + "\" shows those it has"
                          : question;
}

}  // namespace

const Field* FindField(const Schema& schema, std::string_view label) {
  const auto place =
      FindLabel(label, schema.fields.size(),
                [&](std::size_t at) -> std::string_view { return schema.fields[at].label; });
  return place ? &schema.fields[*place] : nullptr;
}

const Field& NeedField(const Schema& schema, std::string_view label) {
  const Field* field = FindField(schema, label);
  if (field == nullptr) {
    throw UsageError(RecordName{schema.record, schema.category}.Text() + " has no label \"" +
                     std::string(label) + "\"" + Suggestion(schema, label));
  }
  return *field;
}

bool IsTime(const Field& field) { return IsTimeField(field.meaning, field.type, field.label); }

bool IsNumeric(const Field& field) { return !field.type.starts_with("char["); }
