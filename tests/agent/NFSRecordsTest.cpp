#include "collect/CategoryFlags.h"
#include "collect/nfs/NFSSource.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ProcessTree.h"

namespace {

constexpr tagPQLAUI kScheduleWithRates{.realtime = 0, .calcRates = 1};
constexpr tagPQLAUI kScheduleWithoutRates{.realtime = 0, .calcRates = 0};
constexpr tagPQLAUI kLookWithoutRates{.realtime = 1, .calcRates = 0};

/// The file of a pass: each counter has grown by `step` times its place since the one before.
std::string Line(const char* key, int count, int start, int step) {
  std::string text = std::string(key) + ' ' + std::to_string(count);
  for (int place = 1; place <= count; ++place) {
    text += ' ' + std::to_string(start + step * place);
  }
  return text + '\n';
}

class NFSRecordsTest : public BuilderFixture {
 protected:
  /// The host after `pass` steps, at `seconds`.
  void Pass(unsigned pass, std::time_t seconds) {
    s_now = seconds;
    const int steps = static_cast<int>(pass);
    const std::string text =
        Line("proc2", 18, 1000, 10 * steps) + Line("proc3", 22, 2000, 5 * steps);
    m_host.Write("/proc/net/rpc/nfs", text);
    m_host.Write("/proc/net/rpc/nfsd", text);
    ASSERT_EQ(m_collector.collect(COLLECT_NFS_CLIENT | COLLECT_NFS_SERVER, 0), nullptr);
    FillReserved(*m_collector.GetNFSClientTotal(), pass);
    FillReserved(*m_collector.GetNFSServerTotal(), pass);
  }
  /// What the kernel does not tell, so that the fields that it would feed are tested too.
  template <class Total>
  static void FillReserved(Total& total, unsigned pass) {
    total.reserved = 3 * pass;
    for (std::uint32_t word = 0; word < total.reservedV2.size(); ++word) {
      total.reservedV2[word] = pass * (word == 0 ? 1000 : 19 * word);
    }
    for (std::uint32_t word = 0; word < total.reservedV3.size(); ++word) {
      total.reservedV3[word] = pass * (word == 0 ? 500 : 7 * word);
    }
  }
  template <class Row>
  void ExpectSecondPass(RecordBuilderFunction builder, const std::string& golden) {
    Asker asker(RecordTraits<Row>::kName, '4', kScheduleWithRates);
    Pass(1, 1'700'000'000);
    EXPECT_TRUE(BuildBy<Row>(builder, asker).empty()) << "the first pass only primes";
    Pass(2, 1'700'000'010);
    const auto rows = BuildBy<Row>(builder, asker);
    ASSERT_EQ(rows.size(), 1U);
    ExpectGolden(&rows[0], sizeof rows[0],
                 std::filesystem::path(QMT_TEST_DIR) / "fixtures/nfs" / golden);
    EXPECT_EQ(Lines("Created 1 " + std::string(RecordTraits<Row>::kName) + " record(s)."), 2U);
  }

  const process_tree::HostTree m_host;
};

TEST_F(NFSRecordsTest, RowsAreTheOnesWorkedOutByHand) {
  ExpectSecondPass<recordPI_NCO>(&RecordBuilder::Build_NCO, "NCO.tsv");
  ExpectSecondPass<recordPI_NCD>(&RecordBuilder::Build_NCD, "NCD.tsv");
  ExpectSecondPass<recordPI_NSO>(&RecordBuilder::Build_NSO, "NSO.tsv");
  ExpectSecondPass<recordPI_NSD>(&RecordBuilder::Build_NSD, "NSD.tsv");
}

TEST_F(NFSRecordsTest, WithoutRatesSharesAreThoseOfTheChange) {
  Asker asker("NCO", '4', kScheduleWithoutRates);
  Pass(1, 1'000);
  EXPECT_TRUE(BuildBy<recordPI_NCO>(&RecordBuilder::Build_NCO, asker).empty());
  Pass(2, 1'010);
  const auto second = BuildBy<recordPI_NCO>(&RecordBuilder::Build_NCO, asker).at(0);
  EXPECT_EQ(second.readOps, 70U);
  EXPECT_EQ(second.readOpsPercent, 0.0F) << "no predecessor";
  EXPECT_EQ(second.rpcCallsPerSec, 100.0F);
  EXPECT_EQ(second.rpcBadCallsPerSec, 1.0F) << "19 in 10 s, cut to whole calls";
  EXPECT_EQ(second.interval, 1'010U) << "the record's time";
  Pass(4, 1'020);
  const auto third = BuildBy<recordPI_NCO>(&RecordBuilder::Build_NCO, asker).at(0);
  EXPECT_EQ(third.readOps, 140U);
  EXPECT_FLOAT_EQ(third.readOpsPercent, 100.0F * 70 / 2975) << "140 - 70 of 5950 - 2975";
  EXPECT_FLOAT_EQ(third.rpcBadCallPercent, 1.9F);
  Pass(5, 1'030);
  Pass(6, 1'030);
  const auto fourth = BuildBy<recordPI_NCO>(&RecordBuilder::Build_NCO, asker).at(0);
  EXPECT_EQ(fourth.readOpsPercent, 0.0F) << "as many operations as in the last interval";
}

TEST_F(NFSRecordsTest, SharesOfNoRemoteCallsAreZero) {
  Pass(3, 1'000);
  m_collector.GetNFSClientTotal()->reservedV2 = {};
  m_collector.GetNFSServerTotal()->reservedV2 = {};
  Asker client("NCO", '4', {.realtime = 1, .calcRates = 1});
  Asker server("NSO", '4', {.realtime = 1, .calcRates = 1});
  const auto sent = BuildBy<recordPI_NCO>(&RecordBuilder::Build_NCO, client).at(0);
  const auto served = BuildBy<recordPI_NSO>(&RecordBuilder::Build_NSO, server).at(0);
  EXPECT_GT(sent.readOpsPercent, 0.0F) << "there were operations";
  EXPECT_EQ(sent.rpcBadCallPercent, 0.0F);
  EXPECT_EQ(served.rpcBadCallPercent, 0.0F);
}

TEST_F(NFSRecordsTest, AZeroIntervalSkipsAnOverviewAlone) {
  Asker overview("NSO", '4', kScheduleWithRates);
  Asker detail("NSD", '4', kScheduleWithRates);
  for (int turn = 0; turn < 2; ++turn) {
    Pass(7, 2'000);
    EXPECT_TRUE(BuildBy<recordPI_NSO>(&RecordBuilder::Build_NSO, overview).empty());
    EXPECT_EQ(BuildBy<recordPI_NSD>(&RecordBuilder::Build_NSD, detail).size(),
              static_cast<std::size_t>(turn));
  }
  EXPECT_EQ(Lines("Unable to process NSO record: RecordBuilder::BuildRates_NSO: Attempt to "
                  "calculate rates for a zero second interval. : Record skipped."),
            1U);
  EXPECT_EQ(Lines("Created 0 NSO record(s)."), 1U);

  // A counter that fell wraps, and nothing says so.
  Pass(6, 2'001);
  EXPECT_EQ(BuildBy<recordPI_NSD>(&RecordBuilder::Build_NSD, detail).at(0).nullOpsV2,
            static_cast<std::uint32_t>(-10));
  EXPECT_EQ(Lines("is less than that during previous"), 0U);

  *m_collector.GetNFSServerTotal() = {};
  Asker look("NSO", '4', kLookWithoutRates);
  const auto empty = BuildBy<recordPI_NSO>(&RecordBuilder::Build_NSO, look).at(0);
  EXPECT_EQ(empty.readOpsPercent, 0.0F);
  EXPECT_EQ(empty.rpcBadCallPercent, 0.0F);
  EXPECT_EQ(empty.interval, 2'001U);
}

}  // namespace
