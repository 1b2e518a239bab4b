#include "records/RecordBuilder.h"

#include "collect/CategoryFlags.h"
#include "collect/HostFile.h"
#include "collect/ProcLib.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "node/LayoutRegistry.h"
#include "records/RecordLayouts.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/ProcessTree.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"
#include "tests/support/WithoutDescriptors.h"

namespace {

namespace fs = std::filesystem;

class RecordBuilderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    m_realCalls = Os();
    Os().get_nprocs = [] { return 4; };
    Os().get_nprocs_conf = [] { return 4; };
    SetHostRoot(std::string(QMT_TEST_DIR) + "/fixtures/6.1");
    SetProductRoot(m_root.Path().string());
    ProcLib::ResetCaches();
    fs::create_directories(m_root.Path() / "opt/qmtrx/mond/agent");
  }
  void TearDown() override {
    Os() = m_realCalls;
    g_hostProfile = HostProfile::kClassic;
    ProcLib::ResetCaches();
    SetHostRoot("");
    SetProductRoot("");
  }
  void WriteOptrecs(const std::string& text) const {
    std::ofstream(m_root.Path() / "opt/qmtrx/mond/agent/optrecs.dat") << text;
  }
  int Collections() const {
    return static_cast<int>(
        ScriptedNode::Instance().LinesWith("Starting the collect routine").size());
  }

  TempFolder m_root;
  OsCalls m_realCalls{};
  Collector m_collector;
  RecordBuilder m_builder{nullptr, &m_collector, "pipe"};
};

TEST_F(RecordBuilderTest, OneCollectionServesABatchInOrderOfArrival) {
  PublishLayouts();
  ASSERT_EQ(m_builder.Init(), nullptr);
  ScriptedNode::Instance().lines.clear();
  Batch batch;
  for (int i = 0; i < 1000; ++i) {
    batch.Add("CPUP", '4', {.realtime = 1, .calcRates = 1});
  }
  EXPECT_EQ(m_builder.Build(&batch.event), nullptr);
  EXPECT_EQ(Collections(), 1);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Created 4 CPUP record(s).").size(), 1000U);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Processed 1000 event(s).").size(), 1U);
  for (const auto& entry : batch.entries) {
    EXPECT_EQ(entry->event.m_records.size(), 4U);
  }
}

TEST_F(RecordBuilderTest, ARefusedRequestIsReportedOnceAndStopsNoNeighbour) {
  ASSERT_EQ(m_builder.Init(), nullptr);
  Batch batch;
  batch.Add("TAPS", '4', {});
  batch.Add("CPUP", '3', {.realtime = 1});  // the category must match too
  batch.Add("cpup", '4', {.realtime = 1});
  batch.Add("CPUP", '4', {.realtime = 1});
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(m_builder.Build(&batch.event), nullptr);
  }
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10600), 3);
  EXPECT_EQ(ScriptedNode::Instance()
                .LinesWith("An invalid collection event occurred. (record=TAPS, rc=1)")
                .size(),
            1U);
  EXPECT_EQ(ScriptedNode::Instance()
                .LinesWith("Unable to process event request: CPUP - Record type not supported.")
                .size(),
            3U);
  EXPECT_EQ(batch.entries.back()->event.m_records.size(), 12U);
}

TEST_F(RecordBuilderTest, FailuresOfABatchStayWithTheirRequests) {
  const process_tree::HostTree host;  // which has no disk of a known kind
  host.CopyFrom(std::string(QMT_TEST_DIR) + "/fixtures/6.1");
  host.Write("/proc/diskstats", " 253 0 dm-0 4 0 8 6 1 0 9 4 0 1 4 0 0 0 0 0 0\n");
  host.Write("/proc/partitions", "major minor  #blocks  name\n\n 253 0 10 dm-0\n");
  ASSERT_EQ(m_builder.Init(), nullptr);
  std::vector<std::size_t> builtBefore;
  ScriptedNode::Instance().onYield = [&] {
    builtBefore.push_back(ScriptedNode::Instance().LinesWith("Created ").size());
  };
  Batch batch;
  batch.Add("DEVD", '4', {.realtime = 1});
  batch.Add("CPUP", '4', {.realtime = 0, .calcRates = 1});
  batch.Add("CPUP", '4', {.realtime = 0, .calcRates = 1});  // an interval of no seconds
  batch.Add("FSL", '3', {.realtime = 1});
  batch.Add("CPUP", '4', {.realtime = 0, .calcRates = 1});
  Os().time = [](std::time_t*) { return std::time_t{1'700'000'000}; };
  EXPECT_EQ(m_builder.Build(&batch.event), nullptr) << "though the last request failed";
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10300), 2);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("in Device category collection").size(), 1U);
  EXPECT_EQ(ScriptedNode::Instance()
                .LinesWith("(record=CPUP, detail=RecordBuilder::BuildRates_CPUP: Attempt to "
                           "calculate rates for a zero second interval.)")
                .size(),
            2U);
  EXPECT_FALSE(batch.entries[3]->event.m_records.empty()) << "served behind both failures";
  EXPECT_EQ(builtBefore, (std::vector<std::size_t>{0, 1, 2, 3, 4})) << "others have their turn";
}

