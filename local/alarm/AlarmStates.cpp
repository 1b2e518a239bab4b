#include "local/alarm/AlarmStates.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "json/JsonText.h"
#include "support/TextFile.h"

namespace {

const std::string* TextMember(const Json& object, const char* name) {
  const Json* value = object.Find(name);
  return value != nullptr && value->IsString() ? &value->Text() : nullptr;
}

}  // namespace

void AlarmStates::Load(std::vector<std::unique_ptr<AlarmWatch>>& watches) {
  const TextFilePtr file = OpenTextFile(m_file.Path());
  if (file == nullptr) {
    if (errno != ENOENT) {
      m_report("Alarms: " + m_file.Path() + " can't be read: " + std::strerror(errno) +
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
    m_report("Alarms: " + m_file.Path() + " is none of the agent's; all alarms begin anew");
    return;
  }
  if (const Json* next = parsed.value.Find("next"); next != nullptr && next->IsUnsigned()) {
    TakenUpTo(static_cast<std::int64_t>(std::min<std::uint64_t>(next->Unsigned(), INT64_MAX)) - 1);
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

void AlarmStates::Look(const std::vector<std::unique_ptr<AlarmWatch>>& watches) {
  m_isCounting = false;
  m_hasStates = false;
  for (const auto& watch : watches) {
    m_isNew = watch->TakeIsChanged() || m_isNew;
    m_hasTold = watch->TakeHasTold() || m_hasTold;
    m_hasStates = m_hasStates || !watch->States().empty();
    m_isCounting = m_isCounting || watch->IsCounting();
  }
}

void AlarmStates::Save(const std::vector<std::unique_ptr<AlarmWatch>>& watches) {
  Look(watches);
  const bool isDue = std::chrono::steady_clock::now() - m_written >= kPause;
  // A file that can't be written is not tried at each batch.
  const bool isWanted = (m_hasTold && !m_isFailing) || ((m_isCounting || m_isNew) && isDue);
  if (isWanted && !m_file.IsBusy()) {
    Write(watches);
  }
}

void AlarmStates::SaveLast(const std::vector<std::unique_ptr<AlarmWatch>>& watches) {
  Look(watches);
  if (m_file.Finish(kStopWait) && (m_isCounting || m_isNew || m_hasTold)) {
    Write(watches);
  }
  if (!m_file.Finish(kStopWait)) {
    m_report("Alarms: " + m_file.Path() +
             " is still being written; a restart may find older states of alarms");
  }
}

void AlarmStates::Write(const std::vector<std::unique_ptr<AlarmWatch>>& watches) {
  if (!m_hasFile && !m_hasStates) {
    return;
  }
  Json alarms = Json::Array();
  for (const auto& watch : watches) {
    if (!watch->States().empty()) {
      alarms.PushBack(watch->ToJson());
    }
  }
  m_written = std::chrono::steady_clock::now();
  m_isNew = m_hasTold = false;
  m_file.Write(JsonText(Json{{"next", m_nextId}, {"alarms", std::move(alarms)}}) + '\n');
}

void AlarmStates::OnWritten(const std::string& error) {
  const bool isWritten = error.empty();
  if (!isWritten && !m_isFailing) {
    m_report("Alarms: " + m_file.Path() + " can't be written: " + error +
             "; a restart will not find the states of alarms");
  }
  m_isFailing = !isWritten;
  m_hasFile = m_hasFile || isWritten;
  m_isNew = m_isNew || !isWritten;
  if (isWritten && m_hasTold) {
    m_onFree();
  }
}
