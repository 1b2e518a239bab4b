#include <string_view>

#include "client/ask/SafeText.h"
#include "client/report/Renderers.h"

namespace {

constexpr std::string_view kMarks = "\\`*_{}[]<>()#+!|~&$@:";

std::string MarkdownTable(const SummaryTable& table) {
  std::string text;
  if (!table.title.empty()) {
    text += "### " + MarkdownCell(table.title) + "\n\n";
  }
  std::string rule;
  for (std::size_t column = 0; column < table.headings.size(); ++column) {
    text += "| " + MarkdownCell(table.headings[column]) + ' ';
    const bool isNumber = !table.rows.empty() && table.rows.front()[column].isNumber;
    rule += isNumber ? "| --: " : "| --- ";
  }
  text += "|\n" + rule + "|\n";
  for (const std::vector<SummaryCell>& row : table.rows) {
    for (const SummaryCell& cell : row) {
      text += "| " + MarkdownCell(cell.text) + ' ';
    }
    text += "|\n";
  }
  return text + '\n';
}

}  // namespace

std::string MarkdownCell(const std::string& text) {
  std::string cell;
  // Line ends and what a terminal would obey are written out before anything else.
  for (const char each : SafeText(text)) {
    if (kMarks.find(each) != std::string_view::npos) {
      cell += '\\';
    }
    cell += each;
  }
  return cell;
}

std::string SummaryMarkdown(const Summary& summary) {
  std::string text = "# " + MarkdownCell(summary.title) + "\n\n";
  for (const std::string& fact : summary.facts) {
    text += "- " + MarkdownCell(fact) + '\n';
  }
  for (const SummaryPart& part : summary.parts) {
    text += "\n## " + MarkdownCell(part.title) + "\n\n";
    for (const std::string& note : part.notes) {
      text += MarkdownCell(note) + "\n\n";
    }
    for (const SummaryTable& table : part.tables) {
      text += MarkdownTable(table);
    }
  }
  return text;
}
