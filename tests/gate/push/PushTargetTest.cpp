#include <mutex>

#include "gate/push/PushDesk.h"
#include "tests/gate/FakeServer.h"
#include "tests/gate/GateHarness.h"
#include "tests/gate/push/PushHistory.h"
#include "tests/gate/push/WriteText.h"

namespace {

using std::chrono::milliseconds;
using testing::UnorderedElementsAreArray;

constexpr PushPace kQuickPace{milliseconds(10), milliseconds(10), milliseconds(40),
                              milliseconds(5000), milliseconds(400)};
/// For servers that are silent.
constexpr milliseconds kShortTimeout{300};

class PushTargetTest : public ::testing::Test {
 protected:
  PushTargetTest() {
    m_settings.name = "far";
    m_settings.records = {"PI", "FSL"};
    m_settings.batch = 10;
    m_settings.days = kAllDays;
  }
  /// Pushes until a condition holds, for at most ten seconds; what the target told last.
  Json PushUntil(const std::string& url, const std::function<bool(const Json&)>& isDone) {
    m_settings.url = url;
    const PushHooks hooks{[this](const std::string& line) { m_told.push_back(line); }, [] {}};
    PushDesk push(m_desk, m_sender, {m_settings}, m_state, hooks, m_pace);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    LoopTimer timer(m_loop);
    std::function<void()> look = [&] {
      if (isDone(push.Figures()[0]) || std::chrono::steady_clock::now() > deadline) {
        m_loop.Stop();
      } else {
        timer.After(milliseconds(2), look);
      }
    };
    look();
    m_loop.Run();
    Json figures = push.Figures()[0];
    EXPECT_TRUE(isDone(figures)) << JsonText(figures);
    return figures;
  }
  /// Nothing is left to send, and so much has been counted.
  static std::function<bool(const Json&)> Until(const char* figure, std::uint64_t value) {
    return [=](const Json& told) {
      return told[figure].Number() >= static_cast<double>(value) && told["oldest"].Whole() == 0;
    };
  }
  [[nodiscard]] std::string Path() const { return m_folder.Path() / "push-far.json"; }
  [[nodiscard]] std::string Cursor() const { return m_folder.Read("push-far.json"); }
  bool Store(const FakeServer::Request& request) {
    const std::vector<std::string> lines = WriteText(request.body);
    const std::lock_guard lock(m_mutex);
    m_stored.insert(m_stored.end(), lines.begin(), lines.end());
    // What it says besides does not matter.
    return m_stored.size() % 8 == 0 ? request.Answer("200 OK", std::string(2'000'000, 'x'))
                                    : request.Answer("204 No Content");
  }
  [[nodiscard]] std::vector<std::string> Stored() {
    const std::lock_guard lock(m_mutex);
    return m_stored;
  }
  void BeginAnew() {
    std::filesystem::remove(Path());
    m_stored.clear();
    m_told.clear();
  }

  static constexpr int kAllDays = 36500;

  TempFolder m_folder;
  std::string m_state = m_folder.Path();
  PushHistory m_history;
  FakeDaemon m_daemon{(m_folder.Path() / "s").string(),
                      [this](const Json& request) { return m_history.Answer(request); }};
  GateLoop m_loop;
  DaemonDesk m_desk{m_loop, (m_folder.Path() / "s").string()};
  HttpSender m_sender{m_loop};
  TargetSettings m_settings;
  PushPace m_pace = kQuickPace;
  std::vector<std::string> m_told;

