#include <sys/ipc.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

#include "support/UserFileFormat.h"
#include "support/UserFileSemaphore.h"
#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    quoted += c == '"' ? "\"\"" : std::string(1, c);
  }
  return quoted + '"';
}

json RandomValue(const UserField& field, std::mt19937& random) {
  switch (field.type) {
    case UserFieldType::kText: {
      std::string text;
      for (std::size_t i = random() % field.size; i > 0; --i) {
        // Characters of two bytes are put in whole.
        text +=
            random() % 8 == 0 && i > 1 ? "\u00e9" : std::string(1, "ab Z,\"\n';0"[random() % 10]);
      }
      return text.size() < field.size ? text : text.substr(0, 0);
    }
    case UserFieldType::kUnsigned:
      return static_cast<std::uint32_t>(random());
    case UserFieldType::kSigned:
    case UserFieldType::kTime:
      return static_cast<std::int32_t>(random());
    case UserFieldType::kDouble:
      break;
  }
  return std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 400) - 200);
}

std::string CellText(const json& value) {
  return value.is_string() ? Quoted(value.get<std::string>()) : value.dump();
}

/// Rows under labels in random order.
std::string CsvOf(const UserFileKind& kind, const std::vector<json>& rows, std::mt19937& random) {
  std::vector<std::string> labels;
  for (const UserField& field : kind.fields) {
    labels.push_back(field.label);
  }
  std::shuffle(labels.begin(), labels.end(), random);
  std::string text;
  for (const std::string& label : labels) {
    text += (text.empty() ? "" : ",") + label;
  }
  for (const json& row : rows) {
    std::string line;
    for (const std::string& label : labels) {
      line += (line.empty() ? "" : ",") + CellText(row.at(label));
    }
    text += "\r\n" + line;
  }
  return text;
}

TEST(UserDataTest, RandomRowsComeBackFromTheAgent) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const ProductRoot root;
  RunningDaemon daemon(root);
  for (const UserFileKind& kind : UserFileKinds()) {
    std::vector<json> rows;
    for (std::uint32_t number = 0; number < 50; ++number) {
      json row;
      for (const UserField& field : kind.fields) {
        row[field.label] = RandomValue(field, random);
      }
      row["Trans Data Key"] = number;
      rows.push_back(row);
    }
    std::ofstream(root.Path() / "rows.csv", std::ios::binary) << CsvOf(kind, rows, random);
    const std::string file = root.Path() / "rows.csv";
    const std::string name = kind.name;
    ASSERT_EQ(ShownBy(root, "userdata import " + name + " " + file), "");
    const json answer = json::parse(AskDaemon(root, "get --raw --json " + name).output);
    const json& got = answer.at(0).at("rows");
    ASSERT_EQ(got.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
      for (const auto& [label, value] : rows[i].items()) {
        EXPECT_EQ(got[i].at(label), value) << name << ": " << label;
      }
    }
    // What is shown can be read again.
    const std::string shown = AskDaemon(root, "userdata show --csv " + name).output;
    ASSERT_EQ(AskDaemon(root, "userdata show --csv " + name + " | " + QMTCTL_PROGRAM +
                                  " --socket /none userdata check " + name + " -")
                  .output,
              "");
    ASSERT_EQ(ShownBy(root, "userdata clear " + name), "");
    EXPECT_EQ(AskDaemon(root, "userdata show --csv " + name).output, "");
    EXPECT_NE(shown, "");
  }
}

TEST(UserDataTest, TwoWritersAndACollectingDaemonLoseNothing) {
  const ProductRoot root("[Schedule]\nUPD = 1\n");
  RunningDaemon daemon(root);
  const bool isLong = std::getenv("QMT_LONG_TESTS") != nullptr;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(isLong ? 60 : 2);
  std::array<int, 2> written{};
  const auto write = [&](std::size_t writer) {
    while (std::chrono::steady_clock::now() < end) {
      const std::string row = "w" + std::to_string(writer) + "," + std::to_string(written[writer]);
      const Outcome outcome =
          RunCommand("printf 'Trans Type,Trans Data Key\\n" + row + "\\n' | QMT_PRODUCT_ROOT='" +
                     root.Path().string() + "' " + QMTCTL_PROGRAM + " userdata append UPD - 2>&1");
      ASSERT_EQ(outcome.exitValue, 0) << outcome.output;
      ++written[writer];
    }
  };
  std::thread other(write, 1);
  write(0);
  other.join();
  const json rows = json::parse(AskDaemon(root, "userdata show --json UPD").output);
  std::array<int, 2> found{};
  for (const json& row : rows) {
    const std::size_t writer = row.at("Trans Type") == "w0" ? 0 : 1;
    EXPECT_EQ(row.at("Trans Data Key"), found[writer]++);
  }
  EXPECT_EQ(found, written);
  EXPECT_GT(written[0], 0);
  EXPECT_GT(written[1], 0);
  EXPECT_EQ(daemon.Errors().find("-E "), std::string::npos) << daemon.Errors();
}

