#include "client/report/FileSystemPart.h"

#include <algorithm>
#include <utility>

#include "client/report/Analysis.h"
#include "client/report/FigureText.h"
#include "json/RowText.h"

namespace {

constexpr double kSizeUnit = 1048576;
constexpr std::size_t kMostFileSystems = 30;
constexpr const char* kUsed = "Mbytes in Use";
constexpr const char* kUsedShare = "Mbytes in Use %";
constexpr const char* kAvailable = "Available Space Mbytes";

struct FileSystemLine {
  std::string name;
  std::optional<double> used;  ///< bytes at the end of the stretch
  std::optional<double> usedShare;
  std::optional<double> available;   ///< bytes likewise
  std::optional<double> growthADay;  ///< bytes
  std::optional<double> daysLeft;
};

std::optional<double> LastOf(const std::vector<Bucket>& buckets, double unit) {
  return buckets.empty() ? std::nullopt : std::optional(buckets.back().mean * unit);
}

FileSystemLine LineOf(const PointSeries& series) {
  FileSystemLine line{series.key,
                      LastOf(series.Of(kUsed), kSizeUnit),
                      LastOf(series.Of(kUsedShare), 1),
                      LastOf(series.Of(kAvailable), kSizeUnit),
                      GrowthADay(series.Of(kUsed)),
                      std::nullopt};
  if (line.growthADay) {
    *line.growthADay *= kSizeUnit;
  }
  if (line.available) {
    line.daysLeft = DaysLeft(line.growthADay, *line.available);
  }
  return line;
}

/// BytesText with a sign.
std::string GrowthText(const std::optional<double>& growth) {
  if (!growth) {
    return "-";
  }
  return *growth < 0 ? "-" + FigureText(-*growth, "bytes") : FigureText(*growth, "bytes");
}

void AddFileSystems(SummaryPart& part, const PartInput& input, const std::string& record,
                    const std::string& title) {
  if (!input.rows.Has(record)) {
    return;
  }
  const PointsAnswer answer = input.rows.Points(
      {record, {kUsed, kUsedShare, kAvailable}, {}, std::vector<std::string>{"File System"}});
  std::vector<FileSystemLine> lines;
  for (const PointSeries& series : answer.series) {
    lines.push_back(LineOf(series));
  }
  std::ranges::stable_sort(lines, [](const FileSystemLine& left, const FileSystemLine& right) {
    return left.growthADay.value_or(0) > right.growthADay.value_or(0);
  });
  if (lines.size() + answer.omitted > kMostFileSystems) {
    lines.resize(std::min(lines.size(), kMostFileSystems));
    part.notes.push_back(std::to_string(answer.series.size() + answer.omitted - lines.size()) +
                         " further ones of " + record + " are not shown.");
  }
  SummaryTable table{
      title, {"File system", "In use", "In use %", "Available", "Growth a day", "Days left"}, {}};
  for (const FileSystemLine& line : lines) {
    table.rows.push_back({{line.name, false},
                          FigureCell(line.used, "bytes"),
                          FigureCell(line.usedShare, "percent"),
                          FigureCell(line.available, "bytes"),
                          {GrowthText(line.growthADay), true},
                          {line.daysLeft ? FixedText(*line.daysLeft, 1) : "-", true}});
  }
  part.tables.push_back(std::move(table));
}

}  // namespace

void FillFileSystems(SummaryPart& part, const PartInput& input) {
  AddFileSystems(part, input, "FSL", "");
  AddFileSystems(part, input, "FSR", "Of other hosts");
  part.notes.push_back(
      "Growth is that of a straight line through the kept rows, and \"-\" for fewer than three of "
      "them or rows of less than " +
      std::to_string(kLeastGrowthSeconds / 3600) + " hours.");
}
