#include <nlohmann/json.hpp>

#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

/// A variable of the environment, for as long as the object lives.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : m_name(name) {
    ::setenv(name, value.c_str(), 1);
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;
  ~Variable() { ::unsetenv(m_name); }

 private:
  const char* m_name;
};

/// Makes a capture in a new folder below `folder`; what the daemon says of it, empty if it is good.
std::string MakeCapture(const fs::path& capture, const std::string& options) {
  const Outcome outcome = RunCommand(std::string(QMTDMON_PROGRAM) + " --capture '" +
                                     capture.string() + "' " + options + " 2>&1");
  return outcome.exitValue == 0 ? "" : "failed: " + outcome.output;
}

json RecordsOf(const fs::path& capture, const std::string& sample = "0001") {
  std::ifstream file(capture / "samples" / sample / "records.json");
  return json::parse(file, nullptr, false);
}

/// What a daemon answers that is asked for the records of a capture.
json AskForThose(const ProductRoot& root, const json& records) {
  std::string names;
  for (const json& result : records) {
    names += ' ' + result.at("record").get<std::string>();
  }
  const Outcome outcome = AskDaemon(root, "get" + names + " --json --raw");
  return json::parse(outcome.output, nullptr, false);
}

/// Compares row by row, so that a failure tells which. The client leaves out what was not built.
void ExpectSameRecords(const json& kept, const json& played) {
  std::size_t place = 0;
  for (const json& one : kept) {
    if (!one.contains("rows")) {
      continue;
    }
    SCOPED_TRACE(one.at("record").get<std::string>());
    ASSERT_LT(place, played.size());
    const json& other = played[place++];
    ASSERT_EQ(one.at("rows").size(), other.at("rows").size());
    for (std::size_t row = 0; row < one.at("rows").size(); ++row) {
      ASSERT_EQ(one["rows"][row].dump(), other["rows"][row].dump()) << "row " << row;
    }
    EXPECT_EQ(one.dump(), other.dump());
  }
  EXPECT_GT(place, 10U);
  EXPECT_EQ(place, played.size());
}

/// Plays the capture's first sample by a fresh daemon.
void ExpectReplayed(const fs::path& capture) {
  const json kept = RecordsOf(capture);
  ASSERT_TRUE(kept.is_array() && kept.size() >= 20) << kept.size();
  const Variable host("QMT_HOST_ROOT", capture.string());
  const ProductRoot root("[Schedule]\n");
  RunningDaemon daemon(root);
  ExpectSameRecords(kept, AskForThose(root, kept));
}

