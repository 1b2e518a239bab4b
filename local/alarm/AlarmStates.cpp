#include "local/alarm/AlarmStates.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "json/JsonText.h"
#include "support/AtomicFile.h"
#include "support/TextFile.h"

namespace {

const std::string* TextMember(const Json& object, const char* name) {
  const Json* value = object.Find(name);
  return value != nullptr && value->IsString() ? &value->Text() : nullptr;
}

}  // namespace

void AlarmStates::Load(std::vector<std::unique_ptr<AlarmWatch>>& watches) {
  const TextFilePtr file = OpenTextFile(m_path);
  if (file == nullptr) {
    if (errno != ENOENT) {
      m_report("Alarms: " + m_path + " can't be read: " + std::strerror(errno) +
               "; all alarms begin anew");
    }
    return;
  }
  m_hasFile = true;
  std::string text(kMostBytes, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  constexpr JsonLimits kLimits{8, 1024};
  const ParsedJson parsed = ParseJson(text, kLimits);
  const Json* alarms = parsed.value.Find("alarms");
  if (alarms == nullptr || !alarms->IsArray()) {
    m_report("Alarms: " + m_path + " is none of the agent's; all alarms begin anew");
    return;
  }
  if (const Json* next = parsed.value.Find("next"); next != nullptr && next->IsUnsigned()) {
    TakenUpTo(static_cast<std::int64_t>(std::min<std::uint64_t>(next->Unsigned(), INT64_MAX / 2)) -
              1);
  }
  for (const Json& each : alarms->Elements()) {
    const std::string* name = TextMember(each, "alarm");
    const std::string* record = TextMember(each, "record");
    for (const auto& watch : watches) {
      if (name != nullptr && record != nullptr && watch->Definition().name == *name &&
          watch->Definition().record == *record) {
        watch->FromJson(each);
      }
    }
  }
}

void AlarmStates::Save(const std::vector<std::unique_ptr<AlarmWatch>>& watches, bool isLast) {
  bool isCounting = false;
  bool hasStates = false;
  bool hasTold = false;
  for (const auto& watch : watches) {
    m_isNew = watch->TakeIsChanged() || m_isNew;
    hasTold = watch->TakeHasTold() || hasTold;
    hasStates = hasStates || !watch->States().empty();
    isCounting = isCounting || watch->IsCounting();
  }
  const auto now = std::chrono::steady_clock::now();
  const bool isDue = now - m_written >= kPause || isLast;
  // A file that can't be written is not tried at each batch.
  if (!(hasTold && !m_isFailing) && !((isCounting || m_isNew) && isDue)) {
    return;
  }
  if (!m_hasFile && !hasStates) {
    return;
  }
  Json alarms = Json::Array();
  for (const auto& watch : watches) {
    if (!watch->States().empty()) {
      alarms.PushBack(watch->ToJson());
    }
  }
  m_written = now;
  std::string error;
  const bool isWritten = ReplaceFile(
      m_path, JsonText(Json{{"next", m_nextId}, {"alarms", std::move(alarms)}}) + '\n', error);
  if (!isWritten && !m_isFailing) {
    m_report("Alarms: " + m_path + " can't be written: " + error +
             "; a restart will not find the states of alarms");
  }
  m_isFailing = !isWritten;
  m_hasFile = m_hasFile || isWritten;
  m_isNew = !isWritten;
}
