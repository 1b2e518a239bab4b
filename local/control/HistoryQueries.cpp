#include "local/control/HistoryQueries.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "json/JsonText.h"
#include "json/RowText.h"
#include "local/control/AskedRecords.h"
#include "local/control/HistoryPoints.h"
#include "local/control/HistoryScan.h"
#include "local/control/HistoryTurns.h"
#include "local/control/RowChoices.h"
#include "local/history/HistoryTables.h"
#include "node/LayoutRegistry.h"

namespace {

using Number = std::int64_t;

struct WantedHistory {
  const RecordLayout* layout = nullptr;
  RowChoices choices;
  std::optional<Number> since;
  std::optional<Number> until;
  std::optional<RowPlace> after;
  std::optional<Number> at;
};

/// A whole number that `Number` holds: one beyond it would turn into another.
bool IsNumber(const Json& value) {
  return value.IsWhole() &&
         (!value.IsUnsigned() ||
          value.Unsigned() <= static_cast<std::uint64_t>(std::numeric_limits<Number>::max()));
}

std::optional<ControlError> ReadNumber(const Json& message, const char* name,
                                       std::optional<Number>& target) {
  const Json* member = message.Find(name);
  if (member == nullptr) {
    return std::nullopt;
  }
  if (!IsNumber(*member)) {
    return ControlError{"bad-field", std::string(name) + " must be a whole number of 64 bits",
                        name};
  }
  target = member->Whole();
  return std::nullopt;
}

std::optional<ControlError> ReadAfter(const Json& message, std::optional<RowPlace>& place) {
  const Json* after = message.Find("after");
  if (after == nullptr) {
    return std::nullopt;
  }
  if (!after->IsArray() || after->Size() != 2 || !IsNumber((*after)[0]) || !IsNumber((*after)[1])) {
    return ControlError{"bad-field", "after must be the \"next\" of an answer", "after"};
  }
  place = RowPlace{(*after)[0].Whole(), (*after)[1].Whole()};
  return std::nullopt;
}

/// Rows of many times come by their time only, as they are read page by page.
std::optional<ControlError> CheckSort(const WantedHistory& wanted) {
  const auto& sort = wanted.choices.Sort();
  if (wanted.at || sort.empty() || (sort.size() == 1 && sort[0].Field().label == kTimeLabel)) {
    return std::nullopt;
  }
  return ControlError{
      "bad-field",
      "sort takes \"" + std::string(kTimeLabel) + "\" alone, with + or -, unless there is an at",
      "sort"};
}

/// "-Record Time" is newest first; without a sign the order is that of the rows themselves.
bool IsNewestFirst(const Json& message) {
  const Json* sort = message.Find("sort");
  return sort != nullptr && sort->Size() == 1 && Trimmed((*sort)[0].Text()).starts_with('-');
}

std::variant<WantedHistory, ControlError> ReadWantedHistory(const Json& message) {
  const Json* record = message.Find("record");
  if (record == nullptr || !record->IsString()) {
    return ControlError{"bad-field", "record must be the name of a record", "record"};
  }
  auto category = ReadCategory(message);
  if (auto* error = std::get_if<ControlError>(&category)) {
    return std::move(*error);
  }
  WantedHistory wanted;
  const auto& name = record->Text();
  wanted.layout = LayoutRegistry::Instance().Find(name, std::get<unsigned char>(category));
  if (wanted.layout == nullptr) {
    return ControlError{"unknown-record", "no record \"" + name + "\"", "record"};
  }
  for (auto& error :
       {ReadNumber(message, "since", wanted.since), ReadNumber(message, "until", wanted.until),
        ReadNumber(message, "at", wanted.at), ReadAfter(message, wanted.after)}) {
    if (error) {
      return *error;
    }
  }
  auto choices = RowChoices::Read(message, wanted.layout);
  if (auto* error = std::get_if<ControlError>(&choices)) {
    return std::move(*error);
  }
  wanted.choices = std::get<RowChoices>(std::move(choices));
  if (auto error = CheckSort(wanted)) {
    return *std::move(error);
  }
  return wanted;
}

std::vector<std::size_t> FieldsToShow(const WantedHistory& wanted) {
  std::vector<std::size_t> fields = wanted.choices.Columns();
  if (fields.empty()) {
    fields.resize(wanted.layout->fields.size());
    std::iota(fields.begin(), fields.end(), std::size_t{0});
  }
  return fields;
}

std::vector<std::size_t> FieldsToChooseBy(const WantedHistory& wanted) {
  std::vector<std::size_t> fields;
  for (const RowCondition& condition : wanted.choices.Where()) {
    fields.push_back(condition.Field().place);
  }
  for (const RowOrder& order : wanted.choices.Sort()) {
    fields.push_back(order.Field().place);
  }
  return fields;
}

std::function<Json(std::size_t)> ValuesOf(const HistoryRow& row) {
  return [&row](std::size_t place) { return row.Value(place); };
}

/// One page of rows, and where the next one begins.
class Page {
 public:
  void Add(const Json& row) {
    m_rows += m_count++ == 0 ? "" : ",";
    m_rows += JsonText(row);
  }
  [[nodiscard]] std::size_t Count() const { return m_count; }
  /// The rows with a comma between two.
  [[nodiscard]] std::string TakeRows() { return std::move(m_rows); }

