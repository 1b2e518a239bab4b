#include "client/report/MakeSummary.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <utility>

#include "client/report/FigureText.h"
#include "client/report/Gaps.h"
#include "client/report/Parts.h"
#include "json/RowText.h"

namespace {

/// "A, B or C".
std::string ListText(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t place = 0; place < names.size(); ++place) {
    text += place == 0 ? "" : place + 1 < names.size() ? ", " : " or ";
    text += names[place];
  }
  return text;
}

bool IsWanted(const PartKind& kind, const KeptRows& rows) {
  return kind.records.empty() || std::ranges::any_of(kind.records, [&](const std::string& record) {
           return rows.IsChosen(record);
         });
}

/// Says of which of the part's records rows are missing in the stretch.
void MarkGaps(SummaryPart& part, const PartKind& kind, const std::vector<RecordGaps>& gaps) {
  std::string missing;
  for (const std::string& record : kind.records) {
    if (const std::int64_t seconds = MissingSeconds(gaps, record); seconds > 0) {
      missing += missing.empty() ? "" : ", ";
      missing += record + " for " + FigureText(static_cast<double>(seconds), "duration");
    }
  }
  if (!missing.empty()) {
    part.notes.push_back("Rows are missing of " + missing + ": see Gaps.");
  }
}

SummaryPart MakePart(const PartKind& kind, const PartInput& input) {
  SummaryPart part{kind.title, {}, {}, {}};
  if (!kind.records.empty() && input.rows.FirstOf(kind.records).empty()) {
    std::vector<std::string> chosen;
    std::ranges::copy_if(kind.records, std::back_inserter(chosen),
                         [&](const std::string& record) { return input.rows.IsChosen(record); });
    part.notes.push_back("No rows of " + ListText(chosen) + " are kept of this time.");
    return part;
  }
  kind.fill(part, input);
  MarkGaps(part, kind, input.gaps);
  return part;
}

std::string ZoneText(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm parts{};
  char text[64] = "";
  if (::localtime_r(&seconds, &parts) != nullptr) {
    static_cast<void>(std::strftime(text, sizeof text, "%Z", &parts));
  }
  return text;
}

std::vector<std::string> FactsOf(const SummaryChoice& choice, const KeptRows& rows,
                                 double seconds) {
  const Status& status = rows.State();
  const auto length = static_cast<double>(choice.until - choice.since);
  return {"From " + DateText(choice.since) + " to " + DateText(choice.until) + ' ' +
              ZoneText(choice.until) + ", " + FigureText(length, "duration"),
          "Agent " + status.version +
              (status.hostProfile.empty() ? "" : ", host profile " + status.hostProfile),
          "Made " + DateText(std::time(nullptr)) + " in " + FixedText(seconds, 1) + " s, from " +
              std::to_string(rows.Count()) + " rows one by one and others as summed by the daemon"};
}

}  // namespace

Summary MakeSummary(Connection& connection, const SummaryChoice& choice) {
  const auto begin = std::chrono::steady_clock::now();
  KeptRows rows(connection, choice.since, choice.until, choice.records);
  Summary summary;
  summary.title = "Report on " + rows.State().host;
  summary.since = choice.since;
  summary.until = choice.until;
  const std::vector<RecordGaps> gaps = FindGaps(rows);
  const PartInput input{rows, gaps, choice.hasCharts ? &summary.answers : nullptr};
  for (const PartKind& kind : ReportParts()) {
    if (IsWanted(kind, rows)) {
      summary.parts.push_back(MakePart(kind, input));
    }
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  summary.facts = FactsOf(choice, rows, taken.count());
  return summary;
}