TEST_F(RecordBuilderTest, ARequestWhoseFiguresCouldNotBeTakenIsMarked) {
  const process_tree::HostTree host;
  host.CopyFrom(std::string(QMT_TEST_DIR) + "/fixtures/6.1");
  ASSERT_EQ(m_builder.Init(), nullptr);
  Batch batch;
  batch.Add("FSL", '3', {.realtime = 1});
  batch.Add("CPUP", '4', {.realtime = 1});
  for (const bool isFailing : {true, false}) {
    host.Remove("/etc/mtab");
    if (!isFailing) {
      host.Write("/etc/mtab", "/dev/sda1 /nowhere ext4 rw 0 0\n");
    }
    EXPECT_EQ(m_builder.Build(&batch.event), nullptr);
    EXPECT_EQ(batch.entries[0]->event.m_lacksFigures, isFailing);
    EXPECT_FALSE(batch.entries[1]->event.m_lacksFigures) << "its own category was refreshed";
  }
}

TEST_F(RecordBuilderTest, WithoutADescriptorNothingIsToldToBeGone) {
  for (const HostProfile profile : {HostProfile::kClassic, HostProfile::kModern}) {
    g_hostProfile = profile;
    const WithoutDescriptors lack;
    EXPECT_EQ(OpenHostFile("/proc/stat"), nullptr);
    EXPECT_EQ(TakeHostFileError() != nullptr, profile == HostProfile::kModern);
  }
  const process_tree::HostTree host;
  host.CopyFrom(std::string(QMT_TEST_DIR) + "/fixtures/modern-6.18/second");
  RecordBuilder builder(nullptr, &m_collector, "pipe");
  ASSERT_EQ(builder.Init(), nullptr);
  for (const bool isFailing : {true, false}) {
    Batch batch;
    for (const char* record : {"DISK", "NETD", "MEMD", "PRES", "CGRP", "CPUX", "SOCK"}) {
      batch.Add(record, '4', {.realtime = 1});
    }
    for (const char* record : {"FSL", "SENS", "HOST"}) {
      batch.Add(record, '3', {.realtime = 1});
    }
    {
      const auto lack = isFailing ? std::make_unique<WithoutDescriptors>() : nullptr;
      EXPECT_EQ(builder.Build(&batch.event), nullptr);
    }
    for (const auto& entry : batch.entries) {
      EXPECT_EQ(entry->event.m_lacksFigures, isFailing)
          << entry->event.m_requests.front()->GetRecordType();
    }
  }
}

TEST_F(RecordBuilderTest, AProcessThatLacksADescriptorMarksTheRowsOfTheOthers) {
  const process_tree::HostTree host;
  host.CopyFrom(std::string(QMT_TEST_DIR) + "/fixtures/6.1");
  process_tree::ProcessFigures process;
  for (const int pid : {3001, 3002}) {
    process.pid = pid;
    host.AddProcess(process);
  }
  std::size_t whole = 0;
  for (const auto& [profile, isLacking] :
       {std::pair(HostProfile::kModern, false), std::pair(HostProfile::kModern, true),
        std::pair(HostProfile::kClassic, true)}) {
    g_hostProfile = profile;
    const auto lack = isLacking ? std::make_unique<WithoutDescriptors>("3001/stat") : nullptr;
    RecordBuilder builder(nullptr, &m_collector, "pipe");
    ASSERT_EQ(builder.Init(), nullptr);
    Batch batch;
    batch.Add("PD", '3', {.realtime = 1});
    batch.Add("PDX", '3', {.realtime = 1});
    batch.Add("PI", '4', {.realtime = 1});
    EXPECT_EQ(builder.Build(&batch.event), nullptr);
    const auto& answer = batch.entries[0]->event;
    whole = isLacking ? whole : answer.m_records.size();
    EXPECT_EQ(answer.m_records.size(), whole - (isLacking ? 1 : 0));
    EXPECT_EQ(answer.m_lacksFigures, isLacking && profile == HostProfile::kModern);
    EXPECT_TRUE(m_collector.HasCollected(COLLECT_PROCESS)) << "what else needs the rows has them";
    for (const std::size_t other : {1U, 2U}) {
      EXPECT_EQ(batch.entries[other]->event.m_lacksFigures, answer.m_lacksFigures)
          << "made of the same rows";
    }
  }
}

TEST_F(RecordBuilderTest, AnOptionalRecordIsServedWhereItIsListed) {
  WriteOptrecs("UFSS\n");
  for (const int variant : {1, 3}) {
    ScriptedNode::Instance().lines.clear();
    g_kernelVariant = variant;
    RecordBuilder builder(nullptr, &m_collector, "pipe");
    ASSERT_EQ(builder.Init(), nullptr);
    Batch batch;
    batch.Add("UFSS", '3', {.realtime = 1});
    EXPECT_EQ(builder.Build(&batch.event), nullptr);
    const bool isServed = variant == 1;
    EXPECT_EQ(ScriptedNode::Instance().CountMessages(10600), isServed ? 0 : 1);
    EXPECT_EQ(ScriptedNode::Instance().LinesWith("Created 0 UFSS").size(), isServed ? 1U : 0U);
  }
  g_kernelVariant = kNewestKernel;
}

