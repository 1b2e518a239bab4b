#include <algorithm>
#include <cstdlib>
#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/show/TimeText.h"
#include "client/view/View.h"

namespace {

constexpr std::int64_t kTenMinutes = 600;
/// A key held down asks for no more steps at once.
constexpr int kMostSteps = 50;
constexpr const char* kControlL = "\f";

double ParsePace(const std::string& text) {
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0') {
    throw UsageError("\"" + text + "\" is no number of seconds");
  }
  return seconds;
}

}  // namespace

void View::TakeKeys() {
  while (const std::optional<Key> key = m_screen.TakeKey()) {
    m_isDirty = true;
    Take(*key, PaneArea(m_screen.NewFrame().Height()));
  }
}

void View::Take(const Key& key, const Area& area) {
  if (key.code == KeyCode::kOther && key.text == kControlL) {
    m_screen.Forget();
    return;
  }
  if (key.code == KeyCode::kResize) {
    return;
  }
  if (TakeOverlay(key, area)) {
    return;
  }
  m_message.clear();
  if (key.Is('q')) {
    if (m_detail) {
      Close();
    } else {
      m_isEnding = true;
    }
    return;
  }
  if (m_detail) {
    bool isWished = false;
    if (m_detail->Take(key, area, isWished)) {
      if (isWished) {
        Wished();
      }
      return;
    }
  }
  if (TakeClick(key) || TakePane(key) || TakeTime(key) || TakeDialog(key) || m_detail) {
    return;
  }
  const std::vector<std::string> before = Rows().Wanted().columns;
  if (Rows().Take(key, area) && Rows().Wanted().columns != before) {
    Wished();
  }
}

bool View::TakeOverlay(const Key& key, const Area& area) {
  if (m_help) {
    if (!m_help->Take(key, area)) {
      m_help.reset();
    }
    return true;
  }
  if (m_prompt) {
    if (!m_prompt->Take(key)) {
      m_prompt.reset();
    }
    return true;
  }
  if (m_chooser) {
    if (!m_chooser->Take(key, area)) {
      m_chooser.reset();
    }
    return true;
  }
  return false;
}

bool View::TakeClick(const Key& key) {
  if (key.code != KeyCode::kClick || key.line + 1 != PaneArea(m_screen.NewFrame().Height()).line) {
    return false;
  }
  for (const Tab& tab : m_tabs) {
    if (key.column >= tab.begin && key.column < tab.end) {
      SwitchTo(tab.pane);
      return true;
    }
  }
  return true;
}

bool View::TakePane(const Key& key) {
  const auto panes = PaneKinds();
  if (key.code == KeyCode::kTab || key.code == KeyCode::kBackTab) {
    SwitchTo((m_pane + (key.code == KeyCode::kTab ? 1 : panes.size() - 1)) % panes.size());
    return true;
  }
  for (std::size_t pane = 0; pane < panes.size(); ++pane) {
    if (key.Is(panes[pane].key)) {
      SwitchTo(pane);
      return true;
    }
  }
  if (key.Is('v')) {
    NextRecord();
    return true;
  }
  if (key.code == KeyCode::kEnter && !m_detail) {
    Open();
    return true;
  }
  if (key.code == KeyCode::kEscape || key.code == KeyCode::kEnter ||
      key.code == KeyCode::kBackspace) {
    Close();
    return true;
  }
  return false;
}

void View::SwitchTo(std::size_t pane) {
  m_detail.reset();
  if (pane == m_pane && PaneKinds()[pane].key == kRecordPane) {
    m_openRecord.clear();
  }
  m_pane = pane;
  Rows().Forget();
  if (m_sight != nullptr && Rows().Kind().record.empty()) {
    UpdateRows();
  }
  Wished();
}

void View::NextRecord() {
  const std::size_t count = ServedRecords(Pane()).size();
  if (count < 2 || m_detail) {
    m_message = "this pane has one record alone";
    return;
  }
  m_recordOfPane[m_pane] = (m_recordOfPane[m_pane] + 1) % count;
  Rows().Forget();
  Wished();
}

