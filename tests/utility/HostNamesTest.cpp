#include "node/Node.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"
#include "utility/HostAddress.h"
#include "utility/HostNameRequestManager.h"
#include "utility/SASocket.h"
#include "utility/WordList.h"

namespace {

std::int32_t g_second = 0;

/// A manager that remembers 3 answers, whose helper is a script; the test itself is at the other
/// ends of the pipes.
class HostNamesTest : public testing::Test {
 protected:
  HostNamesTest() {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    SetProductRoot(m_root.Path().string());
    Os().sleep = [](unsigned) { return 0U; };
    Os().gettimeofday = [](::timeval* now) {
      *now = {++g_second, 7};
      return 0;
    };
    g_second = 0;
  }
  ~HostNamesTest() override {
    pid_t helper = 0;
    if (std::ifstream(m_root.Path() / "pid") >> helper) {
      ::kill(helper, SIGKILL);
      ::waitpid(helper, nullptr, 0);
    }
    ::close(m_questions);
    ::close(m_answers);
    Os() = m_calls;
    SetProductRoot("");
    g_msgLogLevel = 0;
  }
  void Connect(const char* script) {
    const std::filesystem::path path = m_root.Path() / "helper";
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    m_manager = std::make_unique<HostNameRequestManager>(&m_node, 3, path.c_str(), "/x");
    ASSERT_EQ(m_socket.Connect(1), 0);
    m_questions = ::open((m_root.Path() / "x.pipe").c_str(), O_RDONLY | O_NONBLOCK);
    m_answers = ::open((m_root.Path() / "x.pipeOut").c_str(), O_WRONLY | O_NONBLOCK);
    EXPECT_EQ(m_manager->connection_init(&m_socket), 1);
  }
  /// A helper that is gone is not waited for, so questions can be put quickly.
  void ConnectToNobody() {
    Connect("exit 0");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  int Ask(const std::string& query, std::int32_t kind = 0) {
    m_request = {};
    m_request.kind = kind;
    HostNameWire::SetText(m_request.query, query);
    return m_manager->handle_request(m_request);
  }
  /// What has been sent: each query with the second of its stamp.
  std::string Sent() const {
    std::string text;
    for (HostNameWire wire; ::read(m_questions, &wire, sizeof wire) == sizeof wire;) {
      text += std::string(wire.query.data()) + "@" + std::to_string(wire.stampSeconds) + " ";
    }
    return text;
  }
  static HostNameWire Answer(const std::string& query, std::int32_t second) {
    HostNameWire wire;
    HostNameWire::SetText(wire.query, query);
    HostNameWire::SetText(wire.resultName, "name-" + query);
    HostNameWire::SetText(wire.resultAddress, "1.2.3.4");
    wire.stampSeconds = second;
    wire.stampMicroseconds = 7;
    return wire;
  }
  int Handle(const HostNameWire& wire) {
    return m_manager->handle_request(reinterpret_cast<const char*>(&wire));
  }

  const OsCalls m_calls = Os();
  TempFolder m_root;
  CMBRunnableNode m_node;
  SASocket m_socket{&m_node, "/x.pipe"};
  std::unique_ptr<HostNameRequestManager> m_manager;
  HostNameRequest m_request;
  int m_questions = -1;
  int m_answers = -1;
};

TEST_F(HostNamesTest, AnAnswerIsWaitedForTwoSecondsAndKeptIfItComesLater) {
  Connect("echo $$ >$(dirname $0)/pid; exec sleep 60");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Ask("10.0.0.1", 2), 0);
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited.count(), 1.9);
  EXPECT_LE(waited.count(), 4);
  EXPECT_EQ(Sent(), "10.0.0.1@1 ");
  EXPECT_EQ(Handle(Answer("10.0.0.1", 1)), 0);
  EXPECT_EQ(Handle(Answer("10.0.0.1", 1)), -1) << "answered twice";
  EXPECT_STREQ(m_manager->GetLastError(), "The received response does not match any request.");
  EXPECT_EQ(Ask("10.0.0.1"), 1) << "searched by address whatever the kind says";
  EXPECT_STREQ(m_request.resultName.data(), "name-10.0.0.1");
  EXPECT_EQ(Sent(), "");

  // The answer is there before the waiting begins.
  const HostNameWire early = Answer("10.0.0.2", 2);
  ASSERT_EQ(::write(m_answers, &early, sizeof early), 3096);
  HostAddress host(m_manager.get(), "10.0.0.2");
  EXPECT_EQ(host.Name(), "Unavailable");
  EXPECT_TRUE(host.ResolveName());
  EXPECT_EQ(host.Name(), "name-10.0.0.2");
  EXPECT_EQ(Lines("Found response to request."), 1U);

  HostNameWire name = Answer("name-x", 3);
  HostNameWire::SetText(name.resultName, "name-x");
  ASSERT_EQ(::write(m_answers, &name, sizeof name), 3096);
  HostNameWire back = Answer("1.2.3.4", 4);
  ASSERT_EQ(::write(m_answers, &back, sizeof back), 3096);
  HostAddress byName = HostAddress::OfName(m_manager.get(), "name-x");
  EXPECT_TRUE(byName.ResolveAddress());
  EXPECT_EQ(byName.Address() + " " + byName.Name(), "1.2.3.4 name-1.2.3.4");
}