TEST_F(RecordBuilderTest, OnlyAScheduledRequestLetsAccountingAdvance) {
  ASSERT_EQ(m_builder.Init(), nullptr);
  const auto updatePtr = [&](std::initializer_list<int> realtime) {
    Batch batch;
    for (const int value : realtime) {
      batch.Add("CPUP", '4', {.realtime = value});
    }
    EXPECT_EQ(m_builder.Build(&batch.event), nullptr);
    return std::string(ProductOptions::Instance().Get("Acct", "UpdatePtr"));
  };
  EXPECT_EQ(updatePtr({1, 1}), "n");
  EXPECT_EQ(updatePtr({1, 0, 1}), "y");
  EXPECT_EQ(updatePtr({}), "n");
}

TEST_F(RecordBuilderTest, OptionalRecordsFile) {
  std::string late;
  for (int i = 0; i < 100; ++i) {
    late += "nope\n";
  }
  late += "UFSS\n";
  struct Case {
    const char* name;
    int variant;
    std::string text;
    bool enabled;
    const char* trace;
  };
  const Case cases[] = {
      {"missing", 1, "", false, "Optional Mode = No."},
      {"listed", 1, "ufss\n", true, "UFSS record Option = Yes."},
      {"listed without newline", 2, "UFSS", true, "Optional Mode = Yes."},
      {"not on this kernel", 3, "UFSS\n", false, ""},
      {"trailing blank", 1, "UFSS \n", false, "Invalid entry found in"},
      {"leading tab", 1, "\tUFS\n", false, "Invalid entry found in"},
      {"unknown names pass silently", 1, "ABCD\n", false, "Optional Mode = No."},
      {"line 101", 1, late, false, "Completed reading first 100 Entries"},
      {"a long line comes in pieces", 1, std::string(63, 'x') + "UFSS\n", true, "Invalid entry"},
      {"binary", 1, std::string("\0\xff\0UFSS\n\xff\xfe", 10), false, "Invalid entry"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScriptedNode::Instance().lines.clear();
    g_kernelVariant = c.variant;
    fs::remove(m_root.Path() / "opt/qmtrx/mond/agent/optrecs.dat");
    if (!c.text.empty()) {
      WriteOptrecs(c.text);
    }
    RecordBuilder builder(nullptr, &m_collector, "pipe");
    EXPECT_EQ(builder.Init(), nullptr);
    EXPECT_EQ(builder.IsUFSSEnabled() != 0, c.enabled);
    EXPECT_EQ(builder.HasNoOptionalRecords(), !c.enabled);
    if (*c.trace != '\0') {
      EXPECT_FALSE(ScriptedNode::Instance().LinesWith(c.trace).empty());
    }
  }
  fs::remove(m_root.Path() / "opt/qmtrx/mond/agent/optrecs.dat");
  fs::create_directory(m_root.Path() / "opt/qmtrx/mond/agent/optrecs.dat");
  g_kernelVariant = 1;
  EXPECT_EQ(ReadOptrecsFile().count, 0);
  EXPECT_FALSE(ScriptedNode::Instance().LinesWith("is a directory.").empty());
}

TEST_F(RecordBuilderTest, ListsTheRecordsInForceAndSaysWhichAreServed) {
  PublishLayouts();
  ASSERT_EQ(m_builder.Init(), nullptr);
  const auto& registry = LayoutRegistry::Instance();
  EXPECT_EQ(UnixBaseRecordMappings().size(), 20U);
  EXPECT_TRUE(registry.FindListing("CPUP", '4')->served);
  EXPECT_FALSE(registry.FindListing("TAPS", '4')->served);
  EXPECT_EQ(registry.FindListing("ACCT"), nullptr);
}

TEST_F(RecordBuilderTest, CpuSummaryAddsUpOncePerPass) {
  CPUSummary summary(&m_collector);
  EXPECT_EQ(summary.GetCPUCount(), 0U);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("has not been built").size(), 1U);
  ASSERT_EQ(m_collector.collect(1, 0), nullptr);
  ASSERT_EQ(summary.Build(7), nullptr);
  const std::uint32_t interrupts = summary.GetInterrupts();
  EXPECT_EQ(summary.GetCPUCount(), 4U);
  EXPECT_GT(interrupts, 0U);
  UtlTime sum = summary.GetIdleTime();
  sum += summary.GetUserTime();
  sum += summary.GetKernelTime();
  sum += summary.GetWaitTime();
  EXPECT_EQ(summary.GetTotalTime(), sum);
  EXPECT_GT(sum.Seconds(), 0);
  m_collector.GetCPU()->clear();
  ASSERT_EQ(summary.Build(7), nullptr);
  EXPECT_EQ(summary.GetInterrupts(), interrupts);
  ASSERT_EQ(summary.Build(8), nullptr);
  EXPECT_EQ(summary.GetCPUCount(), 0U);
  EXPECT_EQ(ScriptedNode::Instance().debugTexts.size(), 2U);
}

}  // namespace
