#pragma once

#include <cmath>
#include <initializer_list>

#include "collect/ProcLib.h"
#include "collect/modern/ToldOnce.h"
#include "collect/process/NameCache.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/NotTold.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "support/UtlError.h"
#include "tests/scripted/ProcessTree.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

/// The figures in their order, whole numbers to their last digit, "-" for one that is not told.
template <class Figures = std::initializer_list<double>>
[[nodiscard]] std::string Told(const Figures& figures) {
  std::ostringstream text;
  for (const double figure : figures) {
    text.precision(figure == std::trunc(figure) ? 17 : 15);
    text << (text.tellp() == 0 ? "" : " ");
    IsTold(figure) ? text << figure : text << '-';
  }
  return text.str();
}

/// All rows of a source, which reads them without an error.
template <class Source, class Row>
[[nodiscard]] std::vector<Row> ReadAll() {
  std::vector<Row> rows;
  const UtlErrorPtr error(Source().readAll(nullptr, rows));
  EXPECT_EQ(error, nullptr) << error->GetMessage();
  return rows;
}

/// What the error of a source says, which has no rows then; empty without one.
template <class Source, class Row>
[[nodiscard]] std::string FailureOf() {
  std::vector<Row> rows(1);
  const UtlErrorPtr error(Source().readAll(nullptr, rows));
  EXPECT_TRUE(error == nullptr || rows.empty());
  return error == nullptr ? "" : error->GetMessage();
}

/// A fresh node, fresh caches and the real system calls around each test. All traces are on.
class CollectFixture : public testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 40;
    g_kernelVariant = 3;
    ProcLib::ResetCaches();
    // A test before may have had told as much as is ever told.
    ForgetTold();
    Os().getpagesize = [] { return 4096; };
  }
  void TearDown() override {
    Os() = m_calls;
    g_hostProfile = HostProfile::kClassic;
    SetHostRoot("");
    ProcLib::ResetCaches();
    ClearUserNames();
    ClearGroupNames();
    g_kernelVariant = 3;
    g_msgLogLevel = 0;
  }

  static std::string FixturePath(const std::string& kernel) {
    return std::string(QMT_TEST_DIR) + "/fixtures/" + kernel;
  }

  /// The level of the first line that holds the part; -1 without one.
  static int Level(const std::string& part) {
    const std::vector<LoggedLine> lines = ScriptedNode::Instance().LinesWith(part);
    return lines.empty() ? -1 : lines.front().level;
  }

  struct LevelOfTrace {
    int level;
    const char* part;
  };
  static void ExpectLevels(std::initializer_list<LevelOfTrace> traces) {
    for (const LevelOfTrace& trace : traces) {
      EXPECT_EQ(Level(trace.part), trace.level) << trace.part;
    }
  }

 private:
  OsCalls m_calls = Os();
};
