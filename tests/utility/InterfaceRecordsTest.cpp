#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "collect/Collector.h"
#include "collect/InterfaceSourceLINUX.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ScriptedNode.h"

namespace {

std::time_t g_now = 0;

class InterfaceRecordsTest : public testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    Os().time = [](std::time_t*) { return g_now; };
  }
  void TearDown() override {
    Os() = m_calls;
    g_msgLogLevel = 0;
  }
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

  const OsCalls m_calls = Os();
  Collector m_collector;
  RecordBuilder m_builder{nullptr, &m_collector, "pipe"};
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
    g_now = pass.time;
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
