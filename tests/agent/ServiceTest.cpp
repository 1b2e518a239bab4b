#include "agent/Service.h"

#include <exception>

#include "agent/ProductLock.h"
#include "agent/UnixAgent.h"
#include "collect/ProcLib.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;
using Numbers = std::vector<int>;

int g_signalDuringInit = 0;
const char* g_release = "2.6.9-42";

int FakeUname(struct ::utsname* system) {
  *system = {};
  std::strcpy(system->sysname, "Linux");
  std::strcpy(system->nodename, "some host");
  std::strcpy(system->release, g_release);
  std::strcpy(system->version, "#1");
  return 0;
}

int FailingUname(struct ::utsname*) {
  errno = EFAULT;
  return -1;
}

std::time_t TimeThatMayRaise(std::time_t*) {
  if (g_pAgent != nullptr && g_signalDuringInit != 0) {
    ::raise(std::exchange(g_signalDuringInit, 0));
  }
  return 1'700'000'000;
}

/// Looks, when it is asked for its text, whether another daemon could begin.
class LookingError : public std::exception {
 public:
  explicit LookingError(bool& isFree) : m_isFree(isFree) {}
  [[nodiscard]] const char* what() const noexcept override {
    m_isFree = ProductLock().Take();
    return "out of luck";
  }

 private:
  bool& m_isFree;
};

/// The service on a product root of its own, with the scripted node.
class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest() {
    fs::create_directories("log");
    fs::create_directories("opt/qmtrx/mond");
    std::ofstream("wgfile").close();
    SetHostRoot(m_root.Path().string());
    Reset();
  }
  ~ServiceTest() override {
    Os() = m_realCalls;
    SetProductRoot("");
    SetHostRoot("");
    ProcLib::ResetCaches();
  }

  void Reset() {
    ScriptedNode::Reset();
    Node().logLevel = 20;
    SetProductRoot(m_root.Path().string());
    g_signalDuringInit = 0;
    g_release = "2.6.9-42";
    Os() = m_realCalls;
    Os().uname = FakeUname;
    Os().time = TimeThatMayRaise;
  }

  static int Start(Texts arguments = {}) {
    arguments.insert(arguments.begin(), "qmtdmon");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return RunService(static_cast<int>(arguments.size()), argv.data());
  }
  static ScriptedNode& Node() { return ScriptedNode::Instance(); }
  /// But for the one that tells that no host name helper stands here.
  static Numbers Messages() {
    Numbers numbers;
    for (const LoggedLine& line : Node().lines) {
      if (line.number != 0 && line.text.find("(exec)") == std::string::npos) {
        numbers.push_back(line.number);
      }
    }
    return numbers;
  }

  TempFolder m_root{TempFolder::kEnter};
  OsCalls m_realCalls = Os();
};