void View::Open() {
  RowView& rows = Rows();
  const Json* row = rows.Selected();
  if (row == nullptr) {
    return;
  }
  if (Pane().key == kRecordPane && m_openRecord.empty()) {
    m_openRecord = (*row)["Record"].Text();
    Rows().Forget();
  } else if (Pane().key == kAlarmPane) {
    m_detail.emplace((*row)["Number"].Unsigned());
  } else if (rows.Seen()->schema != nullptr) {
    m_detail.emplace(rows.Kind().record, *rows.Seen(), *row);
  }
  Wished();
}

void View::Close() {
  if (m_detail) {
    m_detail.reset();
  } else if (Pane().key == kRecordPane && !m_openRecord.empty()) {
    m_openRecord.clear();
    UpdateRows();
  } else if (!Rows().FilterText().empty()) {
    Rows().SetFilter("");
  } else {
    return;
  }
  Wished();
}

bool View::TakeTime(const Key& key) {
  if (key.Is('[') || key.Is(']')) {
    Step(key.Is('[') ? -1 : 1);
  } else if (key.Is('{') || key.Is('}')) {
    const std::int64_t from = m_isNow ? Now() : m_time;
    JumpTo(from + (key.Is('{') ? -kTenMinutes : kTenMinutes));
  } else if (key.Is('n')) {
    BackToNow();
  } else if (key.Is('p') || key.Is('z') || key.Is(' ')) {
    m_isPaused = !m_isPaused && m_isNow;
    m_feed.SetPaused(m_isPaused);
  } else {
    return false;
  }
  return true;
}

void View::Step(int by) {
  if (by > 0 && m_isNow && m_steps == 0) {
    m_message = "this is now";
    return;
  }
  m_steps = std::clamp(m_steps + by, -kMostSteps, kMostSteps);
  m_isPaused = false;
  m_feed.SetPaused(false);
  Wished(true);
}

void View::JumpTo(std::int64_t time) {
  m_steps = 0;
  if (time >= Now()) {
    BackToNow();
    return;
  }
  m_isNow = false;
  m_isPaused = false;
  m_feed.SetPaused(false);
  m_time = time;
  Rows().Forget();
  Wished(true);
}

void View::BackToNow() {
  const bool wasNow = m_isNow;
  m_isNow = true;
  m_steps = 0;
  m_isPaused = false;
  m_feed.SetPaused(false);
  if (!wasNow) {
    Rows().Forget();
  }
  Wished(!wasNow);
}

bool View::TakeDialog(const Key& key) {
  if (key.Is('?') || key.Is('h')) {
    m_help.emplace();
  } else if (key.Is('j')) {
    AskTime();
  } else if (key.Is('i') || key.Is('s')) {
    AskPace();
  } else if (m_detail) {
    return false;
  } else if (key.Is('/')) {
    AskFilter();
  } else if (key.Is('f')) {
    AskColumns();
  } else if (key.Is('d')) {
    ToggleMark();
  } else {
    return false;
  }
  return true;
}

void View::AskFilter() {
  m_prompt.emplace("Rows with:", Rows().FilterText(), [this](const std::string& text) {
    const std::vector<std::string> before = Rows().Wanted().columns;
    Rows().SetFilter(text);
    if (Rows().Wanted().columns != before) {
      Wished();
    }
  });
}

void View::AskTime() {
  m_prompt.emplace("Time:", "",
                   [this](const std::string& text) { JumpTo(ParseTime(text, Now())); });
}

void View::AskPace() {
  m_prompt.emplace("Seconds from look to look:", "", [this](const std::string& text) {
    const double seconds = ParsePace(text);
    m_feed.SetEvery(seconds);
    m_every = seconds;
  });
}

void View::AskColumns() {
  const RowView& rows = Rows();
  if (rows.Kind().record.empty() || rows.Seen() == nullptr || rows.Seen()->schema == nullptr) {
    m_message = "there are no columns to choose here";
    return;
  }
  m_chooser.emplace(*rows.Seen()->schema, rows.ColumnLabels(),
                    [this](const std::vector<std::string>& labels) {
                      Rows().SetColumns(labels);
                      m_settings.SetColumns(Rows().Kind().record, labels);
                      m_message = SafeText(m_settings.Complaint());
                      Wished();
                    });
}

void View::ToggleMark() {
  RowView& rows = Rows();
  rows.ToggleMark(m_sight == nullptr ? 0 : m_sight->time);
  m_message = rows.MarkTime() ? "from here on figures are differences to these rows" : "";
}