 private:
  std::mutex m_mutex;
  std::vector<std::string> m_stored;
};

TEST_F(PushTargetTest, RowsGoOnceInOrderAndOnAfterARestart) {
  std::string headers;
  FakeServer server([&](const FakeServer::Request& request) {
    headers = request.Header("Content-Encoding") + ' ' + request.Header("Content-Type") + ' ' +
              request.Header("X-Prometheus-Remote-Write-Version") + ' ' +
              request.Header("User-Agent");
    return Store(request);
  });
  m_history.SetEnd(20);
  const Json told = PushUntil(server.Url(), Until("sent_samples", 80));
  EXPECT_EQ(headers, "snappy application/x-protobuf 0.1.0 qmtdmon/" QMT_VERSION);
  EXPECT_EQ(told["sent_rows"].Unsigned(), 40U);
  EXPECT_EQ(told["requests"].Unsigned(), 8U) << "batches of ten";
  EXPECT_GT(told["bytes"].Unsigned(), 100U);
  EXPECT_GT(told["seconds"].Number(), 0);
  EXPECT_EQ(told["error"].Text(), "");
  EXPECT_THAT(Cursor(), HasSubstr(R"("after":{"PI":[20,20],"FSL":[20,20]})"));
  m_history.SetEnd(25);
  PushUntil(server.Url(), Until("sent_samples", 20));
  EXPECT_THAT(Stored(), UnorderedElementsAreArray(PushHistory::Samples(1, 25)));
  EXPECT_THAT(m_told, IsEmpty());
}

TEST_F(PushTargetTest, AnOutageLosesNothing) {
  m_pace.timeout = kShortTimeout;
  const std::pair<const char*, FakeServer::Serve> outages[] = {
      {"503", [](const auto& request) { return request.Answer("503 No", "down\nx"); }},
      {"429", [](const auto& request) { return request.Answer("429 No", "slowly"); }},
      {"408", [](const auto& request) { return request.Answer("408 No"); }},
      {"302", [](const auto& request) { return request.Answer("302 No", "", "Location: /\r\n"); }},
      {"silence", [](const auto& request) { return request.StaySilent(); }},
      {"an end in the middle",
       [](const auto& request) { return request.Say("HTTP/1.1 204 No") && false; }},
      {"too long an answer",
       [](const auto& request) { return request.Answer("500", std::string(2'000'000, 'x')); }},
  };
  m_history.SetEnd(7);
  for (const auto& [what, bad] : outages) {
    std::atomic<int> failures = 0;
    FakeServer server([&, serve = bad](const FakeServer::Request& request) {
      return ++failures <= 3 ? serve(request) : Store(request);
    });
    BeginAnew();
    const Json told = PushUntil(server.Url(), Until("sent_samples", 28));
    EXPECT_THAT(Stored(), UnorderedElementsAreArray(PushHistory::Samples(1, 7))) << what;
    EXPECT_EQ(told["failures"].Unsigned(), 3U) << what;
    EXPECT_EQ(told["error"].Text(), "") << what;
    EXPECT_THAT(m_told, ElementsAre(HasSubstr("it is tried again"), HasSubstr("it works again")))
        << what;
  }
}

TEST_F(PushTargetTest, WhatTakesTooLongIsSentInSmallerRequestsUntilOneIsTaken) {
  m_pace.timeout = kShortTimeout;
  std::vector<std::size_t> sizes;
  FakeServer server([&](const FakeServer::Request& request) {
    sizes.push_back(WriteText(request.body).size());
    return sizes.back() > 100 && Stored().empty() ? request.StaySilent() : Store(request);
  });
  m_settings.batch = 400;
  m_history.SetEnd(100);
  PushUntil(server.Url(), Until("sent_samples", 400));
  EXPECT_THAT(sizes, ElementsAre(400, 200, 100, 200, 100));
}

TEST_F(PushTargetTest, TheRowsOfOneTimeAreSentInPartsWhereTheyTakeTooLong) {
  m_pace.timeout = kShortTimeout;
  std::vector<std::size_t> sizes;
  FakeServer server([&](const FakeServer::Request& request) {
    sizes.push_back(WriteText(request.body).size());
    return sizes.back() > 150 ? request.StaySilent() : Store(request);
  });
  m_settings.batch = 100;
  m_history.SetSeries(300);
  m_history.SetEnd(1);
  PushUntil(server.Url(), Until("sent_samples", 600));
  EXPECT_THAT(sizes, ElementsAre(300, 150, 150, 300, 150, 150));
}

TEST_F(PushTargetTest, WhatTheServerRefusesIsPassedOverAloneAndCounted) {
  // All of one time, one series of another; and everything at once is too much.
  FakeServer server([&](const FakeServer::Request& request) {
    const std::vector<std::string> lines = WriteText(request.body);
    const std::string text = testing::PrintToString(lines);
    if (lines.size() > 9) {
      return request.Answer("413 Too Large");
    }
    if (text.find("@3000") != std::string::npos) {
      return request.Answer("400 Bad", "Out-of-order sample\nsecond line");
    }
    if (text.find("PI_b,x=1 5@") != std::string::npos) {
      return request.Answer("422 Bad", "no \x01 such");
    }
    return Store(request);
  });
  m_history.SetEnd(6);
  const Json told = PushUntil(server.Url(), Until("sent_samples", 19));
  std::vector<std::string> wanted = PushHistory::Samples(1, 6);
  std::erase_if(wanted, [](const std::string& line) {
    return line.ends_with("@3000") || line.find("PI_b,x=1 5@") != std::string::npos;
  });
  EXPECT_THAT(Stored(), UnorderedElementsAreArray(wanted));
  EXPECT_EQ(told["skipped_samples"].Unsigned(), 4U);
  EXPECT_EQ(told["refused_samples"].Unsigned(), 1U);
  EXPECT_THAT(told["sent_rows"].Unsigned(), testing::AllOf(testing::Ge(8U), testing::Le(10U)));
  EXPECT_EQ(told["error"].Text(), "") << "it is there";
  EXPECT_THAT(m_told, ElementsAre(AllOf(HasSubstr("push far: "), HasSubstr("status 400: Out-of"),
                                        testing::Not(HasSubstr("second")))))
      << "once an hour";
}

TEST_F(PushTargetTest, OneThatRefusesAllIsNotAskedSampleBySample) {
  const struct {
    const char* status;
    std::uint64_t requests;
    bool isSlow;  ///< as what is kept is not to be used up
  } rows[] = {{"400 Bad", std::uint64_t{8 * 5 + 2 * 32}, false}, {"401 Who", 8, true}};
  m_history.SetEnd(20);
  for (const auto& row : rows) {
    FakeServer server(
        [&](const FakeServer::Request& request) { return request.Answer(row.status); });
    BeginAnew();
    const auto begin = std::chrono::steady_clock::now();
    const Json told = PushUntil(server.Url(), Until("refused_samples", 80));
    if (row.isSlow) {
      EXPECT_GT(std::chrono::steady_clock::now() - begin, milliseconds(130));
    }
    EXPECT_EQ(told["sent_rows"].Unsigned(), 0U);
    EXPECT_LE(told["requests"].Unsigned(), row.requests) << row.status;
  }
}

TEST_F(PushTargetTest, ACursorOfAnotherTargetOrBrokenBeginsAnew) {
  FakeServer server([&](const FakeServer::Request& request) { return Store(request); });
  m_history.SetEnd(4);
  const auto write = [&](const std::string& url, const std::string& rest) {
    std::ofstream(Path()) << R"({"url":")" + url + R"(","since":3)" + rest;
  };
  const struct {
    std::function<void()> make;
    std::int64_t first;
    bool isTold;  ///< and no setting keeps rows back
  } rows[] = {
      {[&] { write(server.Url(), R"(,"after":{"PI":[2,2],"other":[1,1]}})"); }, 3, false},
      {[&] { write("http://elsewhere/", R"(,"after":{"PI":[2,2]}})"); }, 1, false},
      {[&] { write(server.Url(), R"(,"after":{"PI":[2]}})"); }, 1, true},
      {[&] { write(server.Url(), R"(,"after":)" + std::string(100, '[')); }, 1, true},
      {[&] { std::ofstream(Path()) << std::string(2'000'000, ' '); }, 1, true},
      {[&] { ::mkfifo(Path().c_str(), 0600); }, 1, true},
  };
  for (const auto& row : rows) {
    BeginAnew();
    row.make();
    m_settings.days = row.isTold ? 0 : kAllDays;
    const std::vector<std::string> wanted = PushHistory::Samples(row.first, 4);
    PushUntil(server.Url(), Until("sent_samples", wanted.size()));
    EXPECT_THAT(Stored(), UnorderedElementsAreArray(wanted));
    EXPECT_EQ(!m_told.empty(), row.isTold) << testing::PrintToString(m_told);
    EXPECT_THAT(Cursor(), HasSubstr("\"PI\":[4,4]"));
    EXPECT_EQ(std::filesystem::exists(Path() + ".bad"), row.isTold);
    std::filesystem::remove(Path() + ".bad");
  }
  // A new target begins now, and there again after a restart.
  BeginAnew();
  m_settings.days = 0;
  PushUntil(server.Url(), [&](const Json&) { return !Cursor().empty(); });
  const std::string first = Cursor();
  EXPECT_THAT(first, AllOf(HasSubstr("since"), testing::Not(HasSubstr("PI"))));
  std::this_thread::sleep_for(milliseconds(1100));
  const int asked = m_history.Asked();
  PushUntil(server.Url(), [&](const Json&) { return m_history.Asked() > asked; });
  EXPECT_EQ(Cursor(), first);
  // Without a folder that may be written to it goes on all the same.
  m_settings.days = kAllDays;
  m_state += "/none";
  const Json told = PushUntil(server.Url(), Until("sent_samples", 16));
  EXPECT_THAT(told["error"].Text(), HasSubstr("/none/push-far.json"));
}

TEST_F(PushTargetTest, NewRowsAreAskedForWhenThereCanBeSome) {
  FakeServer server([&](const FakeServer::Request& request) { return Store(request); });
  m_history.SetWait(86400);
  const auto begin = std::chrono::steady_clock::now();
  PushUntil(server.Url(), [&](const Json&) { return m_history.Asked() == 3; });
  const auto used = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(used, 2 * kQuickPace.longestLook);
  EXPECT_LT(used, 10 * kQuickPace.longestLook) << "the longest wait has a limit";
}

TEST_F(PushTargetTest, TheLimitOfBytesAndADaemonThatIsAway) {
  FakeServer server([&](const FakeServer::Request& request) { return Store(request); });
  m_history.SetEnd(20);
  m_settings.bytesPerSecond = 4000;
  const auto begin = std::chrono::steady_clock::now();
  const Json told = PushUntil(server.Url(), Until("sent_samples", 80));
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  EXPECT_GT(taken.count(), static_cast<double>(told["bytes"].Unsigned()) / 4000 * 0.7);
  m_daemon.Stop();
  const std::string words = "the daemon can't be asked";
  bool wasAway = false;
  PushUntil("http://u:p@" + server.Url("/w?key=k#f").substr(7), [&](const Json& figures) {
    EXPECT_EQ(figures["url"].Text(), server.Url("/w"));
    const bool isAway = figures["error"].Text() == words;
    if (isAway && !std::exchange(wasAway, true)) {
      m_daemon.Start();
    }
    return wasAway && !isAway;
  });
  EXPECT_THAT(m_told,
              ElementsAre("push far: " + server.Url("/w") + ": " + words + "; it is tried again",
                          HasSubstr("it works again")));
}

TEST(FileWriterTest, TheLatestContentStandsAndTheEndWaitsForIt) {
  TempFolder folder;
  GateLoop loop;
  std::vector<std::string> errors;
  const auto note = [&](const std::string& error) {
    errors.push_back(error);
    loop.Stop();
  };
  for (const char* name : {"file", "none/file"}) {
    FileWriter writer(loop, folder.Path() / name, note);
    for (int i = 0; i <= 50; ++i) {
      writer.Write(std::to_string(i));
    }
    loop.Run();
    EXPECT_EQ(folder.Read("file"), errors.size() == 1 ? "50" : "last");
    writer.Write("last");
  }
  EXPECT_THAT(errors, ElementsAre("", HasSubstr("none/file")));
  EXPECT_EQ(folder.Read("file"), "last");
}

class PushingGateTest : public GateFixture {};

TEST_F(PushingGateTest, TheGatePushesWhatItIsToldAndTellsHowItGoes) {
  PushHistory history;
  history.SetEnd(3);
  std::atomic<std::size_t> samples = 0;
  FakeServer server([&](const FakeServer::Request& request) {
    samples += WriteText(request.body).size();
    return request.Answer("200 OK");
  });
  const Json target{
      {"name", "far"}, {"url", server.Url()}, {"records", Json::Array({"PI"})}, {"days", 36500U}};
  Begin([&](const Json& request) { return history.Answer(request); },
        Json{{"push", Json::Array({target, Json{{"name", "../x"}}})}});
  EXPECT_TRUE(WaitUntil([&] { return samples >= 6 && !Told("push").empty(); }));
  EXPECT_EQ(samples, 6U);
  EXPECT_THAT(Told("push"), AllOf(testing::StartsWith(R"([{"name":"far","url":"http://127.)"),
                                  testing::Not(HasSubstr("../x"))));
}

}  // namespace
