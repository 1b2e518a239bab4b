#include "client/view/View.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "client/ask/Errors.h"
#include "client/show/TimeText.h"
#include "client/view/ListedRows.h"
#include "client/view/RowMembers.h"

namespace {

/// The order of panes is that of their keys.
std::size_t PaneOf(const std::string& key) {
  const auto panes = PaneKinds();
  const auto pane = std::find_if(panes.begin(), panes.end(), [&](const PaneKind& one) {
    return key == std::string(1, one.key);
  });
  if (pane == panes.end()) {
    throw UsageError("no pane \"" + key + "\": 1 to " + std::to_string(panes.size()));
  }
  return static_cast<std::size_t>(pane - panes.begin());
}

}  // namespace

View::View(const std::string& socket, ColorMode color, const ViewOptions& options)
    : m_screen(color), m_feed(socket, options.everySeconds), m_every(options.everySeconds) {
  m_pane = options.pane.empty() ? 0 : PaneOf(options.pane);
  m_message = m_settings.Complaint();
  if (!options.at.empty()) {
    m_isNow = false;
    m_time = ParseTime(options.at, std::time(nullptr));
  }
}

void View::Run() {
  Wished();
  while (!m_isEnding) {
    if (m_isDirty) {
      m_isDirty = false;
      Draw();
    }
    std::array<pollfd, 3> wanted{
        {{STDIN_FILENO, POLLIN, 0}, {m_stop.Get(), POLLIN, 0}, {m_feed.Ready(), POLLIN, 0}}};
    constexpr int kSecond = 1000;
    const bool isWaiting = m_feed.Waiting() >= std::chrono::seconds(2);
    // Without an answer the seconds that it has taken are told.
    const int count = ::poll(wanted.data(), wanted.size(), kSecond);
    m_isDirty = m_isDirty || isWaiting;
    if (count > 0 && (wanted[1].revents != 0 || (wanted[0].revents & (POLLHUP | POLLERR)) != 0)) {
      return;
    }
    if (count > 0 && wanted[2].revents != 0) {
      TakeSight();
    }
    // A change of the terminal's size interrupts the waiting and is a key.
    TakeKeys();
  }
}

std::int64_t View::Now() const { return std::time(nullptr) + m_clockAhead; }

const PaneKind& View::Pane() const { return PaneKinds()[m_pane]; }

std::vector<const PaneRecord*> View::ServedRecords(const PaneKind& pane) const {
  std::vector<const PaneRecord*> served;
  for (const PaneRecord& record : pane.records) {
    const bool isServed =
        m_sight != nullptr &&
        std::any_of(m_sight->listing.begin(), m_sight->listing.end(),
                    [&](const Listing& one) { return one.served && one.record == record.record; });
    if (isServed) {
      served.push_back(&record);
    }
  }
  // What the daemon says of the first tells why there is none.
  if (served.empty() && !pane.records.empty()) {
    served.push_back(&pane.records.front());
  }
  return served;
}

const PaneRecord& View::CurrentRecord() {
  if (Pane().key == kAlarmPane) {
    return AlarmListKind();
  }
  if (Pane().key == kRecordPane) {
    if (m_openRecord.empty()) {
      return RecordListKind();
    }
    const auto [kind, isNew] = m_listedKinds.try_emplace(m_openRecord);
    if (isNew) {
      kind->second.record = m_openRecord;
      kind->second.title = m_openRecord;
    }
    return kind->second;
  }
  const std::vector<const PaneRecord*> served = ServedRecords(Pane());
  return *served[m_recordOfPane[m_pane] % served.size()];
}

RowView& View::RowsOf(const PaneRecord& kind) {
  const std::string name = std::string(1, Pane().key) + kind.record;
  const auto [place, isNew] = m_rows.try_emplace(name);
  if (isNew) {
    place->second = std::make_unique<RowView>(kind);
    if (!kind.record.empty()) {
      place->second->SetColumns(m_settings.ColumnsOf(kind.record));
    }
  }
  return *place->second;
}

