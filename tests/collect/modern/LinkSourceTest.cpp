#include "collect/modern/network/LinkSource.h"

#include <arpa/inet.h>
#include <net/if.h>

#include "tests/collect/CollectFixture.h"
#include "tests/collect/modern/NetlinkAnswer.h"

namespace {

/// The rows but their counters, one a line; "-" for what is not told.
std::string LinkRowsText(const std::vector<LinkFigures>& links) {
  std::ostringstream out;
  const auto text = [](const std::string& value) { return value.empty() ? "-" : value; };
  const auto number = [](double value) {
    return IsTold(value) ? std::to_string(static_cast<long>(value)) : "-";
  };
  for (const LinkFigures& link : links) {
    out << link.name << ' ' << text(link.ipv4) << ' ' << text(link.ipv6) << ' '
        << text(link.hardwareAddress) << ' ' << text(link.state) << ' ' << text(link.master) << ' '
        << text(link.duplex) << ' ' << number(link.speed) << ' ' << number(link.mtu) << ' '
        << number(link.carrierChanges) << '\n';
  }
  return out.str();
}

/// The counters in the order of the kernel's numbers, for as many as a row has; -1 for not told.
std::vector<double> LinkNumbers(const LinkFigures& link) {
  std::vector<double> counters{link.packetsIn,   link.packetsOut,       link.bytesIn,
                               link.bytesOut,    link.errorsIn,         link.errorsOut,
                               link.dropsIn,     link.dropsOut,         link.multicastIn,
                               link.collisions,  link.lengthErrorsIn,   link.overrunsIn,
                               link.crcErrorsIn, link.frameErrorsIn,    link.fifoErrorsIn,
                               link.missedIn,    link.carrierErrorsOut, link.fifoErrorsOut};
  for (double& counter : counters) {
    counter = IsTold(counter) ? counter : -1;
  }
  return counters;
}

/// Numbers from `first` on, as the kernel's statistics.
std::string LinkStatistics(std::size_t count, std::uint64_t first) {
  std::vector<std::uint64_t> numbers(count);
  for (std::uint64_t& number : numbers) {
    number = first++;
  }
  return {reinterpret_cast<const char*>(numbers.data()), count * sizeof(std::uint64_t)};
}

class LinkSourceTest : public CollectFixture {
 protected:
  void TearDown() override {
    CloseKernelEnd();
    CollectFixture::TearDown();
  }
  static std::vector<LinkFigures> Read() {
    std::vector<LinkFigures> links(3);
    ReadLinks(links);
    return links;
  }
};

TEST_F(LinkSourceTest, TakesWhatTheKernelTells) {
  Answer links;
  links.Link(900, IFF_UP)
      .Attribute(IFLA_IFNAME, "qmt-port")
      .Attribute(IFLA_ADDRESS, std::string("\2\xfc\0\0\0\xa1", 6))
      .Attribute(IFLA_OPERSTATE, "\6")
      .Word(IFLA_MTU, 9000)
      .Word(IFLA_MASTER, 901)
      .Word(IFLA_CARRIER_CHANGES, 3)
      .Attribute(IFLA_STATS64, LinkStatistics(25, std::uint64_t{1} << 40U));
  links.Link(901, IFF_UP)
      .Attribute(IFLA_IFNAME, "qmt-bond")
      .Attribute(IFLA_OPERSTATE, "\7")
      .Attribute(IFLA_ADDRESS, std::string(6, '\0'))
      .Attribute(IFLA_STATS64, LinkStatistics(3, 7) + "part");
  links.Link(899, 0)
      .Attribute(IFLA_IFNAME, "qmt-down")
      .Attribute(IFLA_OPERSTATE, "\2")
      .Word(IFLA_MASTER, 17);
  Answer addresses;
  addresses.Address(901, RT_SCOPE_UNIVERSE, 24).Word(IFA_LOCAL, ::inet_addr("192.0.2.7"));
  g_datagrams = {links.Bytes(), Answer().End(NLMSG_DONE, 1, 0).Bytes(), addresses.Bytes(),
                 Answer().End(NLMSG_DONE, 2, 0).Bytes()};
  Os().socket = KernelSocket;
  const std::vector<LinkFigures> rows = Read();
  ASSERT_EQ(LinkRowsText(rows),
            "qmt-down - - - down - - - - -\n"
            "qmt-port - - 02:fc:00:00:00:a1 up qmt-bond - - 9000 3\n"
            "qmt-bond 192.0.2.7 - - - - - - - -\n");
  // Of the numbers from 2^40 on, 16, 19 and 20 are those of what a sender gave up.
  std::vector<double> expected;
  for (const double place : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 17, 18}) {
    expected.push_back(1099511627776.0 + place);
  }
  EXPECT_EQ(LinkNumbers(rows[1]), expected);
  expected.assign(expected.size(), -1);
  EXPECT_EQ(LinkNumbers(rows[0]), expected);
  expected[0] = 7;
  expected[1] = 8;
  expected[2] = 9;
  EXPECT_EQ(LinkNumbers(rows[2]), expected);
}

