#include "client/ask/SafeText.h"
#include "client/report/Renderers.h"
#include "client/show/Table.h"

namespace {

std::string PlainTable(const SummaryTable& table, const Screen& screen) {
  std::string text;
  if (!table.title.empty()) {
    text += SafeText(table.title) + ":\n";
  }
  Table shown(table.headings, {true});
  for (const std::vector<SummaryCell>& row : table.rows) {
    std::vector<Cell> cells;
    for (const SummaryCell& cell : row) {
      cells.push_back({SafeText(cell.text), cell.isNumber});
    }
    shown.AddRow(std::move(cells));
  }
  return text + shown.Text(screen);
}

}  // namespace

std::string SummaryText(const Summary& summary, const Screen& screen) {
  std::string text = Emphasize(SafeText(summary.title), screen) + '\n';
  for (const std::string& fact : summary.facts) {
    text += SafeText(fact) + '\n';
  }
  for (const SummaryPart& part : summary.parts) {
    text += '\n' + Emphasize(SafeText(part.title), screen) + '\n';
    for (const std::string& note : part.notes) {
      text += SafeText(note) + '\n';
    }
    bool isFirst = part.notes.empty();
    for (const SummaryTable& table : part.tables) {
      text += isFirst ? "" : "\n";
      text += PlainTable(table, screen);
      isFirst = false;
    }
  }
  return text;
}
