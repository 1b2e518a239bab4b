#include "collect/modern/network/SocketSource.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include "collect/modern/network/SocketFiles.h"
#include "tests/collect/CollectFixture.h"
#include "tests/collect/modern/NetlinkAnswer.h"

namespace {

/// All figures in the order of their declaration.
std::array<double, sizeof(SocketFigures) / sizeof(double)> NumbersOf(const SocketFigures& figures) {
  return std::bit_cast<std::array<double, sizeof(SocketFigures) / sizeof(double)>>(figures);
}

std::ptrdiff_t ToldFigures(const SocketFigures& figures) {
  return std::ranges::count_if(NumbersOf(figures), IsTold);
}

/// What each socket that is opened finds written, and what was asked by it; none are left to open
/// where these have come to an end.
std::vector<std::vector<std::string>> g_talks;
std::vector<Descriptor> g_askedEnds;

int NextKernelSocket(int domain, int type, int protocol) {
  EXPECT_EQ(protocol, NETLINK_SOCK_DIAG);
  if (g_talks.empty()) {
    ADD_FAILURE() << "a socket too many";
    return -1;
  }
  g_datagrams = g_talks.front();
  g_talks.erase(g_talks.begin());
  const int end = KernelSocket(domain, type, protocol);
  g_askedEnds.emplace_back(std::exchange(g_kernelEnd, -1));
  return end;
}

struct BothQuestion {
  nlmsghdr header;
  inet_diag_req request;
};
struct VersionQuestion {
  nlmsghdr header;
  inet_diag_req_v2 request;
};

void ExpectQuestionForBoth(int end) {
  BothQuestion question{};
  ASSERT_EQ(::recv(end, &question, sizeof question, MSG_DONTWAIT), 76);
  EXPECT_EQ(question.header.nlmsg_len, 76U);
  EXPECT_EQ(question.header.nlmsg_type, 18);
  EXPECT_EQ(question.header.nlmsg_seq, 1U);
  EXPECT_EQ(question.header.nlmsg_flags & NLM_F_DUMP, NLM_F_DUMP);
  EXPECT_EQ(question.request.idiag_states, 0xF3EU);
}

void ExpectQuestionsForEach(int end) {
  VersionQuestion question{};
  for (const int family : {AF_INET, AF_INET6}) {
    ASSERT_EQ(::recv(end, &question, sizeof question, MSG_DONTWAIT), 72);
    EXPECT_EQ(question.header.nlmsg_type, 20);
    // Captures have them under these numbers.
    EXPECT_EQ(question.header.nlmsg_seq, family == AF_INET ? 1U : 2U);
    EXPECT_EQ(question.request.sdiag_family, family);
    EXPECT_EQ(question.request.sdiag_protocol, IPPROTO_TCP);
    EXPECT_EQ(question.request.idiag_states, 0xF3EU);
  }
}

class SocketSourceTest : public CollectFixture {
 protected:
  void TearDown() override {
    CloseKernelEnd();
    g_talks.clear();
    g_askedEnds.clear();
    CollectFixture::TearDown();
  }
  static SocketFigures Read() {
    SocketFigures figures;
    figures.established = 77;
    ReadSockets(figures);
    return figures;
  }
};

constexpr const char* kTcpHead =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n";

std::string TcpLine(const char* state) {
  return std::string("   0: 0100007F:0CEA 0100007F:A2B4 ") + state +
         " 00000000:00000000 00:00000000 00000000  1000        0 30711 1 0 20 4 30 10 -1\n";
}

TEST_F(SocketSourceTest, ACapturedHostIsReadFromItsFiles) {
  Os().socket = [](int, int, int) -> int {
    ADD_FAILURE() << "this machine's sockets are another host's";
    return -1;
  };
  const process_tree::HostTree host;
  EXPECT_EQ(ToldFigures(Read()), 0);
  std::string tcp = kTcpHead;
  for (const char* state : {"01", "01", "02", "03", "04", "05", "06", "06", "06", "07", "08", "09",
                            "0A", "0B", "0C", "FFFFFFFFFFFFFFFFF", "x"}) {
    tcp += TcpLine(state);
  }
  host.Write("/proc/net/tcp", tcp + "   0: cut");
  host.Write("/proc/net/tcp6", kTcpHead + TcpLine("0A") + TcpLine("01"));
  host.Write("/proc/net/snmp",
             "Ip: Forwarding InReceives\nIp: 2 64\n"
             "Tcp: MaxConn ActiveOpens PassiveOpens AttemptFails EstabResets CurrEstab InSegs"
             " OutSegs RetransSegs InErrs OutRsts InCsumErrors\n"
             "Tcp: -1 11 12 13 14 15 9007199254740992 17 18 19 20 21\n"
             "Udp: InDatagrams NoPorts InErrors OutDatagrams RcvbufErrors SndbufErrors"
             " InCsumErrors\n"
             "Udp: 100 200 300 400 500 600\n");
  host.Write("/proc/net/snmp6",
             "Ip6InReceives \t9\nUdp6InDatagrams \t1\nUdp6NoPorts 2\nUdp6InErrors x\n"
             "Udp6OutDatagrams 4\nUdp6InCsumErrors 7\n");
  host.Write("/proc/net/netstat",
             "TcpExt: SyncookiesSent SyncookiesRecv SyncookiesFailed ListenOverflows ListenDrops"
             " TCPLostRetransmit TCPTimeouts TCPAbortOnMemory TCPMemoryPressures TCPSynRetrans\n"
             "TcpExt: 1 2 3 4 5 6 7 8 9 10\nIpExt: InNoRoutes\nIpExt: 1\n");
  host.Write("/proc/net/sockstat",
             "sockets: used 214\nTCP: inuse 8 orphan 1 tw 5 alloc 12 mem 3\n"
             "UDP: inuse 4 mem 2\nUDPLITE: inuse 0\nRAW: inuse -1\nFRAG: inuse 6 memory 9000\n");
  host.Write("/proc/net/sockstat6",
             "TCP6: inuse 2\nUDP6: inuse 3\nUDPLITE6: inuse 9\nRAW6: inuse 1\n"
             "FRAG6: inuse 7 memory 7\n");
  host.Write("/proc/sys/net/netfilter/nf_conntrack_count", "312\n");
  host.Write("/proc/sys/net/netfilter/nf_conntrack_max", "262144\n");
  // A negative number is none, and IPv6's checksum errors alone are not those of both.
  EXPECT_EQ(Told(NumbersOf(Read())),
            "3 1 1 1 1 3 1 1 1 2 "
            "11 12 13 14 20 9007199254740992 17 18 19 "
            "4 5 1 2 3 8 9 7 10 6 "
            "214 8 2 1 5 12 12288 4 3 8192 0 - 1 6 9000 "
            "101 404 202 300 500 600 - "
            "312 262144");

  // Nobody counts more sockets than the files' limit has.
  std::filesystem::resize_file(host.Path("/proc/net/tcp6"), std::uintmax_t{33} << 20U);
  const SocketFigures many = Read();
  EXPECT_FALSE(IsTold(many.established));
  EXPECT_EQ(ToldFigures(many), 41);
  host.Remove("/proc/net/tcp6");
  EXPECT_EQ(Read().established, 2);
}

TEST(SockDiagAnswer, CountsSocketsByState) {
  Answer sockets;
  sockets.Socket(TCP_ESTABLISHED).Socket(TCP_LISTEN).Socket(TCP_FIN_WAIT2).Socket(TCP_LISTEN);
  sockets.Socket(TCP_FIN_WAIT2, 3).Socket(TCP_ESTABLISHED, 3).Socket(12).Socket(255);
  sockets.Socket(TCP_ESTABLISHED, 0, RTM_NEWLINK);
  const std::string whole = sockets.Bytes();
  SockDiagAnswer answer;
  EXPECT_TRUE(ParseSockDiag(Span(whole), 1, answer));
  EXPECT_TRUE(ParseSockDiag(Span(whole), 2, answer));
  EXPECT_FALSE(ParseSockDiag(
      Span(sockets.End(NLMSG_DONE, 1, -ENOENT).Bytes()).subspan(whole.size()), 1, answer));
  EXPECT_EQ(answer.error, ENOENT);
  EXPECT_EQ(answer.states.sockets,
            (std::array<std::uint64_t, 12>{0, 2, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0}));
  EXPECT_EQ(answer.states.brief, 1U);
  EXPECT_EQ(TimeWaitOf(5, answer.states), 4);
  EXPECT_EQ(TimeWaitOf(0, answer.states), 0);
  EXPECT_FALSE(IsTold(TimeWaitOf(kNotTold, answer.states)));
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const std::vector<unsigned char> cut(whole.begin(), whole.begin() + static_cast<long>(size));
    SockDiagAnswer part;
    const bool isMore = ParseSockDiag(cut, 1, part);
    EXPECT_EQ(isMore, part.error == 0);
    EXPECT_LE(part.states.sockets[TCP_ESTABLISHED], size / 88);
  }
}