TEST(CaptureTest, AReplayOfEachFixtureHostGivesTheRecordsOfItsCapture) {
  const std::string fixtures = QMT_TEST_DIR "/fixtures/";
  const struct {
    const char* host;
    const char* profile;
    const char* rowOf;  ///< a record that has a row on this host
  } cases[] = {{"2.4.9", "classic", "PI"},
               {"2.4.21", "classic", "PI"},
               {"2.6.9", "classic", "PD"},
               {"6.1", "classic", "PD"},
               {"pi/first", "classic", "PI"},
               {"devices/first", "classic", "DEVD"},
               {"6.1", "modern", "PD"},
               {"arm64", "modern", "HOST"},
               {"vm-offline", "modern", "HOST"},
               {"modern-6.18/first", "modern", "PI"},
               {"modern-disks/first", "modern", "DEVD"},
               {"modern-processes/first", "modern", "PD"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(std::string(one.host) + ' ' + one.profile);
    const TempFolder folder;
    const fs::path capture = folder.Path() / "capture";
    {
      const Variable host("QMT_HOST_ROOT", fixtures + one.host);
      ASSERT_EQ(MakeCapture(capture, std::string("--profile ") + one.profile), "");
    }
    for (const json& result : RecordsOf(capture)) {
      if (result.at("record") == one.rowOf) {
        EXPECT_TRUE(result.contains("rows") && !result.at("rows").empty());
      }
    }
    ExpectReplayed(capture);
  }
}

/// Whether no file of the host tells this: the clock, which stands still for neither, and what
/// processes did in each second that they have lived; what the machine of the test itself answers
/// at that moment, as space of its file systems and, for a host without a table of it, its memory;
/// and names of networks, which a replay does not ask for.
bool IsOfTheMoment(const std::string& record, const std::string& label, const json& value) {
  static const std::set<std::string> ofAny{
      "Record Time", "Interval",         "Snapshot Time", "Elapsed Time", "Up Time",
      "CPU %",       "System Up Time",   "CPU % Each",    "Free Mem %",   "Free Mem Mbytes",
      "Alloc Mem %", "Alloc Mem Mbytes", "Network Name"};
  static const std::set<std::string> ofProcesses{"PD", "PDI", "PGM", "TERM", "USER"};
  return ofAny.contains(label) || (ofProcesses.contains(record) && label.ends_with("/sec")) ||
         (record == "FSL" && value.is_number());
}

json WithoutMoment(json result) {
  const std::string record = result.at("record");
  result.erase("time");
  for (json& row : result.at("rows")) {
    for (auto member = row.begin(); member != row.end();) {
      const bool goes = IsOfTheMoment(record, member.key(), member.value());
      member = goes ? row.erase(member) : std::next(member);
    }
  }
  return result;
}

TEST(CaptureTest, AReplayOfAFixtureHostGivesWhatADaemonOnItGives) {
  const struct {
    const char* host;
    const char* profile;
  } cases[] = {{"6.1", "classic"},
               {"devices/first", "classic"},
               {"6.1", "modern"},
               {"modern-disks/first", "modern"},
               {"modern-processes/first", "modern"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(std::string(one.host) + ' ' + one.profile);
    const TempFolder folder;
    const fs::path capture = folder.Path() / "capture";
    const ProductRoot root(std::string("[Host]\nProfile = ") + one.profile + "\n[Schedule]\n");
    const ProductRoot other("[Schedule]\n");
    json live;
    json kept;
    {
      const Variable host("QMT_HOST_ROOT", std::string(QMT_TEST_DIR "/fixtures/") + one.host);
      ASSERT_EQ(MakeCapture(capture, std::string("--profile ") + one.profile), "");
      kept = RecordsOf(capture);
      RunningDaemon daemon(root);
      live = AskForThose(root, kept);
    }
    const Variable host("QMT_HOST_ROOT", capture.string());
    RunningDaemon daemon(other);
    const json played = AskForThose(other, kept);
    ASSERT_EQ(live.size(), played.size());
    ASSERT_GE(live.size(), 15U);
    for (std::size_t place = 0; place < live.size(); ++place) {
      EXPECT_EQ(WithoutMoment(live[place]).dump(), WithoutMoment(played[place]).dump());
    }
  }
}

TEST(CaptureTest, AReplayOfThisMachineGivesTheRecordsOfItsCapture) {
  for (const char* profile : {"classic", "modern"}) {
    SCOPED_TRACE(profile);
    const TempFolder folder;
    const fs::path capture = folder.Path() / "capture";
    ASSERT_EQ(MakeCapture(capture, std::string("--profile ") + profile), "");
    ExpectReplayed(capture);
  }
}

TEST(CaptureTest, ACaptureKeepsTheBytesThatWereReadAndNothingElsewhere) {
  const TempFolder folder;
  const fs::path capture = folder.Path() / "capture";
  const Variable host("QMT_HOST_ROOT", QMT_TEST_DIR "/fixtures/6.1");
  ASSERT_EQ(MakeCapture(capture, ""), "");
  for (const char* path : {"proc/stat", "proc/meminfo", "proc/1/stat"}) {
    EXPECT_EQ(FileText(fs::path(QMT_TEST_DIR "/fixtures/6.1") / path),
              FileText(capture / "samples/0001/host" / path))
        << path;
  }
  const json facts = json::parse(FileText(capture / "capture.json"));
  EXPECT_EQ(facts.at("format"), 1);
  EXPECT_EQ(facts.at("profile"), "classic");
  EXPECT_EQ(facts.at("running"), false);
  EXPECT_EQ(facts.at("samples").size(), 1U);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(capture)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  EXPECT_EQ(names, (std::vector<std::string>{"capture.json", "samples"}));
  EXPECT_EQ(fs::status(capture).permissions(), fs::perms::owner_all);
  EXPECT_NE(MakeCapture(capture, "").find("it exists and is not empty"), std::string::npos);
}

TEST(CaptureTest, SeveralSamplesArePlayedInTheirTimeWhateverTakesTheNameOfTheirFolder) {
  const TempFolder folder;
  const fs::path named = folder.Path() / "named";
  const fs::path capture = folder.Path() / "capture";
  const fs::path other = folder.Path() / "other";
  fs::create_directory(other);
  std::thread mover([&] {
    EXPECT_TRUE(WaitUntil([&] { return fs::exists(named / "samples/0001/records.json"); }));
    fs::rename(named, capture);
    fs::create_directory_symlink(other, named);
  });
  EXPECT_EQ(MakeCapture(named, "--every 2 --count 3"), "");
  mover.join();
  EXPECT_TRUE(fs::is_empty(other));
  const json first = RecordsOf(capture, "0001");
  const json last = RecordsOf(capture, "0003");
  const auto timeOf = [](const json& records) {
    for (const json& result : records) {
      if (result.at("record") == "CPUP") {
        return result.at("time").get<long>();
      }
    }
    return 0L;
  };
  ASSERT_GE(timeOf(last) - timeOf(first), 2);
  const Variable host("QMT_HOST_ROOT", capture.string());
  const Variable speed("QMT_HOST_SPEED", "1000");
  const ProductRoot root("[Schedule]\n");
  RunningDaemon daemon(root);
  const json one = json::array({{{"record", "CPUP"}}});
  EXPECT_EQ(timeOf(AskForThose(root, one)), timeOf(first));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  for (int look = 0; look < 2; ++look) {
    EXPECT_EQ(timeOf(AskForThose(root, one)), timeOf(last));
  }
}

TEST(CaptureTest, AHostileCaptureIsToldInOneLine) {
  const TempFolder folder;
  const fs::path good = folder.Path() / "good";
  {
    const Variable host("QMT_HOST_ROOT", QMT_TEST_DIR "/fixtures/6.1");
    ASSERT_EQ(MakeCapture(good, ""), "");
  }
  const auto edit = [](const fs::path& path, const std::string& from, const std::string& to) {
    std::string text = FileText(path);
    const std::size_t place = text.find(from);
    ASSERT_NE(place, std::string::npos) << from;
    std::ofstream(path) << text.replace(place, from.size(), to);
  };
  const struct {
    const char* name;
    std::function<void(const fs::path&)> spoil;
    const char* words;
  } cases[] = {
      {"a link to a place outside",
       [](const fs::path& at) {
         fs::remove(at / "samples/0001/host/proc/stat");
         fs::create_symlink("/etc/passwd", at / "samples/0001/host/proc/stat");
       },
       "host/proc/stat: a link that leads out of the capture"},
      {"a link that climbs",
       [](const fs::path& at) {
         fs::create_symlink("../../../../../etc", at / "samples/0001/host/proc/up");
       },
       "host/proc/up: a link that leads out of the capture"},
      {"a link that climbs by way of another",
       [](const fs::path& at) {
         fs::create_symlink(".", at / "samples/0001/host/deep");
         fs::create_symlink("deep/deep/deep/deep/../../../etc", at / "samples/0001/host/up");
       },
       "host/up: a link that leads out of the capture"},
      {"a pipe",
       [](const fs::path& at) {
         fs::remove(at / "samples/0001/host/proc/stat");
         ::mkfifo((at / "samples/0001/host/proc/stat").c_str(), 0600);
       },
       "host/proc/stat: neither a file nor a folder"},
      {"samples elsewhere",
       [](const fs::path& at) {
         fs::rename(at / "samples", at / "moved");
         fs::create_symlink(at / "moved", at / "samples");
       },
       "/samples: this is no folder"},
      {"newer",
       [&](const fs::path& at) { edit(at / "capture.json", "\"format\": 1", "\"format\": 2"); },
       "capture.json: its format 2 is newer than 1"},
      {"an answer that is none",
       [](const fs::path& at) {
         std::ofstream(at / "samples/0001/calls.jsonl") << "{\"call\":1}\n";
       },
       "calls.jsonl:1: this is no answer of a call"},
      {"truncated", [](const fs::path& at) { fs::remove(at / "samples/0001/calls.jsonl"); },
       "calls.jsonl: No such file or directory"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    const fs::path bad = folder.Path() / "bad";
    fs::remove_all(bad);
    fs::copy(good, bad, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    one.spoil(bad);
    const Variable host("QMT_HOST_ROOT", bad.string());
    const ProductRoot root("[Schedule]\n");
    Daemon daemon(root, "errors");
    EXPECT_EQ(daemon.ExitValue(), 1);
    const std::string errors = daemon.Errors();
    EXPECT_NE(errors.find(one.words), std::string::npos) << errors;
    EXPECT_EQ(errors.find("The capture can't be played"),
              errors.rfind("The capture can't be played"));
  }
}

TEST(CaptureTest, AFolderThatOthersMayWriteToIsLeftAlone) {
  const TempFolder folder;
  const fs::path place = folder.Path() / "place";
  fs::create_directory(place);
  fs::create_symlink(place, folder.Path() / "link");
  EXPECT_NE(MakeCapture(folder.Path() / "link", "").find("/link: this is no folder"),
            std::string::npos);
  for (const ::mode_t mode : {0770U, 0707U, 01777U}) {
    ASSERT_EQ(::chmod(place.c_str(), mode), 0);
    EXPECT_NE(MakeCapture(place, "").find("others may write to this folder"), std::string::npos)
        << mode;
  }
  EXPECT_TRUE(fs::is_empty(place));
}

TEST(CaptureTest, WordsThatAreWrongAreTold) {
  const TempFolder folder;
  const std::string capture = folder.Path() / "capture";
  const struct {
    std::string words;
    const char* told;
  } cases[] = {{"", "--capture wants the folder"},
               {"--count 3", "--capture wants the folder"},
               {capture + " --count 0", "--count is a number of 1 to"},
               {capture + " --every 2x", "--every is a number of 1 to"},
               {capture + " --profile odd", "--profile is classic or modern"},
               {capture + " --count", "--count wants a value"},
               {capture + " --often 1", "--capture knows no --often"},
               {"/proc/none/capture", "No such file or directory"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.words);
    const Outcome outcome =
        RunCommand(std::string(QMTDMON_PROGRAM) + " --capture " + one.words + " 2>&1");
    EXPECT_NE(outcome.exitValue, 0);
    EXPECT_NE(outcome.output.find(one.told), std::string::npos) << outcome.output;
    EXPECT_FALSE(fs::exists(capture));
  }
}

}  // namespace
