#include <cstdio>

#include "tests/faults/Client.h"
#include "tests/faults/DoneNotes.h"
#include "tests/faults/Faults.h"
#include "tests/faults/Walk.h"

namespace {

constexpr const char* kNoWorkgroups = "wgmap not built.";
constexpr const char* kUnreadWorkgroups = "WorkGroup::GetIniFile failed.";
constexpr std::size_t kSecondScrape = 5;

// What the log or standard error says of memory that has run out.
constexpr const char* kWordsOfMemory[] = {
    "Out of memory",       "no memory",   "Cannot allocate memory",
    "bad_alloc",           " 10300 ",     "Unable to construct data",
    "Unable to determine", kNoWorkgroups, kUnreadWorkgroups};

/// An answer but for the rows of workgroups.
std::string WithoutWorkgroups(std::string answer) {
  const std::size_t begin = answer.find(R"({"record":"WGRP")");
  if (begin != std::string::npos) {
    answer.erase(begin, answer.find(R"({"record":)", begin + 1) - begin);
  }
  return answer;
}

/// Walks with one failure each, held against one without any.
class OneFaultTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_walks = new Walks;
    s_calm = new WalkResult(s_walks->Run({faults::kAllocation, 0}));
  }
  static void TearDownTestSuite() {
    delete s_calm;
    delete s_walks;
  }

  static bool IsTold(const WalkResult& walk, const std::string& word) {
    return walk.log.find(word) != std::string::npos || walk.errors.find(word) != std::string::npos;
  }
  static bool IsMemoryTold(const WalkResult& walk) {
    return std::ranges::any_of(kWordsOfMemory,
                               [&](const char* word) { return IsTold(walk, word); });
  }

  /// Whether the question at the failure was answered by an error.
  static bool IsAnsweredByError(const WalkResult& walk) {
    return walk.failedAt != 0 &&
           walk.answers.at(walk.failedAt - 1).find("\"error\"") != std::string::npos;
  }

  /// What must hold whatever fails.
  static void ExpectSound(const WalkResult& walk) {
    ExpectWhole(walk);
    ExpectScrape(walk);
    ExpectSameBatches(walk);
  }
  static void ExpectWhole(const WalkResult& walk) {
    ASSERT_TRUE(walk.HasEnded()) << "status " << walk.status << '\n' << walk.errors;
    if (walk.exitValue == 0) {  // else the end of the process closes them
      EXPECT_EQ(walk.descriptorsAfter, walk.descriptorsBefore);
    }
    EXPECT_FALSE(walk.hasLeak) << walk.errors;
    EXPECT_NE(walk.firstAnswer, faults::kLeftWaiting);
    for (const std::string& answer : walk.answers) {
      EXPECT_NE(answer, faults::kLeftWaiting);
    }
    if (walk.exitValue != 0) {
      EXPECT_EQ(walk.failedAt, 0U) << "a daemon that runs goes on";
    }
  }
  static void ExpectScrape(const WalkResult& walk) {
    if (walk.exitValue == 0 && walk.failedAt < kSecondScrape) {
      EXPECT_THAT(walk.answers.at(kSecondScrape - 1), HasSubstr("\n# EOF\n"));
    }
  }
  /// The batches behind the failure are as in an undisturbed walk.
  static void ExpectSameBatches(const WalkResult& walk) {
    for (std::size_t place = walk.failedAt; walk.exitValue == 0 && place < WalkResult::kBatches;
         ++place) {
      const std::string& answer = walk.answers.at(place);
      const std::string& calm = s_calm->answers.at(place);
      // Without memory for their list at the start there are none.
      const bool hasGroups = !IsTold(walk, kNoWorkgroups) && !IsTold(walk, kUnreadWorkgroups);
      EXPECT_EQ(hasGroups ? answer : WithoutWorkgroups(answer),
                hasGroups ? calm : WithoutWorkgroups(calm))
          << "batch " << place + 1;
    }
  }

  /// Of each place where memory was asked for the first turn and the last one, which has others
  /// before it in the same snapshot and an earlier one, of those behind the first `begin`
  /// allocations; else some that lie evenly.
  static std::vector<Fault> EachPlace(WalkScene scene, const WalkResult& counted, std::size_t few,
                                      std::size_t begin = 0) {
    std::map<std::size_t, std::size_t> turns;
    for (const std::size_t place : counted.places) {
      ++turns[place];
    }
    std::set<std::size_t> known(counted.places.begin(),
                                counted.places.begin() + static_cast<std::ptrdiff_t>(begin));
    std::vector<Fault> all;
    for (std::size_t at = begin; at < counted.places.size(); ++at) {
      const std::size_t place = counted.places[at];
      const std::size_t last = std::exchange(turns[place], 0);
      if (last != 0 && !known.contains(place)) {
        all.push_back({faults::kPlace, place, scene});
      }
      if (last > 1) {
        all.push_back({faults::kPlace, place, scene, last});
      }
    }
    std::vector<Fault> some;
    faults::AddSome(some, all, few);
    std::printf("%zu of %zu fail\n", some.size(), all.size());
    return some;
  }

  /// Whether that walk, which may differ a little from the one that was counted, had such a call.
  static bool HasCome(const Fault& fault, const WalkResult& walk) {
    return fault.kind == faults::kPlace
               ? static_cast<std::size_t>(std::ranges::count(walk.places, fault.place)) >=
                     fault.turn
               : walk.calls >= fault.place;
  }

  /// Whether each answer is the undisturbed one.
  static bool IsUnseen(const WalkResult& walk) {
    for (std::size_t place = 0; place < WalkResult::kBatches; ++place) {
      if (walk.answers.at(place) != s_calm->answers.at(place)) {
        return false;
      }
    }
    return walk.exitValue == 0;
  }

  /// Whether it says more than the undisturbed one.
  static bool TellsMore(const WalkResult& walk) {
    const auto lines = [](const WalkResult& each) {
      return std::ranges::count(each.log, '\n') + std::ranges::count(each.errors, '\n');
    };
    return lines(walk) > lines(*s_calm);
  }

  void TryEach(const std::vector<Fault>& each,
               const std::function<void(const WalkResult&)>& expect) {
    faults::DoneNotes notes;
    s_walks->RunEach(notes.Left(each), [&](const Fault& fault, const WalkResult& walk) {
      notes.Expect(
          fault,
          "question " + std::to_string(walk.failedAt) + '\n' + walk.errors + walk.failedPlace, [&] {
            EXPECT_EQ(walk.hasFailed, HasCome(fault, walk));
            expect(walk);
          });
      return notes.CountFindings() <= 60;
    });
  }

  inline static const Walks* s_walks = nullptr;
  inline static const WalkResult* s_calm = nullptr;
};

