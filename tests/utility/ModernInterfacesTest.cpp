#include <arpa/inet.h>

#include "collect/modern/network/InterfaceSource.h"
#include "support/HostPaths.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/Golden.h"

namespace {

class ModernInterfacesTest : public BuilderFixture {
 protected:
  void SetUp() override { g_hostProfile = HostProfile::kModern; }
  void TearDown() override { SetHostRoot(""); }
  void Collect(const char* tree) {
    SetHostRoot((m_fixture / tree).string());
    ModernInterfaceSource source;
    const UtlErrorPtr error(source.readAll(nullptr, *m_collector.GetInterface()));
    ASSERT_EQ(error, nullptr);
  }
  Interface& Add(const char* name, std::uint64_t received, const char* address) {
    Interface& added = m_collector.GetInterface()->emplace_back();
    std::string(name).copy(added.x_interface::name.data(), 39);
    added.counters.rxPackets = received;
    added.rxPackets = static_cast<std::uint32_t>(received);
    added.address = ::inet_addr(address);
    return added;
  }
  template <class Row>
  std::vector<Row> Build(Asker& asker) {
    const auto builder = std::is_same_v<Row, recordPI_NIND> ? &RecordBuilder::Build_NIND
                                                            : &RecordBuilder::Build_NINS;
    return BuildBy<Row>(builder, asker);
  }

  const std::filesystem::path m_fixture =
      std::filesystem::path(QMT_TEST_DIR) / "fixtures/interfaces/modern";
  Asker m_each{"NIND", '4', {.realtime = 0, .calcRates = 1}};
  Asker m_sum{"NINS", '4', {.realtime = 0, .calcRates = 1}};
};

TEST_F(ModernInterfacesTest, TwoLooksAtAHostAreTheRowsWorkedOutByHand) {
  for (const char* tree : {"1", "2"}) {
    Collect(tree);
    Interface& wired = m_collector.GetInterface()->at(1);
    wired.address = ::inet_addr("192.0.2.2");
    wired.netmask = ::inet_addr("255.255.254.0");
    wired.broadcast = ::inet_addr("192.0.3.255");
    const auto rows = Build<recordPI_NIND>(m_each);
    const auto sums = Build<recordPI_NINS>(m_sum);
    s_now += 10;
    if (*tree == '1') {
      continue;
    }
    ASSERT_EQ(rows.size(), 4U);
    ExpectGolden(&rows[1], sizeof rows[1], m_fixture / "NIND.tsv");
    ExpectGolden(&sums.at(0), sizeof sums[0], m_fixture / "NINS.tsv");
    std::string told;
    for (const recordPI_NIND& row : rows) {
      told += row.interface.c_str() + std::string(" ") + row.type.c_str() + " " +
              row.flags.c_str() + " [" + row.ipAddress.c_str() + row.broadcastAddress.c_str() +
              row.networkMask.c_str() + "] " +
              std::to_string(static_cast<std::uint32_t>(row.pktsRcvd)) + "\n";
    }
    EXPECT_EQ(told,
              "lo Loopback LOOPBACK,UP,LOWER_UP [] 10\n"
              "enp175s0f0np0 Ethernet BROADCAST,MULTICAST,UP,LOWER_UP "
              "[192.0.2.2192.0.3.255255.255.254.0] 1000\n"
              "sit0 Ethernet NOARP [] 0\n"
              "vethffa1b2d Ethernet NO-CARRIER,BROADCAST,MULTICAST,ALLMULTI,PROMISC,UP [] 100\n");
  }
}

TEST_F(ModernInterfacesTest, AnInterfaceGoesOnWithAnotherAddressAndNeverCountsDown) {
  const struct {
    std::uint64_t received;
    const char* address;
    const char* other;  ///< an interface that comes and goes
  } passes[] = {{0x1'0000'0064, "10.0.0.1", "veth0"},
                {0x2'0000'006e, "10.0.0.2", nullptr},
                {5, "10.0.0.2", "veth0"},
                {12, "10.0.0.2", "veth0"}};
  std::string told;
  for (const auto& [received, address, other] : passes) {
    s_now += 10;
    m_collector.GetInterface()->clear();
    Add("eth0", received, address);
    if (other != nullptr) {
      Add(other, 7, "0.0.0.0");
    }
    for (const recordPI_NIND& row : Build<recordPI_NIND>(m_each)) {
      told += std::to_string(static_cast<std::uint32_t>(row.pktsRcvd)) + "/" +
              std::to_string(static_cast<std::uint32_t>(row.totalPkts)) + " ";
    }
    for (const recordPI_NINS& row : Build<recordPI_NINS>(m_sum)) {
      told += "sum " + std::to_string(static_cast<std::uint32_t>(row.pktsRcvd)) + "; ";
    }
  }
  // veth0 has been forgotten, so that it comes back with all that it has counted.
  EXPECT_EQ(told, "10/10 sum 10; 0/0 7/7 sum 7; 7/7 0/0 sum 7; ");
  // A look of which the file could not be read costs no difference.
  for (const std::uint64_t received : {0U, 20U}) {
    s_now += 10;
    m_collector.GetInterface()->clear();
    if (received != 0) {
      Add("eth0", received, "10.0.0.2");
    }
    const auto rows = Build<recordPI_NIND>(m_each);
    EXPECT_EQ(Build<recordPI_NINS>(m_sum).at(0).pktsRcvd, received == 0 ? 0U : 8U);
    EXPECT_TRUE(rows.empty() || rows[0].pktsRcvd == 8U);
  }
}

}  // namespace
