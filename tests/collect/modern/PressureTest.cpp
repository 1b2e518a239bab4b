#include "collect/modern/system/Pressure.h"

#include "tests/collect/CollectFixture.h"

namespace {

class PressureTest : public CollectFixture {};

TEST_F(PressureTest, ReadsARowForEachFileInOrder) {
  const process_tree::HostTree host;
  std::vector<PressureFigures> rows{{}};
  ReadPressure(rows);
  EXPECT_TRUE(rows.empty());
  host.Write("/proc/pressure/irq", "full avg10=1.25 avg60=0.00 avg300=0.10 total=3000001\n");
  host.Write("/proc/pressure/cpu",
             "some avg10=0.22 avg60=0.59 avg300=9.04 total=10304578721\n"
             "full avg10=0.00 avg60=0.00 avg300=0.00 total=0\n");
  std::filesystem::create_directory(host.Path("/proc/pressure/memory"));  // can't be read
  ReadPressure(rows);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].resource, "cpu");
  EXPECT_EQ(rows[0].text.some.average10, 0.22);
  EXPECT_EQ(rows[0].text.some.average60, 0.59);
  EXPECT_EQ(rows[0].text.some.average300, 9.04);
  EXPECT_EQ(rows[0].text.some.stalledSeconds, 10304.578721);
  EXPECT_FALSE(IsTold(rows[0].text.full.average10) || IsTold(rows[0].text.full.stalledSeconds));
  EXPECT_EQ(rows[1].resource, "irq");
  EXPECT_FALSE(IsTold(rows[1].text.some.average10));
  EXPECT_EQ(rows[1].text.full.average10, 1.25);
  EXPECT_EQ(rows[1].text.full.stalledSeconds, 3.000001);
}

TEST_F(PressureTest, WhatIsNoNumberIsNotTold) {
  for (const char* value :
       {"", "x", "-1", "nan", "inf", "1x", "1e5", "0x1", ".", " 1", "+1", "1,5"}) {
    const PressureText text =
        ParsePressure(std::string("some avg10=") + value + " avg60=2.50\nfull\nsomeavg300=1");
    EXPECT_FALSE(IsTold(text.some.average10)) << value;
    EXPECT_EQ(text.some.average60, 2.5) << value;
    EXPECT_FALSE(IsTold(text.some.average300) || IsTold(text.full.average60));
  }
  EXPECT_FALSE(IsTold(ParsePressure("some avg10=" + std::string(400, '9')).some.average10));
  EXPECT_EQ(ParsePressure("some avg10=1.00 avg10=2.00 avg100=3.00").some.average10, 1);
}

}  // namespace
