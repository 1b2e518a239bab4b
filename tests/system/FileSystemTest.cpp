#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;
using Figures = std::array<double, 5>;  ///< size, used and available bytes, inodes, inodes in use
using Mounts = std::map<std::string, Figures>;

constexpr std::array kLabels{"Total Size Mbytes", "Mbytes in Use", "Available Space Mbytes",
                             "Total Inodes", "Total Inodes in Use"};

/// The local mounts as df has them; those that another one covers have no figures.
Mounts ReadDf() {
  static const std::set<std::string> kPassedOver{"proc", "sysfs", "devpts", "rpc_pipefs"};
  std::istringstream lines(
      RunCommand("df -a -l -B1 --output=fstype,size,used,avail,itotal,iused,target").output);
  Mounts mounts;
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string type;
    std::string target;
    Figures figures{};
    words >> type;
    for (double& figure : figures) {
      words >> figure;
    }
    if (words >> std::ws && std::getline(words, target) && !kPassedOver.contains(type)) {
      mounts[target] = figures;
    }
  }
  return mounts;
}

Mounts AskFSL(const ProductRoot& root) {
  const json answer = json::parse(AskDaemon(root, "get --json FSL").output);
  Mounts mounts;
  for (const json& row : answer.at(0).at("rows")) {
    Figures& figures = mounts[row.at("File System")];
    for (std::size_t i = 0; i < figures.size(); ++i) {
      figures[i] = row.at(kLabels[i]).get<double>() * (i < 3 ? 1048576 : 1);
    }
  }
  return mounts;
}

/// What lies outside of two readings by df; empty if all agrees.
std::string Differences(const Mounts& before, const Mounts& rows, const Mounts& after) {
  std::string text;
  for (const auto& [target, first] : before) {
    const auto row = rows.find(target);
    const auto last = after.find(target);
    for (std::size_t i = 0; i < first.size() && last != after.end(); ++i) {
      const auto [least, most] = std::minmax(first[i], last->second[i]);
      if (row == rows.end() || row->second[i] < least || row->second[i] > most) {
        text += target + ": " + kLabels[i] + '\n';
      }
    }
  }
  return text;
}

TEST(FileSystemTest, LocalMountsAgreeWithDf) {
  for (const char* ini : {"", "[Node]\nMount Timeout=10\n"}) {
    const ProductRoot root(ini);
    Daemon daemon(root, "errors");
    ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
    std::string differences = "never asked";
    // What others write meanwhile may come and go between two readings.
    for (int attempt = 0; attempt < 20 && !differences.empty(); ++attempt) {
      const Mounts before = ReadDf();
      const Mounts rows = AskFSL(root);
      ASSERT_FALSE(before.empty());
      differences = Differences(before, rows, ReadDf());
    }
    EXPECT_EQ(differences, "") << ini;
    EXPECT_EQ(daemon.Errors().find("Mount Timeout"), std::string::npos) << daemon.Errors();
    EXPECT_EQ(ShownBy(root, "get FSL").find("Filesystem"), 0U) << ShownBy(root, "get FSL");
    EXPECT_EQ(AskDaemon(root, "get FSR 2>/dev/null").exitValue, 0);
  }
}

}  // namespace
