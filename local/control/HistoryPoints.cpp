#include "local/control/HistoryPoints.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "json/JsonText.h"
#include "local/control/BucketSeries.h"
#include "local/control/HistoryScan.h"
#include "local/history/HistoryTables.h"

namespace {

constexpr std::int64_t kMaxPoints = 2000;
constexpr std::size_t kMaxColumns = 16;
/// Differences of such times are whole numbers of 64 bits.
constexpr std::int64_t kMaxPointTime = std::int64_t{1} << 53U;

ControlError WrongPoints(const char* name, const std::string& words) {
  return {"bad-field", words, name};
}

std::optional<ControlError> CheckPoints(const Json& message) {
  const Json* points = message.Find("points");
  if (points == nullptr) {
    return WrongPoints("by", "by is taken with points only");
  }
  if (!points->IsWhole() || !(points->Number() >= 1 && points->Number() <= kMaxPoints)) {
    return WrongPoints("points",
                       "points must be a whole number from 1 to " + std::to_string(kMaxPoints));
  }
  for (const char* name : {"at", "after", "sort", "limit"}) {
    if (message.Find(name) != nullptr) {
      return WrongPoints(name, std::string(name) + " is not taken with points");
    }
  }
  return std::nullopt;
}

std::optional<ControlError> CheckColumns(const RecordLayout& layout, const RowChoices& choices) {
  if (choices.Columns().empty() || choices.Columns().size() > kMaxColumns) {
    return WrongPoints("columns", "points need 1 to " + std::to_string(kMaxColumns) + " columns");
  }
  for (const std::size_t place : choices.Columns()) {
    if (layout.fields[place].type == FieldType::kText) {
      return WrongPoints("columns", "\"" + std::string(layout.fields[place].label) +
                                        "\" is no number, so it has no points");
    }
  }
  return std::nullopt;
}

std::optional<ControlError> CheckTimes(std::optional<std::int64_t> since,
                                       std::optional<std::int64_t> until) {
  const auto isFar = [](std::optional<std::int64_t> time) {
    return time && (*time < -kMaxPointTime || *time > kMaxPointTime);
  };
  for (const auto& [name, time] : {std::pair("since", since), std::pair("until", until)}) {
    if (isFar(time)) {
      return WrongPoints(name, std::string(name) + " is too far away for points");
    }
  }
  if (since && *since > until.value_or(std::time(nullptr))) {
    return WrongPoints("since", "since lies behind the end of the range");
  }
  return std::nullopt;
}

std::variant<std::vector<std::size_t>, ControlError> ReadBy(const Json& message,
                                                            const RecordLayout& layout,
                                                            const RowChoices& choices) {
  std::vector<std::size_t> places;
  if (message.Find("by") == nullptr) {
    for (std::size_t place = 0; place < layout.fields.size(); ++place) {
      if (layout.fields[place].meaning == FieldMeaning::key) {
        places.push_back(place);
      }
    }
    return places;
  }
  auto texts = ReadTexts(message, "by");
  if (auto* error = std::get_if<ControlError>(&texts)) {
    return std::move(*error);
  }
  try {
    for (const std::string& text : std::get<0>(texts)) {
      const std::size_t place = choices.Find(layout, text).place;
      if (std::ranges::find(places, place) == places.end()) {
        places.push_back(place);
      }
    }
  } catch (const std::invalid_argument& error) {
    return WrongPoints("by", error.what());
  }
  return places;
}

/// The range in which the points lie; a missing begin is the oldest row's time.
Buckets CutRange(SqlDatabase& database, const PointsRequest& wanted) {
  const std::int64_t until = wanted.until.value_or(std::time(nullptr));
  std::int64_t since = until;
  if (wanted.since) {
    since = *wanted.since;
  } else if (HasTable(database, wanted.layout->name)) {
    SqlStatement oldest = database.Prepare("SELECT min(" + QuotedName(kTimeLabel) + ") FROM " +
                                           QuotedName(wanted.layout->name));
    if (oldest.Step() && !oldest.IsNull(0)) {
      since = std::clamp(oldest.Whole(0), -kMaxPointTime, until);
    }
  }
  return {since, until, wanted.points};
}

std::vector<std::size_t> NeededFields(const PointsRequest& wanted) {
  std::vector<std::size_t> fields = wanted.by;
  for (const std::size_t place : wanted.choices.Columns()) {
    fields.push_back(place);
  }
  for (const RowCondition& condition : wanted.choices.Where()) {
    fields.push_back(condition.Field().place);
  }
  return fields;
}

/// One answer on its way: the rows are read, then its text is made as the client takes it.
class PointsAnswer : public std::enable_shared_from_this<PointsAnswer> {
 public:
  PointsAnswer(std::shared_ptr<ControlRequest> request, PointsRequest wanted)
      : m_request(std::move(request)), m_wanted(std::move(wanted)) {}