  Json next = nullptr;

 private:
  /// Put into words at once: a tree of a page's rows takes several times the memory.
  std::string m_rows;
  std::size_t m_count = 0;
};

std::size_t PageRows(const WantedHistory& wanted) {
  return std::min(HistoryQueries::kPageRows,
                  wanted.choices.Limit().value_or(HistoryQueries::kPageRows));
}

Json NextOf(const RowPlace& place) { return Json::Array({place.time, place.row}); }

Page ReadPage(SqlDatabase& database, const WantedHistory& wanted, const HistoryRange& range) {
  std::vector<std::size_t> fields = FieldsToShow(wanted);
  const auto others = FieldsToChooseBy(wanted);
  fields.insert(fields.end(), others.begin(), others.end());
  HistoryScan scan(*wanted.layout, fields, range);
  const std::size_t most = PageRows(wanted);
  Page page;
  const bool isMore = scan.Slice(
      database, std::chrono::milliseconds(HistoryQueries::kPageMilliseconds),
      [&](const HistoryRow& row) {
        if (wanted.choices.Holds(ValuesOf(row))) {
          page.Add(wanted.choices.MakeRow(*wanted.layout, ValuesOf(row)));
        }
        return page.Count() == most ? HistoryScan::Then::kStop : HistoryScan::Then::kGoOn;
      });
  if (isMore) {
    page.next = NextOf(*scan.Last());
  }
  return page;
}

void AnswerPage(const ControlRequest& request, const WantedHistory& wanted, Page page) {
  std::string head = request.AnswerHead() + ",\"history\":";
  head += JsonText(Json{{"record", wanted.layout->name},
                        {"category", std::string(1, static_cast<char>(wanted.layout->category))}});
  head.back() = ',';
  std::string text = page.TakeRows();
  text.insert(0, head + "\"rows\":[");
  text += "],\"next\":" + JsonText(page.next) + "}}";
  request.Peer().Answer(std::move(text));
}

/// A page of the rows of one time, sorted: all of them are looked at, those of the page are read.
class SortedPage {
 public:
  SortedPage(std::shared_ptr<ControlRequest> request, const WantedHistory& wanted, Number time)
      : m_request(std::move(request)),
        m_wanted(wanted),
        m_scan(*wanted.layout, FieldsToChooseBy(wanted), {time, time}),
        m_rows(*wanted.layout, FieldsToShow(wanted), {}) {}

