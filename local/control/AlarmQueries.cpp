#include "local/control/AlarmQueries.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "json/JsonText.h"
#include "local/alarm/AlarmRules.h"
#include "local/history/RowFields.h"

namespace {

constexpr std::size_t kAlarmPieceSize = 65536;

/// Which alarms are asked for.
struct AlarmRange {
  std::int64_t since = std::numeric_limits<std::int64_t>::min();
  std::int64_t until = std::numeric_limits<std::int64_t>::max();
  std::size_t limit = AlarmQueries::kUsualLimit;
  bool isActiveOnly = false;

  [[nodiscard]] bool Holds(const Json& alarm) const {
    const Json& end = alarm["until"];
    return alarm["since"].Whole() <= until && (end.IsNull() || end.Whole() >= since) &&
           (!isActiveOnly || end.IsNull());
  }
};

std::optional<ControlError> ReadMoment(const Json& message, const char* name,
                                       std::int64_t& moment) {
  const Json* member = message.Find(name);
  if (member == nullptr) {
    return std::nullopt;
  }
  // As a double any whole number can be compared.
  constexpr double kFarthest = 1e15;
  if (!member->IsWhole() || member->Number() < -kFarthest || member->Number() > kFarthest) {
    return ControlError{"bad-field",
                        std::string(name) + " must be a whole number of seconds since the epoch",
                        name};
  }
  moment = static_cast<std::int64_t>(member->Number());
  return std::nullopt;
}

std::variant<AlarmRange, ControlError> ReadAlarmRange(const Json& message) {
  AlarmRange range;
  if (auto error = ReadMoment(message, "since", range.since)) {
    return *std::move(error);
  }
  if (auto error = ReadMoment(message, "until", range.until)) {
    return *std::move(error);
  }
  if (const Json* limit = message.Find("limit"); limit != nullptr) {
    if (!limit->IsUnsigned() || limit->Unsigned() < 1 ||
        limit->Unsigned() > AlarmQueries::kMostListed) {
      return ControlError{
          "bad-field",
          "limit must be a whole number from 1 to " + std::to_string(AlarmQueries::kMostListed),
          "limit"};
    }
    range.limit = limit->Unsigned();
  }
  if (const Json* state = message.Find("state"); state != nullptr) {
    if (!(*state == "active")) {
      return ControlError{"bad-field", "state must be \"active\"", "state"};
    }
    range.isActiveOnly = true;
  }
  return range;
}

/// The row of an alarm, written anew: the file may hold anything at all, which must not end the
/// line.
std::string WholeRow(const std::string& row) {
  const ParsedJson parsed = ParseJson(row);
  return parsed.value.IsObject() ? JsonText(parsed.value) : "{}";
}

/// The row of an alarm without what programs were started with.
std::string WithoutArguments(const std::string& row, const std::string& record) {
  const RecordLayout* layout = LayoutRegistry::Instance().Find(record);
  ParsedJson parsed = ParseJson(row);
  if (layout == nullptr || !parsed.value.IsObject()) {
    return "{}";
  }
  for (JsonMember& member : parsed.value.Members()) {
    const auto field = std::ranges::find_if(
        layout->fields, [&](const FieldLayout& each) { return member.name == each.label; });
    if (field == layout->fields.end() || HoldsArguments(*field)) {
      member.value = nullptr;
    }
  }
  return JsonText(parsed.value);
}

/// The answer to `alarm`: rows are read from the file as the client takes them.
class AlarmAnswer {
 public:
  AlarmAnswer(HistoryStore& history, std::string head, std::int64_t id, bool hasArguments)
      : m_history(history), m_text(std::move(head)), m_id(id), m_hasArguments(hasArguments) {}

  bool Next(std::string& piece) {
    bool isMore = false;
    try {
      if (SqlDatabase* database = m_history.Database(); database != nullptr) {
        isMore = Read(*database);
      }
    } catch (const SqlError&) {
      // What has been read is told.
    }
    if (!isMore) {
      m_text += m_record ? "]}]}}" : "]}}";
    }
    piece = std::exchange(m_text, {});
    return isMore;
  }

 private:
  bool Read(SqlDatabase& database) {
    bool isFull = false;
    m_after = AlarmHistory::ReadRows(database, m_id, m_after, [&](const CapturedRow& row) {
      Add(row);
      isFull = m_text.size() >= kAlarmPieceSize;
      return !isFull;
    });
    return isFull;
  }

