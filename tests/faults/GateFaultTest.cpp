#include <cstdio>

#include "tests/faults/DoneNotes.h"
#include "tests/faults/Faults.h"
#include "tests/faults/GateWalk.h"
#include "tests/faults/SystemCalls.h"
#include "tests/gate/push/PushHistory.h"
#include "tests/support/Testing.h"

namespace {

/// Walks of the gate with one failure each, in each of the scenes.
struct SceneOfTest {
  const char* name;
  GateScene make;
  std::size_t pages;  ///< that an undisturbed walk reads
};
constexpr SceneOfTest kPush{"push", MakePushScene, 2};
constexpr SceneOfTest kConsole{"console", MakeConsoleScene, 7};

class GateFaultTest : public ::testing::TestWithParam<SceneOfTest> {
 protected:
  /// The undisturbed walk of the scene.
  static const GateWalkResult& Calm() {
    static std::map<std::string, GateWalkResult> calm;
    const auto [place, isNew] = calm.try_emplace(GetParam().name);
    if (isNew) {
      RunGateWalks(
          GetParam().make, {{faults::kAllocation, 0}},
          [&calmed = place->second](const Fault&, const GateWalkResult& walk) { calmed = walk; });
    }
    return place->second;
  }

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
    EXPECT_EQ(walk.sent, Calm().sent);
    if (walk.hasAddress) {
      EXPECT_EQ(CountRight(walk), GetParam().pages);
      EXPECT_LE(walk.pages.size(), GetParam().pages + 1) << "one failure spoils one page";
    } else {
      EXPECT_THAT(walk.errors, HasSubstr("Listen: 127.0.0.1:0: "));
    }
  }
  static std::size_t CountRight(const GateWalkResult& walk) {
    return static_cast<std::size_t>(std::ranges::count_if(
        walk.pages, [](const std::string& page) { return page.ends_with(" right"); }));
  }
  /// Whether nobody could see it.
  static bool IsGateUnseen(const GateWalkResult& walk) {
    return walk.exitValue == 0 && walk.pages.size() == GetParam().pages &&
           CountRight(walk) == GetParam().pages;
  }

  static void TryEach(const std::vector<Fault>& each) {
    faults::DoneNotes notes(GetParam().name);
    RunGateWalks(GetParam().make, notes.Left(each),
                 [&](const Fault& fault, const GateWalkResult& walk) {
                   notes.Expect(fault,
                                walk.errors + walk.told + '\n' +
                                    ::testing::PrintToString(walk.pages) + '\n' + walk.failedPlace,
                                [&] { Look(fault, walk); });
                 });
  }
  static void Look(const Fault& fault, const GateWalkResult& walk) {
    ExpectSound(walk);
    // Their number is not quite the same each time.
    EXPECT_TRUE(walk.hasFailed || walk.calls.at(fault.kind) < fault.place);
    EXPECT_TRUE(IsGateUnseen(walk) || walk.errors != Calm().errors ||
                walk.pages.size() > GetParam().pages);
  }

  static void AddSomeOf(const std::string& kind, std::vector<Fault>& some, std::size_t few) {
    std::vector<Fault> all;
    // The I/O library takes its own watches, which are the first three, for granted.
    for (std::size_t place = kind == "epoll_ctl (add)" ? 4 : 1; place <= Calm().calls.at(kind);
         ++place) {
      all.push_back({kind, place});
    }
    faults::AddSome(some, all, few);
  }
};

TEST_P(GateFaultTest, AnUndisturbedWalk) {
  ExpectSound(Calm());
  EXPECT_TRUE(IsGateUnseen(Calm())) << Calm().errors << ::testing::PrintToString(Calm().pages);
  if (GetParam().make == MakePushScene) {
    EXPECT_EQ(Calm().errors, "");
    EXPECT_EQ(Calm().sent.size(), PushHistory::Samples(1, kPushedRows + 1).size());
  } else {
    EXPECT_THAT(Calm().sent, ElementsAre("alert 1 active", "alert 2 active", "alert 2 ended",
                                         "alert 3 active", "webhook 1 active", "webhook 2 active",
                                         "webhook 2 ended", "webhook 3 active"));
  }
}

TEST_P(GateFaultTest, ACallOfTheSystem) {
  std::vector<Fault> each;
  for (const std::string& name : faults::SystemCallNames()) {
    AddSomeOf(name, each, 1);
  }
  EXPECT_GE(each.size(), 15U);
  std::printf("%zu calls of the gate fail\n", each.size());
  TryEach(each);
}

TEST_P(GateFaultTest, AnAllocation) {
  std::vector<Fault> each;
  AddSomeOf(faults::kAllocation, each, 24);
  std::printf("%zu of %zu allocations of the gate fail\n", each.size(),
              Calm().calls.at(faults::kAllocation));
  TryEach(each);
}

INSTANTIATE_TEST_SUITE_P(Scenes, GateFaultTest, ::testing::Values(kPush, kConsole),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