TEST_F(OneFaultTest, UndisturbedWalksAreAlike) {
  ASSERT_TRUE(s_calm->HasEnded()) << s_calm->errors;
  ExpectSound(*s_calm);
  EXPECT_EQ(s_calm->exitValue, 0);
  EXPECT_FALSE(IsMemoryTold(*s_calm)) << s_calm->log;
  for (std::size_t place = 0; place < WalkResult::kBatches; ++place) {
    EXPECT_THAT(s_calm->answers.at(place), HasSubstr(R"("Interface":"eth0")"));
    EXPECT_EQ(s_calm->answers.at(place).find("\"error\""), std::string::npos);
  }
  EXPECT_THAT(s_calm->answers[3], HasSubstr("# EOF"));
}

TEST_F(OneFaultTest, ACallOfTheTable) {
  const WalkResult counted = s_walks->Run({faults::kEachCall, 0});
  ExpectSound(counted);
  std::vector<Fault> each;
  std::vector<Fault> names;
  for (const auto& [kind, calls] : counted.callsOf) {
    std::vector<Fault> all;
    for (std::size_t place = 1; place <= calls; ++place) {
      all.push_back({kind, place});
    }
    // Who has no name is told by his number.
    faults::AddSome(kind == "getpwuid" || kind == "getgrgid" ? names : each, all, 4);
  }
  EXPECT_GE(each.size(), 20U);
  std::printf("%zu calls of the table fail\n", each.size() + names.size());
  TryEach(names, ExpectSound);
  TryEach(each, [](const WalkResult& walk) {
    ExpectSound(walk);
    EXPECT_TRUE(IsUnseen(walk) || IsAnsweredByError(walk) || TellsMore(walk) ||
                (walk.exitValue != 0 && IsTold(walk, "failed to start")));
  });
}

