#include "local/control/ScheduleQueries.h"
#include "node/LayoutRegistry.h"
#include "support/HostProfile.h"
#include "tests/support/Testing.h"

namespace {

TEST(DefaultSchedule, GoesByTheProfileAndHasApplicationsWhereSomeAreDefined) {
  bool isIdle = true;
  LayoutRegistry::Instance().PublishListing({{"APP", '3', true, [&] { return isIdle; }}});
  const auto words = [] {
    std::string text;
    for (const ScheduleLine& line : DefaultSchedule()) {
      text += line.record + '=' + line.seconds + ' ';
    }
    return text;
  };
  const std::string classic = "PI=60 CPUP=60 DEVD=60 NIND=60 WGRP=60 PDS=60 FSL=60 PDI=300 ";
  const std::string modern =
      "PI=60 CPUP=60 CPUX=60 DISK=60 NETD=60 SOCK=60 MEMD=60 KERN=60 PRES=60 CGRP=60 WGRP=60 "
      "PDS=60 FSL=60 "
      "PDX=300 PDI=300 ";
  EXPECT_EQ(words(), classic);
  g_hostProfile = HostProfile::kModern;
  EXPECT_EQ(words(), modern);
  isIdle = false;
  EXPECT_EQ(words(), modern + "APP=60 ");
  g_hostProfile = HostProfile::kClassic;
  EXPECT_EQ(words(), classic);
  LayoutRegistry::Instance().PublishListing({});
}

}  // namespace
