#include <list>

#include "agent/ConfigNames.h"
#include "node/LayoutRegistry.h"
#include "support/HostProfile.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/agent/RecordRows.h"

namespace {

const std::filesystem::path kRows = std::filesystem::path(QMT_TEST_DIR) / "fixtures/modern-rows";
constexpr tagPQLAUI kRowIntervals{.realtime = 0, .calcRates = 1};
constexpr tagPQLAUI kRowLooks{.realtime = 1, .calcRates = 0};
constexpr tagPQLAUI kSinceBoot{.realtime = 1, .calcRates = 1};
constexpr std::pair<const char*, unsigned char> kModernRecords[] = {
    {"PRES", '4'}, {"CGRP", '4'}, {"NETD", '4'}, {"SOCK", '4'}, {"DISK", '4'}, {"MEMD", '4'},
    {"KERN", '4'}, {"CPUX", '4'}, {"SENS", '3'}, {"PDX", '3'},  {"HOST", '3'}};

/// The agent on a host in two states, 12.5 seconds apart.
class ModernRecordRowsTest : public AgentOnHost {
 protected:
  enum class State { kFirst, kSecond };

  void SetUp() override {
    AgentOnHost::SetUp();
    Os().getpagesize = [] { return 4096; };
    Os().gettimeofday = [](timeval* now) {
      *now = {s_now, s_microseconds};
      return 0;
    };
    // Other tests of this program may have published some.
    LayoutRegistry::Instance() = LayoutRegistry();
  }

  void Start(const char* profile, const char* host) {
    ScriptedNode::Instance().ini[{kHostSection, "", kProfileLabel}] = profile;
    Reach(State::kFirst, host);
    StartAgent();
  }

  /// Sets the clock, and writes the files of a table: all, or what the second state has other.
  void Reach(State state, const char* host) {
    const bool isFirst = state == State::kFirst;
    s_now = isFirst ? 1'700'000'000 : 1'700'000'012;
    s_microseconds = isFirst ? 250'000 : 750'000;
    std::map<std::string, std::string> texts;
    std::ifstream in(kRows / host);
    for (std::string line; std::getline(in, line);) {
      std::vector<std::string> cells = CutAt('\t', line);
      cells.resize(std::max<std::size_t>(cells.size(), 2));
      if (!cells[0].ends_with('@')) {
        texts[cells[0]] += WithTabs(isFirst ? cells[1] : cells.back()) + '\n';
      } else if (isFirst) {
        cells[0].pop_back();
        m_host.Link(cells[0], cells[1]);
      }
    }
    for (const auto& [path, text] : texts) {
      if (std::string& written = m_written[path]; written != text) {
        m_host.Write(path, text);
        written = text;
      }
    }
  }

  static std::string WithTabs(std::string line) {
    for (std::size_t at = 0; (at = line.find("\\t", at)) != std::string::npos; ++at) {
      line.replace(at, 2, "\t");
    }
    return line;
  }

  inline static suseconds_t s_microseconds = 0;
  std::map<std::string, std::string> m_written;
};

TEST_F(ModernRecordRowsTest, RowsAreThoseWorkedOutByHand) {
  Start("modern", "host.tsv");
  Batch looks;
  Batch intervals;
  Batch others;
  for (const auto& [record, category] : kModernRecords) {
    looks.Add(record, category, kRowLooks);
    if (category == '4') {
      intervals.Add(record, category, kRowIntervals);
      others.Add(record, category, kSinceBoot);
    }
  }
  const auto expect = [](const Batch& batch, const char* column) {
    for (const auto& entry : batch.entries) {
      const std::string record = entry->request.GetRecordType();
      SCOPED_TRACE(record);
      std::list<CMBRecord*> records = entry->event.m_records;
      if (record == "PDX") {  // in the order of a folder of the test's own
        records.sort([](const CMBRecord* a, const CMBRecord* b) {
          return FieldText(*a, "PID") < FieldText(*b, "PID");
        });
      }
      RowTable(kRows / (record + ".tsv")).Expect(records, column);
    }
  };
  Answer(looks);
  Answer(intervals);
  expect(looks, "first");
  for (const auto& entry : intervals.entries) {
    EXPECT_TRUE(entry->event.m_records.empty()) << entry->request.GetRecordType();
  }
  Reach(State::kSecond, "host.tsv");
  Answer(looks);
  Answer(intervals);
  Answer(others);
  expect(looks, "look");
  expect(intervals, "interval");
  expect(others, "boot");
}

// Though the first batch takes seconds more for its processes, behind its figures of pressure.
TEST_F(ModernRecordRowsTest, AnIntervalEndsWhenItsFiguresAreRead) {
  static std::int64_t s_milliseconds = 250;
  Os().clock_gettime = [](clockid_t, timespec* now) {
    *now = {1000 + s_milliseconds / 1000, s_milliseconds % 1000 * 1'000'000};
    return 0;
  };
  Os().statfs64 = [](const char*, struct ::statfs64*) {
    s_milliseconds += 5000;
    return -1;
  };
  Start("modern", "host.tsv");
  Batch batch;
  batch.Add("PRES", '4', kRowIntervals);
  batch.Add("PDX", '3', kRowLooks);
  Answer(batch);
  Reach(State::kSecond, "host.tsv");
  s_milliseconds = 12'750;
  Os().statfs64 = m_realCalls.statfs64;
  Answer(batch);
  RowTable(kRows / "PRES.tsv").Expect(batch.entries[0]->event.m_records, "interval");
}

TEST_F(ModernRecordRowsTest, GroupsOfBothVersionsAreOneRowEach) {
  Start("modern", "host-v1.tsv");
  const RowTable table(kRows / "CGRP-v1.tsv");
  Batch batch;
  batch.Add("CGRP", '4', kRowIntervals);
  batch.Add("CGRP", '4', kRowLooks);
  Answer(batch);
  table.Expect(batch.entries[1]->event.m_records, "first");
  Reach(State::kSecond, "host-v1.tsv");
  Answer(batch);
  table.Expect(batch.entries[0]->event.m_records, "interval");
  table.Expect(batch.entries[1]->event.m_records, "look");
}

TEST_F(ModernRecordRowsTest, TheProfileClassicHasNoneOfThem) {
  Start("classic", "host.tsv");
  Batch batch;
  for (const auto& [record, category] : kModernRecords) {
    batch.Add(record, category, kRowLooks);
    EXPECT_EQ(LayoutRegistry::Instance().Find(record), nullptr) << record;
    EXPECT_EQ(LayoutRegistry::Instance().FindListing(record), nullptr) << record;
  }
  ASSERT_NE(LayoutRegistry::Instance().Find("PI"), nullptr);
  Answer(batch);
  for (const auto& entry : batch.entries) {
    EXPECT_TRUE(entry->event.m_records.empty()) << entry->request.GetRecordType();
  }
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10600), 11) << "one a record";
}

}  // namespace
