#include "process/ApplicationMonitor.h"
#include "tests/process/ProcessRecordFixture.h"
#include "tests/scripted/Golden.h"

namespace {

class APPrecordTest : public ProcessRecordFixture {
 protected:
  UtlErrorPtr Build(Asker& asker) {
    return UtlErrorPtr(m_builder.BuildPD_APP(&asker.event, &asker.request));
  }
  ApplicationMonitor m_applications;
};

TEST_F(APPrecordTest, ARowPerApplicationByteForByte) {
  m_builder.SetApplications(&m_applications);
  EXPECT_EQ(m_applications.ReadText("A\tweb\nP\t1\t2\t2\thttpd\nP\t2\t1\t5\t/usr/sbin/http? -k*\n"
                                    "P\t7\t4\t2\tskipped\nP\t1\t-2147483648\t2147483647\tnone\n" +
                                    [] {
                                      std::string unused;
                                      for (int i = 5; i < 15; ++i) {
                                        unused += "P\t0\t0\t0\t\n";
                                      }
                                      return unused;
                                    }() +
                                    "P\t1\t0\t65535\t" + std::string(40, 'p') + "\nA\tidle\n"),
            1);
  for (const int pid : {10, 11, 12}) {
    AddProcess(Server(pid, 1, 0, 0));
  }
  Collect();
  Asker look("APP", '3', {.realtime = 1, .calcRates = 0});
  EXPECT_EQ(Build(look), nullptr);
  ASSERT_EQ(look.event.m_records.size(), 2U);
  ExpectGolden(look.event.m_records.front()->GetRecStart(), sizeof(recordPD_APP),
               QMT_TEST_DIR "/fixtures/APP/row.tsv");
  const auto* idle = static_cast<const recordPD_APP*>(look.event.m_records.back()->GetRecStart());
  EXPECT_STREQ(idle->applicationName.c_str(), "idle");
  EXPECT_STREQ(idle->applicationStatus.c_str(), "NORMAL");
  EXPECT_STREQ(idle->applicationExist.c_str(), "ABNORMAL");
  EXPECT_EQ(Lines("Created 2 APP record(s)."), 1U);

  m_collector.GetProcess()->clear();
  look.NextAnswer();
  EXPECT_EQ(Build(look), nullptr);
  const auto* none = static_cast<const recordPD_APP*>(look.event.m_records.front()->GetRecStart());
  EXPECT_STREQ(none->applicationStatus.c_str(), "NONE");
  EXPECT_STREQ(none->monitor1Status.c_str(), "");
}

TEST_F(APPrecordTest, AnEmptyListIsReportedOnce) {
  m_builder.SetApplications(&m_applications);
  Asker look("APP", '3', {.realtime = 1, .calcRates = 0});
  const UtlErrorPtr error = Build(look);
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(error->GetMessage(),
               "The information to be collected has not been set in Web Console. (PD_APP)");
  EXPECT_EQ(Build(look), nullptr);
  m_builder.SetApplications(nullptr);
  EXPECT_EQ(Build(look), nullptr);
  EXPECT_TRUE(look.event.m_records.empty());
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10106), 2);
}

}  // namespace
