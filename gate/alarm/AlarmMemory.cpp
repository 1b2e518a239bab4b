#include "gate/alarm/AlarmMemory.h"

#include <algorithm>

#include "gate/access/AccessError.h"
#include "gate/access/CheckedFile.h"
#include "json/JsonText.h"

namespace {

std::int64_t MemoryNumber(const Json* value) {
  constexpr std::uint64_t kMost = std::uint64_t{1} << 62;
  return value != nullptr && value->IsUnsigned() && value->Unsigned() <= kMost ? value->Whole() : 0;
}

std::set<AlarmKey> KeysOf(const Json* list) {
  std::set<AlarmKey> keys;
  if (list != nullptr && list->IsArray()) {
    for (const Json& alarm : list->Elements()) {
      keys.insert({MemoryNumber(alarm.Find("since")), MemoryNumber(alarm.Find("id"))});
    }
  }
  return keys;
}

Json KeysJson(const std::set<AlarmKey>& keys) {
  Json list = Json::Array();
  for (const auto& [since, id] : keys) {
    list.PushBack(Json{{"id", id}, {"since", since}});
  }
  return list;
}

}  // namespace

void AlarmMemory::BoundBy(std::int64_t now) {
  contact = std::min(contact, now);
  // What begins in this second is new.
  newestSince = newestSince > now ? now - 1 : newestSince;
}

void AlarmMemory::Note(const Alarm& alarm) {
  // First, as it may lack memory: the alarm is as new as before then.
  if (alarm.IsActive()) {
    active.insert(alarm.Key());
  } else {
    active.erase(alarm.Key());
  }
  newest = alarm.since > newestSince ? alarm.id : std::max(newest, alarm.id);
  newestSince = std::max(newestSince, alarm.since);
  owed.erase(alarm.Key());
}

AlarmMemory ReadAlarmMemory(const std::string& path, std::string& error) {
  AlarmMemory memory;
  if (StampOf(path) == FileStamp{}) {
    return memory;
  }
  try {
    const Json told = ParseJson(ReadCheckedFile(path, kMostMemoryBytes).text, {.depth = 8}).value;
    if (!told.IsObject()) {
      error = path + ": it is no file of this program's";
      return memory;
    }
    memory.contact = MemoryNumber(told.Find("contact"));
    memory.newest = MemoryNumber(told.Find("newest"));
    memory.newestSince = MemoryNumber(told.Find("newest_since"));
    memory.active = KeysOf(told.Find("active"));
    memory.owed = KeysOf(told.Find("owed"));
  } catch (const PassingAccessError&) {
    // It is not as none, and would be written anew.
    throw;
  } catch (const AccessError& fault) {
    error = fault.what();
  }
  return memory;
}

std::string AlarmMemoryText(const AlarmMemory& memory) {
  const Json told{{"contact", memory.contact},
                  {"newest", memory.newest},
                  {"newest_since", memory.newestSince},
                  {"active", KeysJson(memory.active)},
                  {"owed", KeysJson(memory.owed)}};
  return JsonText(told) + '\n';
}