/// A message of 88 bytes about a socket over one version of IP, as the older question has it.
std::string SocketOf(std::uint8_t state, std::uint8_t family) {
  return Answer().Socket(state, 0, TCPDIAG_GETSOCK, family).Bytes();
}
std::string EndOfAnswer(std::uint32_t sequence, std::int32_t result = 0) {
  return Answer().End(NLMSG_DONE, sequence, result).Bytes();
}

TEST_F(SocketSourceTest, OneAnswerHasBothVersionsOfIpAndIsForgottenWhereInterrupted) {
  const std::string sockets = SocketOf(TCP_LISTEN, AF_INET) + SocketOf(TCP_LISTEN, AF_INET6) +
                              SocketOf(TCP_ESTABLISHED, AF_INET6) +
                              SocketOf(TCP_ESTABLISHED, AF_UNIX);
  g_talks = {{Renumbered(sockets, 1, NLM_F_DUMP_INTR), EndOfAnswer(1), Renumbered(sockets, 2),
              EndOfAnswer(2)}};
  Os().socket = NextKernelSocket;
  SockDiagMemory memory;
  const SockDiagAnswer answer = AskForTcpStates(memory);
  EXPECT_EQ(answer.error, 0);
  EXPECT_EQ(answer.states.sockets[TCP_LISTEN], 2U);
  EXPECT_EQ(answer.states.sockets[TCP_ESTABLISHED], 1U);
  EXPECT_FALSE(memory.isOneAnswerRefused);
  ExpectQuestionForBoth(g_askedEnds[0].Get());
}