  void Add(const CapturedRow& row) {
    if (m_record != row.record) {
      m_text += m_record ? "]}," : "";
      m_text += JsonText(Json{{"record", row.record}, {"time", row.time}});
      m_text.back() = ',';
      m_text += "\"rows\":[";
      m_record = row.record;
    } else {
      m_text += ',';
    }
    m_text += m_hasArguments ? WholeRow(row.row) : WithoutArguments(row.row, row.record);
  }

  HistoryStore& m_history;
  std::string m_text;
  std::int64_t m_id;
  bool m_hasArguments;
  std::int64_t m_after = 0;
  std::optional<std::string> m_record;  ///< the one whose rows are at work
};

std::optional<bool> ReadArguments(const Json& message) {
  const Json* arguments = message.Find("arguments");
  return arguments == nullptr  ? std::optional(true)
         : arguments->IsBool() ? std::optional(arguments->Bool())
                               : std::nullopt;
}

}  // namespace

/// One client that is told of each change.
class AlarmQueries::Follower {
 public:
  explicit Follower(const ControlRequest& request, const std::vector<Json>& active)
      : m_peer(request.SharedPeer()),
        m_text(request.AnswerHead() + ",\"alarms\":" + JsonText(Json(active)) + "}\n") {}

  [[nodiscard]] bool IsGone() const {
    const std::shared_ptr<ControlPeer> peer = m_peer.lock();
    return peer == nullptr || peer->IsGone();
  }
  /// False if the client is too far behind.
  bool Take(const std::string& line) {
    if (m_lines >= kMostBehind) {
      return false;
    }
    ++m_lines;
    m_text += line;
    if (const std::shared_ptr<ControlPeer> peer = m_peer.lock(); peer != nullptr) {
      peer->Continue();
    }
    return true;
  }
  void Drop() {
    m_text.clear();
    if (const std::shared_ptr<ControlPeer> peer = m_peer.lock(); peer != nullptr) {
      peer->Abandon();
    }
  }
  bool Next(std::string& piece) {
    piece = std::exchange(m_text, {});
    m_lines = 0;
    return false;
  }

 private:
  std::weak_ptr<ControlPeer> m_peer;
  std::string m_text;
  std::size_t m_lines = 0;
};

AlarmQueries::~AlarmQueries() = default;

void AlarmQueries::Serve(AlarmBook& book) {
  m_book = &book;
  book.OnChange([this](const Json& alarm) { Tell(alarm); });
}

Json AlarmQueries::DefinitionsJson() const {
  Json list = Json::Array();
  if (m_book == nullptr) {
    return list;
  }
  for (const auto& watch : m_book->Watches()) {
    const AlarmDefinition& definition = watch->Definition();
    list.PushBack(Json{{"alarm", definition.name},
                       {"record", definition.record},
                       {"severity", definition.severity},
                       {"state", AlarmBook::StateName(*watch)},
                       {"why", watch->Why()},
                       {"active", watch->Active()},
                       {"line", definition.line}});
  }
  return list;
}

void AlarmQueries::Alarms(const std::shared_ptr<ControlRequest>& request) {
  auto read = ReadAlarmRange(request->Message());
  if (const auto* error = std::get_if<ControlError>(&read)) {
    request->Fail(*error);
    return;
  }
  const AlarmRange range = std::get<AlarmRange>(read);
  std::vector<Json> known;
  if (m_book != nullptr) {
    known.assign(m_book->Recent().begin(), m_book->Recent().end());
    // The later one of a number counts, whose figures are the present ones.
    for (Json& alarm : m_book->Active()) {
      known.push_back(std::move(alarm));
    }
  }
  if (m_history.Database() == nullptr) {
    std::map<std::int64_t, Json> byId;
    for (Json& alarm : known) {
      const std::int64_t id = alarm["id"].Whole();
      byId.insert_or_assign(id, std::move(alarm));
    }
    std::vector<Json> list;
    for (auto& [id, alarm] : byId) {
      if (range.Holds(alarm)) {
        list.push_back(std::move(alarm));
      }
    }
    AnswerList(*request, std::move(list), range.limit);
    return;
  }
  AlarmHistory::Look look{range.since, range.until, range.isActiveOnly, range.limit};
  m_turns.Add(request, [this, request, range, look = std::move(look),
                        known = std::move(known)](SqlDatabase& database) mutable {
    if (AlarmHistory::Read(database, look, std::chrono::steady_clock::now() + kRequestTurn)) {
      return true;
    }
    std::map<std::int64_t, Json> byId;
    for (Json& alarm : look.found) {
      const std::int64_t id = alarm["id"].Whole();
      byId.insert_or_assign(id, std::move(alarm));
    }
    for (const Json& alarm : known) {
      byId.insert_or_assign(alarm["id"].Whole(), alarm);
    }
    std::vector<Json> list;
    for (auto& [id, alarm] : byId) {
      if (range.Holds(alarm)) {
        list.push_back(std::move(alarm));
      }
    }
    AnswerList(*request, std::move(list), range.limit);
    return false;
  });
}

