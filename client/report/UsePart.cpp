#include "client/report/UsePart.h"

#include <algorithm>
#include <utility>

#include "client/report/FigureText.h"
#include "client/report/UseRows.h"

namespace {

/// How far back the batch before is looked for, where no schedule tells.
constexpr double kUsualSeconds = 300;

constexpr std::size_t kMostNames = 20000;
constexpr std::size_t kShownNames = 10;
constexpr double kFullPercent = 100;

/// What the tables call what they show.
struct UseWords {
  std::string name;
  std::string more;
  bool isSeveral = false;  ///< several of one name are summed
  bool isIoOfCalls = true;
};

struct MeasureWords {
  UseMeasure measure;
  const char* title;
};

constexpr MeasureWords kMeasures[] = {{UseMeasure::kCpu, "By processor time"},
                                      {UseMeasure::kMemory, "By memory"},
                                      {UseMeasure::kIo, "By I/O"}};

std::vector<std::string> Headings(UseMeasure measure, const UseWords& words) {
  std::vector<std::string> headings{words.name};
  if (!words.more.empty()) {
    headings.push_back(words.more);
  }
  if (words.isSeveral) {
    headings.push_back("Most at once");
  }
  if (measure == UseMeasure::kCpu) {
    headings.insert(headings.end(), {"Processor time", "Of one processor"});
  } else if (measure == UseMeasure::kMemory) {
    headings.insert(headings.end(), {"Most memory", "At"});
  } else {
    headings.insert(headings.end(), {"Read and written", "A second"});
  }
  return headings;
}

std::vector<SummaryCell> Line(const UseTotal& total, UseMeasure measure, const UseWords& words,
                              double seconds) {
  std::vector<SummaryCell> line{{total.name, false}};
  if (!words.more.empty()) {
    line.push_back({total.more, false});
  }
  if (words.isSeveral) {
    line.push_back({std::to_string(total.mostAtOnce), true});
  }
  const double figure = FigureOf(total, measure).value_or(0);
  if (measure == UseMeasure::kCpu) {
    line.push_back(FigureCell(figure, "duration"));
    line.push_back(FigureCell(figure / seconds * kFullPercent, "percent"));
  } else if (measure == UseMeasure::kMemory) {
    line.push_back(FigureCell(figure, "bytes"));
    line.push_back(TimeCell(total.mostMemoryTime));
  } else {
    line.push_back(FigureCell(figure, "bytes"));
    line.push_back(FigureCell(figure / seconds, "bytes/s"));
  }
  return line;
}

void FillUses(SummaryPart& part, const PartInput& input, const UseColumns& columns,
              const UseWords& words, const std::string& leftOut) {
  UseSums sums(kMostNames);
  KeptRows& rows = input.rows;
  std::optional<std::int64_t> first;
  std::int64_t last = 0;
  UseBatches batches;
  const double every = rows.Every(columns.record) > 0 ? rows.Every(columns.record) : kUsualSeconds;
  const std::int64_t before = rows.Since() - static_cast<std::int64_t>(2 * every);
  rows.Each(columns.record, columns.Labels(), before, rows.Until(), [&](const Json& row) {
    Use use = UseOf(row, columns);
    batches.Judge(use);
    if (use.time < rows.Since()) {
      return;
    }
    first = first ? *first : use.time;
    last = use.time;
    if (use.name != leftOut || leftOut.empty()) {
      sums.Add(use);
    }
  });
  if (!first) {
    return;
  }
  // A row tells of the time before it, so one schedule's time belongs to the rows besides.
  const auto missing =
      static_cast<double>(MissingSeconds(input.gaps, columns.record, Span{*first, last}));
  const double seconds =
      std::max(1.0, static_cast<double>(last - *first) + rows.Every(columns.record) - missing);
  for (const MeasureWords& each : kMeasures) {
    SummaryTable table{each.title, Headings(each.measure, words), {}};
    for (const UseTotal& total : sums.Top(each.measure, kShownNames)) {
      table.rows.push_back(Line(total, each.measure, words, seconds));
    }
    if (table.rows.empty()) {
      part.notes.push_back(std::string(each.title) + ": no row of " + columns.record +
                           " has a figure.");
    } else {
      if (each.measure == UseMeasure::kIo && words.isIoOfCalls) {
        part.notes.push_back(std::string(each.title) + ": " + std::string(kCallsNote));
      }
      part.tables.push_back(std::move(table));
    }
  }
  if (sums.Omitted() > 0) {
    part.notes.push_back(std::to_string(sums.Omitted()) + " rows of names beyond the first " +
                         std::to_string(kMostNames) + " are not counted.");
  }
}

}  // namespace

void FillProcesses(SummaryPart& part, const PartInput& input) {
  for (const UseColumns& columns : ProcessColumns()) {
    if (input.rows.Has(columns.record)) {
      part.notes.push_back("Processes of one program and user are summed, by " + columns.record +
                           ".");
      FillUses(part, input, columns, {"Program", "User", true}, "");
      return;
    }
  }
}

void FillControlGroups(SummaryPart& part, const PartInput& input) {
  part.notes.emplace_back("A group's figures hold those of the groups below it.");
  FillUses(part, input, ControlGroupColumns(), {"Group", "Kind", false, false}, "/");
}

void FillWorkgroups(SummaryPart& part, const PartInput& input) {
  FillUses(part, input, WorkgroupColumns(), {"Workgroup", "", false}, "");
}
