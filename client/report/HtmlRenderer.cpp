#include <string_view>

#include "client/ask/SafeText.h"
#include "client/report/PageParts.h"
#include "client/report/Renderers.h"
#include "json/JsonText.h"

namespace {

std::string HtmlTable(const SummaryTable& table) {
  std::string text;
  if (!table.title.empty()) {
    text += "<h3>" + HtmlText(table.title) + "</h3>\n";
  }
  text += "<div class=\"table-box\"><table class=\"table\">\n<thead><tr>";
  for (std::size_t column = 0; column < table.headings.size(); ++column) {
    const bool isNumber = !table.rows.empty() && table.rows.front()[column].isNumber;
    text += std::string("<th scope=\"col\"") + (isNumber ? " class=\"number\">" : ">") +
            HtmlText(table.headings[column]) + "</th>";
  }
  text += "</tr></thead>\n<tbody>\n";
  for (const std::vector<SummaryCell>& row : table.rows) {
    text += "<tr>";
    for (const SummaryCell& cell : row) {
      text += (cell.isNumber ? "<td class=\"number\">" : "<td>") + HtmlText(cell.text) + "</td>";
    }
    text += "</tr>\n";
  }
  return text + "</tbody>\n</table></div>\n";
}

/// The page finds the chart's lines by its number.
std::string HtmlPart(const SummaryPart& part, std::size_t& chartCount) {
  std::string text = "<section class=\"part\">\n<h2>" + HtmlText(part.title) + "</h2>\n";
  for (const std::string& note : part.notes) {
    text += "<p class=\"note\">" + HtmlText(note) + "</p>\n";
  }
  if (!part.charts.empty()) {
    text += "<div class=\"charts\">\n";
    for (std::size_t chart = 0; chart < part.charts.size(); ++chart) {
      text += "<div data-chart=\"" + std::to_string(chartCount++) + "\"></div>\n";
    }
    text += "</div>\n";
  }
  for (const SummaryTable& table : part.tables) {
    text += HtmlTable(table);
  }
  return text + "</section>\n";
}

Json LineJson(const ChartLine& line) {
  Json made{{"record", line.record}, {"label", line.label}, {"where", Json(line.where)}};
  if (!line.name.empty()) {
    made["name"] = line.name;
  }
  if (line.by) {
    made["by"] = Json(*line.by);
  }
  if (line.scale != 1) {
    made["scale"] = line.scale;
  }
  return made;
}

Json FiguresJson(const Summary& summary) {
  Json charts = Json::Array();
  for (const SummaryPart& part : summary.parts) {
    for (const SummaryChart& chart : part.charts) {
      Json lines = Json::Array();
      for (const ChartLine& line : chart.lines) {
        lines.PushBack(LineJson(line));
      }
      Json made{{"title", chart.title},
                {"unit", chart.unit},
                {"stacked", chart.isStacked},
                {"lines", std::move(lines)}};
      if (chart.most > 0) {
        made["max"] = chart.most;
      }
      charts.PushBack(std::move(made));
    }
  }
  return {{"since", summary.since},
          {"until", summary.until},
          {"charts", std::move(charts)},
          {"answers", Json(summary.answers)}};
}

/// Nothing from outside, and of scripts and styles the page's own alone, by what they hash to.
std::string PolicyOf(const PageParts& parts) {
  return "default-src 'none'; base-uri 'none'; form-action 'none'; script-src '" +
         std::string(parts.scriptHash) + "'; style-src '" + std::string(parts.styleHash) + "'";
}

}  // namespace

std::string HtmlText(const std::string& text) {
  std::string escaped;
  for (const char each : SafeText(text)) {
    switch (each) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += each;
    }
  }
  return escaped;
}

std::string ScriptJson(const Json& value) {
  std::string safe;
  // These stand in texts alone, where they may be written by their number.
  for (const char each : JsonText(value)) {
    switch (each) {
      case '<':
        safe += "\\u003c";
        break;
      case '>':
        safe += "\\u003e";
        break;
      case '&':
        safe += "\\u0026";
        break;
      default:
        safe += each;
    }
  }
  return safe;
}

std::string SummaryHtml(const Summary& summary) {
  const PageParts& parts = ReportPageParts();
  std::string text =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
      PolicyOf(parts) +
      "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta name=\"referrer\" content=\"no-referrer\">\n<title>" +
      HtmlText(summary.title) + "</title>\n<style>" + std::string(parts.style) +
      "</style>\n</head>\n<body>\n<h1>" + HtmlText(summary.title) + "</h1>\n";
  for (const std::string& fact : summary.facts) {
    text += "<p class=\"dim\">" + HtmlText(fact) + "</p>\n";
  }
  text += "<noscript><p class=\"banner\">The charts need JavaScript.</p></noscript>\n<main>\n";
  std::size_t chartCount = 0;
  for (const SummaryPart& part : summary.parts) {
    text += HtmlPart(part, chartCount);
  }
  return text +
         "</main>\n<button type=\"button\" id=\"whole\" hidden>Whole time</button>\n"
         "<script type=\"application/json\" id=\"figures\">" +
         ScriptJson(FiguresJson(summary)) + "</script>\n<script>" + std::string(parts.script) +
         "</script>\n</body>\n</html>\n";
}
