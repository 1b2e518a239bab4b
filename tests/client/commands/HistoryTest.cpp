#include <cmath>
#include <optional>

#include "client/ask/Errors.h"
#include "client/show/Plot.h"
#include "client/show/TimeText.h"
#include "tests/support/Testing.h"

namespace {

TEST(TimeTextTest, TimesAreReadAndNonsenseIsRefused) {
  constexpr std::int64_t kNow = 1'800'000'000;  // 08:00:00
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  const struct {
    const char* text;
    std::optional<std::int64_t> seconds;
  } cases[] = {
      {"90s", kNow - 90},
      {"30m", kNow - 1800},
      {"2d", kNow - 172800},
      {"now", kNow},
      {"1w", kNow - 604800},
      {"1h30m", kNow - 5400},
      {"2d0h5s", kNow - 172805},
      {"08:00", kNow},
      {"08:00:01", kNow - 86399},
      {"18:30", kNow - 48600},
      {"@12", 12},
      {"2026-11-25T07:30:15Z", 1795591815},
      {"2026-11-25 07:30Z", 1795591800},
      {"2026-11-25Z", 1795564800},
      {"2026-02-30", {}},
      {"2026-13-01", {}},
      {"", {}},
      {"h", {}},
      {"-1h", {}},
      {"30m1h", {}},
      {"1h1h", {}},
      {"1h30", {}},
      {"24:00", {}},
      {"18:30x", {}},
      {"99999999999999999999d", {}},
      {"9999999999999d", {}},
      {"2026-11-25 07:30 tomorrow", {}},
      {"@1x", {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text);
    if (row.seconds) {
      EXPECT_EQ(ParseTime(row.text, kNow), *row.seconds);
    } else {
      EXPECT_THROW(static_cast<void>(ParseTime(row.text, kNow)), UsageError);
    }
  }
}

TEST(PlotTest, PointsStandBetweenTheirAxes) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_EQ(PlotText({}, 40, 10), "");
  EXPECT_EQ(PlotText({{90000, 5}}, 20, 6),
            "7.5 +\n"
            "    |*\n"
            "    |\n"
            "2.5 +\n"
            "    +---------------\n"
            "     01:00:00\n");
  const std::vector<PlotPoint> points{{40, 30}, {0, 0}, {0, 20}, {20, 10}, {21, HUGE_VAL}};
  EXPECT_EQ(PlotText(points, 26, 6),
            "30 +                     *\n"
            "   |:\n"
            "   |*          *\n"
            " 0 +:\n"
            "   +----------------------\n"
            "    00:00:00      00:00:40\n");
}

}  // namespace