TEST(UserDataTest, AStrangerDelaysOnlyTheBatchThatNeedsTheFilesAndThatOnce) {
  using Clock = std::chrono::steady_clock;
  const auto secondsSince = [](Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
  };
  const ProductRoot root("[Agent]\nGuard Mode = 0660\n");
  std::ofstream(root.Path() / "rows") << "Trans Type\na\n";
  ASSERT_EQ(ShownBy(root, "userdata import UPD " + (root.Path() / "rows").string()), "");
  std::vector<std::unique_ptr<UserFileSemaphore>> strangers;
  for (const UserFileKind& kind : UserFileKinds()) {
    strangers.push_back(std::make_unique<UserFileSemaphore>(
        ::ftok((root.AgentFolder() / "qmtuser").c_str(), kind.projectId), 1));
    ASSERT_GE(strangers.back()->create(), 0);
    ASSERT_EQ(strangers.back()->lock(false, 0), 0);
  }
  RunningDaemon daemon(root);
  const auto begin = Clock::now();
  std::thread needy([&] {
    const json answer = json::parse(AskDaemon(root, "get --raw --json UPI UPIB UPD UPDB").output);
    EXPECT_EQ(answer.at(2).at("rows").size(), 0U);
    EXPECT_GE(secondsSince(begin), 5.5);
    EXPECT_LE(secondsSince(begin), 15);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  for (const char* words : {"status", "get --raw CPUP", "get --raw PI", "config"}) {
    const auto asked = Clock::now();
    EXPECT_EQ(AskDaemon(root, words).exitValue, 0) << words;
    EXPECT_LT(secondsSince(asked), 3) << words;
    if (words == std::string("status")) {
      EXPECT_LT(secondsSince(begin), 5.5) << "the batch still waited";
    }
  }
  needy.join();
  strangers.clear();
  EXPECT_EQ(json::parse(AskDaemon(root, "get --raw --json UPD").output).at(0).at("rows").size(),
            1U);
}

TEST(UserDataTest, WhatIsWrongIsToldByLineAndNothingIsWritten) {
  const ProductRoot root;
  const auto import = [&](const std::string& text) {
    std::ofstream(root.Path() / "f", std::ios::binary) << text;
    std::string output =
        AskDaemon(root, "userdata import UPI " + (root.Path() / "f").string() + " 2>&1").output;
    for (std::size_t at; (at = output.find(root.Path().string())) != std::string::npos;) {
      output.erase(at, root.Path().string().size());
    }
    return output;
  };
  const std::string head = "Trans Type,User Long 1,User Time 1,User Float 1,Trans Data Key\n";
  EXPECT_EQ(import(head + "good,1,@2,2,1\n").find("qmtctl: /f:2: \"User Time 1\" must be a time"),
            0U);
  EXPECT_EQ(import(head + "good,1,2026-11-25T07:30:00+01:00,2,1\n"), "");
  const struct {
    const char* text;
    const char* message;
  } cases[] = {
      {"a,2147483648,,,\n", "f:2: \"User Long 1\" must be a whole number from -2147483648"},
      {"a,-,,,\n", "\"User Long 1\" must be"},
      {"a,,2106-01-01,,\n", "\"User Time 1\" must be a time"},
      {"a,,,nan,\n", "\"User Float 1\" must be a finite number"},
      {"a,,,,-1\n", "\"Trans Data Key\" must be a whole number from 0"},
      {"a,,\n", "f:2: 3 values under 5 labels"},
      {"\n\n123456789012345678901,,,,\n", "f:4: \"Trans Type\" has 21 bytes, more than 20"},
      {"\"a\nb\nc,,,,\n", "f:2: a quote is not closed"},
  };
  for (const auto& row : cases) {
    EXPECT_NE(import(head + row.text).find(row.message), std::string::npos)
        << row.text << import(head + row.text);
  }
  EXPECT_NE(import("Trans Typ\na\n").find("f:1: no column \"Trans Typ\" in UPI"),
            std::string::npos);
  EXPECT_NE(
      import("[{\"Trans Type\":\"j\",\"User Long 1\":[1]}]").find("neither a text nor a number"),
      std::string::npos);
  EXPECT_NE(import("{\"Trans Type\":\n").find("f:1: this is no JSON"), std::string::npos);
  json shown = json::parse(AskDaemon(root, "userdata show --json UPI").output);
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0].at("User Time 1"), 1795588200);
  EXPECT_NE(shown[0].at("Collect Time"), 0);

  EXPECT_NE(import(head + "12345678901234567890,,,,1\nb,,,,2\nb,,,,2\n")
                .find("f:4: warning: the row "
                      "before has the same"),
            std::string::npos);
  EXPECT_EQ(import("{\"Trans Type\":\"j\"}\n{\"User Float 1\":0.5,\"Trans Data Key\":7}\n"), "");
  shown = json::parse(AskDaemon(root, "userdata show --json UPI").output);
  EXPECT_EQ(shown.at(1).at("User Float 1"), 0.5);
  const std::filesystem::path file = root.AgentFolder() / "qmtuser/userdata/qmtuser_UPI";
  std::ofstream(file, std::ios::app) << "x";
  EXPECT_NE(ShownBy(root, "userdata show UPI").find("no whole number of UPI records"),
            std::string::npos);
  EXPECT_NE(ShownBy(root, "userdata show XPI").find("none of UPI"), std::string::npos);
}

}  // namespace
