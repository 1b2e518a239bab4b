#include "utility/SASocket.h"

#include "node/Node.h"
#include "support/HostPaths.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

class WatchingNode : public CMBRunnableNode {
 public:
  using CMBRunnableNode::NotifyEvent;
};

class SASocketTest : public ::testing::Test {
 protected:
  SASocketTest() {
    ScriptedNode::Reset();
    SetProductRoot(m_root.Path().string());
  }
  ~SASocketTest() override { SetProductRoot(""); }

  [[nodiscard]] fs::path Talk() const { return m_root.Path().string() + "/x.pipe"; }
  [[nodiscard]] fs::path Listen() const { return m_root.Path().string() + "/x.pipeOut"; }

  static void Touch(const fs::path& path) { ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600)); }
  static ScriptedNode& Node() { return ScriptedNode::Instance(); }

  TempFolder m_root;
  WatchingNode m_node;
};

TEST_F(SASocketTest, StalePipesGoAtConstructionAndAtEachConnect) {
  Touch(Talk());
  Touch(Listen());
  SASocket socket(&m_node, "/x.pipe");
  EXPECT_FALSE(fs::exists(Talk()));
  EXPECT_FALSE(fs::exists(Listen()));

  Touch(Talk());
  Touch(Listen());
  EXPECT_EQ(0, socket.Connect(1));
  const int formerTalk = socket.GetTalkFd();
  EXPECT_EQ(0, socket.Connect(1)) << "the pipes of the first connect are in the way";
  EXPECT_EQ(std::vector<int>{socket.GetListenFd()}, Node().watched);
  EXPECT_EQ(formerTalk, socket.GetTalkFd()) << "the former descriptor was not closed";
}

TEST_F(SASocketTest, PipesAreTheOwnersAndTheirGroupsAndGoWithTheSocket) {
  const mode_t mask = ::umask(0);
  {
    SASocket socket(&m_node, "/x.pipe");
    ASSERT_EQ(0, socket.Connect(1));
    for (const fs::path& pipe : {Talk(), Listen()}) {
      struct stat status {};
      ASSERT_EQ(0, ::stat(pipe.c_str(), &status)) << pipe;
      EXPECT_EQ(static_cast<mode_t>(S_IFIFO | 0660), status.st_mode) << pipe;
    }
    for (const int descriptor : {socket.GetTalkFd(), socket.GetListenFd()}) {
      EXPECT_EQ(FD_CLOEXEC, ::fcntl(descriptor, F_GETFD)) << "a child would inherit it";
      EXPECT_NE(0, ::fcntl(descriptor, F_GETFL) & O_NONBLOCK);
    }
  }
  ::umask(mask);
  EXPECT_TRUE(fs::is_empty(m_root.Path()));
  EXPECT_TRUE(Node().watched.empty());
}

TEST_F(SASocketTest, WithoutScheduleTheListenSideIsOpenBothWaysAndNotWatched) {
  SASocket socket(&m_node, "/x.pipe");
  ASSERT_EQ(0, socket.Connect(0));
  EXPECT_EQ(O_RDWR, ::fcntl(socket.GetListenFd(), F_GETFL) & (O_ACCMODE | O_NONBLOCK));
  EXPECT_TRUE(Node().watched.empty());
  socket.Accept();
  EXPECT_EQ(std::vector<int>{socket.GetListenFd()}, Node().watched);
  EXPECT_EQ(std::vector<std::string>{"Accepting call from utility process\n"}, Node().eventTexts);
}

TEST_F(SASocketTest, CloseTwiceIsHarmless) {
  SASocket socket(&m_node, "/x.pipe");
  ASSERT_EQ(0, socket.Connect(1));
  const int listen = socket.GetListenFd();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(0, socket.Close());
    EXPECT_EQ(-1, socket.GetTalkFd());
    EXPECT_EQ(-1, socket.GetListenFd());
    EXPECT_EQ(-1, ::fcntl(listen, F_GETFD));
    EXPECT_TRUE(Node().watched.empty());
  }
}

