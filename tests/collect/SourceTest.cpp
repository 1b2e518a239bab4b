#include "collect/Source.h"

#include "tests/collect/CollectFixture.h"

namespace {

struct x_number {
  int value = 0;
  int half = 0;
};
class Number : public x_number {
 public:
  static const char* name() { return "Number"; }
};

std::string g_loggedAt;

/// An error that notes the place its logging is called with.
class NotedError : public UtlError {
 public:
  NotedError() : UtlError("it failed", "Numbers.cpp", 7) {}
  void LogError(const char* file, int) override { g_loggedAt = file; }
};

/// Yields `rows` rows, then an error if it is to fail.
class NumberSource : public PtrSource<x_number, Number, std::vector<Number>> {
 public:
  NumberSource(int rows, bool fails) : m_rows(rows), m_fails(fails) {}
  SourceStatistics& statistics() override { return s_statistics; }
  void read(x_number* record) override {
    m_more = false;
    if (m_pendingError != nullptr) {
      return;
    }
    EXPECT_EQ(record->value, 0);
    EXPECT_EQ(record->half, 0);
    if (m_done < m_rows) {
      record->value = ++m_done;
      record->half = 1;
      m_more = true;
    } else if (m_fails) {
      record->half = 5;
      m_pendingError = std::make_unique<NotedError>();
    }
  }
  void FailAtOnce() { m_pendingError = std::make_unique<NotedError>(); }

  inline static SourceStatistics s_statistics;

 private:
  int m_rows;
  bool m_fails;
  int m_done = 0;
};

class SourceTest : public CollectFixture {
 protected:
  SourceTest() {
    g_loggedAt.clear();
    NumberSource::s_statistics = {};
  }
};

TEST_F(SourceTest, ReadsAllRowsInPlaceOfTheFormerOnes) {
  for (const int rows : {3, 0}) {
    std::vector<Number> numbers(2);
    NumberSource source(rows, false);
    EXPECT_EQ(source.readAll(nullptr, numbers), nullptr);
    ASSERT_EQ(numbers.size(), static_cast<std::size_t>(rows));
    for (int row = 0; row < rows; ++row) {
      EXPECT_EQ(numbers[static_cast<std::size_t>(row)].value, row + 1);
    }
  }
  EXPECT_EQ(Lines("Start read routine for Number Category."), 2U);
  EXPECT_EQ(Lines("Completed read routine for Number Category."), 2U);
  // Three rows and two looks at the end.
  EXPECT_EQ(NumberSource::s_statistics.reads, 5U);
}

TEST_F(SourceTest, AnErrorKeepsTheRowsReadBeforeIt) {
  std::vector<Number> numbers(5);
  NumberSource source(2, true);
  const UtlErrorPtr error(source.readAll(nullptr, numbers));
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(error->GetMessage(), "it failed");
  EXPECT_EQ(numbers.size(), 2U);
  EXPECT_EQ(NumberSource::s_statistics.reads, 2U);
  EXPECT_EQ(Lines("Completed read routine"), 0U);
}

TEST_F(SourceTest, ReadOneWritesIntoTheObject) {
  Number number;
  number.value = 9;
  NumberSource good(1, false);
  EXPECT_EQ(good.readOne(nullptr, number), nullptr);
  EXPECT_EQ(number.value, 1);

  NumberSource bad(0, true);
  const UtlErrorPtr error(bad.readOne(nullptr, number));
  EXPECT_NE(error, nullptr);
  EXPECT_EQ(number.value, 0);
  EXPECT_EQ(number.half, 5);
}

TEST_F(SourceTest, AFailedConstructionIsTheRunsErrorOrIsLogged) {
  std::vector<Number> numbers(1);
  {
    NumberSource source(3, false);
    source.FailAtOnce();
    const UtlErrorPtr error(source.readAll(nullptr, numbers));
    EXPECT_NE(error, nullptr);
    EXPECT_TRUE(numbers.empty());
  }
  EXPECT_EQ(g_loggedAt, "");
  { NumberSource(3, false).FailAtOnce(); }
  EXPECT_EQ(g_loggedAt, "Source.H");
}

TEST_F(SourceTest, AddsUpTheTimeInsideRead) {
  static long g_microseconds = 0;
  g_microseconds = 0;
  Os().gettimeofday = [](timeval* now) {
    *now = {100 + g_microseconds / 1000000, g_microseconds % 1000000};
    g_microseconds += 400000;
    return 0;
  };
  std::vector<Number> numbers;
  EXPECT_EQ(NumberSource(2, false).readAll(nullptr, numbers), nullptr);
  EXPECT_EQ(NumberSource::s_statistics.readTime, (tagUTIME{1, 200000}));
}

}  // namespace
