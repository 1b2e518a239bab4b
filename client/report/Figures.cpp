#include "client/report/Figures.h"

#include <algorithm>
#include <utility>

#include "client/report/Analysis.h"
#include "client/report/FigureText.h"
#include "client/report/UseRows.h"

namespace {

constexpr std::size_t kMostInstances = 20;
constexpr std::int64_t kChartPoints = 480;
constexpr std::size_t kPeaks = 3;
constexpr std::int64_t kPeaksApart = 48;  ///< of so many parts of the stretch
constexpr std::int64_t kLeastApart = 60;  ///< seconds

PointsQuestion QuestionOf(const FigureWay& way) {
  PointsQuestion question;
  question.record = way.record;
  question.where = way.where;
  question.by.emplace();
  if (!way.key.empty()) {
    question.by->push_back(way.key);
  }
  for (const FigureField& field : way.fields) {
    question.columns.push_back(field.label);
  }
  return question;
}

std::optional<Extent> ExtentOfField(const PointSeries& series, const FigureField& field) {
  std::optional<Extent> extent = ExtentOf(series.Of(field.label));
  if (extent) {
    extent->least *= field.scale;
    extent->greatest *= field.scale;
  }
  return extent;
}

std::optional<double> MeanOfField(const PointSeries& series, const FigureField& field) {
  const auto found = series.means.find(field.label);
  return found == series.means.end() ? std::nullopt : std::optional(found->second * field.scale);
}

std::optional<double> PartOf(const std::optional<Extent>& extent, double Extent::*part) {
  return extent ? std::optional((*extent).*part) : std::nullopt;
}

/// A line for each field.
SummaryTable FieldLines(const PointSeries& series, const FigureWay& way) {
  SummaryTable table{"", {"Figure", "Mean", "Lowest", "Highest", "Highest at"}, {}};
  for (const FigureField& field : way.fields) {
    const auto extent = ExtentOfField(series, field);
    table.rows.push_back({{field.name, false},
                          FigureCell(MeanOfField(series, field), field.unit),
                          FigureCell(PartOf(extent, &Extent::least), field.unit),
                          FigureCell(PartOf(extent, &Extent::greatest), field.unit),
                          TimeCell(extent ? extent->greatestTime : 0)});
  }
  return table;
}

/// A line for each instance, those whose first field is the highest in the mean first.
SummaryTable InstanceLines(std::vector<PointSeries> all, const FigureWay& way) {
  SummaryTable table{"", {way.key}, {}};
  for (const FigureField& field : way.fields) {
    table.headings.push_back(field.name + ", mean");
    table.headings.push_back("highest");
  }
  table.headings.push_back("Highest " + way.fields.front().name + " at");
  const auto meanOf = [&way](const PointSeries& series) {
    return MeanOfField(series, way.fields.front()).value_or(-1);
  };
  std::ranges::stable_sort(all, [&](const PointSeries& left, const PointSeries& right) {
    return meanOf(left) > meanOf(right);
  });
  all.resize(std::min(all.size(), kMostInstances));
  for (const PointSeries& series : all) {
    std::vector<SummaryCell> row{{series.key, false}};
    for (const FigureField& field : way.fields) {
      const auto extent = ExtentOfField(series, field);
      row.push_back(FigureCell(MeanOfField(series, field), field.unit));
      row.push_back(FigureCell(PartOf(extent, &Extent::greatest), field.unit));
    }
    const auto first = ExtentOfField(series, way.fields.front());
    row.push_back(TimeCell(first ? first->greatestTime : 0));
    table.rows.push_back(std::move(row));
  }
  return table;
}

/// The very row of a bucket that was highest.
Peak SharpPeak(KeptRows& rows, const FigureWay& way, const std::string& label,
               const std::string& key, Peak peak, std::int64_t width) {
  if (width <= 1) {
    return peak;
  }
  std::vector<std::string> columns{kRecordTime, label};
  if (!way.key.empty()) {
    columns.push_back(way.key);
  }
  Peak sharp{peak.time, -1};
  const auto take = [&](const Json& row) {
    const double value = NumberOf(row, label).value_or(-1);
    if (value > sharp.value && (way.key.empty() || TextOf(row, way.key) == key)) {
      sharp = {static_cast<std::int64_t>(NumberOf(row, kRecordTime).value_or(0)), value};
    }
  };
  rows.Each(way.record, columns, peak.time, peak.time + width - 1, take, way.where);
  return sharp.value < 0 ? peak : sharp;
}

/// Where a moment is from.
struct Origin {
  const PointSeries* series;
  const FigureField* field;
};

void AddPeaks(SummaryTable& table, KeptRows& rows, const BusySubject& subject,
              const FigureWay& way) {
  const PointsAnswer answer = rows.Points(QuestionOf(way));
  std::vector<Peak> moments;
  std::map<std::int64_t, std::pair<double, Origin>> origins;
  for (const PointSeries& series : answer.series) {
    for (const FigureField& field : way.fields) {
      for (const Bucket& bucket : series.Of(field.label)) {
        const double value = bucket.greatest * field.scale;
        const auto [place, isNew] =
            origins.try_emplace(bucket.time, value, Origin{&series, &field});
        if (!isNew && value > place->second.first) {
          place->second = {value, {&series, &field}};
        }
      }
    }
  }
  moments.reserve(origins.size());
  for (const auto& [time, origin] : origins) {
    moments.push_back({time, origin.first});
  }
  const std::int64_t apart = std::max(kLeastApart, (rows.Until() - rows.Since()) / kPeaksApart);
  for (const Peak& peak : PeaksOf(std::move(moments), kPeaks, apart)) {
    const Origin& origin = origins.at(peak.time).second;
    const Peak sharp = SharpPeak(rows, way, origin.field->label, origin.series->key,
                                 {peak.time, peak.value / origin.field->scale}, answer.seconds);
    const auto who = subject.who ? WhoAt(rows, *subject.who, sharp.time) : std::nullopt;
    std::string what = origin.field->name;
    if (!way.key.empty()) {
      what = origin.series->key + ": " + what;
    }
    table.rows.push_back({{subject.name, false},
                          TimeCell(sharp.time),
                          FigureCell(sharp.value * origin.field->scale, origin.field->unit),
                          {std::move(what), false},
                          {who.value_or("-"), false}});
  }
}

}  // namespace

