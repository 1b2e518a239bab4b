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

std::map<std::int64_t, std::int64_t> BeginsOf(const Json* list) {
  std::map<std::int64_t, std::int64_t> begins;
  if (list != nullptr && list->IsArray()) {
    for (const Json& alarm : list->Elements()) {
      begins[MemoryNumber(alarm.Find("id"))] = MemoryNumber(alarm.Find("since"));
    }
  }
  return begins;
}

Json BeginsJson(const std::map<std::int64_t, std::int64_t>& begins) {
  Json list = Json::Array();
  for (const auto& [id, since] : begins) {
    list.PushBack(Json{{"id", id}, {"since", since}});
  }
  return list;
}

}  // namespace

void AlarmMemory::Note(std::int64_t id, std::int64_t since, bool isActive) {
  newest = since > newestSince ? id : std::max(newest, id);
  newestSince = std::max(newestSince, since);
  owed.erase(id);
  if (isActive) {
    active[id] = since;
  } else {
    active.erase(id);
  }
}

AlarmMemory ReadAlarmMemory(const std::string& path) {
  AlarmMemory memory;
  try {
    const Json told = ParseJson(ReadCheckedFile(path).text, {.depth = 8}).value;
    memory.contact = MemoryNumber(told.Find("contact"));
    memory.newest = MemoryNumber(told.Find("newest"));
    memory.newestSince = MemoryNumber(told.Find("newest_since"));
    memory.active = BeginsOf(told.Find("active"));
    memory.owed = BeginsOf(told.Find("owed"));
  } catch (const AccessError&) {
    return {};
  }
  return memory;
}

std::string AlarmMemoryText(const AlarmMemory& memory) {
  const Json told{{"contact", memory.contact},
                  {"newest", memory.newest},
                  {"newest_since", memory.newestSince},
                  {"active", BeginsJson(memory.active)},
                  {"owed", BeginsJson(memory.owed)}};
  return JsonText(told) + '\n';
}