  /// A turn of reading; see HistoryTurn.
  bool Read(SqlDatabase& database) {
    if (!m_scan) {
      Begin(database);
    }
    if (m_scan->Slice(database, kRequestTurn, [this](const HistoryRow& row) { return Add(row); })) {
      if (m_isTooMuch) {
        m_request->Fail(WrongPoints("by", "there are more than " +
                                              std::to_string(BucketSeries::kMaxKeys) +
                                              " different keys: choose others by \"by\""));
      }
      return !m_isTooMuch;
    }
    if (m_series->WantsSecondLook()) {
      m_scan.reset();
      return true;
    }
    Send();
    return false;
  }

 private:
  static constexpr std::size_t kPieceBytes = 65536;

  void Begin(SqlDatabase& database) {
    if (!m_series) {
      m_series.emplace(CutRange(database, m_wanted), m_wanted.choices.Columns().size());
    }
    const Buckets& cut = m_series->Cut();
    m_scan.emplace(*m_wanted.layout, NeededFields(m_wanted), HistoryRange{cut.since, cut.until});
  }

  HistoryScan::Then Add(const HistoryRow& row) {
    const auto valueAt = [&row](std::size_t place) { return row.Value(place); };
    if (!m_wanted.choices.Holds(valueAt)) {
      return HistoryScan::Then::kGoOn;
    }
    m_key.clear();
    for (const std::size_t place : m_wanted.by) {
      row.AppendKey(place, m_key);
    }
    m_values.clear();
    for (const std::size_t place : m_wanted.choices.Columns()) {
      m_values.push_back(row.Number(place));
    }
    m_isTooMuch = !m_series->Add(m_key, row.Place().time, m_values, [&] {
      Json key = Json::Object();
      for (const std::size_t place : m_wanted.by) {
        key[m_wanted.layout->fields[place].label] = row.Value(place);
      }
      return key;
    });
    return m_isTooMuch ? HistoryScan::Then::kStop : HistoryScan::Then::kGoOn;
  }

  void Send() {
    const Buckets& cut = m_series->Cut();
    m_text =
        JsonText(Json{{"record", m_wanted.layout->name},
                      {"category", std::string(1, static_cast<char>(m_wanted.layout->category))},
                      {"since", cut.since},
                      {"until", cut.until},
                      {"seconds", cut.seconds}});
    m_text.back() = ',';
    m_text = m_request->AnswerHead() + ",\"history\":" + m_text + "\"series\":[";
    m_request->Peer().AnswerInPieces(
        [self = shared_from_this()](std::string& piece) { return self->NextPiece(piece); });
  }

  bool NextPiece(std::string& piece) {
    while (m_text.size() < kPieceBytes && m_place < m_series->Size()) {
      AppendColumn();
    }
    const bool isMore = m_place < m_series->Size();
    piece = std::exchange(m_text, {});
    if (!isMore) {
      piece += "],\"omitted\":" + std::to_string(m_series->Omitted()) + "}}";
    }
    return isMore;
  }

  /// The next column of the present series, with the series' head or end if it is at one.
  void AppendColumn() {
    const auto& columns = m_wanted.choices.Columns();
    if (m_column == 0) {
      m_text += m_place == 0 ? "{\"key\":" : ",{\"key\":";
      m_text += JsonText(m_series->Key(m_place)) + ",\"points\":{";
    }
    m_text += m_column == 0 ? "" : ",";
    m_text += JsonText(m_wanted.layout->fields[columns[m_column]].label) + ":[";
    m_series->AppendPoints(m_place, m_column, m_text);
    m_text += ']';
    if (++m_column == columns.size()) {
      m_text += "}}";
      m_column = 0;
      ++m_place;
    }
  }

  std::shared_ptr<ControlRequest> m_request;
  PointsRequest m_wanted;
  std::optional<BucketSeries> m_series;
  std::optional<HistoryScan> m_scan;
  std::string m_key;                            ///< of the row at work
  std::vector<std::optional<double>> m_values;  ///< the same
  bool m_isTooMuch = false;
  std::string m_text;        ///< what the client takes next
  std::size_t m_place = 0;   ///< of the series to put into words
  std::size_t m_column = 0;  ///< of its column
};

}  // namespace

std::variant<PointsRequest, ControlError> ReadPoints(const Json& message,
                                                     const RecordLayout& layout,
                                                     const RowChoices& choices,
                                                     std::optional<std::int64_t> since,
                                                     std::optional<std::int64_t> until) {
  for (auto& error :
       {CheckPoints(message), CheckColumns(layout, choices), CheckTimes(since, until)}) {
    if (error) {
      return *error;
    }
  }
  auto by = ReadBy(message, layout, choices);
  if (auto* error = std::get_if<ControlError>(&by)) {
    return std::move(*error);
  }
  return PointsRequest{&layout, choices, std::get<0>(std::move(by)), message["points"].Whole(),
                       since,   until};
}

void AnswerPoints(HistoryTurns& turns, const std::shared_ptr<ControlRequest>& request,
                  const PointsRequest& wanted) {
  const auto answer = std::make_shared<PointsAnswer>(request, wanted);
  turns.Add(request, [answer](SqlDatabase& database) { return answer->Read(database); });
}
