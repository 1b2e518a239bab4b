#include "support/CollectorLog.h"

#include "support/TraceLog.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TempFolder.h"

namespace {

constexpr off_t kLimit = 104857600;
constexpr const char* kStamp = "[A-Z][a-z][a-z] [ 1-3][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] : ";

class CollectorLogTest : public testing::Test {
 protected:
  CollectorLogTest() { ScriptedNode::Reset(); }
  ~CollectorLogTest() override { ScriptedNode::Reset(); }
  TempFolder m_folder{TempFolder::kEnter};
};

TEST_F(CollectorLogTest, HoldsNoFileUnlessSwitchedOnBefore) {
  CollectorLog log;
  g_collectorLogOn = 1;
  log.Log("line");
  EXPECT_TRUE(std::filesystem::is_empty(m_folder.Path()));

  CollectorLog second;
  second.Log("kept");
  g_collectorLogOn = 0;
  second.Log("not kept");
  EXPECT_THAT(m_folder.Read("COLLECTOR.LOG"),
              testing::MatchesRegex(std::string(kStamp) + "kept\n"));
}

TEST_F(CollectorLogTest, TakesDataAsTextAndCutsALongLine) {
  const mode_t mask = ::umask(077);
  g_collectorLogOn = 1;
  CollectorLog log;
  ::umask(mask);
  struct ::stat status {};
  ASSERT_EQ(::stat("COLLECTOR.LOG", &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0664U);

  log.Log("%s\n", "100%n of %s");
  const std::string first = m_folder.Read("COLLECTOR.LOG");
  EXPECT_THAT(first, testing::MatchesRegex(std::string(kStamp) + "100%n of %s\n"));
  log.Log("%s", std::string(5000, 'x').c_str());
  const std::string both = m_folder.Read("COLLECTOR.LOG");
  EXPECT_EQ(both.size() - first.size(), 4096U);
  EXPECT_EQ(both.back(), '\n');
}

TEST_F(CollectorLogTest, RotatesAtItsLimitAndCountsUpward) {
  g_collectorLogOn = 1;
  CollectorLog log;
  ASSERT_EQ(::truncate("COLLECTOR.LOG", kLimit - 1), 0);
  log.Log("below");
  EXPECT_FALSE(std::filesystem::exists("COLLECTOR.LOG.1"));

  ASSERT_EQ(::truncate("COLLECTOR.LOG", kLimit), 0);
  log.Log("first");
  EXPECT_THAT(m_folder.Read("COLLECTOR.LOG.1"), testing::HasSubstr(": first\n"));
  EXPECT_EQ(std::filesystem::file_size("COLLECTOR.LOG"), static_cast<std::uintmax_t>(kLimit));

  ASSERT_EQ(::truncate("COLLECTOR.LOG.1", kLimit), 0);
  log.Log("second");
  EXPECT_THAT(m_folder.Read("COLLECTOR.LOG.2"), testing::HasSubstr(": second\n"));
}

TEST_F(CollectorLogTest, TracesAFailedWriteAndLivesOnWithoutAFile) {
  g_collectorLogOn = 1;
  CollectorLog log;
  g_msgLogLevel = 20;
  {
    const FileSizeLimit limit(0);
    log.Log("lost");
  }
  const auto lines =
      ScriptedNode::Instance().LinesWith("The error occured by OS API(fprintf).(en = 27,");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0].text, testing::HasSubstr(": lost"));
  EXPECT_EQ(lines[0].kind, kWarning);

  std::filesystem::remove("COLLECTOR.LOG");
  std::filesystem::create_directory("COLLECTOR.LOG");
  CollectorLog unopened;
  unopened.Log("nowhere");
  EXPECT_TRUE(std::filesystem::is_empty("COLLECTOR.LOG"));
}

}  // namespace
