#include "client/report/Gaps.h"

#include <algorithm>
#include <cmath>

namespace {

/// Each costs two questions.
constexpr std::size_t kMostHoles = 60;
/// Questions about one record, as the daemon tells kMostPoints buckets at a time.
constexpr std::int64_t kMostWindows = 30;
constexpr const char* kAnyNumber = "Interval";

/// The begins of the buckets that have rows, `width` seconds each.
std::vector<std::int64_t> FilledTimes(KeptRows& rows, const std::string& record,
                                      std::int64_t width) {
  std::vector<std::int64_t> times;
  const PointsQuestion question{record, {kAnyNumber}, {}, std::vector<std::string>{}};
  for (std::int64_t begin = rows.Since(); begin <= rows.Until(); begin += width * kMostPoints) {
    // The same width in each, the last one too: it may look beyond the end, where nothing is.
    const std::int64_t end = begin + width * kMostPoints - 1;
    const PointsAnswer answer = ReadPoints(rows.AskPoints(question, begin, end));
    for (const PointSeries& series : answer.series) {
      for (const Bucket& bucket : series.Of(kAnyNumber)) {
        if (bucket.time <= rows.Until()) {
          times.push_back(bucket.time);
        }
      }
    }
  }
  return times;
}

/// The hole with the times of the very rows at its edges.
Span Sharpened(KeptRows& rows, const std::string& record, const Span& hole, std::int64_t width) {
  const std::int64_t lastBefore = std::min(hole.begin + width - 1, hole.end - 1);
  const auto before = rows.EdgeTime(record, false, hole.begin, lastBefore);
  const auto behind = rows.EdgeTime(record, true, before.value_or(hole.begin) + 1,
                                    std::min(hole.end + width - 1, rows.Until()));
  return {before.value_or(hole.begin), behind.value_or(hole.end)};
}

RecordGaps GapsOf(KeptRows& rows, const std::string& record, double every) {
  RecordGaps found{record, every, {}, false};
  const std::int64_t span = rows.Until() - rows.Since() + 1;
  const std::int64_t width = std::max(static_cast<std::int64_t>(std::ceil(every)),
                                      span / (kMostWindows * kMostPoints) + 1);
  std::vector<Span> holes =
      HolesOf(FilledTimes(rows, record, width), rows.Since(), rows.Until(), width);
  std::ranges::stable_sort(
      holes, [](const Span& left, const Span& right) { return left.Seconds() > right.Seconds(); });
  found.isCut = holes.size() > kMostHoles;
  holes.resize(std::min(holes.size(), kMostHoles));
  std::ranges::sort(holes, {}, &Span::begin);
  for (const Span& hole : holes) {
    const Span gap = Sharpened(rows, record, hole, width);
    if (IsGap(gap.Seconds(), every)) {
      found.gaps.push_back(gap);
    }
  }
  return found;
}

}  // namespace

std::vector<RecordGaps> FindGaps(KeptRows& rows) {
  std::vector<RecordGaps> all;
  for (const Schedule& schedule : rows.State().schedules) {
    // A record without rows is told of where they would be shown.
    if (rows.Has(schedule.record)) {
      all.push_back(GapsOf(rows, schedule.record, schedule.seconds));
    }
  }
  return all;
}

std::int64_t MissingSeconds(const std::vector<RecordGaps>& all, const std::string& record,
                            const std::optional<Span>& within) {
  std::int64_t seconds = 0;
  for (const RecordGaps& each : all) {
    if (each.record == record) {
      for (const Span& gap : each.gaps) {
        const Span part =
            within ? Span{std::max(gap.begin, within->begin), std::min(gap.end, within->end)} : gap;
        seconds += std::max<std::int64_t>(part.Seconds(), 0);
      }
    }
  }
  return seconds;
}
