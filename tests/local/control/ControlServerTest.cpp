#include "local/control/ControlServer.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <list>

#include "tests/json/JsonOf.h"
#include "tests/local/ServedControl.h"

namespace {

/// A control server on a loop of its own, with clients on another thread.
class ControlServerTest : public ::testing::Test, protected ServedControl {};

constexpr const char* kAskStatus = R"({"op":"status"})";
constexpr const char* kGetFake = R"({"op":"get","records":["FAKE"]})";

TEST_F(ControlServerTest, AClientTooManyIsTurnedAway) {
  settings.maxConnections = 1;
  Serve([] {
    TestClient first;
    EXPECT_TRUE(first.Ask(kAskStatus)["ok"].Bool());
    TestClient excess;
    EXPECT_EQ(excess.Receive()["error"]["code"], "busy");
    EXPECT_TRUE(excess.Receive().IsNull());
  });
}

/// Makes this thread alone that of a user; false where there is none of that number.
bool Become(uid_t user) {
  constexpr uid_t kAsIs = static_cast<uid_t>(-1);
  const bool isDone = ::syscall(SYS_setresuid, kAsIs, user, kAsIs) == 0;
  // A check for leaks looks into its own process.
  return ::prctl(PR_SET_DUMPABLE, 1) == 0 && isDone;
}

TEST_F(ControlServerTest, NoUserKeepsOthersOut) {
  constexpr uid_t kOne = 65533;
  constexpr uid_t kOther = 65534;
  if (::geteuid() != 0 || !Become(kOne) || !Become(0) || !Become(kOther) || !Become(0)) {
    GTEST_SKIP() << "not root, or of no other users";
  }
  ::umask(022);
  std::filesystem::permissions(".", std::filesystem::perms(0755));
  settings.maxConnections = 8;
  settings.mode = 0666;
  Serve([] {
    std::list<TestClient> held;
    const auto answer = [&held](uid_t user) {
      EXPECT_TRUE(Become(user));
      held.emplace_back();
      EXPECT_TRUE(Become(0));
      // One that is refused may be closed by now.
      static_cast<void>(held.back().Send(kAskStatus));
      const Json said = held.back().Receive();
      const bool isServed = said["ok"].Bool();
      if (!isServed) {
        EXPECT_EQ(said["error"]["code"], "busy");
        held.pop_back();
      }
      return isServed ? "" : std::string(said["error"]["message"].Text());
    };
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(answer(kOne), "");
    }
    EXPECT_EQ(answer(kOne), "the daemon serves 4 connections of this user already");
    EXPECT_EQ(answer(kOther), "");
    EXPECT_EQ(answer(kOther), "");
    EXPECT_EQ(answer(kOther), "the daemon serves 6 connections of users like this one already");
    EXPECT_EQ(answer(0), "");
    EXPECT_EQ(answer(0), "");
    EXPECT_EQ(answer(0), "the daemon serves 8 connections already");
  });
}

TEST_F(ControlServerTest, SlowReadersHoldNoMoreThanTheSumOfAllAllows) {
  settings.maxOutput = 100000;
  const std::string line = R"({"op":"status","id":")" + std::string(60000, 'x') + "\"}";
  Serve([&] {
    TestClient slow[2];
    std::size_t sent[2]{};
    for (std::size_t i = 0; i < 2; ++i) {
      // Requests are not read either while an answer waits.
      for (TestClient other; sent[i] < 100 && slow[i].SendAtOnce(line); ++sent[i]) {
        EXPECT_TRUE(other.Ask(kAskStatus)["ok"].Bool());
      }
      EXPECT_LT(sent[i], 100U);
    }
    for (TestClient other; problems.empty();) {
      EXPECT_TRUE(other.Ask(kAskStatus)["ok"].Bool());
    }
    for (std::size_t i = 0; i < sent[0]; ++i) {
      EXPECT_TRUE(slow[0].Receive()["ok"].Bool());
    }
  });
  ASSERT_EQ(problems.size(), 1U);
  EXPECT_THAT(problems[0], HasSubstr("is dropped"));
}

TEST_F(ControlServerTest, AnAnswerMayBeLongerThanWhatMayWait) {
  agent.onBatch = RowsForEach(20000);
  settings.maxOutput = 300000;
  Serve([] {
    TestClient slow;
    EXPECT_TRUE(slow.Send(kGetFake));
    TestClient client;
    EXPECT_EQ(client.Ask(kGetFake)["results"][0]["rows"].Size(), 20000U);
    EXPECT_EQ(slow.Receive()["results"][0]["rows"][19999]["Count"], 19999);
  });
  EXPECT_THAT(problems, ElementsAre());
}

