#include "client/report/Points.h"

#include <utility>

#include "client/ask/AnswerMembers.h"
#include "json/JsonText.h"

namespace {

constexpr std::size_t kBucketParts = 4;

Bucket BucketOf(const Json& point) {
  if (!point.IsArray() || point.Size() != kBucketParts || !point[0].IsWhole()) {
    FailMember("points", "points of a time and three numbers");
  }
  for (std::size_t part = 1; part < kBucketParts; ++part) {
    if (!point[part].IsNumber()) {
      FailMember("points", "points of a time and three numbers");
    }
  }
  return {point[0].Whole(), point[1].Number(), point[2].Number(), point[3].Number()};
}

PointSeries SeriesOf(const Json& object) {
  PointSeries series;
  for (const JsonMember& part : ObjectMember(object, "key").Members()) {
    series.key += series.key.empty() ? "" : " ";
    series.key += part.value.IsString() ? part.value.Text() : JsonText(part.value);
  }
  for (const JsonMember& line : ObjectMember(object, "points").Members()) {
    if (!line.value.IsArray()) {
      FailMember("points", "lists of points");
    }
    std::vector<Bucket>& buckets = series.points[line.name];
    for (const Json& point : line.value.Elements()) {
      buckets.push_back(BucketOf(point));
    }
  }
  return series;
}

}  // namespace

const std::vector<Bucket>& PointSeries::Of(const std::string& label) const {
  static const std::vector<Bucket> kNone;
  const auto found = points.find(label);
  return found == points.end() ? kNone : found->second;
}

PointsAnswer ReadPoints(const Json& answer) {
  const Json& part = ObjectMember(answer, "history");
  PointsAnswer read;
  read.seconds = WholeMember(part, "seconds");
  if (read.seconds < 1) {
    FailMember("seconds", "a width of buckets");
  }
  for (const Json& each : ObjectsMember(part, "series").Elements()) {
    read.series.push_back(SeriesOf(each));
  }
  read.omitted = CountMember(part, "omitted");
  return read;
}
