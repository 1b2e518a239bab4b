#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

struct Outcome {
  int exitValue;
  std::string output;
};

/// What the client prints of the daemon below `root`.
Outcome AskDaemon(const ProductRoot& root, const std::string& words) {
  const std::string command =
      "QMT_PRODUCT_ROOT='" + root.Path().string() + "' " + QMTCTL_PROGRAM + " " + words;
  const auto close = [](std::FILE* pipe) { ::pclose(pipe); };
  std::unique_ptr<std::FILE, decltype(close)> pipe(::popen(command.c_str(), "r"), close);
  Outcome outcome{-1, ""};
  std::array<char, 4096> piece{};
  while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), pipe.get())) {
    outcome.output.append(piece.data(), count);
  }
  outcome.exitValue = WEXITSTATUS(::pclose(pipe.release()));
  return outcome;
}

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST(ClientTest, AThousandLooksInOneMessageAreOneCollection) {
  const ProductRoot root("[Node]\nMessage Log Level=30\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  const std::size_t before = CountOf(daemon.Errors(), "Starting the collect routine");
  std::string words = "get --json";
  for (int i = 0; i < 1000; ++i) {
    words += " CPUP";
  }
  const Outcome outcome = AskDaemon(root, words);
  ASSERT_EQ(outcome.exitValue, 0);
  const json answer = json::parse(outcome.output);
  ASSERT_EQ(answer.size(), 1000U);
  EXPECT_EQ(answer.front().at("rows").size(), std::thread::hardware_concurrency());
  EXPECT_EQ(CountOf(daemon.Errors(), "Starting the collect routine"), before + 1);
  const json status = json::parse(AskDaemon(root, "status --json").output);
  EXPECT_EQ(status.at("last_batch").at("records"), 1000);
}

TEST(ClientTest, WatchShowsABusyProcessorAndAScheduleKeepsItsRows) {
  const ProductRoot root("[Schedule]\nCPUP=1\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  std::atomic<bool> stop{false};
  std::thread busy([&stop] {
    while (!stop) {
    }
  });
  const Outcome watch = AskDaemon(root, "watch CPUP --every 1 --count 3 --json");
  stop = true;
  busy.join();
  ASSERT_EQ(watch.exitValue, 0);
  double most = 0;
  std::size_t start = 0;
  for (std::size_t end = watch.output.find('\n'); end != std::string::npos;
       start = end + 1, end = watch.output.find('\n', start)) {
    const json answer = json::parse(watch.output.substr(start, end - start));
    for (const json& row : answer.at(0).at("rows")) {
      EXPECT_GT(row.at("Idle Time").get<double>() + row.at("User Time").get<double>(), 0);
      most = std::max(most, row.at("CPU %").get<double>());
    }
  }
  EXPECT_GT(most, 20.0);
  const Outcome last = AskDaemon(root, "last CPUP --json");
  ASSERT_EQ(last.exitValue, 0);
  const json rows = json::parse(last.output).at(0).at("rows");
  EXPECT_EQ(rows.size(), std::thread::hardware_concurrency());
  EXPECT_LE(rows.at(0).at("Interval").get<int>(), 3);
}

}  // namespace
