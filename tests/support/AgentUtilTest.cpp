#include "support/AgentUtil.h"

#include "support/HostPaths.h"
#include "support/ProductOptions.h"
#include "tests/support/Testing.h"

namespace {

/// A buffer of exactly `size` bytes on the heap, so that one byte too many is noticed.
struct Field {
  explicit Field(std::size_t size, const std::string& start = "") : bytes(size, '\0') {
    std::copy(start.begin(), start.end(), bytes.begin());
  }
  char* Data() { return bytes.data(); }
  [[nodiscard]] std::string Text() const { return bytes.data(); }
  std::vector<char> bytes;
};

TEST(ListText, AppendsItemsAndMarksTheCut) {
  const struct {
    std::size_t size;
    std::vector<const char*> items;
    const char* text;
  } cases[] = {
      {7, {"", "cd", "e"}, "cd,e"},
      {8, {"ab", "cd", "e"}, "ab,cd,e"},
      {7, {"ab", "cd", "e"}, "ab,cd>"},
      {6, {"ab", "cd", "e"}, "ab>"},
      {7, {"ab", "cd", "e", "f"}, "ab,cd>"},
      {4, {"ab", "cd", "e"}, "ab>"},
      {3, {"a", "b"}, "a>"},
      {2, {"", "b"}, ">"},
      {1, {"a"}, ""},
  };
  for (const auto& c : cases) {
    Field field(c.size);
    for (const char* item : c.items) {
      AppendListItem(field.Data(), item, c.size);
    }
    EXPECT_EQ(field.Text(), c.text) << c.size;
  }
}

TEST(ListText, CutsAtTheLastSeparator) {
  const struct {
    std::size_t size;
    const char *start, *text;
  } cases[] = {
      {6, "ab,cd", "ab>"}, {6, "abcde", "abcd>"}, {6, ",bcde", ">"}, {2, ",", ">"}, {1, "", ""}};
  for (const auto& c : cases) {
    Field field(c.size, c.start);
    CutAt(field.Data(), c.size, ',');
    EXPECT_EQ(field.Text(), c.text) << c.start;
  }
}

TEST(ListText, ChainsParents) {
  const ParentMap map{{1, 0}, {50, 1}, {600, 50}, {7, 7}, {8, 9}, {9, 8}, {10, 99}};
  const struct {
    std::int32_t pid;
    std::size_t size;
    const char* text;
  } cases[] = {
      {600, 40, "<600<50<1<0"}, {600, 12, "<600<50<1<0"}, {600, 11, "<600<50<1>"},
      {600, 9, "<600<50>"},     {600, 8, "<600>"},        {7, 40, "<7"},
      {8, 8, "<8<9<8>"},        {10, 40, "<10<99"},       {0, 40, "<0"},
      {1234, 40, "<1234"},      {1234, 5, ">"},           {1234, 1, ""},
  };
  for (const auto& c : cases) {
    Field field(c.size);
    BuildParentChain(map, c.pid, field.Data(), c.size);
    EXPECT_EQ(field.Text(), c.text) << c.pid << " in " << c.size;
  }
}

TEST(ListText, ListsChildren) {
  const ParentMap map{{1, 0}, {20, 1}, {21, 1}, {22, 20}, {300, 1}};
  const struct {
    std::int32_t parent;
    std::size_t size;
    const char* text;
  } cases[] = {
      {1, 40, "20 21 300 "}, {1, 11, "20 21 300 "}, {1, 10, "20 21 300"}, {1, 9, "20 21 >"},
      {1, 8, "20 21 >"},     {1, 7, "20 21>"},      {1, 6, "20 >"},       {1, 4, "20>"},
      {1, 3, ">"},           {300, 9, ""},
  };
  for (const auto& c : cases) {
    Field field(c.size);
    BuildChildList(map, c.parent, field.Data(), c.size);
    EXPECT_EQ(field.Text(), c.text) << c.size;
  }
}

TEST(ListText, NamesOpenFlags) {
  const struct {
    int flags;
    std::size_t size;
    const char* text;
  } cases[] = {
      {O_RDONLY, 100, "RDONLY "},
      {O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 100, "WRONLY APPEND CREAT TRUNC "},
      {O_RDWR | O_NONBLOCK, 100, "RDWR NDELAY NONBLOCK "},
      {O_EXCL | O_NOCTTY | O_DSYNC, 100, "SYNC DSYNC RSYNCEXCL NOCTTY "},
      {O_RDWR | O_NONBLOCK, 16, "RDWR NDELAY >"},
      {O_RDWR | O_NONBLOCK, 13, "RDWR NDELAY>"},
      {O_CLOEXEC, 100, ""},
  };
  for (const auto& c : cases) {
    Field field(c.size);
    OpenFlagsText(c.flags, field.Data(), c.size);
    EXPECT_EQ(field.Text(), c.text);
  }
}

TEST(WildcardMatch, MatchesWithBoundedWork) {
  const struct {
    const char *pattern, *text;
    bool matches;
  } cases[] = {
      {"", "", true},         {"", "a", false},       {"*", "", true},
      {"?", "", false},       {"abc", "abc", true},   {"abc", "ABC", false},
      {"abc", "abcd", false}, {"a?c", "abc", true},   {"a*", "abc", true},
      {"a**c", "abbc", true}, {"*bc", "abcbc", true}, {"a*b*c", "axbxbc", true},
      {"a*d", "abc", false},  {"*?", "a", true},      {"*a", "b*", false},
      {"a\\*", "a*", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WildcardMatch(c.pattern, c.text), c.matches) << c.pattern << " on " << c.text;
  }
  // A matcher that tries each star anew would not end in the life of the machine.
  std::string pattern;
  for (int star = 0; star < 40; ++star) {
    pattern += "*a";
  }
  EXPECT_FALSE(WildcardMatch((pattern + "*b").c_str(), std::string(2000, 'a').c_str()));
}

TEST(ProductOptions, ReplacesInPlaceAndRunsKeysTogether) {
  ProductOptions options;
  EXPECT_EQ(options.Get("Acct", "FileName"), nullptr);
  std::string value = "/var/account/pacct";
  EXPECT_EQ(options.Set("Acct", "FileName", value.c_str()), 0);
  EXPECT_EQ(options.Set("Acct", "Size", nullptr), 0);
  value = "gone";
  EXPECT_STREQ(options.Get("Acct", "FileName"), "/var/account/pacct");
  EXPECT_STREQ(options.Get("AcctFile", "Name"), "/var/account/pacct");
  EXPECT_EQ(options.Get("acct", "FileName"), nullptr);
  EXPECT_STREQ(options.Get("Acct", "Size"), "");
  EXPECT_EQ(options.Set("Acct", "FileName", options.Get("Acct", "FileName")), 0);
  EXPECT_STREQ(options.Get("Acct", "FileName"), "/var/account/pacct");

  for (int entry = 0; entry < 2000; ++entry) {
    options.Set("Many", std::to_string(entry).c_str(), "x");
  }
  EXPECT_STREQ(options.Get("Many", "1999"), "x");
}

TEST(HostPaths, PutsTheRootBeforeAbsolutePathsOnly) {
  SetHostRoot("/host/");
  SetProductRoot("");
  EXPECT_EQ(HostPath("/proc/stat"), "/host/proc/stat");
  EXPECT_EQ(HostPath("relative"), "relative");
  EXPECT_EQ(HostPath(""), "");
  EXPECT_EQ(ProductPath("/opt/x"), "/opt/x");
  SetHostRoot("");
  EXPECT_EQ(HostPath("/proc/stat"), "/proc/stat");
}

}  // namespace