TEST_F(SocketSourceTest, EachVersionIsAskedForWhereBothAtOnceAreRefused) {
  std::string longer = SocketOf(TCP_LISTEN, AF_INET);
  longer[0] = 89;
  std::string shorter = longer;
  shorter[0] = 15;
  const std::string listening = Answer().Socket(TCP_LISTEN).Socket(TCP_ESTABLISHED).Bytes();
  const std::vector<std::string> each{listening, EndOfAnswer(1), Renumbered(listening, 2),
                                      EndOfAnswer(2)};
  const std::string counted = SocketOf(TCP_LISTEN, AF_INET);
  const std::vector<std::vector<std::string>> refusals{
      {Answer().End(NLMSG_ERROR, 1, -EOPNOTSUPP).Bytes()},
      {Answer().End(NLMSG_ERROR, 1, -EINVAL).Bytes()},
      // What came before a failure doesn't count.
      {counted, EndOfAnswer(1, -ENOENT)},
      {counted, longer},
      {counted, shorter},
      {counted, counted.substr(0, 15)}};
  Os().socket = NextKernelSocket;
  for (std::size_t row = 0; row < refusals.size(); ++row) {
    g_askedEnds.clear();
    // The third socket is that of a second call.
    g_talks = {refusals[row], each, each};
    SockDiagMemory memory;
    for (const bool isFirst : {true, false}) {
      const SockDiagAnswer answer = AskForTcpStates(memory);
      EXPECT_EQ(answer.error, 0) << row;
      EXPECT_EQ(answer.states.sockets[TCP_LISTEN], 2U) << row;
      EXPECT_EQ(answer.states.sockets[TCP_ESTABLISHED], 2U) << row;
      EXPECT_EQ(g_talks.size(), isFirst ? 1U : 0U) << row;
    }
    ASSERT_EQ(g_askedEnds.size(), 3U) << row;
    ExpectQuestionForBoth(g_askedEnds[0].Get());
    ExpectQuestionsForEach(g_askedEnds[1].Get());
    ExpectQuestionsForEach(g_askedEnds[2].Get());
  }
}