  /// A turn of reading; see HistoryTurn.
  bool Read(SqlDatabase& database) {
    const bool isMore = m_scan.Slice(database, kRequestTurn, [this](const HistoryRow& row) {
      if (m_wanted.choices.Holds(ValuesOf(row))) {
        m_found.push_back({row.Place(), m_wanted.choices.SortKeys(ValuesOf(row))});
      }
      return m_found.size() > kMaxSorted ? HistoryScan::Then::kStop : HistoryScan::Then::kGoOn;
    });
    if (m_found.size() > kMaxSorted) {
      m_request->Fail({"bad-field",
                       "there are more than " + std::to_string(kMaxSorted) +
                           " rows of one time: they are not sorted",
                       "sort"});
      return false;
    }
    if (isMore) {
      return true;
    }
    std::ranges::stable_sort(m_found, [this](const Found& a, const Found& b) {
      return m_wanted.choices.ComesBefore(a.keys, b.keys);
    });
    Answer(database);
    return false;
  }

 private:
  /// More rows than these a turn would not sort in its time.
  static constexpr std::size_t kMaxSorted = 10000;

  struct Found {
    RowPlace place;
    std::vector<Json> keys;
  };

  void Answer(SqlDatabase& database) {
    auto next = m_found.begin();
    if (m_wanted.after) {
      next = std::ranges::find(m_found, m_wanted.after->row,
                               [](const Found& found) { return found.place.row; });
      if (next == m_found.end()) {
        m_request->Fail({"bad-field", "the row to go on from is there no more", "after"});
        return;
      }
      ++next;
    }
    const auto end = std::chrono::steady_clock::now() + kRequestTurn;
    const std::size_t most = PageRows(m_wanted);
    Page page;
    while (next != m_found.end() && page.Count() < most) {
      m_rows.Fetch(database, next->place.row, [&](const HistoryRow& row) {
        page.Add(m_wanted.choices.MakeRow(*m_wanted.layout, ValuesOf(row)));
      });
      ++next;
      if (std::chrono::steady_clock::now() >= end) {
        break;
      }
    }
    if (next != m_found.end()) {
      page.next = NextOf((next - 1)->place);
    }
    AnswerPage(*m_request, m_wanted, std::move(page));
  }

  std::shared_ptr<ControlRequest> m_request;
  WantedHistory m_wanted;
  HistoryScan m_scan;  ///< of what is chosen and sorted by
  HistoryScan m_rows;  ///< of what is shown
  std::vector<Found> m_found;
};

/// A turn at the answer with rows; see HistoryTurn. `sorted` is what further turns go on with.
bool AnswerRows(SqlDatabase& database, const std::shared_ptr<ControlRequest>& request,
                const WantedHistory& wanted, std::shared_ptr<SortedPage>& sorted) {
  HistoryRange range{.after = wanted.after, .isNewestFirst = IsNewestFirst(request->Message())};
  range.since = wanted.since.value_or(range.since);
  range.until = wanted.until.value_or(range.until);
  if (wanted.at && !sorted) {
    const bool isKept = HasTable(database, wanted.layout->name);
    const auto time =
        isKept ? NearestTime(database, wanted.layout->name, *wanted.at) : std::nullopt;
    if (!time) {
      AnswerPage(*request, wanted, {});
      return false;
    }
    if (!wanted.choices.Sort().empty()) {
      sorted = std::make_shared<SortedPage>(request, wanted, *time);
    }
    range.since = range.until = *time;
  }
  if (sorted) {
    return sorted->Read(database);
  }
  AnswerPage(*request, wanted, ReadPage(database, wanted, range));
  return false;
}

}  // namespace

void HistoryQueries::History(const std::shared_ptr<ControlRequest>& request) {
  const Json& message = request->Message();
  auto read = ReadWantedHistory(message);
  if (const auto* error = std::get_if<ControlError>(&read)) {
    request->Fail(*error);
    return;
  }
  const auto& wanted = std::get<WantedHistory>(read);
  if (message.Find("points") != nullptr || message.Find("by") != nullptr) {
    const auto points =
        ReadPoints(message, *wanted.layout, wanted.choices, wanted.since, wanted.until);
    if (const auto* error = std::get_if<ControlError>(&points)) {
      request->Fail(*error);
      return;
    }
    AnswerPoints(m_turns, request, std::get<PointsRequest>(points));
    return;
  }
  m_turns.Add(request, [request, wanted,
                        sorted = std::shared_ptr<SortedPage>()](SqlDatabase& database) mutable {
    return AnswerRows(database, request, wanted, sorted);
  });
}