TEST_F(SASocketTest, APeersRecordArrivesOnTheWatchedDescriptorAndItsExitReadsAsNothing) {
  SASocket socket(&m_node, "/x.pipe");
  ASSERT_EQ(0, socket.Connect(1));
  ASSERT_EQ(1U, Node().watched.size());
  const int peer = ::open(Listen().c_str(), O_WRONLY | O_NONBLOCK);
  ASSERT_GE(peer, 0) << "nobody reads the Listen pipe";
  ASSERT_EQ(4, ::write(peer, "name", 4));
  std::array<char, 16> data{};
  EXPECT_EQ(4, ::read(Node().watched[0], data.data(), data.size()));
  EXPECT_STREQ("name", data.data());
  ::close(peer);
  EXPECT_EQ(0, ::read(Node().watched[0], data.data(), data.size()));
}

TEST_F(SASocketTest, ReceiveKeepsOneMessageAndClosesOnNone) {
  SASocket socket(&m_node, "/x.pipe");
  ASSERT_EQ(0, socket.Connect(1));
  std::array<char, SASocket::kMaxMessage> data{};
  EXPECT_EQ(-1, socket.GetData(data.data()));

  const std::string sent(SASocket::kMaxMessage + 10, 'm');
  const int peer = ::open((m_root.Path() / "x.pipeOut").c_str(), O_WRONLY | O_NONBLOCK);
  ASSERT_EQ(static_cast<ssize_t>(sent.size()), ::write(peer, sent.data(), sent.size()));
  ::close(peer);
  EXPECT_EQ(0, socket.Receive());
  EXPECT_EQ(4152, socket.GetData(data.data()));
  EXPECT_EQ(sent.substr(10), std::string(data.data(), data.size()));
  EXPECT_EQ(0, socket.Receive());
  EXPECT_EQ(10, socket.GetData(data.data()));

  Node().eventTexts.clear();
  EXPECT_EQ(0, socket.Receive());
  EXPECT_EQ(-1, socket.GetData(data.data()));
  EXPECT_EQ(-1, socket.GetTalkFd());
  const std::vector<std::string> expected{"Receiving data from utility process\n",
                                          "Closing connection from collector process\n"};
  EXPECT_EQ(expected, Node().eventTexts);
}

TEST_F(SASocketTest, AFailedStepIsTheLastErrorAndATrace) {
  const struct {
    const char* blocked;  ///< a folder here can't be unlinked, so mkfifo fails
    const char* error;
    const char* trace;
  } cases[] = {
      {"x.pipe", "mkfifo: Talk File exists",
       "Error occurred in mkfifo(/x.pipe). (File exists) (err=17)"},
      {"x.pipeOut", "mkfifo: Listen File exists",
       "Error occurred in mkfifo(/x.pipeOut). (File exists) (err=17)"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.blocked);
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    const fs::path blocked = m_root.Path() / row.blocked;
    fs::create_directory(blocked);
    SASocket socket(&m_node, "/x.pipe");
    EXPECT_EQ(4, socket.Connect(1));
    ASSERT_NE(nullptr, socket.GetLastError());
    EXPECT_STREQ(row.error, socket.GetLastError()->GetMessage());
    ASSERT_EQ(1U, Node().lines.size());
    EXPECT_EQ(row.trace, Node().lines[0].text);
    EXPECT_EQ(20, Node().lines[0].level);
    EXPECT_EQ(1, Node().lines[0].kind);
    EXPECT_TRUE(Node().watched.empty());
    fs::remove(blocked);
    EXPECT_EQ(0, socket.Connect(1)) << "a later connect begins anew";
  }
}

TEST_F(SASocketTest, ANameIsCutAt49Characters) {
  const std::string name = "/" + std::string(45, 'n');
  SASocket socket(&m_node, name);
  ASSERT_EQ(0, socket.Connect(1));
  EXPECT_TRUE(fs::exists(m_root.Path().string() + name + "Out"));

  const std::string longName = "/" + std::string(46, 'l') + "12345";
  SASocket cut(&m_node, longName);
  EXPECT_EQ(4, cut.Connect(1)) << "both pipes have the same 49 characters";
  EXPECT_TRUE(fs::exists(m_root.Path().string() + longName.substr(0, 49)));
}

}  // namespace
