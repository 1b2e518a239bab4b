#pragma once

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/ProcLib.h"
#include "collect/process/NameCache.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ProcessTree.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

/// A host of two processors, up since 1,699,990,000, that knows one user, 33; and a
/// record builder on it.
class ProcessRecordFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    m_realCalls = Os();
    Os().time = [](std::time_t*) { return s_now; };
    Os().get_nprocs = [] { return 2; };
    Os().get_nprocs_conf = [] { return 2; };
    Os().getpagesize = [] { return 4096; };
    Os().getpwuid = [](uid_t uid) {
      ++s_userQuestions;
      static std::array<char, 4> name{"www"};
      static ::passwd entry{};
      entry.pw_name = name.data();
      return uid == 33 ? &entry : nullptr;
    };
    Os().getgrgid = [](gid_t) -> ::group* { return nullptr; };
    ClearUserNames();
    m_host.CopyFrom(std::filesystem::path(QMT_TEST_DIR) / "fixtures/pi/first");
    m_host.Write("/proc/stat", "cpu  1 2 3 4 5 6 7 8 0 0\nbtime 1699990000\n");
    ProcLib::ResetCaches();
    s_now = 1'700'000'000;
    s_userQuestions = 0;
    ASSERT_EQ(m_builder.Init(), nullptr);
    g_kernelVariant = 2;  // the newest kernels have no sizes of text and data
  }
  void TearDown() override {
    g_kernelVariant = kNewestKernel;
    Os() = m_realCalls;
    g_hostProfile = HostProfile::kClassic;
    ClearUserNames();
    ProcLib::ResetCaches();
  }

  /// A web server's process, started 1,000 seconds before the first sample.
  static process_tree::ProcessFigures Server(int pid, int ppid, long userTicks, long systemTicks) {
    process_tree::ProcessFigures figures;
    figures.pid = pid;
    figures.ppid = ppid;
    figures.uid = 33;
    figures.name = "httpd";
    figures.userTicks = userTicks;
    figures.systemTicks = systemTicks;
    figures.startTicks = 900'000;
    figures.sizePages = 1000;
    figures.residentPages = 500;
    figures.commandLine = "/usr/sbin/httpd -k start";
    return figures;
  }
  void AddProcess(const process_tree::ProcessFigures& figures) {
    m_host.Remove("/proc/" + std::to_string(figures.pid));
    m_host.AddProcess(figures);
  }
  /// What is kept for one batch is out of date from here on; nothing is collected.
  void NewBatch() {
    CMBMultipleRecordRequestEvent empty;
    ASSERT_EQ(m_builder.Build(&empty), nullptr);
  }
  void Collect() {
    NewBatch();
    ASSERT_EQ(m_collector.collect(COLLECT_PROCESS, 0), nullptr);
  }
  /// Figures that no file gives: the list that the next builds work on.
  Process& AddToList(std::int32_t pid, std::int32_t startTime) {
    Process& process = m_collector.GetProcess()->emplace_back();
    process.pid = pid;
    process.startTime.seconds = startTime;
    process.tty = ~std::uint64_t{0};
    return process;
  }

  /// The row of one process in an answer; a zero row, and a failure, if it is not there.
  template <class Row>
  static Row RowOf(const Asker& asker, std::int32_t pid) {
    for (const CMBRecord* record : asker.event.m_records) {
      const auto* row = static_cast<const Row*>(record->GetRecStart());
      if (row->pid == pid) {
        return *row;
      }
    }
    ADD_FAILURE() << "no process " << pid;
    return {};
  }
  template <class Row>
  static void ExpectTable(const Row& row, const char* table) {
    ExpectGolden(&row, sizeof row, std::filesystem::path(QMT_TEST_DIR) / "fixtures" / table);
  }
  template <class Row>
  static void ExpectSameBytes(const Row& row, const Row& expected) {
    VisitFields(row, [&](const char* label, const auto& value, FieldMeaning) {
      const auto offset =
          reinterpret_cast<const char*>(&value) - reinterpret_cast<const char*>(&row);
      EXPECT_EQ(
          std::memcmp(&value, reinterpret_cast<const char*>(&expected) + offset, sizeof value), 0)
          << label;
    });
  }

  static inline std::time_t s_now = 0;
  static inline int s_userQuestions = 0;
  process_tree::HostTree m_host;
  OsCalls m_realCalls{};
  Collector m_collector;
  RecordBuilder m_builder{nullptr, &m_collector, "pipe"};
};