TEST_F(LinkSourceTest, LinksAreReadFromTheirFilesIfEachAnswerIsInterrupted) {
  const std::string answer = Answer().Link(900, 0).Attribute(IFLA_IFNAME, "qmt-port").Bytes() +
                             Answer().End(NLMSG_DONE, 1, 0).Bytes();
  constexpr std::uint16_t kCut = NLM_F_DUMP_INTR;
  for (const auto& flags : std::vector<std::vector<std::uint16_t>>{
           {kCut, kCut, kCut, 0}, {kCut, kCut, 0, 0}, {0, kCut, kCut, kCut}}) {
    g_datagrams.clear();
    for (std::size_t asked = 0; asked < flags.size(); ++asked) {
      g_datagrams.push_back(
          Renumbered(answer, static_cast<std::uint32_t>(asked + 1), flags[asked]));
    }
    Os().socket = KernelSocket;
    const std::vector<LinkFigures> rows = Read();
    CloseKernelEnd();
    const bool isTold = std::ranges::find(rows, "qmt-port", &LinkFigures::name) != rows.end();
    EXPECT_EQ(isTold, flags[2] != kCut || flags[0] == 0);
  }
}

TEST_F(LinkSourceTest, ACapturedHostIsReadFromItsFiles) {
  Os().socket = [](int, int, int) -> int {
    ADD_FAILURE() << "this machine's links are another host's";
    return -1;
  };
  const process_tree::HostTree host;
  EXPECT_TRUE(Read().empty());
  EXPECT_EQ(Lines("(/sys/class/net)"), 1U);
  host.WriteAll("/sys/class/net",
                "bonding_masters=bond0|eth10/ifindex=10|eth10/address=02:fc:00:00:00:01|"
                "eth10/operstate=up|eth10/carrier_changes=2|eth10/mtu=1500|eth10/speed=25000|"
                "eth10/duplex=full|eth10/statistics/rx_bytes=123456789012345|"
                "eth10/statistics/rx_missed_errors=4|eth10/statistics/tx_carrier_errors=many|"
                "eth10/statistics/tx_errors=-1|lo/ifindex=1|lo/address=00:00:00:00:00:00|"
                "lo/operstate=unknown|lo/mtu=65536|bond0/ifindex=3|bond0/address=\x1b[2J|"
                "bond0/mtu=-3|bond0/speed=-1|bond0/duplex=unknown");
  host.Write("/sys/class/net/bond0/operstate", std::string(500, 'u'));
  host.Link("/sys/class/net/eth10/master", "../../devices/virtual/net/bond0");
  host.Write("/proc/net/if_inet6",
             "fe8000000000000000fc00fffe000001 0a 40 20 80    eth10\n"
             "20010db8000000000000000000000009 0a 40 00 01    eth10\n"
             "20010db8000000000000000000000001 0a 40 00 80    eth10\n"
             "20010db8000000000000000000000002 0a 40 00 80    eth10\n"
             "00000000000000000000000000000001 01 80 10 80       lo\n"
             "00000000000000000000000000000002 07 80 00 80    gone0\n"
             "20010db8 03 40 00 80 bond0\n");
  const std::vector<LinkFigures> rows = Read();
  ASSERT_EQ(LinkRowsText(rows),
            "lo - ::1 - unknown - - - 65536 -\n"
            "bond0 - - - - - - - - -\n"
            "eth10 - 2001:db8::1 02:fc:00:00:00:01 up bond0 full 25000 1500 2\n");
  std::vector<double> expected(18, -1);
  EXPECT_EQ(LinkNumbers(rows[0]), expected);
  expected[2] = 123456789012345;
  expected[15] = 4;
  EXPECT_EQ(LinkNumbers(rows[2]), expected);
}

TEST_F(LinkSourceTest, BothWaysTellTheSameOfThisHost) {
  std::vector<LinkFigures> asked = Read();
  Os().socket = [](int, int, int) {
    errno = EAFNOSUPPORT;
    return -1;
  };
  const std::vector<LinkFigures> read = Read();
  if (asked.empty() || read.empty()) {
    GTEST_SKIP() << "this host does not tell its interfaces";
  }
  ASSERT_EQ(asked.size(), read.size());
  for (std::size_t row = 0; row < asked.size(); ++row) {
    const std::vector<double> before = LinkNumbers(asked[row]);
    const std::vector<double> after = LinkNumbers(read[row]);
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_GE(before[i], 0) << asked[row].name << i;
      EXPECT_GE(after[i], before[i]) << asked[row].name << i;
    }
    asked[row].ipv4.clear();
  }
  EXPECT_EQ(LinkRowsText(asked), LinkRowsText(read));
}

TEST(Inet6Line, IsTakenWholeOrNotAtAll) {
  const struct {
    const char* line;
    const char* expected;
  } cases[] = {{"00000000000000000000000000000001 01 80 10 80       lo", "lo ::1 2"},
               {"20010db8000000000000000000000001 0a 40 00 80 e", "e 2001:db8::1 0"},
               {"20010db8000000000000000000000001 0a 40 00 20 e", "e 2001:db8::1 1"},
               {"fe800000000000000000000000000001 0a 40 20 40 e", "e fe80::1 3"},
               {"20010db800000000000000000000001 0a 40 00 80 e", ""},
               {"20010db80000000000000000000000g1 0a 40 00 80 e", ""},
               {"20010db8000000000000000000000001 0a 40 x 80 e", ""},
               {"20010db8000000000000000000000001 0a 40 00 x e", ""},
               {"20010db8000000000000000000000001 0a 40 00 80", ""},
               {"", ""}};
  for (const auto& [line, expected] : cases) {
    Inet6Address address;
    const std::string told = ParseInet6Line(line, address)
                                 ? std::string(address.interface) + " " + address.address + " " +
                                       std::to_string(address.rank)
                                 : "";
    EXPECT_EQ(told, expected) << line;
  }
}

}  // namespace
