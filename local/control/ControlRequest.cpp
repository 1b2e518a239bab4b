#include "local/control/ControlRequest.h"

#include <algorithm>
#include <new>
#include <utility>

#include "json/JsonText.h"

namespace {

constexpr JsonLimits kRequestLimits{.depth = 16};

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
  Json answer = Json::Object();
  if (const Json* id = m_message.Find("id"); id != nullptr) {
    answer["id"] = *id;
  }
  answer["ok"] = isOk;
  return answer;
}

void ControlRequest::Succeed(const char* name, Json value) const {
  Json answer = Head(true);
  if (name != nullptr) {
    answer[name] = std::move(value);
  }
  m_peer->Answer(JsonText(answer));
}

void ControlRequest::SucceedRaw(const char* name, const Json& value, std::string bytes) const {
  Json answer = Head(true);
  answer[name] = value;
  m_peer->AnswerRaw(JsonText(answer), std::move(bytes));
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
  ParsedJson parsed = ParseJson(line, kRequestLimits);
  if (parsed.fault == JsonFault::kTooDeep) {
    return ControlError{"bad-json", "the line is nested more than 16 deep", ""};
  }
  if (parsed.fault != JsonFault::kNone || !parsed.value.IsObject()) {
    return ControlError{"bad-json", "the line is no JSON object", ""};
  }
  return std::move(parsed.value);
}

std::optional<ControlError> CheckMembers(const Json& object, std::span<const char* const> allowed) {
  for (const auto& [name, value] : object.Members()) {
    const bool isKnown = std::any_of(
        allowed.begin(), allowed.end(),
        [&member = name](const char* entry) { return entry != nullptr && member == entry; });
    if (!isKnown) {
      return ControlError{"bad-field", "unknown member \"" + name + "\"", name};
    }
  }
  return std::nullopt;
}
