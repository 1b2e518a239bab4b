#include "json/Json.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace {

/// A pair whose first is a text, which a list of such takes for a member.
bool IsNamed(const JsonItem& item) {
  const Json& value = item.Value();
  return value.IsArray() && value.Size() == 2 && value[0].IsString();
}

Json::ElementList TakeItems(std::initializer_list<JsonItem> items) {
  Json::ElementList elements;
  elements.reserve(items.size());
  for (const JsonItem& item : items) {
    elements.push_back(item.Take());
  }
  return elements;
}

bool EqualNumbers(const Json& left, const Json& right) {
  if (!left.IsWhole() || !right.IsWhole()) {
    return left.Number() == right.Number();
  }
  if (left.IsUnsigned() == right.IsUnsigned()) {
    return left.IsUnsigned() ? left.Unsigned() == right.Unsigned() : left.Whole() == right.Whole();
  }
  const std::int64_t whole = left.IsUnsigned() ? right.Whole() : left.Whole();
  return whole >= 0 &&
         static_cast<std::uint64_t>(whole) == (left.IsUnsigned() ? left : right).Unsigned();
}

}  // namespace

Json::Json(std::initializer_list<JsonItem> items) {
  if (!std::all_of(items.begin(), items.end(), IsNamed)) {
    m_value = TakeItems(items);
    return;
  }
  MemberList members;
  members.reserve(items.size());
  for (const JsonItem& item : items) {
    Json pair = item.Take();
    std::string& name = pair[0].Get<std::string>();
    // Of members of one name the first stays.
    if (std::ranges::find(members, name, &JsonMember::name) == members.end()) {
      members.push_back({std::move(name), std::move(pair[1])});
    }
  }
  m_value = std::move(members);
}

Json Json::Object() {
  Json object;
  object.m_value = MemberList();
  return object;
}

Json Json::Array(std::initializer_list<JsonItem> items) { return TakeItems(items); }

double Json::Number() const {
  if (IsReal()) {
    return Get<double>();
  }
  return IsUnsigned() ? static_cast<double>(Get<std::uint64_t>())
                      : static_cast<double>(Get<std::int64_t>());
}

std::int64_t Json::Whole() const {
  if (!IsUnsigned()) {
    return Get<std::int64_t>();
  }
  const std::uint64_t value = Get<std::uint64_t>();
  if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    ThrowKind();
  }
  return static_cast<std::int64_t>(value);
}

std::uint64_t Json::Unsigned() const {
  if (IsUnsigned()) {
    return Get<std::uint64_t>();
  }
  const std::int64_t value = Get<std::int64_t>();
  if (value < 0) {
    ThrowKind();
  }
  return static_cast<std::uint64_t>(value);
}

const Json* Json::Find(std::string_view name) const {
  const auto* members = std::get_if<MemberList>(&m_value);
  if (members == nullptr) {
    return nullptr;
  }
  const auto found = std::ranges::find(*members, name, &JsonMember::name);
  return found == members->end() ? nullptr : &found->value;
}

Json& Json::operator[](std::string_view name) {
  if (IsNull()) {
    m_value = MemberList();
  }
  if (Json* found = Find(name)) {
    return *found;
  }
  return Members().emplace_back(JsonMember{std::string(name), Json()}).value;
}

const Json& Json::operator[](std::string_view name) const {
  const Json* found = Find(name);
  if (found == nullptr) {
    throw std::logic_error("no member \"" + std::string(name) + "\"");
  }
  return *found;
}

void Json::Erase(std::string_view name) {
  std::erase_if(Members(), [name](const JsonMember& member) { return member.name == name; });
}

std::size_t Json::Size() const {
  if (IsStructured()) {
    return IsArray() ? Elements().size() : Members().size();
  }
  return IsNull() ? 0 : 1;
}

bool operator==(const Json& left, const Json& right) {
  return left.IsNumber() && right.IsNumber() ? EqualNumbers(left, right)
                                             : left.m_value == right.m_value;
}

void Json::ThrowKind() { throw std::logic_error("JSON of another kind than was asked for"); }