TEST_F(ServiceTest, EachStartFailureHasItsMessagesTeardownAndExitValue) {
  const Texts kTracingOnly{"DebugInit", "DebugTerm"};
  const Texts kNotRegistered{"DebugInit", "StatInitialize", "DebugTerm"};
  const Texts kNotConnected{"DebugInit", "StatInitialize", "StatTerminate", "DebugTerm"};
  const Texts kConnected{"DebugInit", "StatInitialize", "Connect", "StatTerminate", "DebugTerm"};
  const struct {
    void (*spoil)();
    int message;  ///< comes before 10002
    Texts calls;
    const char* text;
  } cases[] = {
      {[] { Node().debugInitResult = 5; },
       10101,
       {"DebugInit"},
       "QMTX10101-E An error occurred in a function (MBDebugInit). (rc=5, arg1=, arg2=, arg3=)"},
      {[] { Node().levelResult = 3; }, 10101, kTracingOnly,
       "(MBDebugGetMsgLogLevel). (rc=3, arg1=20, "},
      {[] { Node().statResult = -85; }, 10101, kNotRegistered,
       "Exiting the service, to prevent double start."},
      {[] { Node().statResult = -7; }, 10101, kNotRegistered, "MBStatInitialize : Error =  (-7)"},
      {[] { Node().statResult = -7; }, 10101, kNotRegistered,
       "(MBStatInitialize). (rc=-7, arg1=U, arg2=A, arg3=D)"},
      {[] { Os().uname = FailingUname; }, 10100, kNotConnected,
       "QMTX10100-E An error occurred in an OS API (uname). (en=14, arg1=, arg2=, arg3=)"},
      {[] { SetProductRoot("/nowhere"); }, 10200, kNotConnected,
       "Error occurred in mkfifo(/opt/qmtrx/mond/qmt_hostutil_.pipe)."},
      {[] { Node().connectResult = -2; }, 10201, kConnected,
       "QMTX10201-E Initialization of Agent Configuration failed."},
      {[] { Node().setStatusResult = 4, Node().iniOpens = false; }, 10201, kNotConnected,
       "MBStatSetStatus : Warning =  (4)"},
      {[] { g_signalDuringInit = SIGTERM; }, 10102, kConnected,
       "QMTX10102-E A signal has been accepted. (sn=15)"},
      {[] {
         fs::create_directory("proc");
         std::ofstream("proc/stat").close();
         fs::resize_file("proc/stat", std::uintmax_t{1} << 30U);
       },
       10202, kConnected, "Agent RecordBuilder Initialization Failed: "},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text);
    Reset();
    g_msgLogLevel = 20;
    row.spoil();
    EXPECT_EQ(1, Start());
    EXPECT_EQ((Numbers{row.message, 10002}), Messages());
    EXPECT_EQ(row.calls, Node().calls);
    const bool wasRegistered = row.calls.size() > 3;
    EXPECT_EQ(std::vector<short>(wasRegistered ? 1 : 0, 82), Node().statuses);
    EXPECT_EQ(1U, Node().LinesWith(row.text).size());
    EXPECT_EQ(1U, Node().LinesWith("Exited the function (func=UnixAgent::main, rc=1)).").size());
    EXPECT_EQ(nullptr, g_pAgent);
  }
}

TEST_F(ServiceTest, TheSignalAndTheRunsResultDecideTheExit) {
  const struct {
    int signal;
    int runResult;
    int exitValue;
    Numbers messages;
  } cases[] = {
      {0, 0, 0, {10003, 10001}},
      {0, 9, 9, {10003, 10004}},
      {0, 256, 1, {10003, 10004}},
      {SIGTERM, 0, 0, {10003, 10503, 10001}},
      {SIGTERM, 3, 3, {10003, 10503, 10004}},
      {SIGINT, 0, 1, {10003, 10102, 10004}},
      {SIGPWR, 0, 1, {10003, 10102, 10004}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.signal * 1000 + row.runResult);
    Reset();
    Node().runResult = row.runResult;
    Node().onRun = [&](CMBRunnableNode&) { ::raise(row.signal); };
    EXPECT_EQ(row.exitValue, Start());
    EXPECT_EQ(row.messages, Messages());
    EXPECT_EQ(row.signal == 0 ? -1 : row.signal, Node().stopSignal);
    const Texts calls{"DebugInit", "StatInitialize", "Connect",
                      "Run",       "StatTerminate",  "DebugTerm"};
    EXPECT_EQ(calls, Node().calls);
    EXPECT_EQ(std::vector<short>{82}, Node().statuses);
    EXPECT_EQ("0 qmtdmon QMT-Hostsets 24 UAD UAD U QEXA/Unix/Agent 7.0 0 00 D1",
              Node().registration);
    EXPECT_EQ(1U, Node().LinesWith("started. (host=scripted-host, service=scripted-node)").size());
    EXPECT_FALSE(fs::exists("opt/qmtrx/mond/qmt_hostutil_.pipe"));
    EXPECT_FALSE(fs::exists("opt/qmtrx/mond/qmt_hostutil_.pipeOut"));
  }
}

TEST_F(ServiceTest, AnExceptionEndsTheProcessWithoutTeardown) {
  bool isFree = true;
  Node().onRun = [&](CMBRunnableNode&) { throw LookingError(isFree); };
  EXPECT_EQ(1, Start());
  EXPECT_FALSE(isFree) << "another daemon could begin before the last words";
  EXPECT_EQ((Numbers{10003, 10103, 10004}), Messages());
  EXPECT_EQ(1U, Node().LinesWith("QMTX10103-E An exception occurred. (msg=out of luck)").size());
  EXPECT_EQ("Run", Node().calls.back());
  EXPECT_TRUE(Node().statuses.empty());
  ASSERT_NE(nullptr, g_pAgent);
  delete std::exchange(g_pAgent, nullptr);
}

