#include <netinet/in.h>

#include <nlohmann/json.hpp>

#include "tests/local/TestClient.h"
#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

/// Sends itself packets, so that the host's counters move.
void SendPackets(int count) {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const timeval limit{10, 0};
  ASSERT_EQ(0, ::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit));
  sockaddr_in address{};
  socklen_t size = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* any = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(0, ::bind(socket.Get(), any, sizeof address));
  ASSERT_EQ(0, ::getsockname(socket.Get(), any, &size));
  char letter = 'x';
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(1, ::sendto(socket.Get(), &letter, 1, 0, any, size));
    ASSERT_EQ(1, ::recv(socket.Get(), &letter, 1, 0));
  }
}

/// What the host's files say at one moment.
struct Reading {
  std::map<std::string, std::uint64_t> counters;
  std::vector<float> loads;
};

Reading ReadHost() {
  Reading reading;
  std::string line;
  std::string word;
  for (std::ifstream vmstat("/proc/vmstat"); std::getline(vmstat, line);) {
    std::istringstream(line) >> word >> reading.counters[line.substr(0, line.find(' '))];
  }
  for (std::ifstream snmp("/proc/net/snmp"); std::getline(snmp, line);) {
    std::istringstream words(line);
    words >> word;
    std::int64_t value = 0;
    for (int place = 1; words >> value; ++place) {
      reading.counters[word + std::to_string(place)] = static_cast<std::uint64_t>(value);
    }
  }
  std::ifstream loadavg("/proc/loadavg");
  for (int i = 0; i < 3; ++i) {
    loadavg >> word;
    reading.loads.push_back(std::stof(word));
  }
  return reading;
}

/// A scheduled row, and what the host's files said before and after its sample was taken.
struct Row {
  json fields;
  Reading before;
  Reading after;
};

/// Waits for the row that follows the one of `lastTime`. `before` is a reading from before its
/// sample.
Row WaitForRow(TestClient& client, std::int64_t lastTime, Reading before) {
  Row row;
  row.before = std::move(before);
  Reading older = row.before;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < end) {
    Reading newer = ReadHost();
    const json rows = json::parse(client.AskForText(R"({"op":"last","records":["PI"]})"))
                          .at("results")
                          .at(0)
                          .at("rows");
    if (!rows.empty() && rows.at(0).at("Record Time").get<std::int64_t>() != lastTime) {
      row.fields = rows.at(0);
      row.after = ReadHost();
      return row;
    }
    // A batch may answer a client between its sample and its row, so the newest reading is not sure
    // to be older than the sample.
    row.before = std::exchange(older, std::move(newer));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ADD_FAILURE() << "no row came";
  return row;
}

/// The fields of a row and the counters that each is the sum of. A counter of /proc/net/snmp is
/// named by its line and its place there.
const std::map<std::string, std::vector<std::string>> kSources{
    {"Page-In Ops", {"pgpgin"}},
    {"Pages In", {"pgpgin"}},
    {"Page-Out Ops", {"pgpgout"}},
    {"Pages Out", {"pgpgout"}},
    {"Total Page Ops", {"pgpgin", "pgpgout"}},
    {"Swap-In Ops", {"pswpin"}},
    {"Swap-Out Ops", {"pswpout"}},
    {"Total Swaps", {"pswpin", "pswpout"}},
    {"IP Pkts In", {"Ip:9"}},
    {"IP Pkts Out", {"Ip:10"}},
    {"ICMP Pkts In", {"Icmp:1"}},
    {"ICMP Pkts Out", {"Icmp:14"}},
    {"TCP Pkts In", {"Tcp:10"}},
    {"TCP Pkts Out", {"Tcp:11"}},
    {"UDP Pkts In", {"Udp:1"}},
    {"UDP Pkts Out", {"Udp:4"}},
    {"Total Pkts In", {"Icmp:1", "Tcp:10", "Udp:1"}},
    {"Total Pkts Out", {"Icmp:14", "Tcp:11", "Udp:4"}},
    {"Total Pkts", {"Icmp:1", "Tcp:10", "Udp:1", "Icmp:14", "Tcp:11", "Udp:4"}},
};

/// How far the counters went from one reading to a later one; also where they passed 32 bits.
std::uint32_t Moved(const std::vector<std::string>& counters, const Reading& from,
                    const Reading& to) {
  std::uint64_t moved = 0;
  for (const std::string& counter : counters) {
    moved += to.counters.at(counter) - from.counters.at(counter);
  }
  return static_cast<std::uint32_t>(moved);
}

/// Each difference lies between those of the readings around it: it is exact where a counter stood
/// still around both samples.
void ExpectDifferences(const Row& previous, const Row& row) {
  const double seconds = row.fields.at("Interval").get<double>();
  ASSERT_EQ(row.fields.at("Record Time").get<std::int64_t>() -
                previous.fields.at("Record Time").get<std::int64_t>(),
            row.fields.at("Interval").get<std::int64_t>())
      << "the row is not the next one";
  for (const auto& [label, counters] : kSources) {
    const auto difference = row.fields.at(label).get<std::uint32_t>();
    EXPECT_GE(difference, Moved(counters, previous.after, row.before)) << label;
    EXPECT_LE(difference, Moved(counters, previous.before, row.after)) << label;
  }
  EXPECT_FLOAT_EQ(row.fields.at("Page-Out Ops/sec").get<float>(),
                  static_cast<float>(row.fields.at("Page-Out Ops").get<double>() / seconds));
  const char* loads[] = {"1-Minute Run Queue Avg", "5-Minute Run Queue Avg",
                         "15-Minute Run Queue Avg"};
  for (std::size_t i = 0; i < 3; ++i) {
    const auto load = row.fields.at(loads[i]).get<float>();
    EXPECT_GE(load, std::min(row.before.loads[i], row.after.loads[i])) << loads[i];
    EXPECT_LE(load, std::max(row.before.loads[i], row.after.loads[i])) << loads[i];
  }
}

TEST(LiveTest, TwoScheduledRowsAgreeWithTheHostsOwnFiles) {
  const Reading start = ReadHost();
  const ProductRoot root("[Schedule]\nPI=2\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  TestClient client(root.AgentFolder() / "run/control.sock");
  Row previous = WaitForRow(client, 0, start);
  for (int packets : {200, 300}) {
    ASSERT_FALSE(previous.fields.is_null()) << daemon.Errors();
    SendPackets(packets);
    Row row =
        WaitForRow(client, previous.fields.at("Record Time").get<std::int64_t>(), previous.before);
    ASSERT_FALSE(row.fields.is_null()) << daemon.Errors();
    ExpectDifferences(previous, row);
    EXPECT_GE(row.fields.at("UDP Pkts In").get<int>(), packets);
    EXPECT_GE(row.fields.at("Total Pkts Out").get<int>(), packets);
    previous = std::move(row);
  }
}

}  // namespace
