#include "local/control/FollowQueries.h"

#include <algorithm>
#include <ctime>
#include <deque>
#include <limits>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>

#include "json/JsonText.h"
#include "local/control/RowChoices.h"
#include "node/LayoutRegistry.h"

namespace {

constexpr std::size_t kFollowedPieceSize = 65536;
constexpr std::size_t kMostFollowed = 1024;

/// What a follower wants to be told.
struct FollowChoice {
  std::optional<std::set<std::string>> records;  ///< nothing: all of them
  RowChoices rows;
};

std::variant<FollowChoice, ControlError> ReadFollowChoice(const Json& message) {
  FollowChoice choice;
  auto rows = RowChoices::Read(message, nullptr);
  if (auto* error = std::get_if<ControlError>(&rows)) {
    return std::move(*error);
  }
  choice.rows = std::get<RowChoices>(std::move(rows));
  const Json* records = message.Find("records");
  if (records == nullptr) {
    return choice;
  }
  if (!records->IsArray() || records->Size() > kMostFollowed) {
    return ControlError{"bad-field",
                        "records must be an array of at most " + std::to_string(kMostFollowed) +
                            " names of records",
                        "records"};
  }
  choice.records.emplace();
  for (const Json& record : records->Elements()) {
    if (!record.IsString()) {
      return ControlError{"bad-field", "records must hold names of records", "records"};
    }
    if (LayoutRegistry::Instance().Find(record.Text()) == nullptr) {
      return ControlError{"bad-field", "no record \"" + record.Text() + "\"", "records"};
    }
    choice.records->insert(record.Text());
  }
  return choice;
}

}  // namespace

struct FollowQueries::Rows {
  const RecordLayout* layout;
  std::shared_ptr<const KeptRows> kept;
};

struct FollowQueries::Batch {
  Batch(std::uint64_t place, std::shared_ptr<std::size_t> total)
      : number(place), waiting(std::move(total)) {}
  ~Batch() { *waiting -= bytes; }
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  void Add(Rows rows) {
    // Rows that are not logged are not here and not counted, though the owner keeps the answer
    // whole.
    for (const std::span<const unsigned char> row : rows.kept->rows) {
      // Its place among the rows, and its record's among those of the owner.
      constexpr std::size_t kPlaces = sizeof(std::span<const unsigned char>) + sizeof(void*);
      const std::size_t size = row.size() + kPlaces;
      bytes += size;
      *waiting += size;
    }
    records.push_back(std::move(rows));
  }

  std::uint64_t number;
  std::vector<Rows> records;
  std::size_t bytes = 0;
  std::shared_ptr<std::size_t> waiting;  ///< the bytes of all batches that somebody holds
};

/// One client, and the batches that it has not been told yet.
class FollowQueries::Follower {
 public:
  Follower(const ControlRequest& request, FollowChoice choice)
      : m_peer(request.SharedPeer()),
        m_choice(std::move(choice)),
        m_text(request.AnswerHead() + "}\n") {}

  [[nodiscard]] bool IsGone() const {
    const std::shared_ptr<ControlPeer> peer = m_peer.lock();
    return peer == nullptr || peer->IsGone();
  }

  /// False if the client is too far behind.
  bool Take(const std::shared_ptr<const Batch>& batch) {
    if (!std::ranges::any_of(batch->records, [&](const Rows& rows) { return IsWanted(rows); })) {
      return true;
    }
    if (m_batches.size() >= kMostBehind) {
      return false;
    }
    m_batches.push_back(batch);
    if (const std::shared_ptr<ControlPeer> peer = m_peer.lock(); peer != nullptr) {
      peer->Continue();
    }
    return true;
  }

  /// Ends the connection; nothing waits any more.
  void Drop() {
    m_batches.clear();
    if (const std::shared_ptr<ControlPeer> peer = m_peer.lock(); peer != nullptr) {
      peer->Abandon();
    }
  }

  /// The number of the oldest batch that waits; the greatest there is for none.
  [[nodiscard]] std::uint64_t Oldest() const {
    return m_batches.empty() ? std::numeric_limits<std::uint64_t>::max()
                             : m_batches.front()->number;
  }

  /// The pieces of the answer, see AnswerPieces.
  bool Next(std::string& piece) {
    while (m_text.size() < kFollowedPieceSize && !m_batches.empty()) {
      AddNext();
    }
    piece = std::exchange(m_text, {});
    return !m_batches.empty();
  }

 private:
  [[nodiscard]] bool IsWanted(const Rows& rows) const {
    return !m_choice.records || m_choice.records->contains(rows.layout->name);
  }

