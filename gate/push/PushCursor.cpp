#include "gate/push/PushCursor.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "gate/access/AccessError.h"
#include "gate/access/CheckedFile.h"
#include "json/JsonText.h"
#include "support/AtomicFile.h"
#include "support/Descriptor.h"

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
    : m_path(folder.empty() ? "" : folder + "/push-" + name + ".json"),
      m_url(std::move(url)),
      m_soon(loop),
      m_written(loop) {}

PushCursor::~PushCursor() { Wait(); }

bool PushCursor::Load(std::int64_t since, std::string& error) {
  m_since = since;
  m_after = Json::Object();
  if (m_path.empty() || StampOf(m_path) == FileStamp{}) {
    return true;
  }
  try {
    Json file = ParseJson(ReadCheckedFile(m_path).text, kCursorLimits).value;
    if (!IsCursor(file)) {
      error = m_path + ": it is no file of this program's";
      return false;
    }
    if (file[kUrlMember].Text() == m_url) {
      m_since = file[kSinceMember].Whole();
      m_after = std::move(file[kAfterMember]);
    }
    return true;
  } catch (const AccessError& fault) {
    error = fault.what();
    return false;
  }
}

bool PushCursor::Advance(const Json& next) {
  bool isNew = false;
  for (const JsonMember& member : next.Members()) {
    Json& place = m_after[member.name];
    isNew = isNew || !(place == member.value);
    place = member.value;
  }
  return isNew;
}

void PushCursor::Wait() {
  if (m_writer.joinable()) {
    m_writer.join();
  }
}

void PushCursor::Save(Saved done) {
  m_saved = std::move(done);
  m_writeError.clear();
  if (m_path.empty()) {
    m_soon.After({}, [this] { OnSaved(); });
    return;
  }
  const Json file{{kUrlMember, m_url}, {kSinceMember, m_since}, {kAfterMember, m_after}};
  try {
    if (m_written.Get() < 0) {
      m_written.Take(Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
    }
    m_writer = std::thread([this, text = JsonText(file) + '\n'] {
      static_cast<void>(ReplaceFile(m_path, text, m_writeError));
      ::eventfd_write(m_written.Get(), 1);
    });
    Expect();
  } catch (const std::system_error& error) {
    m_writeError = m_path + ": " + error.what();
    m_soon.After({}, [this] { OnSaved(); });
  }
}

void PushCursor::Expect() {
  m_written.OnReadable([this] {
    ::eventfd_t count = 0;
    ::eventfd_read(m_written.Get(), &count) == 0 ? OnSaved() : Expect();
  });
}

void PushCursor::OnSaved() {
  Wait();
  std::exchange(m_saved, nullptr)(m_writeError);
}
