#include <malloc.h>

#include <cstddef>

#include "tests/process/ProcessRecordFixture.h"

#ifdef QMT_ADDRESS_SANITIZER
// The compiler comes without the header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

std::size_t AllocatedBytes() {
#ifdef QMT_ADDRESS_SANITIZER
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct ::mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

class ManyIntervalsTest : public ProcessRecordFixture {
 protected:
  void Move(const std::string& from, const std::string& to) const {
    std::filesystem::rename(m_host.Path(from), m_host.Path(to));
  }
  void AddSpare(int pid, int uid, long startTicks, const std::string& spare) const {
    process_tree::ProcessFigures figures = Server(pid, 1, 500, 0);
    figures.uid = uid;
    figures.name = "job" + std::to_string(uid);
    figures.startTicks = startTicks;
    m_host.AddProcess(figures);
    Move("/proc/" + std::to_string(pid), spare);
  }
};

/// Of eight processes one goes at each interval, and its number comes back with another one; six
/// stay, and number 10 has another process each time.
TEST_F(ManyIntervalsTest, NothingGrowsAsProcessesComeAndGo) {
  constexpr int kNumbers = 50;
  constexpr int kAtATime = 8;
  g_msgLogLevel = 0;
  Batch batch;
  for (const char* record : {"PD", "PDI", "PDS", "PGM", "TERM", "USER"}) {
    batch.Add(record, '3', {.realtime = 0, .calcRates = 1});
    batch.Add(record, '3', {.realtime = 1, .calcRates = 0});
  }
  m_host.Write("/spare/file", "");
  for (int index = 0; index < kNumbers; ++index) {
    AddSpare(100 + index, 1000 + index, 999'000, "/spare/" + std::to_string(100 + index));
  }
  for (int index = 0; index < 2; ++index) {
    AddSpare(10, 33, 900'000 + 100 * index, "/spare/ten" + std::to_string(index));
  }
  for (int pid = 1; pid <= 6; ++pid) {
    AddProcess(Server(pid, pid - 1, 100, 0));
  }
  std::size_t allocated = 0;
  for (int interval = 0; interval <= 1000; ++interval) {
    const std::string come = std::to_string(100 + interval % kNumbers);
    const std::string go = std::to_string(100 + (interval + kNumbers - kAtATime) % kNumbers);
    Move("/spare/ten" + std::to_string(interval % 2), "/proc/10");
    Move("/spare/" + come, "/proc/" + come);
    if (interval >= kAtATime) {
      Move("/proc/" + go, "/spare/" + go);
    }
    s_now += 10;
    ASSERT_EQ(m_builder.Build(&batch.event), nullptr);
    Move("/proc/10", "/spare/ten" + std::to_string(interval % 2));

    const std::size_t processes = 7U + static_cast<unsigned>(std::min(interval + 1, kAtATime));
    for (int asker = 0; asker < 4; ++asker) {
      ASSERT_EQ(batch.entries[static_cast<std::size_t>(asker)]->event.m_records.size(), processes)
          << interval;
    }
    const auto row = RowOf<recordPD_PDI>(*batch.entries[2], 10);
    ASSERT_EQ(row.interval, static_cast<std::uint32_t>(row.recordTime - row.startTime));
    ASSERT_EQ(static_cast<tagUTIME>(row.userCpu), (tagUTIME{5, 0})) << "since its birth";
    const auto* terminal =
        static_cast<const recordPD_TERM*>(batch.entries[8]->event.m_records.front()->GetRecStart());
    ASSERT_EQ(static_cast<tagUTIME>(terminal->userCpu), (tagUTIME{interval == 0 ? 16 : 10, 0}))
        << "of the two that came, and at first of those that stay";
    for (const auto& asker : batch.entries) {
      ASSERT_FALSE(asker->event.m_records.empty()) << asker->request.GetRecordType();
      asker->NextAnswer();
    }
    if (interval == 200) {
      allocated = AllocatedBytes();
    }
  }
  EXPECT_LT(AllocatedBytes(), allocated + 16384) << "less than the smallest block an interval";
}

}  // namespace