  /// A part of the present record's line, or the line at the end of the batch.
  void AddNext() {
    const std::vector<Rows>& records = m_batches.front()->records;
    while (m_place < records.size() && !IsWanted(records[m_place])) {
      ++m_place;
    }
    if (m_place < records.size()) {
      AddPart(records[m_place]);
      return;
    }
    m_text += JsonText(Json{{"event", "batch"}, {"time", m_time}}) + '\n';
    m_batches.pop_front();
    m_place = 0;
    m_time = 0;
  }

  void AddPart(const Rows& rows) {
    if (!std::exchange(m_isBegun, true)) {
      m_text +=
          JsonText(Json{{"event", "rows"},
                        {"record", rows.layout->name},
                        {"category", std::string(1, static_cast<char>(rows.layout->category))},
                        {"time", rows.kept->time}});
      m_text.back() = ',';
      m_text += "\"rows\":[";
      m_time = std::max(m_time, rows.kept->time);
    }
    if (m_row < rows.kept->rows.size()) {
      m_text += m_row == 0 ? "" : ",";
      m_text += JsonText(m_choice.rows.RowJson(*rows.layout, rows.kept->rows[m_row]));
      ++m_row;
      return;
    }
    m_text += "]}\n";
    ++m_place;
    m_row = 0;
    m_isBegun = false;
  }

  std::weak_ptr<ControlPeer> m_peer;
  FollowChoice m_choice;
  std::string m_text;  ///< the next piece
  std::deque<std::shared_ptr<const Batch>> m_batches;
  std::size_t m_place = 0;  ///< the record at work in the first batch
  std::size_t m_row = 0;    ///< its next row
  bool m_isBegun = false;   ///< whether the head of its line has been given
  std::time_t m_time = 0;   ///< the greatest of the batch so far
};

FollowQueries::~FollowQueries() = default;

void FollowQueries::Follow(const std::shared_ptr<ControlRequest>& request) {
  auto choice = ReadFollowChoice(request->Message());
  if (const auto* error = std::get_if<ControlError>(&choice)) {
    request->Fail(*error);
    return;
  }
  std::erase_if(m_followers, [](const auto& one) { return one->IsGone(); });
  if (m_followers.size() >= kMostFollowers && !request->Peer().IsGate()) {
    request->Fail({"busy", std::to_string(kMostFollowers) + " clients follow already", ""});
    return;
  }
  const auto follower =
      std::make_shared<Follower>(*request, std::get<FollowChoice>(std::move(choice)));
  m_followers.reserve(std::max(kMostFollowers, m_followers.size() + 1));
  request->Peer().AnswerWithoutEnd(
      [follower](std::string& piece) { return follower->Next(piece); });
  // Whose answer has not begun holds no place.
  m_followers.push_back(follower);
}

void FollowQueries::Take(const ScheduledRows& rows) {
  if (m_followers.empty()) {
    return;
  }
  const RecordLayout* layout = LayoutRegistry::Instance().Find(rows.record, rows.category);
  if (layout == nullptr) {
    return;
  }
  if (m_batch == nullptr) {
    m_batch = std::make_shared<Batch>(++m_batches, m_bytes);
  }
  m_batch->Add({layout, m_lastRows.Find(rows.record, rows.category)});
}

void FollowQueries::EndBatch() {
  const std::shared_ptr<const Batch> batch = std::exchange(m_batch, nullptr);
  if (batch == nullptr) {
    return;
  }
  // Memory may end in this loop, so it leaves the list as it is.
  for (const std::shared_ptr<Follower>& follower : m_followers) {
    if (!follower->IsGone() && !follower->Take(batch)) {
      follower->Drop();
      m_report("A client that follows the schedules is dropped: it is more than " +
               std::to_string(kMostBehind) + " batches behind");
    }
  }
  std::erase_if(m_followers, [](const auto& one) { return one->IsGone(); });
  BoundBytes();
}

void FollowQueries::BoundBytes() {
  while (*m_bytes > m_mostBytes) {
    const auto last = std::ranges::min_element(
        m_followers, {}, [](const auto& follower) { return follower->Oldest(); });
    // The newest rows are kept anyway.
    if (last == m_followers.end() || (*last)->Oldest() >= m_batches) {
      return;
    }
    (*last)->Drop();
    m_followers.erase(last);
    m_report("A client that follows the schedules is dropped: rows of more than " +
             std::to_string(m_mostBytes) + " bytes wait for such clients");
  }
}
