#include "agent/FilePaths.h"
#include "agent/OpenFilesLimit.h"
#include "agent/StartOptions.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

rlimit g_limit{};
std::vector<rlim_t> g_set;

int FakeGetLimit(int, rlimit* limit) {
  *limit = g_limit;
  return 0;
}
int FakeSetLimit(int resource, const rlimit* limit) {
  EXPECT_EQ(RLIMIT_NOFILE, resource);
  EXPECT_EQ(g_limit.rlim_max, limit->rlim_max);
  g_set.push_back(limit->rlim_cur);
  return 0;
}

TEST(OpenFilesLimitTest, SoftLimitsBelow513BecomeFiveHundredAndTwelve) {
  const OsCalls realCalls = Os();
  const struct {
    rlim_t soft;
    rlim_t hard;
    std::vector<rlim_t> set;
  } cases[] = {
      {511, 1024, {512}},
      {512, 1024, {512}},
      {513, 1024, {}},
      {100, 200, {200}},
      {512, 512, {512}},
      {64, RLIM_INFINITY, {512}},
      {RLIM_INFINITY, RLIM_INFINITY, {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.soft);
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    g_limit = {row.soft, row.hard};
    g_set.clear();
    Os().getrlimit = FakeGetLimit;
    Os().setrlimit = FakeSetLimit;
    RaiseOpenFilesLimit();
    EXPECT_EQ(row.set, g_set);
    const auto lines = ScriptedNode::Instance().LinesWith("Set Open files limit to ");
    ASSERT_EQ(row.set.size(), lines.size());
    if (!lines.empty()) {
      EXPECT_EQ("Set Open files limit to " + std::to_string(row.set[0]), lines[0].text);
    }
  }
  Os() = realCalls;
}

TEST(OpenFilesLimitTest, AFailureIsReportedWithResourceAndAddress) {
  const OsCalls realCalls = Os();
  ScriptedNode::Reset();
  g_msgLogLevel = 20;
  g_limit = {1, 2};
  Os().getrlimit = FakeGetLimit;
  Os().setrlimit = [](int, const rlimit*) {
    errno = EPERM;
    return -1;
  };
  RaiseOpenFilesLimit();
  Os() = realCalls;
  const auto& lines = ScriptedNode::Instance().lines;
  ASSERT_EQ(1U, lines.size());
  EXPECT_EQ(0U, lines[0].text.find("QMTX10100-E An error occurred in an OS API (setrlimit). "
                                   "(en=1, arg1=7, arg2=0x"));
}

TEST(KernelVariantTest, IsToldByTheFirstSubstringThatMatches) {
  const std::pair<const char*, int> cases[] = {
      {"2.4.9-e.3", 1}, {"2.4.90", 1}, {"2.4.21-4.EL", 2}, {"2.6.9-42", 3},
      {"3.10.0", 3},    {"", 3},       {"2.4.21-2.4.9", 1}};
  for (const auto& [release, variant] : cases) {
    EXPECT_EQ(variant, KernelVariantOf(release)) << release;
  }
}

TEST(FilePathsTest, RelativePathsStandBelowTheBaseOrAreResolved) {
  const TempFolder folder(TempFolder::kEnter);
  fs::create_directories("sub/deep");
  const std::string here = fs::current_path().string();
  const std::pair<std::string, std::string> cases[] = {
      {"name", "/base/name"},
      {"a/name", "/base/a/name"},
      {"/abs/name", "/abs/name"},
      {"", "/base/"},
      {"./name", here + "/name"},
      {"./sub/../sub/name", here + "/sub/name"},
      {"sub/deep/../name", here + "/sub/name"},
      {here + "/sub/./deep/name", here + "/sub/deep/name"},
      {"./missing/name", "/base/missing/name"},
      {"missing/../name", "/base/missing/../name"},
      {"/missing/./name", "/missing/./name"},
  };
  for (const auto& [path, full] : cases) {
    EXPECT_EQ(full, GetFilePath("/base", path)) << path;
    EXPECT_EQ(here, fs::current_path()) << path;
  }
  EXPECT_EQ(4095U, GetFilePath("/base", std::string(5000, 'n')).size());
}

TEST(FilePathsTest, TrimBlanksCutsBothEnds) {
  EXPECT_EQ(nullptr, TrimBlanks(nullptr));
  for (const auto& [text, trimmed] : {std::pair<const char*, const char*>{" \t a b \n", "a b"},
                                      {"a", "a"},
                                      {"  ", ""},
                                      {"", ""}}) {
    std::string copy = text;
    EXPECT_STREQ(trimmed, TrimBlanks(copy.data()));
  }
}

}  // namespace
