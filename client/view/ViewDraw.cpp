#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "client/ask/SafeText.h"
#include "client/view/Head.h"
#include "client/view/View.h"
#include "json/RowText.h"

namespace {

/// Lines below the head: panes, and the state below the rows.
constexpr std::size_t kFrameLines = 2;

std::string ClockOf(std::int64_t time) {
  const std::string date = DateText(time);
  const std::size_t blank = date.find(' ');
  return blank == std::string::npos ? date : date.substr(blank + 1);
}

std::string SecondsText(double seconds) { return FixedText(seconds, DecimalsOf(seconds)) + " s"; }

}  // namespace

Area View::PaneArea(std::size_t frameHeight) const {
  const std::size_t head = HeadHeight(frameHeight);
  const std::size_t above = head + 1;
  return {above, frameHeight > head + kFrameLines ? frameHeight - head - kFrameLines : 0};
}

std::string View::StateText() {
  if (m_sight == nullptr) {
    return "";
  }
  if (!m_isNow) {
    return "KEPT " + DateText(m_time);
  }
  constexpr std::int64_t kDay = 86400;
  const bool isToday = std::abs(m_sight->time - std::time(nullptr)) < kDay / 2;
  return (m_isPaused ? "PAUSED " : "NOW ") +
         (isToday ? ClockOf(m_sight->time) : DateText(m_sight->time));
}

void View::Draw() {
  Canvas canvas = m_screen.NewFrame();
  const Area area = PaneArea(canvas.Height());
  if (m_sight != nullptr) {
    const std::optional<std::int64_t> marked = Rows().MarkTime();
    HeadWords words{StateText(), m_isNow && !m_isPaused ? Tone::kGood : Tone::kWarning,
                    marked ? "SINCE " + ClockOf(*marked) : ""};
    DrawHead(canvas, *m_sight, m_figures, m_trends, words, m_screen.HasUtf8());
  }
  if (area.line > 0) {
    DrawTabs(canvas, area.line - 1);
  }
  if (m_help) {
    m_help->Draw(canvas, area);
  } else if (m_chooser) {
    m_chooser->Draw(canvas, area);
  } else {
    DrawPane(canvas, area);
  }
  if (canvas.Height() > 0) {
    DrawState(canvas, canvas.Height() - 1);
  }
  m_screen.Show(canvas);
}

void View::DrawTabs(Canvas& canvas, std::size_t line) {
  m_tabs.clear();
  const auto panes = PaneKinds();
  std::size_t width = 0;
  for (const PaneKind& pane : panes) {
    width += pane.title.size() + 4;
  }
  const bool isShort = width > canvas.Width();
  std::size_t column = 0;
  for (std::size_t i = 0; i < panes.size(); ++i) {
    const std::string text =
        std::string(1, panes[i].key) + (isShort ? panes[i].shortTitle : ' ' + panes[i].title);
    const std::size_t end =
        canvas.Put(line, column, text, i == m_pane ? Tone::kSelected : Tone::kDim);
    m_tabs.push_back({column, end, i});
    column = end + (isShort ? 1 : 2);
  }
}

std::string View::PaneNote() {
  const RowView& rows = Rows();
  const SeenRows* seen = rows.Seen();
  if (seen == nullptr) {
    return m_failure.empty() ? "looking ..." : "";
  }
  if (!seen->error.empty()) {
    return seen->error;
  }
  if (seen->isFar) {
    return "MISSING: no rows of " + rows.Kind().record + " near this time; nearest " +
           DateText(seen->time);
  }
  if (seen->rows.Elements().empty() && m_sight != nullptr) {
    if (Pane().key == kAlarmPane) {
      return "No alarm is, or was within a day.";
    }
    return seen->time == 0 && m_isNow ? "" : "no rows";
  }
  return rows.Shown() == 0 ? "no row is like that" : "";
}

void View::DrawPane(Canvas& canvas, const Area& area) {
  if (m_detail && m_sight != nullptr) {
    m_detail->Draw(canvas, area, *m_sight);
    return;
  }
  const SeenRows* seen = Rows().Seen();
  if (seen != nullptr && !seen->isFar) {
    Rows().Draw(canvas, area);
  }
  const std::string note = PaneNote();
  if (!note.empty() && area.height > 1) {
    canvas.Put(area.line + 1, 2, SafeText(note),
               seen != nullptr && seen->isFar ? Tone::kBad : Tone::kDim);
  }
}

void View::DrawState(Canvas& canvas, std::size_t line) {
  if (m_prompt) {
    m_prompt->Draw(canvas, line);
    return;
  }
  if (!m_failure.empty()) {
    // What is cut at the edge is the longer part.
    canvas.Put(line, 0, "trying again: " + SafeText(m_failure), Tone::kBad);
    return;
  }
  if (const auto waiting = m_feed.Waiting(); waiting >= std::chrono::seconds(2)) {
    canvas.Put(line, 0, "waiting for the daemon for " + std::to_string(waiting.count()) + " s",
               Tone::kWarning);
    return;
  }
  if (!m_message.empty()) {
    canvas.Put(line, 0, SafeText(m_message), Tone::kWarning);
    return;
  }
  const RowView& rows = Rows();
  std::string text = rows.Kind().title;
  if (!rows.Kind().record.empty() && rows.Kind().record != rows.Kind().title) {
    text = rows.Kind().record + ": " + text;
  }
  const SeenRows* seen = rows.Seen();
  const bool isFar = seen != nullptr && seen->isFar;
  text += isFar ? "" : "  " + std::to_string(rows.Shown()) + " of " + std::to_string(rows.All());
  text += rows.FilterText().empty() ? "" : "  with " + SafeText(rows.FilterText());
  if (!m_isNow && !isFar && seen != nullptr && seen->time != 0 && seen->time != m_time) {
    text += "  of " + ClockOf(seen->time);
  }
  text += m_isNow ? "  every " + SecondsText(m_every) : "";
  if (m_sight != nullptr && m_sight->status.version != QMT_VERSION) {
    text += "  the daemon is of version " + SafeText(m_sight->status.version.substr(0, 20));
  }
  const std::size_t end = canvas.Put(line, 0, text, Tone::kDim);
  const std::string hint = "? keys  q quit";
  if (end + 2 + hint.size() <= canvas.Width()) {
    canvas.Put(line, canvas.Width() - hint.size(), hint, Tone::kDim);
  }
}
