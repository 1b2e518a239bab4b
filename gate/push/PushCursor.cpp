#include "gate/push/PushCursor.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "gate/access/AccessError.h"
#include "gate/access/CheckedFile.h"
#include "json/JsonText.h"

namespace {

constexpr JsonLimits kCursorLimits{.depth = 4};
constexpr const char* kUrlMember = "url";
constexpr const char* kSinceMember = "since";
constexpr const char* kAfterMember = "after";

bool IsCursor(const Json& file) {
  const Json* url = file.Find(kUrlMember);
  const Json* since = file.Find(kSinceMember);
  const Json* after = file.Find(kAfterMember);
  return url != nullptr && url->IsString() && since != nullptr && since->IsWhole() &&
         after != nullptr && after->IsObject() &&
         std::ranges::all_of(after->Members(), [](const JsonMember& member) {
           return member.value.IsArray() && member.value.Size() == 2 && member.value[0].IsWhole() &&
                  member.value[1].IsWhole();
         });
}

}  // namespace

PushCursor::PushCursor(IoLoop& loop, const std::string& folder, const std::string& name,
                       std::string url)
    : m_url(std::move(url)),
      m_file(loop, folder.empty() ? "" : folder + "/push-" + name + ".json",
             [this](const std::string& error) { std::exchange(m_saved, nullptr)(error); }) {}

bool PushCursor::Load(std::int64_t since, std::string& error) {
  if (Read(since, error)) {
    return true;
  }
  // The server may have some of it already, which costs less than rows that it never gets.
  m_since = 0;
  std::error_code ignored;
  std::filesystem::rename(m_file.Path(), m_file.Path() + ".bad", ignored);
  return false;
}

bool PushCursor::Read(std::int64_t since, std::string& error) {
  m_since = since;
  m_after = Json::Object();
  const std::string& path = m_file.Path();
  if (path.empty() || StampOf(path) == FileStamp{}) {
    return true;
  }
  try {
    Json file = ParseJson(ReadCheckedFile(path).text, kCursorLimits).value;
    if (!IsCursor(file)) {
      error = path + ": it is no file of this program's";
      return false;
    }
    if (file[kUrlMember].Text() == m_url) {
      m_since = file[kSinceMember].Whole();
      m_after = std::move(file[kAfterMember]);
    }
    return true;
  } catch (const PassingAccessError&) {
    // The file is as good as before.
    throw;
  } catch (const AccessError& fault) {
    error = fault.what();
    return false;
  }
}

bool PushCursor::Advance(const Json& next) {
  bool isNew = false;
  for (const JsonMember& member : next.Members()) {
    // First, so that without memory for it the record stands where it stood.
    Json copy = member.value;
    Json& place = m_after[member.name];
    isNew = isNew || !(place == copy);
    place = std::move(copy);
  }
  return isNew;
}

void PushCursor::Save(Saved done) {
  m_saved = std::move(done);
  m_file.Write(
      JsonText(Json{{kUrlMember, m_url}, {kSinceMember, m_since}, {kAfterMember, m_after}}) + '\n');
}
