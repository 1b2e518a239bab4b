#include "client/view/Sparkline.h"

#include <limits>

#include "tests/support/Testing.h"

namespace {

struct TrendPoint {
  std::int64_t time;
  double value;
  double seconds;
};

std::string TrendText(const std::vector<TrendPoint>& points, std::int64_t until,
                      std::optional<double> greatest = 100, std::size_t width = 4) {
  Trend trend;
  for (const TrendPoint& point : points) {
    trend.Add(point.time, point.value, point.seconds);
  }
  return trend.Text(until, width, 10, greatest, false);
}

TEST(TrendTest, DrawsTheMeansOfFixedSteps) {
  const struct {
    const char* what;
    std::vector<TrendPoint> points;
    std::int64_t until;
    std::optional<double> greatest;
    std::string text;
  } cases[] = {
      {"nothing is known", {}, 100, 100, "    "},
      {"the whole scale",
       {{70, 0, 10}, {80, 50, 10}, {90, 99, 10}, {100, 100, 10}},
       100,
       100,
       "_=##"},
      {"gaps", {{70, 0, 10}, {100, 100, 10}}, 100, 100, "_  #"},
      {"a value that holds long", {{100, 100, 25}}, 100, 100, " ###"},
      {"the mean by time", {{91, 100, 1}, {100, 0, 9}}, 100, 100, "   _"},
      {"the mean of halves", {{95, 100, 5}, {100, 0, 5}}, 100, 100, "   ="},
      {"by the greatest shown", {{90, 2, 10}, {100, 4, 10}}, 100, std::nullopt, "  =#"},
      {"all nought", {{90, 0, 10}, {100, 0, 10}}, 100, std::nullopt, "  __"},
      {"beyond the scale", {{90, 250, 10}, {100, -5, 10}}, 100, 100, "  #_"},
      // The picture stands still within a step, and moves by one character after it.
      {"within a step", {{91, 100, 1}}, 91, 100, "   #"},
      {"at its end", {{91, 100, 1}}, 100, 100, "   #"},
      {"at fixed times", {{85, 100, 1}}, 94, 100, "  # "},
      {"after it", {{91, 100, 1}}, 101, 100, "  # "},
      {"before it", {{91, 100, 1}}, 90, 100, "    "},
      // Who steps back in time sees nothing of what comes later.
      {"a time again", {{90, 100, 10}, {90, 0, 10}}, 100, 100, "  # "},
      {"a time that goes back", {{90, 100, 10}, {100, 100, 10}, {80, 0, 10}}, 100, 100, " _  "}};
  for (const auto& row : cases) {
    EXPECT_EQ(TrendText(row.points, row.until, row.greatest), row.text) << row.what;
  }
  EXPECT_EQ(TrendText({{100, 1, 10}}, 100, 100, 0), "");
}

TEST(TrendTest, KeepsTheNewestOfMany) {
  Trend trend;
  for (std::int64_t time = 1; time <= 100000; ++time) {
    trend.Add(time, time > 99990 ? 100 : 0, 1);
  }
  EXPECT_EQ(trend.Text(100000, 3, 10, 100, false), "__#");
  trend.Clear();
  EXPECT_EQ(trend.Text(100000, 3, 10, 100, false), "   ");
}

TEST(SparklineTest, DrawsSharesInTheCharactersOfTheTerminal) {
  const struct {
    double share;
    std::string utf8, plain, bar;
  } cases[] = {{0, "\u2581", "_", "[        ]"},   {0.124, "\u2581", "_", "[|       ]"},
               {0.5, "\u2585", "=", "[||||    ]"}, {1, "\u2588", "#", "[||||||||]"},
               {7, "\u2588", "#", "[||||||||]"},   {-1, "\u2581", "_", "[        ]"}};
  for (const auto& row : cases) {
    EXPECT_EQ(HeightText(row.share, true), row.utf8) << row.share;
    EXPECT_EQ(HeightText(row.share, false), row.plain) << row.share;
    EXPECT_EQ(BarText(row.share, 10), row.bar) << row.share;
  }
  EXPECT_EQ(BarText(1, 2), "[]");
  EXPECT_EQ(BarText(1, 1), "");
}

}  // namespace
