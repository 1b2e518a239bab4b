#include "collect/nfs/NFSSource.h"

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "tests/collect/CollectFixture.h"

namespace {

/// `count` numbers from `first` upward, each behind a blank.
std::string Numbers(int count, int first) {
  std::string text;
  for (int number = first; number < first + count; ++number) {
    text += ' ' + std::to_string(number);
  }
  return text;
}

class NFSSourceTest : public CollectFixture {
 protected:
  /// Total, sums of both versions' calls; what the error says otherwise.
  template <class Source, class Row>
  static std::string Read() {
    Source source;
    Row row{};
    if (const UtlErrorPtr error{source.readOne(nullptr, row)}) {
      return error->GetMessage();
    }
    std::uint32_t v2 = 0;
    std::uint32_t v3 = 0;
    for (const std::uint32_t calls : row.callsV2) {
      v2 += calls;
    }
    for (const std::uint32_t calls : row.callsV3) {
      v3 += calls;
    }
    std::ostringstream out;
    out << row.totalCalls << ' ' << v2 << ' ' << v3;
    return out.str();
  }
  std::string Client(const std::string& text) {
    m_host.Write("/proc/net/rpc/nfs", text);
    return Read<NFSClientTotalSourceUser, NFSClientTotal>();
  }

  process_tree::HostTree m_host;
};

TEST_F(NFSSourceTest, TakesTheLinesThatAreWhole) {
  const std::string v2 = "proc2 18" + Numbers(18, 1) + "\n";
  const std::string v3 = "proc3 22" + Numbers(22, 1) + "\n";
  const std::string net = "net 0 0 0 0\nrpc 9 0 0\n";
  const struct {
    const char* what;
    std::string text;
    const char* figures;
  } cases[] = {{"both", net + v2 + v3 + "proc4 3 1 2 3\n", "424 171 253"},
               {"version 3 alone", net + v3, "253 0 253"},
               {"17 numbers", "proc2 18" + Numbers(17, 1) + "\n" + v3, "253 0 253"},
               {"19 numbers", "proc2 18" + Numbers(19, 1) + "\n" + v3, "424 171 253"},
               {"a longer key first", "xproc2x 18" + Numbers(18, 2) + "\n" + v2, "189 189 0"},
               {"words", "proc2 18 a b c\n" + v3, "253 0 253"},
               {"wrapping", "proc2 18 4294967295" + Numbers(17, 0) + "\n", "135 135 0"},
               {"binary", std::string("proc2 18\0 1 2\n\xff\xfe proc3\n", 23), "0 0 0"},
               {"no line", "proc2\nproc3 \n", "0 0 0"},
               {"nothing", "", "0 0 0"}};
  for (const auto& test : cases) {
    EXPECT_EQ(Client(test.text), test.figures) << test.what;
  }
  EXPECT_GE(Lines("An error occurred in a function (sscanf). (rc=17, arg1=18 1 2"), 1U);
  EXPECT_GE(Lines("(NFSClientTotalSourceUser::Get_NFSC2_Info). (rc=-1, arg1=18 1 2"), 1U);
  EXPECT_GE(Lines("(ProcLib::GetProcMapValue). (rc=-1, arg1=proc3, arg2="), 1U);
  EXPECT_EQ(Lines("(ProcLib::BuildProcMap). (rc=-1, arg1=DELIM_SPACE)"), 1U);

  NFSWork work;
  EXPECT_EQ(NFSServerTotalSourceUser::Get_NFSS2_Info(("18" + Numbers(17, 1)).c_str(), &work), -1);
  EXPECT_EQ(work.callsV2[nfs2::kReaddir], 17U) << "holds what was matched";
  EXPECT_EQ(work.totalCalls, 0U);
  EXPECT_EQ(NFSServerTotalSourceUser::Get_NFSS3_Info(("22" + Numbers(22, 1)).c_str(), &work), 0);
  EXPECT_EQ(work.callsV3[nfs3::kCommit], 22U);
}

TEST_F(NFSSourceTest, WithoutTheModuleTheCategoryFails) {
  Collector collector;
  const UtlErrorPtr error(collector.collect(COLLECT_NFS_CLIENT, 0));
  ASSERT_NE(error, nullptr);
  EXPECT_NE(std::string(error->GetMessage()).find("/proc/net/rpc/nfs"), std::string::npos);
  EXPECT_EQ(Lines(", arg1=NFSC)"), 1U);
  m_host.Write("/proc/net/rpc/nfsd", "proc3 22" + Numbers(22, 1) + "\n");
  EXPECT_EQ((Read<NFSServerTotalSourceUser, NFSServerTotal>()), "253 0 253");
  // Each side traces under the name of its own.
  for (const char* function : {"ClientTotalSourceUser::NFSClientTotalSourceUser",
                               "ServerTotalSourceUser::NFSServerTotalSourceUser",
                               "ClientTotalSourceUser::read", "ServerTotalSourceUser::read"}) {
    EXPECT_EQ(Lines(std::string("the function (NFS") + function + ")"), 2U) << function;
  }
}

}  // namespace
