#include "gate/alarm/AlarmMemory.h"

#include <algorithm>
#include <span>
#include <utility>

#include "gate/access/AccessError.h"
#include "gate/access/CheckedFile.h"
#include "json/JsonText.h"

namespace {

std::int64_t MemoryNumber(const Json* value) {
  constexpr std::uint64_t kMost = std::uint64_t{1} << 62;
  return value != nullptr && value->IsUnsigned() && value->Unsigned() <= kMost ? value->Whole() : 0;
}

AlarmKey KeyOf(const Json& alarm) {
  return {MemoryNumber(alarm.Find("since")), MemoryNumber(alarm.Find("id"))};
}

Json KeyJson(const AlarmKey& key) { return Json{{"id", key.id}, {"since", key.since}}; }

std::span<const Json> ElementsOf(const Json* list) {
  return list != nullptr && list->IsArray() ? std::span(list->Elements()) : std::span<const Json>();
}

std::set<std::uint64_t> OwedToOf(const Json& alarm) {
  std::set<std::uint64_t> receivers;
  for (const Json& receiver : ElementsOf(alarm.Find("to"))) {
    if (receiver.IsUnsigned()) {
      receivers.insert(receiver.Unsigned());
    }
  }
  return receivers;
}

Json ActiveJson(const std::set<AlarmKey>& keys) {
  Json list = Json::Array();
  for (const AlarmKey& key : keys) {
    list.PushBack(KeyJson(key));
  }
  return list;
}

Json OwedJson(const AlarmMemory& memory) {
  Json list = Json::Array();
  for (const auto& [key, receivers] : memory.owed) {
    Json alarm = KeyJson(key);
    if (!receivers.empty()) {
      Json numbers = Json::Array();
      for (const std::uint64_t receiver : receivers) {
        numbers.PushBack(receiver);
      }
      alarm["to"] = std::move(numbers);
    }
    list.PushBack(std::move(alarm));
  }
  return list;
}

}  // namespace

void AlarmMemory::AddOwed(std::uint64_t receiver, const std::set<AlarmKey>& keys,
                          std::size_t receivers) {
  for (const AlarmKey& key : keys) {
    const auto [place, isNew] = owed.try_emplace(key);
    if (isNew || !place->second.empty()) {
      place->second.insert(receiver);
    }
    if (place->second.size() == receivers) {
      place->second.clear();
    }
  }
}

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
    for (const Json& alarm : ElementsOf(told.Find("active"))) {
      memory.active.insert(KeyOf(alarm));
    }
    for (const Json& alarm : ElementsOf(told.Find("owed"))) {
      memory.owed.emplace(KeyOf(alarm), OwedToOf(alarm));
    }
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
                  {"active", ActiveJson(memory.active)},
                  {"owed", OwedJson(memory)}};
  return JsonText(told) + '\n';
}
