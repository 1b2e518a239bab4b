#include "client/ask/AnswerMembers.h"

#include <algorithm>

#include "client/ask/Errors.h"

void FailMember(const char* name, const char* expected) {
  throw ClientError(std::string("broken answer: \"") + name + "\" is not " + expected);
}

const Json& AnyMember(const Json& object, const char* name) {
  static const Json kNull;
  const Json* member = object.Find(name);
  return member == nullptr ? kNull : *member;
}

std::string TextMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!value.IsString()) {
    FailMember(name, "a text");
  }
  return value.Text();
}

double NumberMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!value.IsNumber()) {
    FailMember(name, "a number");
  }
  return value.Number();
}

std::uint64_t CountMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!value.IsUnsigned()) {
    FailMember(name, "a count");
  }
  return value.Unsigned();
}

std::int64_t WholeMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!value.IsWhole() || (value.IsUnsigned() && value.Unsigned() > INT64_MAX)) {
    FailMember(name, "a whole number");
  }
  return value.Whole();
}

bool FlagMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!value.IsBool()) {
    FailMember(name, "true or false");
  }
  return value.Bool();
}

const Json& ObjectMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!value.IsObject()) {
    FailMember(name, "an object");
  }
  return value;
}

const Json& ObjectsMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  const auto isObject = [](const Json& element) { return element.IsObject(); };
  if (!value.IsArray() || !std::ranges::all_of(value.Elements(), isObject)) {
    FailMember(name, "an array of objects");
  }
  return value;
}

void CheckRow(const Json& row) {
  const auto isPlain = [](const JsonMember& member) { return !member.value.IsStructured(); };
  if (!row.IsObject() || !std::ranges::all_of(row.Members(), isPlain)) {
    FailMember("rows", "an array of objects of plain values");
  }
}

void CheckRows(const Json& rows) { std::ranges::for_each(rows.Elements(), CheckRow); }

bool IsTexts(const Json& value) {
  const auto isText = [](const Json& element) { return element.IsString(); };
  return value.IsArray() && std::ranges::all_of(value.Elements(), isText);
}

std::vector<std::string> TextsOf(const Json& value) {
  std::vector<std::string> texts;
  texts.reserve(value.Size());
  for (const Json& text : value.Elements()) {
    texts.push_back(text.Text());
  }
  return texts;
}

std::vector<std::string> TextsMember(const Json& object, const char* name) {
  const Json& value = AnyMember(object, name);
  if (!IsTexts(value)) {
    FailMember(name, "an array of texts");
  }
  return TextsOf(value);
}
