#include <atomic>

#include "node/FigureRegistry.h"
#include "tests/local/ServedControl.h"

namespace {

class MetricsOperationTest : public ::testing::Test, protected ServedControl {
 protected:
  MetricsOperationTest() {
    operations.Metrics().Configure({"FAKE", "IDLE", "NONE", "FAKE"},
                                   [this](const std::string& text) { problems.push_back(text); });
    agent.onBatch = [this](CMBMultipleRecordRequestEvent& batch) {
      ++batches;
      for (CMBRecordRequestEvent* event : batch.m_events) {
        EXPECT_EQ(event->ShouldCalcRates(), 0);
        event->m_records.push_back(new FakeRecord(7));
        event->m_records.push_back(new FakeRecord(8));
      }
      return kNotifyDone;
    };
  }
  ~MetricsOperationTest() override { FigureRegistry::Instance() = figures; }

  /// The text of a scrape with these further members.
  static std::string Scrape(TestClient& client, const std::string& members, Json* head = nullptr) {
    const Json answer = client.Ask("{\"op\":\"metrics\",\"id\":1" + members + "}");
    if (answer.Find("metrics") == nullptr) {
      return JsonText(answer["error"]);
    }
    if (head != nullptr) {
      *head = answer;
    }
    return client.ReceiveBytes(static_cast<std::size_t>(answer["metrics"]["bytes"].Whole()));
  }

  const FigureRegistry figures = FigureRegistry::Instance();  ///< those that other suites see
  std::atomic<int> batches{0};
};

TEST_F(MetricsOperationTest, TheTextFollowsItsLineAndTheConnectionGoesOn) {
  FigureRegistry::Instance().SetFact("host_profile", "modern");
  EXPECT_THAT(problems, ElementsAre("Http Records: the record IDLE is not served",
                                    "Http Records: the record NONE is unknown"));
  const std::string tooMany = JsonText(std::vector<std::string>(65, "FAKE"));
  Serve([&] {
    const struct {
      std::string members;
      std::string part;
    } rows[] = {
        {"", "# TYPE qmt_fake_count_total counter\n"},
        // The second row has the key of the first; the label's byte is no UTF-8.
        {"", "qmt_fake_count_total{label=\"a\xEF\xBF\xBD\"} 7\n"},
        {"", "\",host_profile=\"modern\"} 1\n"},
        {R"(,"format":"openmetrics","records":["FAKE","FAKE"])", "# TYPE qmt_fake_count counter\n"},
        {R"(,"format":"html")", R"("code":"bad-field")"},
        {R"(,"records":["IDLE"])",
         R"("message":"the record IDLE is not served","field":"records")"},
        {R"(,"records":[""])", R"(is unknown","field":"records")"},
        {R"(,"records":"FAKE")", R"("field":"records")"},
        {R"(,"names":"agent")", "# TYPE qmt_fake_count_total counter\n"},
        {R"(,"names":"node")", R"(take the host profile modern","field":"names")"},
        {R"(,"names":1)", R"("field":"names")"},
        {R"(,"names":"node","records":["FAKE"])", R"("field":"records")"},
        {R"(,"records":[1])", R"("field":"records")"},
        {",\"records\":" + tooMany, R"("field":"records")"},
    };
    TestClient client;
    for (const auto& row : rows) {
      Json head;
      const std::string text = Scrape(client, row.members, &head);
      EXPECT_THAT(text, AllOf(HasSubstr(row.part), Not(HasSubstr("} 8\n")))) << row.members;
      if (!head.IsNull()) {
        const bool isOpen = row.members.find("openmetrics") != std::string::npos;
        EXPECT_EQ(head["id"], 1);
        EXPECT_THAT(head["metrics"]["content_type"].Text(),
                    HasSubstr(isOpen ? "application/openmetrics-text" : "text/plain"));
        EXPECT_EQ(text.ends_with("# EOF\n"), isOpen);
        EXPECT_TRUE(text.ends_with("\n"));
      }
    }
    // Two at once: no byte of the one is taken for the other's.
    EXPECT_TRUE(client.Send("{\"op\":\"metrics\"}\n{\"op\":\"status\"}"));
    const auto size = client.Receive()["metrics"]["bytes"].Whole();
    client.ReceiveBytes(static_cast<std::size_t>(size));
    EXPECT_EQ(client.Receive()["status"]["http"], "");
  });
}

TEST_F(MetricsOperationTest, ScrapesShareABatchAndIdleRecordsAreAskedForByNameAlone) {
  std::atomic<bool> isIdle = true;
  LayoutRegistry::Instance().PublishListing({{"FAKE", '4', true, [&] { return isIdle.load(); }},
                                             {"IDLE", '3', false},
                                             {"BARE", '4', true}});
  Serve([&] {
    TestClient one;
    TestClient two;
    EXPECT_THAT(Scrape(one, ""), Not(HasSubstr("qmt_fake_")));
    EXPECT_THAT(Scrape(one, R"(,"records":["FAKE"])"), HasSubstr("qmt_fake_"));
    const int before = batches;
    isIdle = false;
    EXPECT_THAT(Scrape(one, ""), HasSubstr("qmt_fake_"));
    EXPECT_THAT(Scrape(two, ""), HasSubstr("qmt_fake_"));
    EXPECT_EQ(batches, before);
    std::this_thread::sleep_for(MetricsDesk::kShared + std::chrono::milliseconds(50));
    Scrape(two, "");
    EXPECT_EQ(batches, before + 1);
  });
  PublishFakeRecords();
}

TEST_F(MetricsOperationTest, AScrapeTellsHowTheLastBatchOfSchedulesWent) {
  schedule.Load("", {{"FAKE", "60", 1}, {"IDLE", "60", 2}}, [](const std::string&) {});
  agent.onBatch = [](CMBMultipleRecordRequestEvent&) {
    EventLoop::RequestStop();
    return kNotifyDone;
  };
  schedule.Start();
  loop.Run(agent);
  schedule.Stop();
  agent.onBatch = RowsForEach(1);
  Serve([] {
    TestClient client;
    EXPECT_THAT(Scrape(client, R"(,"records":["FAKE"])"),
                HasSubstr("\nqmt_agent_batch_failed_records 1\n"));
  });
}

}  // namespace
