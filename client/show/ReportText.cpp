#include "client/show/ReportText.h"

#include <charconv>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/Table.h"

namespace {

bool IsNumber(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size();
}

}  // namespace

std::string ReportText(const ReportTable& report, const Screen& screen) {
  std::string text;
  if (!report.rows.empty()) {
    std::vector<std::string> headings;
    for (const std::string& column : report.columns) {
      headings.push_back(SafeText(column));
    }
    Table table(std::move(headings));
    for (const std::vector<std::string>& row : report.rows) {
      std::vector<Cell> cells;
      for (const std::string& value : row) {
        cells.push_back({value.empty() ? "-" : SafeText(value), IsNumber(value)});
      }
      table.AddRow(std::move(cells));
    }
    text = table.Text(screen);
  }
  if (!text.empty() && !report.notes.empty()) {
    text += '\n';
  }
  for (const std::string& note : report.notes) {
    text += SafeText(note) + '\n';
  }
  return text;
}
