#include "client/show/Labels.h"

#include <algorithm>

#include "client/ask/Errors.h"
#include "client/show/Nearest.h"
#include "support/TrimmedText.h"

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
  const auto begin = schema.fields.begin();
  const auto end = schema.fields.end();
  const auto exact =
      std::find_if(begin, end, [&](const Field& field) { return field.label == label; });
  if (exact != end) {
    return &*exact;
  }
  const auto same = [sought = LowerCase(label)](const Field& field) {
    return LowerCase(field.label) == sought;
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
