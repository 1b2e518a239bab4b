#pragma once

#include <algorithm>
#include <ctime>
#include <sstream>

#include "local/control/SampleQueries.h"
#include "tests/json/JsonOf.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/AnyRecord.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

/// FAKE with the number as its count and its label.
class LabelledRecord : public FakeRecord {
 public:
  LabelledRecord(std::size_t number, std::int32_t time)
      : FakeRecord(static_cast<std::uint32_t>(number), time) {
    m_record.label = std::to_string(number).c_str();
  }
};

/// The lines of a scrape that are samples, each with a time behind it.
inline std::string Timed(const std::string& text, std::int64_t time) {
  std::istringstream lines(text);
  std::string timed;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('#')) {
      timed += line + ' ' + std::to_string(time) + "000\n";
    }
  }
  return timed;
}

/// The question for samples to a history that a test fills.
class SampleQueriesTest : public ::testing::Test {
 protected:
  struct Given {
    Json head;
    std::string text;
    /// The "next" as the member "after" of the next request.
    [[nodiscard]] std::string After() const { return R"(,"after":)" + JsonText(head["next"]); }
  };

  explicit SampleQueriesTest(std::chrono::milliseconds longestLook = SampleQueries::kLongestLook)
      : m_queries(m_turns, m_store, m_schedule, longestLook) {
    PublishFakeRecords();
    m_store.Configure({});
  }
  void Batch(std::int32_t time, std::initializer_list<std::uint32_t> counts) {
    std::vector<FakeRecord> records;
    for (const std::uint32_t count : counts) {
      records.emplace_back(count, time);
    }
    m_store.TakeTotals({"FAKE", '4', time, PointersTo(records)});
    m_store.EndBatch();
  }
  enum Record { FAKE, SELD };
  /// Publishes another record besides.
  static void PublishSeldom() {
    static constexpr RecordLayout kSeldom{"SELD", "recordFake", '4', sizeof(recordFake),
                                          kFakeFields};
    LayoutRegistry::Instance().Publish(kSeldom);
    LayoutRegistry::Instance().PublishListing({{"FAKE", '4', true, {}}, {"SELD", '4', true, {}}});
  }
  /// A row, or two with the same count.
  void TakeOne(int record, std::uint32_t count, std::int32_t time, std::size_t copies = 1) {
    const FakeRecord row(count, time);
    const LabelledRecord other(count, time);
    const CMBRecord* const rows[] = {&row, &other};
    m_store.TakeTotals(
        {record == FAKE ? "FAKE" : "SELD", '4', time, std::span(rows).first(copies)});
  }
  void LookAgain(const std::shared_ptr<FakePeer>& peer) {
    LoopTask look;
    ++m_looks;
    look.run = [this, peer](CMBNode&) {
      peer->answers.empty() ? LookAgain(peer) : EventLoop::RequestStop();
    };
    m_loop.Post(std::move(look));
  }
  Json AskLine(const std::string& line) {
    const auto peer = std::make_shared<FakePeer>(Rights::kRead);
    m_queries.Samples(std::make_shared<ControlRequest>(JsonOf(line), peer));
    if (peer->answers.empty()) {
      LookAgain(peer);
      m_loop.Run(m_agent);
    }
    const std::string& answer = peer->answers.at(0);
    const std::size_t end = answer.find('\n');
    m_text = end == std::string::npos ? "" : answer.substr(end + 1);
    return JsonOf(answer.substr(0, end));
  }
  Given Ask(const std::string& members, const std::string& record = "FAKE") {
    const Json answer = AskLine(R"({"records":[")" + record + "\"]" + members + "}");
    EXPECT_EQ(answer["ok"], true) << JsonText(answer);
    const Json& head = answer["samples"];
    EXPECT_EQ(head["bytes"], m_text.size());
    EXPECT_EQ(head["count"], std::count(m_text.begin(), m_text.end(), '\n'));
    return {head, m_text};
  }
  /// The counts in the text, in their order.
  static std::string Counts(const Given& given) {
    std::string counts;
    std::istringstream lines(given.text);
    for (std::string line; std::getline(lines, line);) {
      counts += line.substr(line.find("} ") + 2, line.rfind(' ') - line.find("} ") - 1);
    }
    return counts;
  }

  ScratchDirectory m_folder;
  EventLoop m_loop;
  FakeAgent m_agent;
  std::vector<std::string> m_told;
  HistoryStore m_store{[this](const std::string& text) { m_told.push_back(text); }};
  RequestTurns m_turns{m_loop};
  BatchDesk m_desk;
  LastRows m_rows;
  ScheduleBook m_schedule{m_loop, m_desk, m_rows};
  SampleQueries m_queries;
  std::string m_text;
  int m_looks = 0;  ///< turns of the loop until answers came
  const std::int32_t m_now = static_cast<std::int32_t>(std::time(nullptr));
};
