#include "collect/network/InterfaceSourceLINUX.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <tuple>

#include "tests/collect/CollectFixture.h"

namespace {

constexpr std::array<unsigned long, 6> kRequests{SIOCGIFADDR, SIOCGIFNETMASK, SIOCGIFBRDADDR,
                                                 SIOCGIFMTU,  SIOCGIFFLAGS,   SIOCGIFMETRIC};

/// The kernel of the tests: which of the six calls fails, the flags, the names it was asked for.
struct Kernel {
  std::size_t failing = kRequests.size();
  int flags = 0x9043;
  std::string asked;
};
Kernel g_kernel;

int AnswerIoctl(int, unsigned long request, ifreq* answer) {
  const auto index = static_cast<std::size_t>(
      std::find(kRequests.begin(), kRequests.end(), request) - kRequests.begin());
  if (request == SIOCGIFADDR) {
    EXPECT_EQ(answer->ifr_addr.sa_family, AF_INET);
    g_kernel.asked.append(answer->ifr_name).append(" ");
  }
  if (index == g_kernel.failing) {
    errno = 90 + static_cast<int>(index);
    return -1;
  }
  constexpr std::array kAddresses{0x0a010203U, 0xffffff00U, 0x0a0102ffU};
  if (index < kAddresses.size()) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(kAddresses[index]);
    std::memcpy(&answer->ifr_addr, &address, sizeof(address));
  } else if (request == SIOCGIFFLAGS) {
    answer->ifr_flags = static_cast<short>(g_kernel.flags);
  } else {
    answer->ifr_mtu = request == SIOCGIFMTU ? 1500 : 4;
  }
  return 0;
}

std::string CounterText(const Interface& row) {
  std::ostringstream out;
  out << row.GetName() << ' ' << row.rxPackets << ' ' << row.rxErrors << ' ' << row.txPackets << ' '
      << row.txErrors << ' ' << row.collisions << '\n';
  return out.str();
}

/// What the six calls gave, in their order, in hexadecimal.
std::string AnswerText(const Interface& row) {
  std::ostringstream out;
  out << std::hex << row.addressFamily << '/' << ntohl(row.address) << ' ' << ntohl(row.netmask)
      << ' ' << ntohl(row.broadcast) << ' ' << row.mtu << ' ' << row.ifFlags << ' ' << row.metric;
  return out.str();
}

class InterfaceSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    g_kernel = {};
    m_realIoctl = Os().ioctl;
    Os().ioctl = AnswerIoctl;
  }
  static std::vector<Interface> Read() { return ReadAll<InterfaceSourceUser, Interface>(); }
  static std::string Counters() {
    std::string text;
    for (const Interface& row : Read()) {
      text += CounterText(row);
    }
    return text;
  }
  static std::string Failure() { return FailureOf<InterfaceSourceUser, Interface>(); }

  decltype(OsCalls::ioctl) m_realIoctl = nullptr;
};

TEST_F(InterfaceSourceTest, ReadsTheInterfacesOfEachKernel) {
  const std::vector<std::tuple<const char*, int, const char*>> cases{
      {"2.4.9", 1, "lo 812 0 812 0 0\neth0 4012342 17 3977104 3 2041\nsit0 0 0 0 0 0\n"},
      {"2.4.21", 2,
       "lo 5120 0 5120 0 0\neth0 9120047 4 8870013 1 310\neth1 0 0 0 0 0\nsit0 7 0 9 1 0\n"},
      {"2.6.9", 3, "lo 20441 0 20441 0 0\neth0 41204478 12 39912044 5 88\nppp0 1204 0 1102 0 0\n"},
      {"6.1", 3,
       "lo 812047 0 812047 0 0\nenp3s0 1 31 204471044 2 0\nwlp2s0 0 0 0 0 0\n"
       "br-5c1f0e 447 0 912 0 0\n"},
  };
  for (const auto& [kernel, variant, counters] : cases) {
    SetHostRoot(FixturePath(kernel));
    g_kernelVariant = variant;
    EXPECT_EQ(Counters(), counters) << kernel;
  }
  EXPECT_EQ(Lines("(sscanf)") + Lines("ioctl"), 0U);
}

TEST_F(InterfaceSourceTest, LeavesOutNumberedTunnelsOfTheNewestKernelsOnly) {
  const process_tree::HostTree host;
  const std::string values = ":1 2 3 4 5 6 7 8 9 10 11 12 13 14\n";
  host.Write("/proc/net/dev", "no colon here\nsit0" + values + "sit" + values + "sit01" + values +
                                  "sit12" + values + "xsit0" + values);
  for (const int variant : {1, 2, 3}) {
    g_kernelVariant = variant;
    std::string names;
    for (const Interface& row : Read()) {
      names.append(row.GetName()).append(" ");
    }
    EXPECT_EQ(names, variant == 3 ? "sit sit01 xsit0 " : "sit0 sit sit01 sit12 xsit0 ");
  }
}

