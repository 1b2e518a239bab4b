#include "client/capture/PlayPlan.h"

#include "client/ask/Errors.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

std::string PlanOf(const fs::path& folder, double speed = 1) {
  try {
    return PlaySchedule("source", folder.string(), speed);
  } catch (const ClientError& error) {
    return std::string("failed: ") + error.what();
  }
}

TEST(PlayPlanTest, RecordsFollowInTheTimeOfTheSamples) {
  const std::string samples = R"("samples":[{"time":100},{"time":107},{"time":120}])";
  const std::string nested(20, '[');
  const struct {
    std::string facts;
    double speed;
    std::string plan;
  } cases[] = {{R"({"records":["PI","DEVD"],)" + samples + "}", 1, "DEVD = 10\nPI = 10\n"},
               {R"({"records":["PI"],)" + samples + "}", 5, "PI = 2\n"},
               {R"({"records":["PI"],)" + samples + "}", 1000, "PI = 1\n"},
               {R"({"records":["PI"],"samples":[{"time":5}]})", 1, "PI = 10\n"},
               {R"({"records":["PI"],"samples":[{"time":0},{"time":1e300}]})", 1, "PI = 86400\n"},
               {R"({"records":["PI","", "a","A=1\n[Http]\nListen",7,null]})", 1, "PI = 10\n"},
               {R"({"records":"PI"})", 1, ""},
               {R"({"records":["PI"],"x":)" + nested + std::string(20, ']') + "}", 1, ""},
               {"{", 1, ""}};
  for (const auto& row : cases) {
    const TempFolder folder;
    std::ofstream(folder.Path() / "capture.json") << row.facts;
    EXPECT_EQ(PlanOf(folder.Path(), row.speed), row.plan) << row.facts;
  }
}

TEST(PlayPlanTest, WhatIsNoFileOfTheCaptureIsNotRead) {
  const struct {
    std::function<void(const fs::path&)> make;
    const char* words;
  } cases[] = {{[](const fs::path&) {}, "source: this is no capture, as it has no capture.json"},
               {[](const fs::path& file) {
                  std::ofstream(file.parent_path() / "other") << R"({"records":["PI"]})";
                  fs::create_symlink("other", file);
                },
                "capture.json: this is no regular file"},
               {[](const fs::path& file) { ::mkfifo(file.c_str(), 0600); },
                "capture.json: this is no regular file"},
               {[](const fs::path& file) { fs::create_directory(file); },
                "capture.json: this is no regular file"},
               {[](const fs::path& file) {
                  std::ofstream(file).close();
                  fs::resize_file(file, (std::size_t{16} << 20U) + 1);
                },
                "capture.json: it has more than 16777216 bytes"}};
  for (const auto& row : cases) {
    const TempFolder folder;
    row.make(folder.Path() / "capture.json");
    const std::string plan = PlanOf(folder.Path());
    EXPECT_TRUE(plan.starts_with("failed: ") && plan.ends_with(row.words)) << plan;
  }
}

}  // namespace