void AlarmQueries::AnswerList(const ControlRequest& request, std::vector<Json> kept,
                              std::size_t limit) const {
  std::ranges::reverse(kept);
  kept.resize(std::min(kept.size(), limit));
  request.Succeed("alarms", Json{{"definitions", DefinitionsJson()},
                                 {"file", m_book == nullptr ? "" : m_book->File()},
                                 {"list", Json(std::move(kept))}});
}

void AlarmQueries::Alarm(const std::shared_ptr<ControlRequest>& request) {
  const Json* id = request->Message().Find("id");
  if (id == nullptr || !id->IsUnsigned() || id->Unsigned() > INT64_MAX) {
    request->Fail({"bad-field", "id must be the number of an alarm", "id"});
    return;
  }
  const std::optional<bool> hasArguments = ReadArguments(request->Message());
  if (!hasArguments) {
    request->Fail({"bad-field", "arguments must be true or false", "arguments"});
    return;
  }
  const auto number = static_cast<std::int64_t>(id->Unsigned());
  std::optional<Json> found;
  try {
    if (SqlDatabase* database = m_history.Database(); database != nullptr) {
      found = AlarmHistory::Find(*database, number);
    }
  } catch (const SqlError& error) {
    request->Fail({"no-history", std::string("the history can't be read: ") + error.what(), ""});
    return;
  }
  if (m_book != nullptr) {
    for (const auto& list :
         {std::vector<Json>(m_book->Recent().begin(), m_book->Recent().end()), m_book->Active()}) {
      for (const Json& alarm : list) {
        found = alarm["id"].Whole() == number ? std::optional(alarm) : found;
      }
    }
  }
  if (!found) {
    request->Fail({"unknown-alarm", "no alarm " + std::to_string(number), "id"});
    return;
  }
  std::string head = request->AnswerHead() + ",\"alarm\":" + JsonText(*found);
  head.back() = ',';
  head += "\"rows\":[";
  const auto answer =
      std::make_shared<AlarmAnswer>(m_history, std::move(head), number, *hasArguments);
  request->Peer().AnswerInPieces([answer](std::string& piece) { return answer->Next(piece); });
}

void AlarmQueries::Rules(const std::shared_ptr<ControlRequest>& request) const {
  std::vector<const AlarmDefinition*> definitions;
  if (m_book != nullptr) {
    for (const auto& watch : m_book->Watches()) {
      definitions.push_back(&watch->Definition());
    }
  }
  request->Succeed("rules", AlarmRules(definitions, [this](const std::string& record) {
                     return m_book->IntervalOf(record);
                   }));
}

void AlarmQueries::Follow(const std::shared_ptr<ControlRequest>& request) {
  std::erase_if(m_followers, [](const auto& one) { return one->IsGone(); });
  if (m_followers.size() >= kMostFollowers && !request->Peer().IsGate()) {
    request->Fail({"busy", std::to_string(kMostFollowers) + " clients follow alarms already", ""});
    return;
  }
  const auto follower = std::make_shared<Follower>(
      *request, m_book == nullptr ? std::vector<Json>{} : m_book->Active());
  m_followers.reserve(std::max(kMostFollowers, m_followers.size() + 1));
  request->Peer().AnswerWithoutEnd(
      [follower](std::string& piece) { return follower->Next(piece); });
  // Whose answer has not begun holds no place.
  m_followers.push_back(follower);
}

void AlarmQueries::Tell(const Json& alarm) {
  if (m_followers.empty()) {
    return;
  }
  const std::string line = JsonText(Json{{"event", "alarm"}, {"alarm", alarm}}) + '\n';
  // Memory may end in this loop, so it leaves the list as it is.
  for (const std::shared_ptr<Follower>& follower : m_followers) {
    if (!follower->IsGone() && !follower->Take(line)) {
      follower->Drop();
    }
  }
  std::erase_if(m_followers, [](const auto& one) { return one->IsGone(); });
}