RowView& View::Rows() { return RowsOf(CurrentRecord()); }

void View::AddWanted(Wish& wish, WantedRows wanted) const {
  const auto same = std::find_if(wish.records.begin(), wish.records.end(),
                                 [&](const auto& one) { return one.record == wanted.record; });
  if (same == wish.records.end()) {
    wish.records.push_back(std::move(wanted));
    return;
  }
  // One answer serves both: all rows, with the columns of both.
  same->where.clear();
  if (wanted.columns.empty()) {
    same->columns.clear();
  } else if (!same->columns.empty()) {
    same->columns.insert(same->columns.end(), wanted.columns.begin(), wanted.columns.end());
  }
}

void View::Wished(bool wantsTrends) {
  Wish wish;
  wish.number = ++m_wish;
  wish.moment = m_isNow ? Moment::kNow : Moment::kAt;
  wish.time = m_time;
  if (m_steps != 0 && m_sight != nullptr) {
    wish.moment = m_steps < 0 ? Moment::kBefore : Moment::kAfter;
    wish.time = m_isNow ? m_sight->time : m_time;
    wish.isFromNow = m_isNow;
    wish.count = static_cast<std::size_t>(std::abs(m_steps));
  }
  // Which records there are, the first answer tells.
  if (m_sight != nullptr) {
    wish.records = HeadRecords(m_sight->listing);
    const PaneRecord& current = CurrentRecord();
    wish.steps = current.record.empty() ? kHostRecord : current.record;
    if (m_detail) {
      Wish detail;
      m_detail->AddTo(detail);
      for (WantedRows& wanted : detail.records) {
        AddWanted(wish, std::move(wanted));
      }
      wish.process = detail.process;
      wish.plot = detail.plot;
      wish.alarm = detail.alarm;
    } else if (!current.record.empty()) {
      AddWanted(wish, Rows().Wanted());
    }
    wish.wantsAlarms = Pane().key == kAlarmPane;
    wish.wantsTrends = wantsTrends;
  }
  m_feed.Ask(std::move(wish));
  m_isDirty = true;
}

void View::TakeSight() {
  std::unique_ptr<Sight> sight = m_feed.Take();
  if (sight == nullptr || sight->wish != m_wish) {
    return;
  }
  m_isDirty = true;
  m_failure = sight->failure;
  if (m_failure.empty()) {
    Adopt(std::move(sight));
  }
}

void View::Adopt(std::unique_ptr<Sight> sight) {
  const bool isFirst = m_sight == nullptr;
  const bool wasNow = m_isNow;
  const bool isStep = m_steps != 0;
  m_sight = std::move(sight);
  if (!m_sight->note.empty()) {
    m_message = m_sight->note;
  }
  m_isNow = m_sight->isNow;
  m_time = m_sight->time;
  m_steps = 0;
  m_figures = ReadHeadFigures(*m_sight);
  if (!m_sight->trends.empty()) {
    m_trends.Fill(*m_sight);
  }
  if (m_isNow && !isFirst) {
    m_trends.Add(m_sight->time, m_every, m_figures);
  }
  UpdateRows();
  if (m_isNow) {
    m_clockAhead = m_sight->time - std::time(nullptr);
  }
  // Steps that led to now are over: from here on it is looked at again and again.
  if (isFirst || wasNow != m_isNow || (m_isNow && isStep)) {
    Wished(true);
  }
}

void View::UpdateRows() {
  RowView& rows = Rows();
  if (Pane().key == kAlarmPane) {
    rows.Update(AlarmRows(*m_sight));
  } else if (rows.Kind().record.empty()) {
    rows.Update(RecordRows(*m_sight));
  } else if (const auto seen = m_sight->records.find(rows.Kind().record);
             seen != m_sight->records.end() && !m_detail) {
    // The first rows came with all fields; from here on those that are shown are enough.
    const bool isWide = rows.Seen() == nullptr && rows.Wanted().columns.empty();
    rows.Update(seen->second);
    if (isWide) {
      Wished();
    }
  }
}
