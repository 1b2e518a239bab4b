#include "local/alarm/AlarmText.h"

#include <stdexcept>

#include "json/JsonText.h"
#include "local/history/RowFields.h"

AlarmText::AlarmText(std::string_view text, const RecordLayout& layout) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char letter = text[at];
    if ((letter == '{' || letter == '}') && text.substr(at + 1, 1) == text.substr(at, 1)) {
      AddLiteral(letter);
      ++at;
    } else if (letter == '}') {
      throw std::invalid_argument("a \"}\" has no \"{\" (\"}}\" stands for one)");
    } else if (letter != '{') {
      AddLiteral(letter);
    } else {
      const std::size_t end = text.find('}', at);
      if (end == std::string_view::npos) {
        throw std::invalid_argument("a \"{\" has no \"}\" (\"{{\" stands for one)");
      }
      const RowField field = RowFieldOf(layout, text.substr(at + 1, end - at - 1));
      if (HoldsArguments(layout.fields[field.place])) {
        throw std::invalid_argument("\"" + field.label + "\" holds arguments, which no text tells");
      }
      m_parts.push_back({field.label, field.place, field.isTime});
      at = end;
    }
  }
}

void AlarmText::AddLiteral(char letter) {
  if (m_parts.empty() || m_parts.back().field) {
    m_parts.emplace_back();
  }
  m_parts.back().text += letter;
}

std::string AlarmText::Expand(const std::function<Json(std::size_t)>& valueAt) const {
  std::string text;
  for (const Part& part : m_parts) {
    if (!part.field) {
      text += part.text;
      continue;
    }
    const Json value = valueAt(*part.field);
    text += value.IsNull() ? "?" : ShownValue(value, part.isTime);
  }
  // A letter of several bytes may be cut.
  text.resize(std::min(text.size(), kMostBytes));
  return ValidUtf8(text);
}