TEST_F(HostNamesTest, QuestionsWaitInTheirOrderAndTheOldestAnswersGo) {
  ConnectToNobody();
  for (const char* query : {"a", "b", "a", "c", "d", "e", "f"}) {
    EXPECT_EQ(Ask(query), 0) << query;
  }
  EXPECT_EQ(Lines("Request a is still in the waiting list."), 1U);
  EXPECT_EQ(Lines("has been respawned"), 0U) << "the pause is not over";
  EXPECT_EQ(Sent(), "a@1 ") << "the oldest is in the pipe already";
  EXPECT_EQ(Ask("a"), 0);
  EXPECT_EQ(Sent(), "a@1 ") << "once more, since its helper is gone";
  EXPECT_EQ(Ask("g"), -1);
  EXPECT_EQ(Lines("HostNameRequestManager: Cannot insert pending request to the waiting queue."),
            1U);
  EXPECT_EQ(Lines("HostNameRequestManager::handle_request(), the waiting queue is full."), 1U);
  m_manager->handle_request();
  EXPECT_EQ(Sent(), "a@1 ");
  EXPECT_EQ(Handle(Answer("a", 1)), 0);
  EXPECT_EQ(Sent(), "b@2 ") << "an answer sends the next";
  EXPECT_EQ(Handle({}), -1) << "a stamp that nobody knows";
  EXPECT_EQ(Handle(Answer("c", 3)), 0);
  EXPECT_EQ(Handle(Answer("b", 2)), 0);
  EXPECT_EQ(Ask("name-a"), 1);
  HostNameWire unending = Answer("d", 4);
  unending.resultName.fill('n');
  EXPECT_EQ(Handle(unending), 0);
  EXPECT_EQ(Ask("name-a"), 0) << "the fourth answer pushed the first out";
  EXPECT_EQ(Ask("name-b"), 1);
  EXPECT_EQ(Ask(std::string(1027, 'n')), 1);
}

TEST_F(HostNamesTest, AKilledHelperIsBackWithTheFirstQuestionBehindItsPause) {
  Os().sleep = m_calls.sleep;
  Connect("echo $$ >$(dirname $0)/pid; exec " QMT_HOSTUTIL_PROGRAM " \"$@\"");
  ASSERT_EQ(Ask("localhost"), 1);
  EXPECT_STREQ(m_request.resultAddress.data(), "127.0.0.1");
  const auto killHelper = [this] {
    pid_t helper = 0;
    ASSERT_TRUE(std::ifstream(m_root.Path() / "pid") >> helper);
    ASSERT_EQ(::kill(helper, SIGKILL), 0);
    ASSERT_TRUE(WaitUntil([this] { return !m_manager->IsHelperRunning(); }));
  };
  killHelper();
  EXPECT_EQ(Ask("127.0.0.1"), 1) << "started at once";
  EXPECT_STREQ(m_request.resultName.data(), "localhost");
  EXPECT_EQ(Lines("has been respawned"), 1U);
  killHelper();
  EXPECT_EQ(Ask("127.0.0.2"), 0) << "it has lived for less than the pause";
  EXPECT_EQ(Lines("has been respawned"), 1U);
  EXPECT_TRUE(WaitUntil([this] { return Ask("127.0.0.2") == 1; }, std::chrono::seconds(5)));
  EXPECT_EQ(Lines("has been respawned"), 2U);
  EXPECT_EQ(Lines("Request <127.0.0.2> has been sent successfully."), 1U);
}

TEST_F(HostNamesTest, AHelperThatCannotStartIsToldAndNotWaitedFor) {
  m_manager = std::make_unique<HostNameRequestManager>(&m_node, 3, "./none/helper", "/x");
  g_msgLogLevel = 10;
  EXPECT_EQ(m_manager->connection_init(&m_socket), 1);
  EXPECT_EQ(m_manager->connection_init(&m_socket), 1) << "the pause is not over";
  EXPECT_FALSE(m_manager->IsHelperRunning());
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_EQ(m_manager->connection_init(&m_socket), 1) << "tried again and told no more";
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10100), 1);
  EXPECT_EQ(Ask("a"), -1);
  EXPECT_STREQ(m_manager->GetLastError(), "qmt_hostutil socket not initialized");
}

TEST(WordListTest, WordsThatHaveNoRoomEndInAMark) {
  const struct {
    std::size_t size;
    std::string words;  ///< parted by blanks
    const char* text;
  } cases[] = {{10, "UP", "UP"},
               {10, "UP RUNNING X", "UP>"},
               {10, "UP ABCD", "UP,ABCD"},
               {10, "UP ABCDE", "UP,ABCDE"},
               {10, "UP ABCDEF", "UP,ABCDEF"},
               {10, "ABCDEFGH XY Z", "ABCDEFGH>"},
               {9, "AB CDEF XY", "AB,CDEF>"},
               {8, "AB CDE XY", "AB,CDE>"},
               {4, "ABCDEF", ">"}};
  for (const auto& row : cases) {
    std::string field(row.size, '\0');
    std::istringstream words(row.words);
    for (std::string word; words >> word;) {
      AppendWord(field, word);
    }
    EXPECT_STREQ(field.c_str(), row.text) << row.words;
    EXPECT_EQ(field.back(), '\0') << row.words;
  }
}

}  // namespace