const FigureWay* FirstWay(KeptRows& rows, const std::vector<FigureWay>& ways) {
  const auto found =
      std::ranges::find_if(ways, [&](const FigureWay& way) { return rows.Has(way.record); });
  return found == ways.end() ? nullptr : &*found;
}

void AddFigureTable(SummaryPart& part, KeptRows& rows, const FigureTable& table) {
  const FigureWay* way = FirstWay(rows, table.ways);
  if (way == nullptr) {
    return;
  }
  PointsAnswer answer = rows.PointsWithMeans(QuestionOf(*way));
  if (answer.series.empty()) {
    return;
  }
  const std::size_t count = answer.series.size() + answer.omitted;
  SummaryTable made = way->key.empty() ? FieldLines(answer.series.front(), *way)
                                       : InstanceLines(std::move(answer.series), *way);
  if (!way->key.empty() && made.rows.size() < count) {
    part.notes.push_back(std::to_string(count - made.rows.size()) + " further rows of " +
                         way->record + " a time are not shown.");
  }
  made.title = table.title;
  part.tables.push_back(std::move(made));
}

void AddFigureChart(SummaryPart& part, KeptRows& rows, const FigureChart& chart,
                    ChartAnswers& answers) {
  const FigureWay* way = FirstWay(rows, chart.ways);
  if (way == nullptr) {
    return;
  }
  PointsQuestion question = QuestionOf(*way);
  question.points = kChartPoints;
  SummaryChart made{chart.title, way->fields.front().unit, chart.isStacked, chart.most, {}};
  // Of instances with one figure each their names say enough.
  const bool isNamed = way->key.empty() || way->fields.size() > 1;
  for (const FigureField& field : way->fields) {
    made.lines.push_back({way->record, field.label, isNamed ? field.name : "", way->where,
                          question.by, field.scale});
  }
  answers.push_back({{"record", way->record},
                     {"where", Json(way->where)},
                     {"by", Json(*question.by)},
                     {"columns", Json(question.columns)},
                     {"answer", rows.AskPoints(question, rows.Since(), rows.Until())["history"]}});
  part.charts.push_back(std::move(made));
}

SummaryTable BusyTable(KeptRows& rows, const std::vector<BusySubject>& subjects) {
  SummaryTable table{"", {"Of", "When", "Figure", "What", "Who then"}, {}};
  for (const BusySubject& subject : subjects) {
    if (const FigureWay* way = FirstWay(rows, subject.ways)) {
      AddPeaks(table, rows, subject, *way);
    }
  }
  return table;
}
