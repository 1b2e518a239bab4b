#include "collect/modern/network/InterfaceSource.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include "collect/modern/network/NetDev.h"
#include "tests/collect/CollectFixture.h"
#include "tests/collect/modern/NetlinkAnswer.h"

namespace {

std::uint32_t Dotted(const char* text) { return inet_addr(text); }

std::string AddressText(std::uint32_t address) { return inet_ntoa(in_addr{address}); }

/// "NAME flags mtu ADDRESS/MASK BROADCAST;" for each link.
std::string LinksText(const NetlinkTables& tables) {
  std::ostringstream out;
  for (const NetlinkLink& link : tables.links) {
    out << link.name.data() << ' ' << std::hex << link.flags << std::dec << ' ' << link.mtu;
    if (link.hasAddress) {
      out << ' ' << AddressText(link.address) << '/' << AddressText(link.netmask) << ' '
          << AddressText(link.broadcast);
    }
    out << ';';
  }
  return out.str();
}

Answer LinksAnswer() {
  Answer answer;
  answer.Link(7, 0x11043)
      .Attribute(IFLA_IFNAME, std::string("enp175s0f0np0\0", 14))
      .Word(IFLA_MTU, 9000);
  answer.Link(1, 0x10049).Attribute(IFLA_IFNAME, std::string("lo\0", 3)).Word(IFLA_MTU, 65536);
  answer.Link(9, 0x1002).Attribute(IFLA_IFNAME, std::string("veth0\0", 6)).Word(IFLA_MTU, 1500);
  answer.Link(8, 0x110d1).Attribute(IFLA_IFNAME, "nameof15letters").Word(IFLA_MTU, 1420);
  return answer;
}

Answer AddressesAnswer() {
  Answer answer;
  answer.Address(1, RT_SCOPE_HOST, 8).Word(IFA_ADDRESS, Dotted("127.0.0.1"));
  answer.Address(7, RT_SCOPE_LINK, 16).Word(IFA_LOCAL, Dotted("169.254.1.1"));
  answer.Address(7, RT_SCOPE_UNIVERSE, 24, IFA_F_SECONDARY).Word(IFA_LOCAL, Dotted("10.0.0.9"));
  answer.Address(7, RT_SCOPE_UNIVERSE, 23)
      .Word(IFA_BROADCAST, Dotted("192.0.3.255"))
      .Word(IFA_LOCAL, Dotted("192.0.2.2"))
      .Word(IFA_ADDRESS, Dotted("192.0.2.2"));
  answer.Address(7, RT_SCOPE_UNIVERSE, 24).Word(IFA_LOCAL, Dotted("192.0.2.3"));
  answer.Address(8, RT_SCOPE_UNIVERSE, 32)
      .Word(IFA_ADDRESS, Dotted("10.9.0.1"))
      .Word(IFA_LOCAL, Dotted("10.9.0.2"));
  answer.Address(9, RT_SCOPE_UNIVERSE, 64, 0, AF_INET6)
      .Attribute(IFA_ADDRESS, std::string(16, 'x'));
  answer.Address(9, RT_SCOPE_UNIVERSE, 33).Word(IFA_LOCAL, Dotted("10.0.0.1"));
  return answer;
}

constexpr const char* kJoined =
    "enp175s0f0np0 11043 9000 192.0.2.2/255.255.254.0 192.0.3.255;"
    "lo 10049 65536 127.0.0.1/255.0.0.0 0.0.0.0;"
    "nameof15letters 110d1 1420 10.9.0.2/255.255.255.255 0.0.0.0;veth0 1002 1500;";

TEST(NetlinkAnswer, GivesEachInterfaceItsFirstGlobalAddress) {
  NetlinkTables tables;
  EXPECT_TRUE(ParseNetlinkAnswer(Span(LinksAnswer().Bytes()), 1, tables));
  // What another question was answered with is passed over.
  EXPECT_TRUE(ParseNetlinkAnswer(Span(LinksAnswer().Bytes()), 2, tables));
  EXPECT_FALSE(
      ParseNetlinkAnswer(Span(AddressesAnswer().End(NLMSG_DONE, 2, 0).Bytes()), 2, tables));
  EXPECT_EQ(tables.error, 0);
  JoinAddresses(tables);
  EXPECT_EQ(LinksText(tables), kJoined);
  EXPECT_EQ(FindLink(tables, "lo"), &tables.links[1]);
  EXPECT_EQ(FindLink(tables, "nameof15letter"), nullptr);
}

TEST(NetlinkAnswer, EndsWithTheKernelsError) {
  const struct {
    std::uint16_t type;
    std::int32_t result;
    int error;
  } cases[] = {{NLMSG_ERROR, -EPERM, EPERM},
               {NLMSG_DONE, -EINTR, EINTR},
               {NLMSG_ERROR, 0, 0},
               {NLMSG_ERROR, INT32_MIN, EPROTO},
               {NLMSG_DONE, 5, 0}};
  for (const auto& [type, result, error] : cases) {
    NetlinkTables tables;
    EXPECT_FALSE(ParseNetlinkAnswer(Span(LinksAnswer().End(type, 1, result).Bytes()), 1, tables));
    EXPECT_EQ(tables.error, error);
    EXPECT_EQ(tables.links.size(), 4U);
  }
}

TEST(NetlinkAnswer, IsNotBelievedInItsLengths) {
  // Copies of their own size, so that a look beyond the end is one beyond the memory.
  const std::string detailed = LinksAnswer()
                                   .Attribute(IFLA_ADDRESS, std::string(40, 'a'))
                                   .Attribute(IFLA_OPERSTATE, "\6")
                                   .Word(IFLA_MASTER, 7)
                                   .Attribute(IFLA_STATS64, std::string(200, 's'))
                                   .Bytes();
  for (const std::string& whole : {detailed, AddressesAnswer().Bytes()}) {
    for (std::size_t size = 0; size <= whole.size(); ++size) {
      const std::vector<unsigned char> cut(whole.begin(), whole.begin() + static_cast<long>(size));
      for (const std::uint32_t sequence : {1U, 2U}) {
        NetlinkTables tables;
        const bool isMore = ParseNetlinkAnswer(cut, sequence, tables);
        EXPECT_EQ(isMore, tables.error == 0);
        EXPECT_LE(tables.links.size() + tables.addresses.size(), 6U);
      }
    }
    for (std::size_t place = 0; place + 2 <= whole.size(); place += 2) {
      for (const auto lie : std::to_array<std::uint16_t>({0, 1, 3, 0x7fff, 0xffff})) {
        std::vector<unsigned char> bytes(whole.begin(), whole.end());
        std::memcpy(bytes.data() + place, &lie, sizeof lie);
        NetlinkTables tables;
        tables.keepsDetails = true;
        static_cast<void>(ParseNetlinkAnswer(bytes, 1, tables));
        static_cast<void>(ParseNetlinkAnswer(bytes, 2, tables));
        JoinAddresses(tables);
        EXPECT_LE(tables.links.size() + tables.addresses.size(), 12U);
        EXPECT_EQ(tables.details.size(), tables.links.size());
      }
    }
  }
}

TEST(NetDevLine, IsReadAsFarAsItGoes) {
  const struct {
    const char* line;
    const char* expected;
  } cases[] = {{"eth0:1 4294967301 3 4 5 6 7 8 9 18446744073709551615 11 12 13 14 15 16\n",
                "eth0 4294967301 3 4 18446744073709551615 11 12 14 whole"},
               {"  nameof15letters: 1 2 3 4 5 6 7 8 9 10 11 12 13 14",
                "nameof15letters 2 3 4 10 11 12 14 whole"},
               {"eth0:1:1 2 3 4 5 6 7 8 9 10 11 12 13 14", "eth0:1 2 3 4 10 11 12 14 whole"},
               {"eth0: 1 2 3 4 5 6 7 8 9 10 x", "eth0 2 3 4 10 0 0 0 part"},
               {"eth0:", "eth0 0 0 0 0 0 0 0 part"},
               {" face |bytes    packets errs", "none"},
               {"  : 1 2", "none"},
               {"../..: 1 2", "none"},
               {"..: 1 2", "none"},
               {"n234567890123456789012345678901234567890: 1", "none"},
               {"", "none"}};
  for (const auto& [line, expected] : cases) {
    NetDevRow row;
    std::ostringstream out;
    if (ParseNetDevLine(line, row)) {
      const InterfaceCounters& counters = row.counters;
      out << row.name << ' ' << counters.rxPackets << ' ' << counters.rxErrors << ' '
          << counters.rxDropped << ' ' << counters.txPackets << ' ' << counters.txErrors << ' '
          << counters.txDropped << ' ' << counters.collisions << (row.isWhole ? " whole" : " part");
    } else {
      out << "none";
    }
    EXPECT_EQ(out.str(), expected) << line;
  }
}

TEST(LinkFlags, AreThoseOfTheFilesAndOfTheState) {
  const struct {
    LinkStateTexts texts;
    std::uint32_t flags;
  } cases[] = {{{"0x1003", "1", "up", "0"}, 0x11043},
               {{"0x1003", "0", "down", "0"}, 0x1003},
               {{"0x1003", "1", "dormant", "1"}, 0x31003},
               {{"0x9", "1", "unknown", "0"}, 0x10049},
               {{"0x1002", "1", "up", "1"}, 0x1002},
               {{"0x1003", "", "", ""}, 0x1043},
               {{"4099", "1", "up", "0"}, 0},
               {{"0x", "", "", ""}, 0}};
  for (const auto& [texts, flags] : cases) {
    EXPECT_EQ(LinkFlagsOf(texts), flags) << texts.flags << texts.operState;
  }
}

class ModernInterfaceSourceTest : public CollectFixture {
 protected:
  void TearDown() override {
    CloseKernelEnd();
    CollectFixture::TearDown();
  }
  static std::vector<Interface> Read() { return ReadAll<ModernInterfaceSource, Interface>(); }
};

TEST_F(ModernInterfaceSourceTest, AsksTheKernelForBothTables) {
  g_datagrams = {LinksAnswer().Bytes(), Answer().End(NLMSG_DONE, 1, 0).Bytes(),
                 AddressesAnswer().Bytes(), Answer().End(NLMSG_DONE, 2, 0).Bytes()};
  Os().socket = KernelSocket;
  const NetlinkTables tables = AskForLinks();
  EXPECT_EQ(tables.error, 0);
  EXPECT_EQ(LinksText(tables), kJoined);
  std::array<nlmsghdr, 8> question{};
  ASSERT_GT(::recv(g_kernelEnd, question.data(), sizeof question, MSG_DONTWAIT), 0);
  EXPECT_EQ(question[0].nlmsg_type, RTM_GETLINK);
  ASSERT_EQ(::recv(g_kernelEnd, question.data(), sizeof question, MSG_DONTWAIT), 24);
  EXPECT_EQ(question[0].nlmsg_type, RTM_GETADDR);
}

TEST_F(ModernInterfaceSourceTest, AnInterruptedAnswerIsAskedForAnew) {
  const std::string part =
      Answer().Link(1, 0x10049).Attribute(IFLA_IFNAME, std::string("lo\0", 3)).Bytes();
  g_datagrams = {Renumbered(part, 1, NLM_F_DUMP_INTR),     Answer().End(NLMSG_DONE, 1, 0).Bytes(),
                 Renumbered(LinksAnswer().Bytes(), 2),     Answer().End(NLMSG_DONE, 2, 0).Bytes(),
                 Renumbered(AddressesAnswer().Bytes(), 3), Answer().End(NLMSG_DONE, 3, 0).Bytes()};
  Os().socket = KernelSocket;
  EXPECT_EQ(LinksText(AskForLinks()), kJoined);
  // One that never comes whole is better than none.
  g_datagrams.clear();
  for (std::uint32_t sequence = 1; sequence <= 6; ++sequence) {
    g_datagrams.push_back(
        Renumbered(sequence <= 3 ? part : AddressesAnswer().Bytes(), sequence, NLM_F_DUMP_INTR));
    g_datagrams.push_back(Answer().End(NLMSG_DONE, sequence, 0).Bytes());
  }
  EXPECT_EQ(LinksText(AskForLinks()), "lo 10049 0 127.0.0.1/255.0.0.0 0.0.0.0;");
}

TEST_F(ModernInterfaceSourceTest, WhatIsNoAnswerOfTheKernelEndsTheTalk) {
  enum class Peer { kKernel, kOtherProcess, kGone };
  static Peer peer;
  const std::string links = LinksAnswer().Bytes();
  const std::string end = Answer().End(NLMSG_DONE, 1, 0).Bytes();
  const struct {
    Peer peer;
    std::vector<std::string> datagrams;
    int error;
    bool hasLinks;
  } cases[] = {{Peer::kKernel, {links, ""}, EPROTO, true},
               {Peer::kKernel, {std::string(65537, '\0'), end}, EMSGSIZE, false},
               {Peer::kKernel, {links, Answer().End(NLMSG_ERROR, 1, -EPERM).Bytes()}, EPERM, true},
               {Peer::kOtherProcess, {links, end, ""}, EPROTO, false},
               {Peer::kGone, {}, ECONNREFUSED, false}};
  Os().socket = [](int domain, int type, int protocol) {
    const std::vector<std::string> datagrams = std::exchange(g_datagrams, {});
    const int own = KernelSocket(domain, type, protocol);
    if (peer == Peer::kOtherProcess) {
      // The system gives it a name, which stands where the number of a process does.
      const sockaddr name{AF_UNIX, {}};
      EXPECT_EQ(::bind(g_kernelEnd, &name, sizeof name.sa_family), 0);
    }
    for (const std::string& datagram : datagrams) {
      EXPECT_EQ(::send(g_kernelEnd, datagram.data(), datagram.size(), 0),
                static_cast<ssize_t>(datagram.size()));
    }
    if (peer == Peer::kGone) {
      CloseKernelEnd();
    }
    return own;
  };
  for (const auto& row : cases) {
    peer = row.peer;
    g_datagrams = row.datagrams;
    const NetlinkTables tables = AskForLinks();
    EXPECT_EQ(tables.error, row.error);
    EXPECT_EQ(LinksText(tables).empty(), !row.hasLinks) << row.error;
    if (g_kernelEnd >= 0) {
      CloseKernelEnd();
    }
  }
}

TEST_F(ModernInterfaceSourceTest, RowsComeWithoutNetlinkToo) {
  const bool hasFile = ::access("/proc/net/dev", R_OK) == 0;
  if (!hasFile || ::access("/sys/class/net/lo/flags", R_OK) != 0) {
    GTEST_SKIP() << "this host has no table of interfaces";
  }
  Os().socket = [](int, int, int) {
    errno = EAFNOSUPPORT;
    return -1;
  };
  for (int times = 0; times < 2; ++times) {
    const std::vector<Interface> rows = Read();
    ASSERT_FALSE(rows.empty());
    EXPECT_STREQ(rows[0].GetName(), "lo");
    EXPECT_STREQ(rows[0].type.data(), "Loopback");
    EXPECT_EQ(rows[0].address, 0U);
    EXPECT_GT(rows[0].mtu, 0);
  }
  EXPECT_EQ(Lines("by netlink. (en=97)"), 1U);
  EXPECT_EQ(Level("by netlink. (en=97)"), 20);
  // The kernel answers again, and tells nothing else of "lo".
  g_datagrams = {Answer()
                     .Link(1, 0x10049)
                     .Attribute(IFLA_IFNAME, std::string("lo\0", 3))
                     .Word(IFLA_MTU, 77)
                     .End(NLMSG_DONE, 1, 0)
                     .Bytes(),
                 Answer()
                     .Address(1, RT_SCOPE_HOST, 8)
                     .Word(IFA_LOCAL, Dotted("127.0.0.1"))
                     .End(NLMSG_DONE, 2, 0)
                     .Bytes()};
  Os().socket = KernelSocket;
  const Interface lo = Read().at(0);
  EXPECT_EQ(lo.mtu, 77);
  EXPECT_EQ(AddressText(lo.address), "127.0.0.1");
  EXPECT_EQ(AddressText(lo.netmask), "255.0.0.0");
  EXPECT_EQ(lo.broadcast, 0U);
  EXPECT_EQ(lo.addressFamily, 1U);
}

TEST_F(ModernInterfaceSourceTest, ACapturedHostIsNotAskedOfThisKernel) {
  Os().socket = [](int, int, int) -> int {
    ADD_FAILURE() << "this machine's addresses are another host's";
    return -1;
  };
  const process_tree::HostTree host;
  const std::string values = ": 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n";
  host.Write("/proc/net/dev", "lo" + values + "bare0" + values + "cut: 1 2\n");
  host.Write("/sys/class/net/lo/flags", "0x9\n");
  host.Write("/sys/class/net/lo/mtu", "65536\n");
  host.Write("/sys/class/net/bare0/mtu", "1480\n");
  for (int times = 0; times < 2; ++times) {
    const std::vector<Interface> rows = Read();
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].mtu, 65536);
    EXPECT_EQ(rows[0].ifFlags, 0x49U);
    EXPECT_EQ(rows[1].mtu, 1480);
    EXPECT_EQ(rows[2].rxPackets, 2U);
  }
  EXPECT_EQ(Lines("(/sys/class/net/bare0/flags)"), 1U);
  EXPECT_EQ(Lines("(/sys/class/net/lo/flags)"), 0U);
  EXPECT_EQ(Lines("(/proc/net/dev: cut)"), 1U);
  EXPECT_EQ(Level("(/proc/net/dev: cut)"), 20);
  EXPECT_EQ(Lines("(/proc/net/dev)"), 0U);
  std::filesystem::remove(host.Path("/proc/net/dev"));
  EXPECT_TRUE(Read().empty());
  EXPECT_TRUE(Read().empty());
  EXPECT_EQ(Lines("(/proc/net/dev)"), 1U);
}

}  // namespace