TEST_F(SocketSourceTest, OnlyARefusalIsRemembered) {
  Os().socket = NextKernelSocket;
  SockDiagMemory memory;
  // Each version is refused as well, by a kernel that can't load the module as yet.
  const std::vector<std::string> refusal{EndOfAnswer(1, -ENOENT)};
  g_talks = {refusal, refusal};
  EXPECT_EQ(AskForTcpStates(memory).error, ENOENT);
  EXPECT_FALSE(memory.isOneAnswerRefused);
  // What is too much at once is too much in two parts.
  g_talks = {{EndOfAnswer(1, -EMSGSIZE)}};
  EXPECT_EQ(AskForTcpStates(memory).error, EMSGSIZE);
  EXPECT_FALSE(memory.isOneAnswerRefused);
  // A socket too short to be one is none, and no reason to ask again.
  g_talks = {
      {SocketOf(TCP_LISTEN, AF_INET) + Answer().Begin(TCPDIAG_GETSOCK, 1).Bytes(), EndOfAnswer(1)}};
  const SockDiagAnswer answer = AskForTcpStates(memory);
  EXPECT_EQ(answer.error, 0);
  EXPECT_EQ(answer.states.sockets[TCP_LISTEN], 1U);
  EXPECT_FALSE(memory.isOneAnswerRefused);
  // No socket is to be had: the kernel has said nothing, and no other is tried.
  static int tries;
  tries = 0;
  Os().socket = [](int, int, int) {
    ++tries;
    errno = EMFILE;
    return -1;
  };
  EXPECT_EQ(AskForTcpStates(memory).error, EMFILE);
  EXPECT_EQ(tries, 1);
  EXPECT_FALSE(memory.isOneAnswerRefused);
}

/// Listens on the loopback, and is connected to itself.
class LoopbackConnection {
 public:
  LoopbackConnection() {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof place;
    auto* const address = reinterpret_cast<sockaddr*>(&place);
    m_isMade = ::bind(m_server.Get(), address, size) == 0 && ::listen(m_server.Get(), 1) == 0 &&
               ::getsockname(m_server.Get(), address, &size) == 0 &&
               ::connect(m_client.Get(), address, size) == 0;
  }
  [[nodiscard]] bool IsMade() const { return m_isMade; }

 private:
  Descriptor m_server{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  Descriptor m_client{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  bool m_isMade = false;
};

/// Listens on the loopback of the other version of IP, where this host has it.
class Listener6 {
 public:
  Listener6() {
    sockaddr_in6 place{};
    place.sin6_family = AF_INET6;
    place.sin6_addr = in6addr_loopback;
    m_isMade = ::bind(m_server.Get(), reinterpret_cast<sockaddr*>(&place), sizeof place) == 0 &&
               ::listen(m_server.Get(), 1) == 0;
  }
  [[nodiscard]] bool IsMade() const { return m_isMade; }

 private:
  Descriptor m_server{::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  bool m_isMade = false;
};

TEST_F(SocketSourceTest, AllWaysTellTheSocketsOfThisHost) {
  const LoopbackConnection connection;
  if (!connection.IsMade()) {
    GTEST_SKIP() << "this host has no loopback";
  }
  const Listener6 listener;
  for (const bool isRefused : {false, true}) {
    SockDiagMemory memory{isRefused};
    const SockDiagAnswer answer = AskForTcpStates(memory);
    EXPECT_EQ(memory.isOneAnswerRefused, isRefused) << "this kernel knows both questions";
    EXPECT_GE(answer.states.sockets[TCP_LISTEN], listener.IsMade() ? 2U : 1U) << isRefused;
    EXPECT_GE(answer.states.sockets[TCP_ESTABLISHED], 2U) << isRefused;
  }
  for (const bool isAsked : {true, false}) {
    if (!isAsked) {
      Os().socket = [](int, int, int) {
        errno = EAFNOSUPPORT;
        return -1;
      };
    }
    const SocketFigures figures = Read();
    EXPECT_GE(figures.listening, 1) << isAsked;
    EXPECT_GE(figures.established, 2) << isAsked;
    EXPECT_GE(figures.timeWait, 0) << isAsked;
    EXPECT_GE(figures.activeOpens, 1) << isAsked;
    EXPECT_GE(figures.tcp4InUse, 3) << isAsked;
  }
  // More than there is time for is not looked for in the files.
  Os().socket = [](int, int, int) {
    errno = ETIMEDOUT;
    return -1;
  };
  EXPECT_FALSE(IsTold(Read().established));
}

}  // namespace
