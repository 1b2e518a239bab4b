#include "collect/network/ProtocolSourceLINUX.h"

#include "tests/collect/CollectFixture.h"

namespace {

/// Size, totals, then in and out of ICMP, TCP, UDP and IP.
std::string Dump(const Protocol& row) {
  std::ostringstream out;
  out << row.size << ' ' << row.totalIn << ' ' << row.totalOut << ' ' << row.icmpIn << ' '
      << row.icmpOut << ' ' << row.tcpIn << ' ' << row.tcpOut << ' ' << row.udpIn << ' '
      << row.udpOut << ' ' << row.ipIn << ' ' << row.ipOut;
  EXPECT_EQ(row.reserved1 + row.reserved2 + row.reserved3 + row.otherIn + row.otherOut, 0U);
  return out.str();
}

class ProtocolSourceTest : public CollectFixture {
 protected:
  static std::string Read() {
    Protocol row;
    ProtocolSourceUser source;
    const UtlErrorPtr error(source.readOne(nullptr, row));
    return error == nullptr ? Dump(row) : error->GetMessage();
  }
};

TEST_F(ProtocolSourceTest, ReadsTheCountersOfEachKernel) {
  const std::vector<std::pair<const char*, const char*>> cases{
      {"2.4.9", "64 3976819 3871250 1204 1310 3604411 3590028 371204 279912 3980122 3871204"},
      {"2.4.21", "64 8997723 8710355 2048 2101 8404471 8320044 591204 388210 9002044 8710447"},
      {"2.6.9",
       "64 40120635 38912039 4120 4471 38204471 37120448 1912044 1787120 40120447 38912044"},
      // The column that was put in before ICMP's messages out; values beyond 32 bits.
      {"6.1", "64 91205388 4200894215 912 7 5 4120447104 91204471 80447104 106236826 15479824"},
  };
  for (const auto& [kernel, row] : cases) {
    SetHostRoot(FixturePath(kernel));
    EXPECT_EQ(Read(), row) << kernel;
  }
  EXPECT_EQ(Lines("sscanf"), 0U);
}

TEST_F(ProtocolSourceTest, LeavesWhatItCannotReadAtZero) {
  const std::string ip = "Ip: a b\nIp: 1 2 3 4 5 6 7 8 90 91 11 12\n";
  const std::string icmp = "Icmp: a\nIcmp: 10 2 3 4 5 6 7 8 9 10 11 12 13 20 15\n";
  const std::string tcp = "Tcp: a\nTcp: 1 200 120000 -1 5 6 7 8 9 30 40 12\n";
  const std::string udp = "Udp: a\nUdp: 50 2 3 60\n";
  struct Case {
    std::string text;
    const char* row;
    const char* trace;
    int level;
  };
  const std::vector<Case> cases{
      {ip + icmp + tcp + udp, "64 90 120 10 20 30 40 50 60 90 91", nullptr, 0},
      {udp + tcp + icmp + ip, "64 90 120 10 20 30 40 50 60 90 91", nullptr, 0},
      {ip + icmp + tcp, "64 40 60 10 20 30 40 0 0 90 91", nullptr, 0},
      {"", "64 0 0 0 0 0 0 0 0 0 0", nullptr, 0},
      {"Udp: 4294967297 0 0 4294967295\nIcmp: 4294967295 2 3 4 5 6 7 8 9 10 11 12 13 2\n",
       "64 0 1 4294967295 2 0 0 1 4294967295 0 0", nullptr, 0},
      {ip + "Ip:\n", "64 0 0 0 0 0 0 0 0 90 91",
       "An error occurred in OS API (sscanf).(rc=0,arg1=Ip:\n, arg2=%*s %s,errno=", 20},
      {"Ip: 1 2 3 4 5 6 7 8 9\n" + udp, "64 50 60 0 0 0 0 50 60 0 0",
       "An error occurred in OS API (sscanf).(rc=1).(arg1=Ip: 1 2 3 4 5 6 7 8 9\n).(arg2=%*s %*u "
       "%*u %*u %*u %*u %*u%*u %*u %u %u).(errno=",
       20},
      {"Icmp:", "64 0 0 0 0 0 0 0 0 0 0",
       "An error occurred in OS API (sscanf).(rc=0, arg1=Icmp:,arg2=%*s %s)", 30},
      {"Icmp: 1 2 3 x\n" + udp, "64 50 60 0 0 0 0 50 60 0 0",
       "An error occurred in OS API (sscanf).(rc=1,arg1=Icmp: 1 2 3 x\n, arg2=%*s %u %*u %*u %*u "
       "%*u %*u %*u%*u %*u %*u %*u %*u %*u %u)",
       30},
      {"Tcp: \t \n", "64 0 0 0 0 0 0 0 0 0 0",
       "An error occurred in OS API (sscanf).(rc=0, arg1=Tcp: \t \n,arg2=%*s %s)", 30},
      {"Tcp: 1\n" + udp, "64 50 60 0 0 0 0 50 60 0 0",
       "An error occurred in OS API (sscanf).(rc=0,arg1=Tcp: 1\n, arg2=%*s %*u %*u %*u %*u %*u "
       "%*u%*u %*u %*u %u %u)",
       30},
      {"Udp:\n" + icmp, "64 10 20 10 20 0 0 0 0 0 0",
       "An error occurred in OS API (sscanf).(rc=0, arg1=Udp:\n,arg2=%*s %s)", 30},
      {"Udp: 50 2 3\n" + icmp, "64 10 20 10 20 0 0 0 0 0 0",
       "An error occurred in OS API (sscanf).(rc=1,arg1=Udp: 50 2 3\n, arg2=%*s %u %*u %*u %u)",
       30},
      // The first row whose word the line holds has it; a sign or a letter makes a line of names.
      {"Udp: 50 2 3 60 Icmp:\n" + tcp, "64 30 40 0 0 30 40 0 0 0 0",
       "(rc=1,arg1=Udp: 50 2 3 60 Icmp:\n, arg2=%*s %u %*u %*u %*u %*u %*u %*u%*u", 30},
      {"Tcp: -1 2\nUdp: 5x 2 3 4\nUdpLite: 1 2 3 4\nIpExt: 1 2\n", "64 0 0 0 0 0 0 0 0 0 0",
       nullptr, 0},
      // Pieces of 1023 bytes are lines of their own.
      {"Udp: 5" + std::string(5000, '0') + " 1 2 3\n" + tcp, "64 30 40 0 0 30 40 0 0 0 0",
       "(sscanf).(rc=1,arg1=Udp: 5000", 30},
      {std::string("Udp: 5\0 2 3 4\n\xff\n\0\n", 19) + tcp, "64 30 40 0 0 30 40 0 0 0 0",
       "(sscanf).(rc=1,arg1=Udp: 5, arg2=", 30},
  };
  const process_tree::HostTree host;
  for (const Case& test : cases) {
    ScriptedNode::Instance().lines.clear();
    host.Write("/proc/net/snmp", test.text);
    EXPECT_EQ(Read(), test.row) << test.text.substr(0, 200);
    const auto traces = ScriptedNode::Instance().LinesWith("sscanf");
    ASSERT_EQ(traces.size(), test.trace == nullptr ? 0U : 1U) << test.text.substr(0, 200);
    if (test.trace != nullptr) {
      EXPECT_NE(traces[0].text.find(test.trace), std::string::npos) << traces[0].text;
      EXPECT_EQ(traces[0].level, test.level);
    }
  }
}

TEST_F(ProtocolSourceTest, FailsOnlyWithoutTheFile) {
  const process_tree::HostTree host;
  EXPECT_EQ(Read(),
            "ProtocolSourceUser::ProtocolSourceUser(fopen(/proc/net/snmp) failed! errno: 2");
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/proc/net/snmp, arg2=r, arg3="),
            1U);
  host.Write("/proc/net/snmp/is-a-folder", "");
  EXPECT_EQ(Read(),
            "ProtocolSourceUser::ProtocolSourceUser(fopen(/proc/net/snmp) failed! errno: 22");
}

}  // namespace
