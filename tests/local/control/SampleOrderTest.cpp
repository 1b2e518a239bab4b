#include "tests/local/control/SampleQueriesFixture.h"

namespace {

/// Batches of two records, of which one comes but seldom, with questions in between.
class TwoRecordsTest : public SampleQueriesTest, public ::testing::WithParamInterface<bool> {
 protected:
  TwoRecordsTest() { PublishSeldom(); }
  /// Whether there is more.
  bool AskSome() {
    const auto count = std::to_string(1 + m_random() % 5);
    const Given answer = Ask(R"(,"samples":)" + count + m_after, "SELD\",\"FAKE");
    m_after = answer.After();
    std::istringstream lines(answer.text);
    for (std::string line; std::getline(lines, line);) {
      const int record = line.starts_with("qmt_fake_count") ? FAKE : SELD;
      m_given[record].push_back(std::stoul(line.substr(line.find("} ") + 2)));
    }
    m_gap =
        answer.head["next"]["FAKE"][1].Whole() - std::abs(answer.head["next"]["SELD"][1].Whole());
    return answer.head["more"].Bool();
  }
  void MakeBatch(std::uint32_t number, bool isOfBoth) {
    m_time += static_cast<std::int32_t>(m_random() % 3);
    if (GetParam() && m_random() % 15 == 0) {
      m_time -= 3;
    }
    for (const int record : {FAKE, SELD}) {
      if (m_random() % (record == FAKE ? 2 : 20) == 0 && (isOfBoth || record == FAKE)) {
        TakeOne(record, number, m_time, record == FAKE ? 2 : 1);
        const bool isNew = std::exchange(m_lastTimes[record], m_time) != m_time;
        (isNew ? m_wanted : m_optional)[record].push_back(number);
      }
    }
    m_store.EndBatch();
  }

  std::mt19937 m_random{11};
  std::vector<std::size_t> m_wanted[2];
  std::vector<std::size_t> m_optional[2];  ///< of the second of the one before
  std::vector<std::size_t> m_given[2];
  std::int64_t m_gap = 0;

 private:
  std::int32_t m_lastTimes[2]{};
  std::string m_after;
  std::int32_t m_time = m_now - 5000;
};

TEST_P(TwoRecordsTest, EachRecordsTotalsComeOnceWhateverTheOtherDoes) {
  const bool isClockSetBack = GetParam();
  constexpr std::uint32_t kOfBoth = 200;
  for (std::uint32_t batch = 1; batch <= kOfBoth + 30; ++batch) {
    MakeBatch(batch, batch <= kOfBoth);
    if (m_random() % 4 == 0) {
      AskSome();
    }
  }
  while (AskSome()) {
  }
  for (const int record : {FAKE, SELD}) {
    std::vector<std::size_t> given = m_given[record];
    EXPECT_TRUE(std::ranges::is_sorted(given));
    if (isClockSetBack) {
      std::erase_if(given, [&](std::size_t batch) {
        return std::ranges::find(m_optional[record], batch) != m_optional[record].end();
      });
    }
    if (record == FAKE) {
      std::vector<std::size_t> twice;
      for (const std::size_t batch : m_wanted[FAKE]) {
        twice.insert(twice.end(), 2, batch);
      }
      m_wanted[FAKE] = twice;
    }
    EXPECT_EQ(given, m_wanted[record]);
  }
  EXPECT_LE(m_gap, 3) << "the seldom one is looked for from far behind";
}

INSTANTIATE_TEST_SUITE_P(ClockSetBack, TwoRecordsTest, ::testing::Bool());

}  // namespace