TEST_F(InterfaceSourceTest, TakesWhatALineHolds) {
  struct Case {
    std::string line;
    std::string counters;
    const char* trace;
  };
  const std::string unread = "(sscanf). (rc=";
  const std::vector<Case> cases{
      {"  eth0:11 12 13 0 0 0 0 0 21 22 23 0 0 24 0 0\n", "eth0 12 13 22 23 24\n", nullptr},
      {"eth0: 11 12 13 0 0 0 0 0 21 22 23 0 0 24", "eth0 12 13 22 23 24\n", nullptr},
      {"e:0 4294967303 -1 0 0 0 0 0 0 99999999999999999999 1 0 0 2\n",
       "e 7 4294967295 4294967295 1 2\n", nullptr},
      {"eth0: 11 12 13 0 0 0 0 0 21 22\n", "eth0 12 13 22 0 0\n", "(rc=3, arg1= 11 12 13 0"},
      {"eth0: 11 12 x\n", "eth0 12 0 0 0 0\n", "(rc=1, arg1= 11 12 x"},
      {"eth0:1: 11 12 13 0 0 0 0 0 21 22 23 0 0 24\n", "eth0 0 0 0 0 0\n", "(rc=0, arg1=1: 11"},
      {":\n", " 0 0 0 0 0\n", "(rc=0, arg1="},
      {"a-name-of-fifteen-letters-and-many-more-yet:0 1 2 0 0 0 0 0 0 3 4 0 0 5\n",
       "a-name-of-fifteen-letters-and-many-more 1 2 3 4 5\n",
       "Interface name is over 16 bytes. (a-name-of-fifteen-letters-and-many-more)"},
      // In pieces of 1023 bytes, of which the last alone has a colon.
      {std::string(5000, '7') + "\n" + "eth1:0 1 2 0 0 0 0 0 0 3 4 0 0 5\n", "eth1 1 2 3 4 5\n",
       nullptr},
      {"eth1:" + std::string(5000, '7') + " 1 2\n", "eth1 0 0 0 0 0\n", "(rc=0, arg1=777"},
      {std::string("eth1:\0 1 2 3\n\xff\x01\n", 16), "eth1 0 0 0 0 0\n", "(rc=0, arg1=,"},
      {"", "", nullptr},
  };
  for (const Case& test : cases) {
    ScriptedNode::Instance().lines.clear();
    const process_tree::HostTree host;
    host.Write("/proc/net/dev", test.line);
    EXPECT_EQ(Counters(), test.counters) << test.line.substr(0, 40);
    if (test.trace != nullptr) {
      EXPECT_EQ(Lines(test.trace), 1U) << test.trace;
    } else {
      EXPECT_EQ(Lines(unread), 0U) << test.line.substr(0, 40);
    }
  }
}

TEST_F(InterfaceSourceTest, CutsTheNameThatTheKernelIsAsked) {
  const process_tree::HostTree host;
  host.Write("/proc/net/dev", "fifteen-letters:0\nsixteen--letters:0\ntwenty-letters-a-row:0\n");
  EXPECT_STREQ(Read().at(2).GetName(), "twenty-letters-a-row");
  EXPECT_EQ(g_kernel.asked, "fifteen-letters sixteen--letter twenty-letters- ");
  const auto warnings = ScriptedNode::Instance().LinesWith("Interface name is over 16 bytes. (");
  ASSERT_EQ(warnings.size(), 2U);
  EXPECT_EQ(warnings[0].level, 20);
  EXPECT_EQ(warnings[0].kind, kWarning);
}

TEST_F(InterfaceSourceTest, LeavesTheFieldOfAFailedCallAtZero) {
  const process_tree::HostTree host;
  host.Write("/proc/net/dev", "  eth0:0 1 2 0 0 0 0 0 0 3 4 0 0 5\n");
  EXPECT_EQ(AnswerText(Read().at(0)), "1/a010203 ffffff00 a0102ff 5dc 9043 4");
  EXPECT_EQ(Lines("ioctl"), 0U);

  const std::vector<std::tuple<const char*, const char*, const char*>> cases{
      {"0/0 ffffff00 a0102ff 5dc 9043 4", "SIOCGIFADDR",
       "ADDR=90, NETMASK=0, BADDR=0, MTU=0, FLAGS=0, METRIC=0"},
      {"1/a010203 0 a0102ff 5dc 9043 4", "SIOCGIFNETMASK",
       "ADDR=0, NETMASK=91, BADDR=0, MTU=0, FLAGS=0, METRIC=0"},
      {"1/a010203 ffffff00 0 5dc 9043 4", "SIOCGIFBRDADDR",
       "ADDR=0, NETMASK=0, BADDR=92, MTU=0, FLAGS=0, METRIC=0"},
      {"1/a010203 ffffff00 a0102ff 0 9043 4", "SIOCGIFMTU",
       "ADDR=0, NETMASK=0, BADDR=0, MTU=93, FLAGS=0, METRIC=0"},
      {"1/a010203 ffffff00 a0102ff 5dc 0 4", "SIOCGIFFLAGS",
       "ADDR=0, NETMASK=0, BADDR=0, MTU=0, FLAGS=94, METRIC=0"},
      {"1/a010203 ffffff00 a0102ff 5dc 9043 0", "SIOCGIFMETRIC",
       "ADDR=0, NETMASK=0, BADDR=0, MTU=0, FLAGS=0, METRIC=95"},
  };
  for (g_kernel.failing = 0; g_kernel.failing < cases.size(); ++g_kernel.failing) {
    ScriptedNode::Instance().lines.clear();
    const auto& [answers, call, errors] = cases[g_kernel.failing];
    const Interface row = Read().at(0);
    EXPECT_EQ(AnswerText(row), answers);
    EXPECT_EQ(CounterText(row), "eth0 1 2 3 4 5\n");
    const auto lines = ScriptedNode::Instance().LinesWith("errno(");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, std::string("It failed in the collection of eth0 interface "
                                         "information because of function "
                                         "InterfaceSourceUser::Get_IFace_Info. errno(") +
                                 errors + ")");
    EXPECT_EQ(lines[0].level, 20);
    EXPECT_EQ(Lines(std::string("An error occurred in an OS API (ioctl(") + call +
                    ")). (en=" + std::to_string(90 + g_kernel.failing)),
              1U);
  }
}

