#include "gate/push/SampleAnswer.h"

#include <algorithm>
#include <optional>

#include "json/JsonText.h"

namespace {

constexpr JsonLimits kHeadLimits{.depth = 8};

std::optional<std::uint64_t> CountMember(const Json& object, const char* name) {
  const Json* member = object.Find(name);
  return member != nullptr && member->IsUnsigned() ? std::optional(member->Unsigned())
                                                   : std::nullopt;
}

/// Whether it is {"RECORD":[TIME,ROW],...}.
bool IsPlaces(const Json& value) {
  return value.IsObject() && std::ranges::all_of(value.Members(), [](const JsonMember& member) {
           return member.value.IsArray() && member.value.Size() == 2 && member.value[0].IsWhole() &&
                  member.value[1].IsWhole();
         });
}

std::string ErrorWords(const Json& line) {
  const Json* error = line.Find("error");
  const Json* message = error == nullptr ? nullptr : error->Find("message");
  return message != nullptr && message->IsString() ? "the daemon: " + message->Text()
                                                   : "the daemon's answer can't be read";
}

}  // namespace

bool SampleAnswer::Take(std::string_view bytes) {
  if (!m_error.empty()) {
    return false;
  }
  if (!m_hasHead) {
    const std::size_t end = bytes.find('\n');
    m_head += bytes.substr(0, end);
    if (m_head.size() > kMostHead) {
      m_error = ErrorWords(Json());
      return false;
    }
    if (end == std::string_view::npos) {
      return true;
    }
    bytes.remove_prefix(end + 1);
    ReadHead(std::exchange(m_head, {}));
  }
  if (m_error.empty()) {
    m_text += bytes.substr(0, m_size - m_text.size());
  }
  return m_error.empty() && !IsWhole();
}

void SampleAnswer::ReadHead(std::string_view line) {
  const Json head = ParseJson(line, kHeadLimits).value;
  const Json* samples = head.Find("samples");
  const Json* next = samples == nullptr ? nullptr : samples->Find("next");
  const Json* more = samples == nullptr ? nullptr : samples->Find("more");
  const std::optional<std::uint64_t> size =
      samples == nullptr ? std::nullopt : CountMember(*samples, "bytes");
  if (next == nullptr || !IsPlaces(*next) || more == nullptr || !more->IsBool() || !size ||
      *size > kMostText) {
    m_error = ErrorWords(head);
    return;
  }
  m_hasHead = true;
  m_next = *next;
  m_hasMore = more->Bool();
  m_size = *size;
  m_rows = CountMember(*samples, "rows").value_or(0);
  constexpr std::uint64_t kLongestWait = 86400;
  m_wait = std::chrono::seconds(std::min(CountMember(*samples, "wait").value_or(0), kLongestWait));
  // A time beyond reason would be told on and on.
  constexpr std::uint64_t kLastTime = std::uint64_t{1} << 40;
  m_oldest =
      static_cast<std::int64_t>(std::min(CountMember(*samples, "oldest").value_or(0), kLastTime));
  m_text.reserve(m_size);
}
