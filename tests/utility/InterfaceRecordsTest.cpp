#include <arpa/inet.h>

#include "collect/network/InterfaceSourceLINUX.h"
#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/Golden.h"
#include "tests/support/TempFolder.h"
#include "utility/HostNameRequestManager.h"
#include "utility/SASocket.h"

namespace {

class InterfaceRecordsTest : public BuilderFixture {
 protected:
  Interface& Add(const std::string& name, const char* address, const char* mask) {
    Interface& added = m_collector.GetInterface()->emplace_back();
    name.copy(added.x_interface::name.data(), 39);
    std::string("Ethernet").copy(added.type.data(), 11);
    added.mtu = 1500;
    added.ifFlags = 0x1043;
    added.address = ::inet_addr(address);
    added.netmask = ::inet_addr(mask);
    added.broadcast = added.address | ~added.netmask;
    return added;
  }
  template <class Row>
  std::vector<Row> Build(Asker& asker) {
    const auto builder = std::is_same_v<Row, recordPI_NIND> ? &RecordBuilder::Build_NIND
                                                            : &RecordBuilder::Build_NINS;
    m_error.reset((m_builder.*builder)(&asker.event, asker.event.m_requests.front()));
    std::vector<Row> rows = asker.Rows<Row>();
    asker.NextAnswer();
    return rows;
  }

