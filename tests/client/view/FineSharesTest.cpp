#include "client/view/FineShares.h"

#include <cmath>

#include "tests/client/view/ViewRows.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using std::chrono::milliseconds;

/// ShareLooks at one process or several, a row each: number, begin, seconds of the two kinds.
class ShareLooks {
 public:
  explicit ShareLooks(double processors = 4) : m_processors(processors) {}

  /// "7: 50 12.5" for each process: its shares of one processor and of all.
  std::string At(milliseconds at, const std::string& rows) {
    Json looked = JsonOf(rows);
    for (Json& row : looked.Elements()) {
      row["CPU % Each"] = -1;
      row["CPU %"] = -1;
    }
    m_shares.Set(looked, FineShares::TimePoint(at), m_processors);
    std::string text;
    for (const Json& row : looked.Elements()) {
      text += (text.empty() ? "" : ", ") + JsonText(row["PID"]) + ": " +
              Rounded(row["CPU % Each"]) + " " + Rounded(row["CPU %"]);
    }
    return text;
  }

 private:
  static std::string Rounded(const Json& share) {
    return share.IsNull() ? "-" : std::to_string(std::lround(share.Number() * 10));
  }

  double m_processors;
  FineShares m_shares{ProcessSchema()};
};

std::string ProcessAt(int pid, int begin, double user, double system, int now = 1000) {
  return R"({"Record Time": )" + std::to_string(now) + R"(, "Start Time": )" +
         std::to_string(begin) + R"(, "PID": )" + std::to_string(pid) + R"(, "User CPU": )" +
         std::to_string(user) + R"(, "System CPU": )" + std::to_string(system) + "}";
}

TEST(FineSharesTest, ComeFromTheGrowthBetweenTwoLooks) {
  ShareLooks looks;
  // Nothing is known before the second look; then tenths of a percent.
  EXPECT_EQ(looks.At(milliseconds(0), "[" + ProcessAt(7, 1, 10, 5) + "]"), "7: - -");
  EXPECT_EQ(looks.At(milliseconds(2000), "[" + ProcessAt(7, 1, 10.75, 5.25) + "]"), "7: 500 125");
  // A look of half a second.
  EXPECT_EQ(looks.At(milliseconds(2500), "[" + ProcessAt(7, 1, 11.25, 5.25) + "]"), "7: 1000 250");
  EXPECT_EQ(looks.At(milliseconds(4500), "[" + ProcessAt(7, 1, 11.25, 5.25) + "]"), "7: 0 0");
  // A time that goes back is no growth, and the next one counts from it.
  EXPECT_EQ(looks.At(milliseconds(6500), "[" + ProcessAt(7, 1, 9, 0) + "]"), "7: 0 0");
  EXPECT_EQ(looks.At(milliseconds(8500), "[" + ProcessAt(7, 1, 10, 0) + "]"), "7: 500 125");
  // Two looks at the same moment have no time between them.
  EXPECT_EQ(looks.At(milliseconds(8500), "[" + ProcessAt(7, 1, 11, 0) + "]"), "7: - -");
}

TEST(FineSharesTest, OfANewProcessAreThoseSinceItsStart) {
  ShareLooks looks;
  EXPECT_EQ(looks.At(milliseconds(0), "[" + ProcessAt(7, 1, 10, 0) + "]"), "7: - -");
  // Younger than the look before: since that look. The same number with another start is another.
  EXPECT_EQ(looks.At(milliseconds(2000),
                     "[" + ProcessAt(7, 999, 1, 0) + "," + ProcessAt(8, 1000, 0.5, 0.5) + "]"),
            "7: 500 125, 8: 500 125");
  // One that is old already has its whole life's.
  EXPECT_EQ(looks.At(milliseconds(4000), "[" + ProcessAt(9, 900, 10, 0) + "]"), "9: 100 25");
  // One that was missing in a look is a new one.
  EXPECT_EQ(looks.At(milliseconds(6000), "[" + ProcessAt(7, 990, 5, 0) + "]"), "7: 500 125");
}

TEST(FineSharesTest, LeaveAloneWhatTheyDoNotKnow) {
  ShareLooks unknown(0);
  EXPECT_EQ(unknown.At(milliseconds(0), "[" + ProcessAt(7, 1, 1, 0) + "]"), "7: - -");
  EXPECT_EQ(unknown.At(milliseconds(1000), "[" + ProcessAt(7, 1, 2, 0) + "]"), "7: 1000 -");
  Schema other;
  other.fields.push_back({"CPU % Each", "float", 0, 4, "percent", "", ""});
  FineShares shares(other);
  Json rows = JsonOf(R"([{"CPU % Each": 3}])");
  shares.Set(rows, FineShares::TimePoint(milliseconds(0)), 1);
  EXPECT_EQ(rows, JsonOf(R"([{"CPU % Each": 3}])"));
  // Labels that were not asked for do not come by it.
  FineShares narrow(ProcessSchema());
  rows = JsonOf("[" + ProcessAt(7, 1, 1, 0) + "]");
  const Json before = rows;
  narrow.Set(rows, FineShares::TimePoint(milliseconds(0)), 1);
  EXPECT_EQ(rows, before);
}

}  // namespace
