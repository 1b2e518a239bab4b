#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>

#include "agent/ConfigNames.h"
#include "tests/agent/ConfigFixture.h"

namespace {

namespace fs = std::filesystem;

std::time_t g_now = 0;

class UFSSScheduleTest : public ConfigFixture {
 protected:
  void SetUp() override {
    SwitchUFSSOn();
    g_now = At(12, 30, 40);
    Os().time = [](std::time_t*) { return g_now; };
  }
  /// A moment of one day in spring, local time.
  static std::time_t At(int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = 123;
    parts.tm_mon = 4;
    parts.tm_mday = 17;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
  }
  static std::size_t Starts() { return Node().LinesWith("Unable to start up UFSS").size(); }
};

TEST_F(UFSSScheduleTest, TheScanRunsDailyAtItsTimeWithTheSecondsOfNow) {
  const struct {
    const char* time;
    std::time_t first;
  } cases[] = {
      {"12:30", At(12, 30, 40)},       {"12:31", At(12, 31, 40)},
      {"23:59xyz", At(23, 59, 40)},    {"12:29", At(12, 29, 40) + 86400},
      {"00:00", At(0, 0, 40) + 86400},
  };
  Ini(kUFSSTimeLabel) = "3:3";
  ASSERT_EQ(0, Init());
  for (const auto& row : cases) {
    SCOPED_TRACE(row.time);
    Node().lines.clear();
    ASSERT_EQ(0, Update(kUFSSTimeId, std::string(row.time)));
    ASSERT_EQ(1U, Node().scheduled.size()) << "the former event is still there";
    EXPECT_EQ(row.first, Node().scheduled[0].firstTime);
    EXPECT_EQ(86400, Node().scheduled[0].period);
    EXPECT_EQ(-1, Node().scheduled[0].repeat);
    EXPECT_STREQ("UFSSEvent", Node().scheduled[0].event->IsA());
    EXPECT_EQ(
        1U,
        Node().LinesWith(std::string("Scheduling UFSS collection event for: ") + row.time).size());
  }
  Node().lines.clear();
  EXPECT_EQ(0, Update(kUFSSTimeId, std::string("00:00")));
  EXPECT_TRUE(Node().LinesWith("Scheduling").empty());
}

TEST_F(UFSSScheduleTest, AScanThatWasMissedStartsAtOnce) {
  Ini(kUFSSTimeLabel) = "12:31";
  ASSERT_EQ(0, Init());
  EXPECT_EQ(1U, Starts()) << "there are no results at all";
  fs::create_directory("storage.d");
  for (const auto& [age, starts] : {std::pair<long, std::size_t>{0, 0}, {1, 1}}) {
    const timespec modified{At(12, 31, 40) - 86400 - age, 0};
    const std::array times{modified, modified};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, "storage.d", times.data(), 0));
    Node().lines.clear();
    MakeAgent(0);
    ASSERT_EQ(0, Init());
    EXPECT_EQ(starts, Starts()) << age;
  }
}

TEST_F(UFSSScheduleTest, NeverEndsTheScansAndRemovesTheirResults) {
  ASSERT_EQ(0, Init());
  ASSERT_EQ(1U, Node().scheduled.size());
  fs::create_directories("storage.d/deep");
  fs::create_directory("elsewhere");
  fs::create_directory_symlink("../elsewhere", "storage.d/link");
  std::ofstream("storage.d/deep/file") << "x";
  EXPECT_EQ(0, Update(kUFSSTimeId, std::string("NEVER")));
  EXPECT_TRUE(Node().scheduled.empty());
  EXPECT_FALSE(fs::exists("storage.d"));
  EXPECT_TRUE(fs::exists("elsewhere"));
  EXPECT_EQ(0, Update(kUFSSTimeId, std::string("01:00")));
  EXPECT_EQ(1U, Node().scheduled.size());
}

}  // namespace