/// A schedule of each second, one who follows it, and an alarm: neither ends by the failure.
TEST_F(OneFaultTest, AnAllocationOfAFollowedSchedule) {
  const WalkResult counted = s_walks->Run({faults::kPlace, 0, WalkScene::kFollowed});
  ExpectWhole(counted);
  EXPECT_GE(counted.followed, WalkResult::kFollowed);
  EXPECT_NE(counted.log.find("QMTX10700-W"), std::string::npos);
  TryEach(EachPlace(WalkScene::kFollowed, counted, 6), [](const WalkResult& walk) {
    ExpectWhole(walk);
    ExpectScrape(walk);
    if (walk.exitValue == 0) {
      EXPECT_GE(walk.followed, WalkResult::kFollowed);
    }
    EXPECT_FALSE(IsTold(walk, "within a transaction"));
  });
}

TEST_F(OneFaultTest, AnAllocation) {
  const WalkResult counted = s_walks->Run({faults::kPlace, 0});
  TryEach(EachPlace(WalkScene::kBatches, counted, 12), [](const WalkResult& walk) {
    ExpectSound(walk);
    EXPECT_TRUE(IsUnseen(walk) || IsMemoryTold(walk) || IsAnsweredByError(walk));
  });
}

/// Each question is answered, and those behind the failure as in an undisturbed walk.
TEST_F(OneFaultTest, AnAllocationOfAnOperation) {
  const WalkResult counted = s_walks->Run({faults::kPlace, 0, WalkScene::kOperations});
  ExpectWhole(counted);
  const std::vector<std::string>& questions = QuestionsOf(WalkScene::kOperations);
  const auto isGood = [](const std::string& answer) {
    return answer.find(R"("ok":true)") < 40;  // behind an "id" at most
  };
  for (std::size_t at = 0; at < questions.size(); ++at) {
    EXPECT_EQ(isGood(counted.answers[at]), questions[at].find("nothing") == std::string::npos)
        << questions[at] << counted.answers[at].substr(0, 200);
  }
  TryEach(EachPlace(WalkScene::kOperations, counted, 8, counted.placesBefore),
          [&](const WalkResult& walk) {
            ExpectWhole(walk);
            EXPECT_EQ(walk.exitValue, 0);
            for (std::size_t at = walk.failedAt; at < questions.size() && walk.failedAt != 0;
                 ++at) {
              EXPECT_EQ(isGood(walk.answers[at]), isGood(counted.answers[at]))
                  << questions[at] << walk.answers[at].substr(0, 200);
            }
          });
}

/// Whichever of them fails, the daemon leaves by its exit value 0.
TEST_F(OneFaultTest, AnAllocationOfTheStop) {
  for (const WalkScene scene : {WalkScene::kBatches, WalkScene::kFollowed}) {
    const WalkResult counted = s_walks->Run({faults::kPlace, 0, scene});
    const std::vector<Fault> each = EachPlace(scene, counted, 10, counted.placesToStop);
    EXPECT_GE(each.size(), 10U);
    TryEach(each, [](const WalkResult& walk) {
      ExpectWhole(walk);
      EXPECT_EQ(walk.exitValue, 0);
    });
  }
}

}  // namespace