TEST_F(InterfaceSourceTest, TellsTheTypeByTheFlags) {
  SetHostRoot(FixturePath("6.1"));
  const std::vector<std::pair<int, const char*>> cases{
      {0x49, "Loopback"}, {0x99, "Point-Point"}, {0x9043, "Ethernet"}, {0, "Ethernet"}};
  for (const auto& [flags, type] : cases) {
    g_kernel.flags = flags;
    const Interface row = Read().at(0);
    EXPECT_STREQ(row.type.data(), type);
    EXPECT_EQ(row.size, 128U);
  }
}

TEST_F(InterfaceSourceTest, FailsOnlyWithoutFileOrSocket) {
  const process_tree::HostTree host;
  EXPECT_EQ(Failure(), "Unable to open /proc/net/dev");
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/proc/net/dev, arg2=r)"), 1U);
  host.Write("/proc/net/dev/is-a-folder", "");
  EXPECT_EQ(Failure(), "Unable to open /proc/net/dev");

  SetHostRoot(FixturePath("6.1"));
  Os().socket = [](int, int, int) {
    errno = EMFILE;
    return -1;
  };
  EXPECT_EQ(Failure(), "Unable to create socket");
  EXPECT_EQ(Lines("The error occurred by OS API(socket). (en=24, arg1=AF_INET, arg2=SOCK_STREAM, "
                  "arg3=IPPROTO_TCP)"),
            1U);
  EXPECT_EQ(Lines("OS API(close)"), 0U);

  Os().socket = [](int, int, int) { return 1 << 30; };
  EXPECT_EQ(Read().size(), 4U);
  EXPECT_EQ(Lines("The error occurred by OS API(close). (en=9, arg1=1073741824)"), 1U);
}

std::uint32_t AddressIn(const ::sockaddr* address) {
  ::sockaddr_in internet{};
  if (address != nullptr) {
    std::memcpy(&internet, address, sizeof internet);
  }
  return internet.sin_addr.s_addr;
}

TEST_F(InterfaceSourceTest, ReadsThisHost) {
  Os().ioctl = m_realIoctl;
  const std::vector<Interface> rows = Read();
  EXPECT_FALSE(rows.empty());
  for (const Interface& row : rows) {
    const std::string name = row.GetName();
    std::ifstream file("/sys/class/net/" + name + "/mtu");
    if (int mtu = 0; file >> mtu) {
      EXPECT_EQ(row.mtu, mtu) << name;
      EXPECT_EQ(std::string(row.type.data()) == "Loopback", name == "lo");
    }
  }
  std::set<std::string> told;
  ::ifaddrs* first = nullptr;
  ASSERT_EQ(::getifaddrs(&first), 0);
  for (const ::ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    const auto row = std::ranges::find_if(rows, [&](const Interface& candidate) {
      return candidate.GetName() == std::string_view(each->ifa_name) &&
             candidate.address == AddressIn(each->ifa_addr);
    });
    // An interface has further addresses, which are not told; the first of each is.
    if (row != rows.end()) {
      told.insert(row->GetName());
      EXPECT_EQ(row->netmask, AddressIn(each->ifa_netmask)) << each->ifa_name;
      if ((each->ifa_flags & IFF_BROADCAST) != 0) {
        EXPECT_EQ(row->broadcast, AddressIn(each->ifa_broadaddr)) << each->ifa_name;
      }
    }
  }
  ::freeifaddrs(first);
  const auto hasAddress = [](const Interface& row) { return row.addressFamily != 0; };
  EXPECT_EQ(static_cast<std::ptrdiff_t>(told.size()), std::ranges::count_if(rows, hasAddress));
}

}  // namespace
