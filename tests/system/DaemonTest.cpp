#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <regex>

#include "tests/system/Daemon.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr const char* kMainFlow = "[Node]\nMessage Log Level=20\n[Schedule]\n";

/// The identifiers of the numbered messages, in order.
Texts MessagesIn(const std::string& text) {
  static const std::regex kIdentifier("QMTX[0-9]{5}-[EWI]");
  Texts messages;
  for (std::sregex_iterator hit(text.begin(), text.end(), kIdentifier), end; hit != end; ++hit) {
    messages.push_back(hit->str());
  }
  return messages;
}

TEST(DaemonTest, EachStopSignalHasItsMessagesAndExitValue) {
  const struct {
    int signal;
    int exitValue;
    Texts messages;
  } cases[] = {
      {SIGTERM, 0, {"QMTX10003-I", "QMTX10503-W", "QMTX10001-I"}},
      {SIGINT, 1, {"QMTX10003-I", "QMTX10102-E", "QMTX10004-E"}},
      {SIGPWR, 1, {"QMTX10003-I", "QMTX10102-E", "QMTX10004-E"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.signal);
    const ProductRoot root("[Schedule]\n");
    RunningDaemon daemon(root);
    EXPECT_TRUE(fs::is_fifo(root.PipeFolder() / "qmt_hostutil_.pipe"));
    EXPECT_TRUE(fs::is_fifo(root.PipeFolder() / "qmt_hostutil_.pipeOut"));
    EXPECT_TRUE(fs::exists(root.AgentFolder() / "log/version.log"));
    daemon.Signal(row.signal);
    EXPECT_EQ(row.exitValue, daemon.ExitValue());
    EXPECT_EQ(row.messages, MessagesIn(daemon.Errors())) << daemon.Errors();
    EXPECT_FALSE(fs::exists(root.PipeFolder() / "qmt_hostutil_.pipe"));
    EXPECT_FALSE(fs::exists(root.PipeFolder() / "qmt_hostutil_.pipeOut"));
  }
}

TEST(DaemonTest, WordsOfHelpAreAnsweredAndStartNothing) {
  const ProductRoot root(kMainFlow);
  const std::string start = "cd '" + root.AgentFolder().string() + "' && QMT_PRODUCT_ROOT='" +
                            root.Path().string() + "' timeout 20 " + QMTDMON_PROGRAM;
  for (const auto& [words, said] :
       {std::pair<const char*, const char*>{" --help", "Usage: qmtdmon"},
        {" -f --version", "qmtdmon "}}) {
    const Outcome outcome = RunCommand("{ " + start + words + "; } 2>&1");
    EXPECT_EQ(0, outcome.exitValue) << words;
    EXPECT_EQ(0U, outcome.output.find(said)) << outcome.output;
  }
  EXPECT_FALSE(fs::exists(root.AgentFolder() / "run")) << "no service was begun";

  const std::string page = std::regex_replace(FileText(QMT_TEST_DIR "/../packaging/man/qmtdmon.8"),
                                              std::regex(R"(\\)"), "");
  const std::string help = RunCommand(start + " --help").output;
  const std::regex option("--[a-z]+");
  for (std::sregex_iterator word(help.begin(), help.end(), option), end; word != end; ++word) {
    EXPECT_THAT(page, HasSubstr(word->str()));
  }
}

TEST(DaemonTest, OtherSignalsDoNotStopItAndUserSignalIsTracedByTheLoop) {
  const ProductRoot root(kMainFlow);
  RunningDaemon daemon(root);
  const std::size_t before = daemon.Errors().size();
  for (const int signal : {SIGHUP, SIGQUIT, SIGALRM, SIGPIPE, SIGCHLD}) {
    daemon.Signal(signal);
  }
  daemon.Signal(SIGUSR2);
  ASSERT_TRUE(daemon.Says("USR2 signal received.")) << daemon.Errors();
  EXPECT_TRUE(daemon.IsRunning());
  EXPECT_EQ(Texts{}, MessagesIn(daemon.Errors().substr(before)));
  daemon.Signal(SIGTERM);
  EXPECT_EQ(0, daemon.ExitValue());
}

TEST(DaemonTest, TheServiceManagerHearsOfStartLifeAndEnd) {
  const ProductRoot root;
  const std::string path = root.Path() / "notify";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const timeval limit{30, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto hear = [socket] {
    std::array<char, 64> state{};
    const ssize_t size = ::recv(socket, state.data(), state.size(), 0);
    return std::string(state.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  };
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  ::setenv("WATCHDOG_USEC", "200000", 1);
  Daemon daemon(root, "errors");
  ::unsetenv("NOTIFY_SOCKET");
  ::unsetenv("WATCHDOG_USEC");
  EXPECT_EQ(hear(), "READY=1");
  EXPECT_EQ(hear(), "WATCHDOG=1");
  EXPECT_EQ(hear(), "WATCHDOG=1");
  daemon.Signal(SIGTERM);
  std::string last = hear();
  while (last == "WATCHDOG=1") {
    last = hear();
  }
  EXPECT_EQ(last, "STOPPING=1");
  ::close(socket);
}

TEST(DaemonTest, ASecondStartIsRefusedAndLeavesTheFirstAlone) {
  const ProductRoot root(kMainFlow);
  Daemon first(root, "first");
  ASSERT_TRUE(first.Says("QMTX10003-I")) << first.Errors();
  Daemon second(root, "second");
  EXPECT_EQ(1, second.ExitValue());
  EXPECT_TRUE(second.Says("Exiting the service, to prevent double start."));
  EXPECT_EQ((Texts{"QMTX10101-E", "QMTX10002-E"}), MessagesIn(second.Errors())) << second.Errors();
  EXPECT_TRUE(first.IsRunning());
  EXPECT_TRUE(fs::is_fifo(root.PipeFolder() / "qmt_hostutil_.pipe"));

  // Nor from another working directory.
  const fs::path elsewhere = root.Path() / "elsewhere";
  fs::create_directory(elsewhere);
  fs::copy(root.AgentFolder() / "qmtagt.ini", elsewhere);
  const Outcome outcome =
      RunCommand("cd '" + elsewhere.string() + "' && QMT_PRODUCT_ROOT='" + root.Path().string() +
                 "' timeout 20 " + QMTDMON_PROGRAM + " 2>&1");
  EXPECT_EQ(1, outcome.exitValue) << outcome.output;
  EXPECT_NE(std::string::npos,
            outcome.output.find("/opt/qmtrx/mond/qmtdmon.lock: locked by process " +
                                root.Read("opt/qmtrx/mond/qmtdmon.lock")))
      << outcome.output;
  EXPECT_TRUE(fs::is_fifo(root.PipeFolder() / "qmt_hostutil_.pipe")) << "the first one's";
  first.Signal(SIGTERM);
  EXPECT_EQ(0, first.ExitValue());

  Daemon third(root, "third");
  EXPECT_TRUE(third.Says("QMTX10003-I")) << "the first one's lock outlived it";
}

TEST(DaemonTest, NobodyWhoReadsItsErrorsCanHoldItUp) {
  const ProductRoot root;
  const std::string pipe = root.Path() / "stderr";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  const std::string block(4096, 'x');
  while (::write(reader, block.data(), block.size()) > 0) {
  }
  ASSERT_EQ(::mkfifo((root.AgentFolder() / "log/version.log").c_str(), 0600), 0);
  Daemon daemon(root, "stderr");
  Outcome outcome{-1, ""};
  EXPECT_TRUE(WaitUntil([&] {
    outcome = AskDaemon(root, "status 2>&1");
    return outcome.exitValue == 0;
  })) << outcome.output;
  // Neither stops it.
  daemon.Signal(SIGUSR1);
  daemon.Signal(SIGXFSZ);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_TRUE(daemon.IsRunning());
  daemon.Signal(SIGTERM);
  EXPECT_EQ(daemon.ExitValue(), 0);
  ::close(reader);
}

}  // namespace
