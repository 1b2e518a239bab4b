#include "support/Switches.h"
#include "tests/agent/AgentOnHost.h"

namespace {

using RecordDumpTest = AgentOnHost;

TEST_F(RecordDumpTest, ABatchDumpsALineOfLabelsAndEachRowOfARecord) {
  s_now = 1'700'000'000;
  m_host.CopyFrom(QMT_TEST_DIR "/fixtures/6.1");
  m_host.Write("/etc/mtab", "/dev/sda1 / ext4 rw 0 0\n192.0.2.7:/export / nfs rw 0 0\n");
  StartAgent();
  const struct {
    const char* name;
    unsigned char category;
  } cases[] = {{"PI", '4'},   {"CPUP", '4'}, {"DEVD", '4'}, {"DEVS", '4'}, {"NIND", '4'},
               {"NINS", '4'}, {"WGRP", '4'}, {"PD", '3'},   {"PDI", '3'},  {"PDS", '3'},
               {"PGM", '3'},  {"TERM", '3'}, {"USER", '3'}, {"FSL", '3'},  {"FSR", '3'}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    Batch batch;
    batch.Add(one.name, one.category, {.realtime = 1, .calcRates = 0});
    for (const int level : {39, 40}) {
      g_msgDataLevel = level;
      std::string& dump = ScriptedNode::Instance().dataTrace;
      dump.clear();
      batch.entries[0]->NextAnswer();
      ASSERT_EQ(m_agent->NotifyEvent(&batch.event), 0);
      const auto rows = batch.entries[0]->event.m_records.size();
      EXPECT_GT(rows, 0U);
      EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'),
                level < 40 ? 0 : static_cast<std::ptrdiff_t>(rows) + 1);
    }
  }
  g_msgDataLevel = 0;
}

}  // namespace
