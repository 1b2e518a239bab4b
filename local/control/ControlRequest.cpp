#include "local/control/ControlRequest.h"

#include <algorithm>
#include <new>

namespace {

constexpr int kMaxDepth = 16;

/// How deep the brackets of a text are nested, those in strings left out.
int NestingDepth(const std::string& text) {
  int depth = 0;
  int deepest = 0;
  bool isString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isString) {
      if (c == '\\') {
        ++i;
      }
      isString = c != '"';
    } else if (c == '"') {
      isString = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return deepest;
}

}  // namespace

ControlError StoppingError() { return {"stopping", "the daemon is about to stop", ""}; }

ControlError MemoryError() {
  return {"no-memory", "the daemon has not memory enough for this request", ""};
}

Json ErrorJson(const ControlError& error) {
  Json object{{"code", error.code}, {"message", error.message}};
  if (!error.field.empty()) {
    object["field"] = error.field;
  }
  return object;
}

Json ControlRequest::Head(bool isOk) const {
  Json answer = Json::object();
  if (const auto id = m_message.find("id"); id != m_message.end()) {
    answer["id"] = *id;
  }
  answer["ok"] = isOk;
  return answer;
}

void ControlRequest::Succeed(const char* name, const Json& value) const {
  Json answer = Head(true);
  if (name != nullptr) {
    answer[name] = value;
  }
  m_peer->Answer(JsonText(answer));
}

void ControlRequest::Fail(const ControlError& error) const {
  Json answer = Head(false);
  answer["error"] = ErrorJson(error);
  m_peer->Answer(JsonText(answer));
}

void ControlRequest::FailForMemory() const {
  try {
    Fail(MemoryError());
  } catch (const std::bad_alloc&) {
    m_peer->Abandon();
  }
}

std::string ControlRequest::AnswerHead() const {
  std::string text = JsonText(Head(true));
  text.pop_back();
  return text;
}

std::variant<Json, ControlError> ParseRequestLine(const std::string& line) {
  if (NestingDepth(line) > kMaxDepth) {
    return ControlError{"bad-json", "the line is nested more than 16 deep", ""};
  }
  Json message = Json::parse(line, nullptr, false);
  if (message.is_discarded() || !message.is_object()) {
    return ControlError{"bad-json", "the line is no JSON object", ""};
  }
  return message;
}

std::optional<ControlError> CheckMembers(const Json& object, std::span<const char* const> allowed) {
  for (const auto& [name, value] : object.items()) {
    const bool isKnown = std::any_of(
        allowed.begin(), allowed.end(),
        [&member = name](const char* entry) { return entry != nullptr && member == entry; });
    if (!isKnown) {
      return ControlError{"bad-field", "unknown member \"" + name + "\"", name};
    }
  }
  return std::nullopt;
}
