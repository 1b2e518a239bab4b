#include "support/TimeValues.h"

#include <cstdint>
#include <limits>

#include "support/OsCalls.h"
#include "support/TraceLog.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();

void ExpectTime(const tagUTIME& value, std::int32_t seconds, std::int32_t micros) {
  EXPECT_EQ(value.seconds, seconds);
  EXPECT_EQ(value.microseconds, micros);
}

TEST(UTime, AddsAndSubtracts) {
  const struct {
    tagUTIME a, b, sum, difference;
  } cases[] = {
      {{1, 500001}, {0, 500000}, {2, 1}, {1, 1}},
      {{1, 500000}, {0, 500000}, {1, 1000000}, {1, 0}},
      {{0, 500000}, {0, 500000}, {0, 1000000}, {0, 0}},
      {{3, 100000}, {1, 200000}, {4, 300000}, {1, 900000}},
      {{0, 0}, {0, 1}, {0, 1}, {-1, 999999}},
      {{kMax, 0}, {1, 0}, {kMin, 0}, {kMax - 1, 0}},
      {{kMin, 0}, {1, 0}, {kMin + 1, 0}, {kMax, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.a.seconds) + "." + std::to_string(c.a.microseconds));
    ExpectTime(c.a + c.b, c.sum.seconds, c.sum.microseconds);
    ExpectTime(c.a - c.b, c.difference.seconds, c.difference.microseconds);
  }
}

TEST(UTime, DividesAndMultipliesByCutting) {
  const tagUTIME value{3, 500000};
  ExpectTime(value / 2.0, 1, 750000);
  ExpectTime(value / 0.0, 0, 0);
  ExpectTime(value / 1e-300, 0, 0);
  ExpectTime(value / tagUTIME{1, 750000}, 2, 0);
  ExpectTime(value / tagUTIME{2, 0}, 1, 750000);
  ExpectTime(value / tagUTIME{0, 0}, 0, 0);
  ExpectTime(value * 3, 10, 500000);
  ExpectTime(value * 0.5F, 1, 750000);
  ExpectTime(value * -1, -3, -500000);
  EXPECT_FLOAT_EQ(ToFloat(value), 3.5F);
}

TEST(UTime, OrdersAsSignedPairs) {
  EXPECT_LT((tagUTIME{-1, 5}), (tagUTIME{0, 0}));
  EXPECT_LT((tagUTIME{1, 5}), (tagUTIME{1, 6}));
  EXPECT_FALSE((tagUTIME{1, 6} < tagUTIME{1, 6}));
  EXPECT_FALSE((tagUTIME{2, 0} < tagUTIME{1, 6}));
}

TEST(UTime, TakesTicks) {
  ExpectTime(TicksToUTIME(12345), 123, 450000);
  ExpectTime(TicksToUTIME(0xFFFFFFFF), 42949672, 950000);
  EXPECT_EQ(TicksToNTIME(12345).nanoseconds, 450000000);
  ExpectTime(ToUTIME({5, 1999}), 5, 1);
}

TEST(UTime, DeltaOfACounterThatFellIsPositiveAndTraced) {
  ScriptedNode::Reset();
  g_msgLogLevel = 20;
  ExpectTime(UTIMEDelta4Overflow({5, 0}, {5, 0}), 0, 0);
  EXPECT_TRUE(ScriptedNode::Instance().lines.empty());

  ExpectTime(UTIMEDelta4Overflow({1, 5}, {2, 250000}), 42949671, 700005);
  const auto lines = ScriptedNode::Instance().LinesWith("overflow");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text,
            "There is a possibility that overflow occurred. (UTIMEDelta4Overflow). "
            "(Current=1.5, Previous=2.250000).");
  EXPECT_EQ(lines[0].level, 20);
  EXPECT_EQ(lines[0].kind, kWarning);
}

TEST(UtlTime, CarriesBorrowsAndNeverOverflows) {
  constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max();
  UtlTime value(1, 600000000);
  value += UtlTime(1, 600000000);
  EXPECT_EQ(value, UtlTime(3, 200000000));
  value -= UtlTime(1, 300000000);
  EXPECT_EQ(value, UtlTime(1, 900000000));
  value *= 3;
  EXPECT_EQ(value, UtlTime(5, 700000000));
  value /= 2;
  EXPECT_EQ(value, UtlTime(2, 850000000));
  value /= 0;
  EXPECT_EQ(value, UtlTime(0, 0));

  UtlTime far(kFar, std::int64_t{0});
  far += far;
  EXPECT_EQ(far.Seconds(), kFar);
  far *= kFar;
  EXPECT_EQ(far.Seconds(), kFar);
  far *= -kFar;
  EXPECT_EQ(far.Seconds(), std::numeric_limits<std::int64_t>::min());
}

TEST(UtlTime, ComparesAndGivesPercentages) {
  EXPECT_LT(UtlTime(1, 999999999), UtlTime(2, 0));
  EXPECT_GE(UtlTime(2, 1), UtlTime(2, 1));
  EXPECT_GT(UtlTime(2, 1), UtlTime(2, 0));
  EXPECT_FLOAT_EQ(UtlTime(4, 0).Percent(UtlTime(1, 500000000)), 37.5F);
  EXPECT_EQ(UtlTime(0, 0).Percent(UtlTime(1, 0)), 0.0F);
  EXPECT_EQ(UtlTime(std::int64_t{0x100000007}, std::int64_t{5999}).GetSeconds(), 7);
  EXPECT_EQ(UtlTime(7, 5999).GetMilliseconds(), 5);
}

TEST(UtlTime, WritesDatesAndDurations) {
  const OsCalls before = Os();
  ::setenv("TZ", "UTC-2", 1);
  ::tzset();
  const struct {
    std::int64_t seconds, nanoseconds;
    const char *local, *utc, *duration;
  } cases[] = {
      {0, 0, "01/01/1970 02:00:00", "01/01/1970 00:00:00", "0000:00:00"},
      {86400, 0, "01/02/1970 02:00:00", "01/02/1970 00:00:00", "0024:00:00"},
      {951868799, 250000000, "03/01/2000 01:59:59.25", "02/29/2000 23:59:59.25", "264407:59:59.25"},
      {61, 1, "01/01/1970 02:01:01.000000001", "01/01/1970 00:01:01.000000001",
       "0000:01:01.000000001"},
      {1, 1000000000, "01/01/1970 02:00:02", "01/01/1970 00:00:02", "0000:00:02"},
  };
  for (const auto& c : cases) {
    UtlTime value(c.seconds, c.nanoseconds);
    EXPECT_STREQ(value.FormatDateTime(), c.local);
    value.SetMode(UtlTime::kUtc);
    // A sum has the mode of what was there.
    value += UtlTime(0, 0);
    EXPECT_STREQ(value.FormatDateTime(), c.utc);
    EXPECT_STREQ(value.FormatDuration(), c.duration);
  }
  Os().gettimeofday = [](::timeval* now) {
    *now = {951868799, 250000};
    return 0;
  };
  const UtlTime now;
  EXPECT_EQ(now, UtlTime(951868799, 250000000));
  EXPECT_EQ(now.GetYear() * 10000 + now.GetMonth() * 100 + now.GetDay(), 20000301);
  EXPECT_EQ(now.GetHour() * 10000 + now.GetMinute() * 100 + now.GetSecond(), 15959);
  Os() = before;
}

}  // namespace