TEST_F(ControlServerTest, WhoReadsNoMoreOrIsGoneHoldsNoRows) {
  agent.onBatch = RowsForEach(40000);
  settings.patience = std::chrono::milliseconds(300);
  // Rows are refused while anybody else holds some.
  desk.SetMaxHeldBytes(20000 * sizeof(recordFake));
  Serve([] {
    const auto refusals = [](TestClient& client) {
      int count = 0;
      for (; count < 100'000 && !client.AskForText(kGetFake).starts_with(R"({"ok":true,)");
           ++count) {
      }
      return count;
    };
    TestClient idle;
    EXPECT_EQ(idle.Ask(kAskStatus)["ok"], true);
    {
      TestClient gone;
      EXPECT_TRUE(gone.Send(kGetFake));
      EXPECT_EQ(gone.ReceiveBytes(100).size(), 100U);
    }
    TestClient slow;
    EXPECT_LT(refusals(slow), 100'000);
    EXPECT_TRUE(slow.Send(kGetFake));
    EXPECT_EQ(slow.ReceiveBytes(100).size(), 100U);
    TestClient other;
    const int count = refusals(other);
    EXPECT_GT(count, 0);
    EXPECT_LT(count, 100'000);
    EXPECT_TRUE(slow.Receive().IsNull()) << "half an answer and the end";
    EXPECT_EQ(idle.Ask(kAskStatus)["ok"], true) << "at rest for as long";
  });
  ASSERT_EQ(problems.size(), 1U);
  EXPECT_THAT(problems[0], HasSubstr("has not read on"));
}

TEST_F(ControlServerTest, WhoReadsOnSlowlyGetsALongAnswerWhole) {
  constexpr std::size_t kStep = 65536;
  LayoutRegistry::Instance().PublishListing(
      std::vector<RecordListing>(50000, RecordListing{"FAKE", '4', true}));
  settings.patience = std::chrono::seconds(1);
  std::string answer;
  const auto begin = std::chrono::steady_clock::now();
  Serve([&] {
    TestClient slow;
    EXPECT_TRUE(slow.Send(R"({"op":"records"})"));
    slow.EndRequests();
    for (std::string part; part = slow.ReceiveBytes(kStep), !part.empty();) {
      answer += part;
      std::this_thread::sleep_for(std::chrono::milliseconds(60));
    }
  });
  PublishFakeRecords();
  EXPECT_THAT(problems, ElementsAre());
  EXPECT_TRUE(answer.ends_with("]}\n")) << answer.size() << " bytes";
  EXPECT_GT(std::chrono::steady_clock::now() - begin, 2 * settings.patience);
}

TEST_F(ControlServerTest, RowsThatAnswersHoldAreBounded) {
  agent.onBatch = RowsForEach(40000);
  desk.SetMaxHeldBytes(4 * 40000 * sizeof(recordFake));
  Serve([] {
    const auto codeOf = [](const std::string& answer) {
      return answer.starts_with(R"({"ok":true,)") ? "" : JsonOf(answer)["error"]["code"].Text();
    };
    const std::string sixTimes =
        R"({"op":"get","records":["FAKE","FAKE","FAKE","FAKE","FAKE","FAKE"]})";
    std::list<TestClient> holders(5);
    for (TestClient& holder : holders) {
      EXPECT_EQ(codeOf(holder.AskForText(kGetFake)), "");
    }
    TestClient late;
    EXPECT_EQ(codeOf(late.AskForText(kGetFake)), "no-memory");
    EXPECT_EQ(codeOf(late.AskForText(sixTimes)), "no-memory");
    EXPECT_EQ(codeOf(late.AskForText(kAskStatus)), "");
    holders.clear();
    EXPECT_TRUE(WaitUntil([&] { return codeOf(late.AskForText(kGetFake)).empty(); }));
    EXPECT_EQ(codeOf(late.AskForText(sixTimes)), "no-memory");
  });
}

TEST_F(ControlServerTest, AfterClientsThatVanishEveryLaterOneIsAnswered) {
  agent.onBatch = RowsForEach(2000);
  Serve([] {
    const auto descriptors = [] {
      return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    for (int i = 0; i < 500; ++i) {
      TestClient gone;
      switch (i % 5) {
        case 0:
          gone.Send(kGetFake);
          break;
        case 1:
          // The end finds the answer on its way.
          gone.Send(kGetFake);
          std::this_thread::sleep_for(std::chrono::microseconds(500));
          break;
        case 2:
          gone.Send(kAskStatus);
          gone.EndRequests();
          break;
        case 3:
          gone.SendAtOnce(R"({"op":"stat)");
          break;
        default:
          break;
      }
      gone.Hangup();
      TestClient next;
      ASSERT_TRUE(next.Ask(kAskStatus).IsObject()) << "client " << i;
    }
    EXPECT_TRUE(WaitUntil([&] { return descriptors() <= before; }));
  });
}

TEST_F(ControlServerTest, AStopServesNoLinesOfAClientThatIsGone) {
  agent.onBatch = RowsForEach(40000);
  std::list<TestClient> clients;
  LoopTimer later(loop);
  beforeClose = [&] {
    later.After(std::chrono::milliseconds(100), [&] {
      EXPECT_TRUE(clients.back().Send(std::string(16383, '\n')));
      clients.back().Hangup();
    });
  };
  Serve([&] {
    EXPECT_TRUE(clients.emplace_back().Send(kGetFake));
    EXPECT_EQ(clients.back().ReceiveBytes(100).size(), 100U) << "the stop waits for the rest";
    EXPECT_EQ(clients.emplace_back().Ask(kAskStatus)["ok"], true);
  });
}

TEST_F(ControlServerTest, WantOfMemoryEndsTheRequestAlone) {
  bool isScarce = true;
  agent.onBatch = [&](CMBMultipleRecordRequestEvent&) -> int {
    return isScarce ? throw std::bad_alloc() : kNotifyDone;
  };
  Serve([&] {
    TestClient client;
    EXPECT_EQ(client.Ask(kGetFake)["results"][0]["error"]["code"], "build-failed");
    isScarce = false;
    EXPECT_TRUE(client.Ask(kGetFake)["results"][0].Find("rows") != nullptr);
  });
}

}  // namespace
