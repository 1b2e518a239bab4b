#include <utility>

#include "json/JsonText.h"
#include "local/alarm/AlarmWatch.h"

namespace {

const char* PhaseName(AlarmState::Phase phase) {
  switch (phase) {
    case AlarmState::Phase::kPending:
      return "pending";
    case AlarmState::Phase::kActive:
      return "active";
    case AlarmState::Phase::kEnded:
      break;
  }
  return "ended";
}

/// 0 for what is no number that times can be reckoned with.
std::int64_t WholeIn(const Json& value) {
  return value.IsWhole() && value.Number() >= 0 && value.Number() < 9e18
             ? static_cast<std::int64_t>(value.Number())
             : 0;
}

std::int64_t WholeOf(const Json& object, const char* name) {
  const Json* value = object.Find(name);
  return value == nullptr ? 0 : WholeIn(*value);
}

Json ObjectOf(const Json& object, const char* name) {
  const Json* value = object.Find(name);
  return value != nullptr && value->IsObject() ? *value : Json::Object();
}

std::string TextOfMember(const Json& object, const char* name) {
  const Json* value = object.Find(name);
  return value != nullptr && value->IsString() ? value->Text() : "";
}

}  // namespace

std::vector<std::string> CapturedNames(const Json& alarm) {
  std::vector<std::string> names;
  const Json* captured = alarm.Find("captured");
  if (captured != nullptr && captured->IsArray()) {
    for (const Json& name : captured->Elements()) {
      if (name.IsString()) {
        names.push_back(name.Text());
      }
    }
  }
  return names;
}

Json AlarmWatch::ToJson() const {
  Json states = Json::Array();
  for (const auto& [key, state] : m_states) {
    Json begins = Json::Array();
    for (const std::time_t begin : state.begins) {
      begins.PushBack(begin);
    }
    states.PushBack(Json{{"key", state.key},
                         {"phase", PhaseName(state.phase)},
                         {"held", state.held},
                         {"over", state.over ? Json(*state.over) : Json(nullptr)},
                         {"id", state.id},
                         {"since", state.since},
                         {"until", state.until},
                         {"values", state.values},
                         {"text", state.text},
                         {"captured", Json(state.captured)},
                         {"begins", std::move(begins)}});
  }
  return Json{{"alarm", m_definition.name},
              {"record", m_definition.record},
              {"time", m_time},
              {"states", std::move(states)}};
}

void AlarmWatch::FromJson(const Json& kept) {
  m_time = WholeOf(kept, "time");
  const Json* states = kept.Find("states");
  if (states == nullptr || !states->IsArray()) {
    return;
  }
  for (const Json& each : states->Elements()) {
    if (m_states.size() >= kMostStates) {
      return;
    }
    AlarmState state;
    const std::string phase = TextOfMember(each, "phase");
    state.phase = phase == "active"    ? AlarmState::Phase::kActive
                  : phase == "pending" ? AlarmState::Phase::kPending
                                       : AlarmState::Phase::kEnded;
    state.held = WholeOf(each, "held");
    if (const Json* over = each.Find("over"); over != nullptr && over->IsWhole()) {
      state.over = WholeOf(each, "over");
    }
    state.id = WholeOf(each, "id");
    state.since = WholeOf(each, "since");
    state.until = WholeOf(each, "until");
    state.key = ObjectOf(each, "key");
    state.values = ObjectOf(each, "values");
    state.text = TextOfMember(each, "text");
    state.captured = CapturedNames(each);
    if (const Json* begins = each.Find("begins"); begins != nullptr && begins->IsArray()) {
      for (const Json& begin : begins->Elements()) {
        if (begin.IsWhole() && state.begins.size() < kFlaps) {
          state.begins.push_back(WholeIn(begin));
        }
      }
    }
    std::string key = JsonText(state.key);
    m_states.emplace(std::move(key), std::move(state));
  }
}
