#include <cstdio>

#include "tests/faults/DoneNotes.h"
#include "tests/faults/Faults.h"
#include "tests/faults/GateWalk.h"
#include "tests/faults/SystemCalls.h"
#include "tests/gate/push/PushHistory.h"
#include "tests/support/Testing.h"

namespace {

/// Walks of the gate with one failure each.
class GateFaultTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_calm = new GateWalkResult;
    RunGateWalks({{faults::kAllocation, 0}},
                 [](const Fault&, const GateWalkResult& walk) { *s_calm = walk; });
  }
  static void TearDownTestSuite() { delete s_calm; }

  static void ExpectSound(const GateWalkResult& walk) {
    EXPECT_FALSE(walk.hasHung);
    ASSERT_TRUE(WIFEXITED(walk.status) && walk.exitValue >= 0) << "status " << walk.status;
    if (walk.exitValue != 0) {
      // At its start alone; the daemon, or the system, starts it again.
      EXPECT_FALSE(walk.hasAddress);
      EXPECT_FALSE(walk.errors.empty());
      return;
    }
    EXPECT_EQ(walk.descriptorsAfter, walk.descriptorsBefore);
    EXPECT_FALSE(walk.hasLeak);
    EXPECT_EQ(walk.samples, s_calm->samples);
    if (walk.hasAddress) {
      ASSERT_FALSE(walk.scrapes.empty());
      EXPECT_EQ(walk.scrapes.back(), "right");
      EXPECT_LE(walk.scrapes.size(), 3U) << "one failure spoils one scrape";
    } else {
      EXPECT_THAT(walk.errors, HasSubstr("Listen: 127.0.0.1:0: "));
    }
  }
  /// Whether nobody could see it.
  static bool IsGateUnseen(const GateWalkResult& walk) {
    return walk.exitValue == 0 && walk.scrapes == std::vector<std::string>{"right", "right"};
  }

  static void TryEach(const std::vector<Fault>& each) {
    faults::DoneNotes notes;
    RunGateWalks(notes.Left(each), [&](const Fault& fault, const GateWalkResult& walk) {
      const int before = CountParts();
      Look(fault, walk);
      if (CountParts() == before) {
        notes.Note(fault);
      }
    });
  }
  static void Look(const Fault& fault, const GateWalkResult& walk) {
    SCOPED_TRACE(fault.kind + ", call " + std::to_string(fault.place));
    const int before = CountParts();
    ExpectSound(walk);
    // Their number is not quite the same each time.
    EXPECT_TRUE(walk.hasFailed || walk.calls.at(fault.kind) < fault.place);
    EXPECT_TRUE(IsGateUnseen(walk) || !walk.errors.empty() || walk.scrapes.size() > 2);
    if (CountParts() != before) {
      ADD_FAILURE() << walk.errors << walk.told << '\n' << walk.cursor << walk.failedPlace;
    }
  }
  static int CountParts() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  }

  static void AddSome(std::vector<Fault>& faults, const std::string& kind, std::size_t few) {
    const std::size_t calls = s_calm->calls.at(kind);
    const bool isAll = std::getenv("QMT_FAULTS_ALL") != nullptr;
    const std::size_t step = isAll || calls <= few ? 1 : (calls + few - 1) / few;
    // The I/O library takes its own watches, which are the first three, for granted.
    const std::size_t first = kind == "epoll_ctl (add)" ? 4 : 1;
    for (std::size_t place = first; place <= calls; place += step) {
      faults.push_back({kind, place});
    }
  }

  inline static GateWalkResult* s_calm = nullptr;
};

TEST_F(GateFaultTest, AnUndisturbedWalk) {
  ExpectSound(*s_calm);
  EXPECT_TRUE(IsGateUnseen(*s_calm)) << s_calm->errors;
  EXPECT_EQ(s_calm->errors, "");
  EXPECT_EQ(s_calm->samples.size(), PushHistory::Samples(1, GateWalkResult::kRows + 1).size());
}

TEST_F(GateFaultTest, ACallOfTheSystem) {
  std::vector<Fault> each;
  for (const std::string& name : faults::SystemCallNames()) {
    AddSome(each, name, 1);
  }
  EXPECT_GE(each.size(), 15U);
  std::printf("%zu calls of the gate fail\n", each.size());
  TryEach(each);
}

TEST_F(GateFaultTest, AnAllocation) {
  std::vector<Fault> each;
  AddSome(each, faults::kAllocation, 16);
  std::printf("%zu of %zu allocations of the gate fail\n", each.size(),
              s_calm->calls.at(faults::kAllocation));
  TryEach(each);
}

}  // namespace