TEST_F(ServiceTest, OptionsReachTheAgentAndTheVersionLogIsExact) {
  g_release = "2.4.90-x";
  Node().logLevel = 40;
  fs::create_directories("data/log");
  ::setenv("APP_COLLECTOR_LOG", "7th", 1);
  ::setenv("SAUNIXPMAP", "", 1);
  const std::string longName = "my host" + std::string(4200, 'x');
  EXPECT_EQ(0, Start({"-h", "-v", "-?", "-x", "-f", "-n", longName, "-d", "data"}));
  ::unsetenv("APP_COLLECTOR_LOG");
  ::unsetenv("SAUNIXPMAP");

  EXPECT_EQ(1U, Node().LinesWith("(UnixAgent::Init). (arg1=my_hostxxx").size());
  EXPECT_EQ(1U, Node().LinesWith("Started the function (qmtdmon -h -v -? -x -f -n my host").size());
  EXPECT_STREQ("data", ProductOptions::Instance().Get("Agent", "DataDirectory"));
  EXPECT_EQ(
      "Build Environment \t: linux2.4.21 (32-bit)\n"
      "Target OS Name\t\t: Linux\n"
      "Target OS Release\t: 2.4.90-x (32-bit)\n",
      m_root.Read("data/log/version.log"));
  EXPECT_EQ(1, g_kernelVariant);
  EXPECT_EQ(7, g_collectorLogOn);
  EXPECT_EQ(1, g_hasUnixPmap);
}

TEST_F(ServiceTest, DefaultsAreTheNodeNameAndTheWorkingDirectory) {
  Node().logLevel = 40;
  fs::remove_all("log");
  EXPECT_EQ(0, Start()) << "a missing log folder does not stop the start";
  EXPECT_EQ(1U, Node().LinesWith("(UnixAgent::Init). (arg1=some_host, arg2=#1, arg3=2.6.9").size());
  const std::string directory = fs::current_path().string();
  EXPECT_EQ(directory, ProductOptions::Instance().Get("Agent", "DataDirectory"));
  const auto lines = Node().LinesWith("(open()). (rc=4, arg1=" + directory + "/log/version.log, ");
  ASSERT_EQ(1U, lines.size());
  EXPECT_EQ(20, lines[0].level);
}

TEST_F(ServiceTest, UserSignalFlipsBothSwitchesAndTheLoopTracesIt) {
  Node().onRun = [](CMBRunnableNode& node) {
    const int descriptor = Node().watched.back();
    for (const int expected : {1, 0}) {
      ::raise(SIGUSR2);
      EXPECT_EQ(expected, g_processTraceOn);
      EXPECT_EQ(expected, g_collectorLogOn);
    }
    EXPECT_TRUE(Node().LinesWith("USR2").empty()) << "the handler itself traces";
    CMBSocketEvent readable(descriptor);
    EXPECT_EQ(0, node.Dispatch(&readable));
    EXPECT_EQ(2U, Node().LinesWith("USR2 signal received.").size());
    EXPECT_EQ(0, node.Dispatch(&readable));
    EXPECT_EQ(2U, Node().LinesWith("USR2 signal received.").size());
  };
  EXPECT_EQ(0, Start());
  // Without an agent there is nowhere to count, and the handler's write fails.
  errno = 77;
  ::raise(SIGUSR2);
  EXPECT_EQ(77, errno);
}

TEST(MessageNamesTest, UnknownNamesSaySoAndLongOnesAreCut) {
  ScriptedNode::Reset();
  char buffer[8];
  GetServiceNameForMessage(buffer, sizeof buffer);
  EXPECT_STREQ("<unknow", buffer);
  ScriptedNode::Instance().hostNameResult = 1;
  char host[16];
  GetHostNameForMessage(host, sizeof host);
  EXPECT_STREQ("<unknown>", host);
}

}  // namespace
