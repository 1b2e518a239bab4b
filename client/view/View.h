#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/view/ColumnChooser.h"
#include "client/view/DetailPage.h"
#include "client/view/Feed.h"
#include "client/view/FullScreen.h"
#include "client/view/HeadFigures.h"
#include "client/view/HelpPage.h"
#include "client/view/PaneKinds.h"
#include "client/view/Prompt.h"
#include "client/view/RowView.h"
#include "client/view/ViewOptions.h"
#include "client/view/ViewSettings.h"

/// The full screen: a head, panes, and time to move through.
class View {
 public:
  /// Throws UsageError and ClientError as its parts do.
  View(const std::string& socket, ColorMode color, const ViewOptions& options);

  /// Shows it until the operator quits or a signal asks for the end.
  void Run();

 private:
  /// The clickable words of the line of panes.
  struct Tab {
    std::size_t begin;
    std::size_t end;
    std::size_t pane;
  };

  // What is asked for.
  void Wished(bool wantsTrends = false);
  void WishFor(Moment moment, std::int64_t time);
  void AddWanted(Wish& wish, WantedRows wanted) const;
  /// The daemon's time, seconds since the epoch.
  [[nodiscard]] std::int64_t Now() const;
  void TakeSight();
  void Adopt(std::unique_ptr<Sight> sight);
  void UpdateRows();

  // What is shown.
  [[nodiscard]] const PaneKind& Pane() const;
  [[nodiscard]] RowView& Rows();
  [[nodiscard]] RowView& RowsOf(const PaneRecord& kind);
  [[nodiscard]] const PaneRecord& CurrentRecord();
  [[nodiscard]] std::vector<const PaneRecord*> ServedRecords(const PaneKind& pane) const;
  [[nodiscard]] Area PaneArea(std::size_t frameHeight) const;
  void Draw();
  void DrawTabs(Canvas& canvas, std::size_t line);
  void DrawPane(Canvas& canvas, const Area& area);
  void DrawState(Canvas& canvas, std::size_t line);
  [[nodiscard]] std::string PaneNote();
  [[nodiscard]] std::string StateText();

  // Keys.
  void TakeKeys();
  void Take(const Key& key, const Area& area);
  [[nodiscard]] bool TakeOverlay(const Key& key, const Area& area);
  [[nodiscard]] bool TakePane(const Key& key);
  [[nodiscard]] bool TakeTime(const Key& key);
  [[nodiscard]] bool TakeDialog(const Key& key);
  [[nodiscard]] bool TakeClick(const Key& key);
  void SwitchTo(std::size_t pane);
  void NextRecord();
  void Open();
  void Close();
  void Step(int by);
  void JumpTo(std::int64_t time);
  void BackToNow();
  void AskFilter();
  void AskTime();
  void AskPace();
  void AskColumns();
  void ToggleMark();

  FullScreen m_screen;
  StopSignals m_stop;
  ViewSettings m_settings;
  Feed m_feed;
  double m_every;

  std::size_t m_pane = 0;
  std::map<std::size_t, std::size_t> m_recordOfPane;  ///< which of a pane's records is seen
  std::map<std::string, std::unique_ptr<RowView>> m_rows;
  std::map<std::string, PaneRecord> m_listedKinds;  ///< of records opened from the list of all
  std::string m_openRecord;                         ///< of the list of all; empty for the list

  std::uint64_t m_wish = 0;
  bool m_isNow = true;
  bool m_isPaused = false;
  std::int64_t m_clockAhead = 0;  ///< seconds that the daemon's clock is ahead of this one
  std::int64_t m_time = 0;        ///< the moment unless it is now
  int m_steps = 0;                ///< asked for and not seen yet
  std::unique_ptr<Sight> m_sight;
  HeadFigures m_figures;
  HeadTrends m_trends;
  std::string m_failure;

  std::optional<DetailPage> m_detail;
  std::optional<HelpPage> m_help;
  std::optional<Prompt> m_prompt;
  std::optional<ColumnChooser> m_chooser;
  std::vector<Tab> m_tabs;
  std::string m_message;
  bool m_isDirty = true;
  bool m_isEnding = false;
};
