#include "collect/device/DeviceMap.h"

#include <sys/sysmacros.h>

#include <cstdio>

#include "tests/collect/CollectFixture.h"

namespace {

int g_calls = 0;

/// Takes a file that holds "MAJOR MINOR" for the device of that number.
int StatByText(const char* path, struct ::stat* status) {
  ++g_calls;
  if (::stat(path, status) != 0) {
    return -1;
  }
  unsigned int major = 0;
  if (unsigned int minor = 0; std::ifstream(path) >> major >> minor) {
    status->st_mode = S_IFCHR | 0620;
    status->st_rdev = makedev(major, minor);
  }
  return 0;
}

class DeviceMapTest : public CollectFixture {
 protected:
  std::string Dump() const {
    testing::internal::CaptureStdout();
    map.dump(stdout);
    return testing::internal::GetCapturedStdout();
  }
  process_tree::HostTree host;
  DeviceMap map;
};

TEST_F(DeviceMapTest, NamesCharacterDevicesBelowDev) {
  Os().stat = StatByText;
  host.Write("/dev/tty1", "4 1");
  host.Write("/dev/pts/3", "136 3");
  host.Write("/dev/console", "136 3");  // the name below pts wins
  host.Write("/dev/stdin", "5 7");
  host.Write("/dev/notes", "no device");
  host.Link("/dev/gone", "/nowhere");
  EXPECT_STREQ(map.Name(~std::uint64_t{0}), "??");
  EXPECT_EQ(g_calls, 0);
  EXPECT_STREQ(map.Name(makedev(4, 1)), "tty1");
  EXPECT_STREQ(map.Name(makedev(136, 3)), "pts/3");
  EXPECT_EQ(Lines("An error occurred in stat(/dev/gone). (No such file or directory) (err=2)"), 1U);
  EXPECT_STREQ(map.Name(makedev(5, 7)), "??");
  EXPECT_EQ(Dump(), "DUMP:\ntty1 401\npts/3 8803\n");

  // Only what is unknown is looked for, and only where new files come.
  host.Write("/dev/pts/4", "136 4");
  host.Write("/dev/tty2", "4 2");
  host.Remove("/dev/pts/3");
  g_calls = 0;
  EXPECT_STREQ(map.Name(makedev(136, 3)), "pts/3");
  EXPECT_EQ(g_calls, 0);
  EXPECT_STREQ(map.Name(makedev(136, 4)), "pts/4");
  EXPECT_STREQ(map.Name(makedev(4, 2)), "??");

  map.clear();
  EXPECT_EQ(Dump(), "DUMP:\n");
  EXPECT_STREQ(map.Name(makedev(4, 2)), "tty2");
  EXPECT_STREQ(map.Name(makedev(136, 3)), "console");
}

TEST_F(DeviceMapTest, NamesTheDevicesOfThisHost) {
  SetHostRoot("");
  EXPECT_STRNE(DeviceMap::Instance().Name(makedev(1, 3)), "??");
  DeviceMap::Instance().clear();
}

}  // namespace
