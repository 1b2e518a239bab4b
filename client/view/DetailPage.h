#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/view/Area.h"
#include "client/view/Canvas.h"
#include "client/view/Key.h"
#include "client/view/Wish.h"

/// One row, opened: all its figures, a plot of one over the last hour, and of a process where it
/// belongs and what it may use.
class DetailPage {
 public:
  /// `row` is one of `seen`, with its keys.
  DetailPage(std::string record, const SeenRows& seen, const Json& row);
  /// An alarm of that number with the rows that were kept with it.
  explicit DetailPage(std::uint64_t alarm) : m_alarm(alarm) {}

  /// Adds to the wish what the page needs.
  void AddTo(Wish& wish) const;
  /// Takes a key that moves; false if it is none. `isWished` is set where more must be asked for.
  [[nodiscard]] bool Take(const Key& key, const Area& area, bool& isWished);
  void Draw(Canvas& canvas, const Area& area, const Sight& sight);

 private:
  struct Line {
    std::string text;
    Tone tone = Tone::kPlain;
  };

  /// That a key has its value, where the daemon takes a condition of that length.
  void AddCondition(std::string condition);
  void AddRow(const std::string& record, const std::string& heading, const Sight& sight,
              std::size_t width);
  void AddFields(const Json& row, const Schema& schema, std::size_t width);
  void AddPairs(const std::vector<std::pair<std::string, std::string>>& pairs, std::size_t width);
  /// Its beginning, or `isWhole` at the end of the page where that is more.
  void AddCommandLine(const Sight& sight, std::size_t width, bool isWhole);
  void AddWorkgroup(const Sight& sight);
  void AddPlot(const Sight& sight, std::size_t width, std::size_t height);
  void AddAlarm(const Sight& sight, std::size_t width);
  [[nodiscard]] const Json* RowOf(const Sight& sight, const std::string& record) const;

  std::string m_record;
  std::string m_title;
  std::string m_key;  ///< see RowKey()
  std::vector<std::string> m_where;
  bool m_isNamed = true;               ///< the conditions tell this row from others
  std::vector<std::string> m_figures;  ///< labels of what can be drawn
  std::size_t m_figure = 0;
  std::optional<std::int64_t> m_process;
  std::optional<std::uint64_t> m_alarm;
  std::vector<Line> m_lines;
  std::size_t m_top = 0;
};