  UtlErrorPtr m_error;
};

TEST_F(InterfaceRecordsTest, ThreePassesAreTheRowsWorkedOutByHand) {
  const std::filesystem::path fixture = std::filesystem::path(QMT_TEST_DIR) / "fixtures/interfaces";
  Asker each("NIND", '4', {.realtime = 0, .calcRates = 1});
  Asker sum("NINS", '4', {.realtime = 0, .calcRates = 1});
  const struct {
    std::time_t time;
    std::uint32_t rx, tx, rxErrors, txErrors, collisions, loopback;
  } passes[] = {{1'700'000'000, 4294967000, 100, 1, 2, 3, 50},
                {1'700'000'010, 200, 400, 5, 2, 4, 70},
                {1'700'000'015, 1200, 399, 5, 9, 4, 170}};
  int number = 0;
  for (const auto& pass : passes) {
    s_now = pass.time;
    m_collector.GetInterface()->clear();
    Interface& lo = Add("lo", "127.0.0.1", "255.0.0.0");
    lo.rxPackets = lo.txPackets = pass.loopback;
    Interface& eth = Add("eth0", "192.168.7.9", "255.255.255.0");
    eth.rxPackets = pass.rx;
    eth.txPackets = pass.tx;
    eth.rxErrors = pass.rxErrors;
    eth.txErrors = pass.txErrors;
    eth.collisions = pass.collisions;
    const auto rows = Build<recordPI_NIND>(each);
    const auto sums = Build<recordPI_NINS>(sum);
    if (++number == 1) {
      EXPECT_TRUE(rows.empty() && sums.empty());
      continue;
    }
    // The figures of the sum are there before it is told.
    const std::vector<LoggedLine>& lines = ScriptedNode::Instance().lines;
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2].text, "Processed 2 Interface(s).");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_STREQ(rows[0].broadcastAddress.c_str(), "") << "the loopback has none";
    const std::string end = "." + std::to_string(number) + ".tsv";
    ExpectGolden(&rows[1], sizeof rows[1], fixture / ("NIND" + end));
    ExpectGolden(&sums.at(0), sizeof sums[0], fixture / ("NINS" + end));
  }
  EXPECT_TRUE(Build<recordPI_NIND>(each).empty());
  EXPECT_STREQ(m_error->GetMessage(),
               "RecordBuilder::BuildRates_NIND: Attempt to calculate rates for a zero second "
               "interval.");
  EXPECT_TRUE(Build<recordPI_NINS>(sum).empty());
  EXPECT_STREQ(m_error->GetMessage(),
               "RecordBuilder::BuildRates_NINS: Attempt to calculate rates for a zero second "
               "interval.");
}

TEST_F(InterfaceRecordsTest, AnInterfaceIsMatchedByItsNameAndAddress) {
  const struct {
    const char* name;
    const char* address;
    std::uint32_t received;
  } passes[][2] = {{{"eth0", "10.0.0.1", 100}, {"eth0", "10.0.0.2", 1000}},
                   // A new address on the name is a new instance.
                   {{"eth0", "10.0.0.1", 107}, {"eth0", "10.0.0.3", 5000}},
                   {{"eth0", "10.0.0.3", 5011}, {"eth1", "10.0.0.3", 9000}}};
  Asker each("NIND", '4', {.realtime = 0, .calcRates = 0});
  std::string told;
  for (const auto& pass : passes) {
    s_now += 10;
    m_collector.GetInterface()->clear();
    for (const auto& source : pass) {
      Add(source.name, source.address, "255.255.255.0").rxPackets = source.received;
    }
    for (const recordPI_NIND& row : Build<recordPI_NIND>(each)) {
      told += std::string(row.interface.c_str()) + "/" + row.ipAddress.c_str() + "=" +
              std::to_string(static_cast<std::uint32_t>(row.pktsRcvd)) + " ";
    }
  }
  EXPECT_EQ(told, "eth0/10.0.0.1=7 eth0/10.0.0.3=5000 eth0/10.0.0.3=11 eth1/10.0.0.3=9000 ");
}

TEST_F(InterfaceRecordsTest, ANetworkHasTheNameOfTheAddressUnderItsMask) {
  const TempFolder root;
  SetProductRoot(root.Path().string());
  CMBRunnableNode node;
  SASocket socket(&node, "/x.pipe");
  ASSERT_EQ(socket.Connect(1), 0);
  Os().sleep = [](unsigned) { return 0U; };
  Os().gettimeofday = [](::timeval* now) {
    *now = {5, 7};
    return 0;
  };
  const std::filesystem::path script = root.Path() / "helper";
  std::ofstream(script) << "#!/bin/sh\necho $$ >$(dirname $0)/pid; exec sleep 60\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  HostNameRequestManager manager(&node, 3, script.c_str(), "/x");
  manager.connection_init(&socket);
  m_builder.SetHostNames(&manager);
  // The answers are there before the questions.
  const Descriptor answers(::open((root.Path() / "x.pipeOut").c_str(), O_WRONLY | O_NONBLOCK));
  HostNameWire wire;
  HostNameWire::SetText(wire.query, "192.168.7.0");
  HostNameWire::SetText(wire.resultName, std::string(300, 'n'));
  wire.stampSeconds = 5;
  wire.stampMicroseconds = 7;
  ASSERT_EQ(::write(answers.Get(), &wire, sizeof wire), 3096);
  Add("eth0", "192.168.7.9", "255.255.255.0");
  Add("eth1", "10.1.2.3", "0.0.0.0");
  Asker look("NIND", '4', {.realtime = 1, .calcRates = 0});
  const auto rows = Build<recordPI_NIND>(look);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].networkName.c_str(), std::string(255, 'n'));
  EXPECT_STREQ(rows[1].networkName.c_str(), "") << "nobody is asked without a mask";
  HostNameWire question;
  const Descriptor questions(::open((root.Path() / "x.pipe").c_str(), O_RDONLY | O_NONBLOCK));
  ASSERT_EQ(::read(questions.Get(), &question, sizeof question), 3096);
  EXPECT_STREQ(question.query.data(), "192.168.7.0");
  EXPECT_EQ(::read(questions.Get(), &question, sizeof question), -1);
  pid_t helper = 0;
  ASSERT_TRUE(WaitUntil([&] { return bool(std::ifstream(root.Path() / "pid") >> helper); }));
  ASSERT_GT(helper, 0);
  ::kill(helper, SIGKILL);
  ::waitpid(helper, nullptr, 0);
  SetProductRoot("");
}

TEST_F(InterfaceRecordsTest, AllFlagsEndInAMarkAndNoAddressIsNoText) {
  Interface& source = Add(std::string(39, 'n'), "0.0.0.0", "255.0.0.0");
  source.ifFlags = 0xffffffff;
  source.broadcast = 0;
  Asker look("NIND", '4', {.realtime = 1, .calcRates = 0});
  const recordPI_NIND row = Build<recordPI_NIND>(look).at(0);
  EXPECT_STREQ(row.flags.c_str(),
               "UP,BROADCAST,DEBUG,LOOPBACK,POINTOPOINT,NOTRAILERS,RUNNING,NOARP,PROMISC>");
  EXPECT_STREQ(row.ipAddress.c_str(), "");
  EXPECT_STREQ(row.broadcastAddress.c_str(), "");
  EXPECT_STREQ(row.networkName.c_str(), "");
  EXPECT_EQ(row.interface.c_str(), std::string(39, 'n'));
}

}  // namespace
