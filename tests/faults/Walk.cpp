#include "tests/faults/Walk.h"

#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <exception>

#include "agent/Service.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "tests/faults/Allocator.h"
#include "tests/faults/Client.h"
#include "tests/faults/Faults.h"
#include "tests/faults/WalkProcess.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned kLimitSeconds = 90;
constexpr std::time_t kFirstBatch = 1'700'000'000;
constexpr std::time_t kBetweenBatches = 60;
// Level 30 has the traces that tell of a step without memory.
constexpr const char* kSettings =
    "[Node]\nMessage Log Level = 30\n[Host]\nProfile = modern\n[Http]\nGate = none\n"
    "[Schedule]\n";
constexpr const char* kRareSchedule = "PI = 3600\n";
constexpr const char* kOftenSchedule =
    "PI = 1\nCPUP = 1\nMEMD = 3600\n[Alarms]\nCommand = /bin/true\n";
// Begins at the first batch, with rows of a record that is asked for.
constexpr const char* kAlarm =
    "alarm = up\nrecord = CPUP\ncondition = Interrupts >= 0\ncapture = CGRP\n";
constexpr const char* kAllRecords =
    R"({"op":"get","rates":false,"records":["PI","CPUP","DEVD","DEVS","NIND","NINS","WGRP","PD",)"
    R"("FSL","FSR","PDI","PDS","PGM","TERM","USER","PRES","CGRP","NETD","SOCK","DISK","MEMD","KERN",)"
    R"("CPUX","SENS","PDX","HOST"]})";

std::atomic<std::time_t> g_now = kFirstBatch;
std::atomic<std::size_t> g_question = 0;
std::atomic<bool> g_isServiceOver = false;
std::size_t g_failedAt = 0;

/// Calls whose answers would differ from one walk to the next.
void SetStillCalls() {
  Os().time = [](std::time_t* out) -> std::time_t {
    if (out != nullptr) {
      *out = g_now;
    }
    return g_now;
  };
  Os().gettimeofday = [](timeval* now) {
    *now = {g_now, 0};
    return 0;
  };
  Os().clock_gettime = [](clockid_t, timespec* now) {
    *now = {g_now, 0};
    return 0;
  };
  Os().sysinfo = [](struct ::sysinfo* facts) {
    *facts = {};
    facts->uptime = 1000;
    facts->totalram = 1U << 20U;
    facts->mem_unit = 4096;
    return 0;
  };
  Os().adjtimex = [](struct ::timex* state) {
    *state = {};
    return 0;
  };
  Os().statfs64 = [](const char*, struct ::statfs64* state) {
    *state = {};
    state->f_bsize = 4096;
    state->f_blocks = 1000;
    state->f_bfree = 400;
    return 0;
  };
  Os().get_nprocs = [] { return 2; };
  Os().get_nprocs_conf = [] { return 2; };
}

void Write(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

std::atomic<std::size_t> g_followed = 0;

/// Follows the schedule, again after each lost connection and after a refusal.
void Follow() {
  while (!g_isServiceOver) {
    faults::Client client([] { return g_isServiceOver.load(); });
    client.Follow(R"({"op":"follow","records":["PI"]})", [](const std::string& line) {
      g_followed += line.find(R"("event":"batch")") != std::string::npos ? 1 : 0;
      return line.find(R"("ok":false)") == std::string::npos;
    });
  }
}

void WaitForFollowed() {
  constexpr int kLongest = 15'000;
  for (int turn = 0; turn < kLongest && g_followed < WalkResult::kFollowed && !g_isServiceOver;
       ++turn) {
    // A batch of the time of the one before would be none.
    g_now += turn % 500 == 0 ? 1 : 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

constexpr const char* kOperations[] = {
    R"({"op":"records"})",
    R"({"op":"schema","record":"PI"})",
    R"({"op":"get","records":["PD",{"record":"CPUP","where":["Processor ID = 0"],"limit":1}]})",
    R"({"op":"last","records":["PI","CPUP"]})",
    R"({"op":"config"})",
    R"({"op":"config_set","item":65535,"value":"x"})",
    R"({"op":"report","report":"workgroups","arguments":{"name":"root","pid":"1"}})",
    R"({"op":"history","record":"CPUP","since":0})",
    R"({"op":"history","record":"CPUP","since":0,"points":4,"columns":["User %"]})",
    R"({"op":"schedule_set","record":"SOCK","seconds":60})",
    R"({"op":"schedule_remove","record":"MEMD"})",
    R"({"op":"metrics","names":"node"})",
    R"({"op":"samples","records":["PI","CPUP"],"since":0})",
    R"({"op":"gate","addresses":["127.0.0.1:1"],"push":[],"notices":[]})",
    R"({"op":"alarms"})",
    R"({"op":"alarm","id":1})",
    R"({"op":"alarm_rules"})",
    R"({"op":"alarm_follow"})",
    R"({"op":"console_token"})",
    R"({"op":"token_check","token":"x"})",
    R"({"op":"log","lines":5})",
    R"({"op":"nothing"})",
    R"({"op":"status"})",
    R"({"op":"shutdown"})"};

/// The operator's part: each question on a connection of its own, so that a lost one costs one.
void AskAll(WalkScene scene) {
  // The socket is there before the start is over.
  std::string status;
  while (!g_isServiceOver && status.empty()) {
    status = faults::Client([] { return g_isServiceOver.load(); }).Ask(R"({"op":"status"})");
  }
  Write("status", status);
  const std::vector<std::string>& ask = QuestionsOf(scene);
  for (std::size_t place = 0; place < ask.size(); ++place) {
    if (place == (scene == WalkScene::kOperations ? 0 : ask.size() - 1) &&
        scene != WalkScene::kBatches) {
      WaitForFollowed();
    }
    if (place == 0 || place + 1 == ask.size()) {
      Write(place == 0 ? "places-before" : "places-to-stop",
            std::to_string(faults::CountWatched()));
    }
    // What fails as the daemon takes the connection costs this question and not the one before.
    g_question = place + 1;
    faults::Client client([] { return g_isServiceOver.load(); });
    if (scene != WalkScene::kOperations) {
      g_now = kFirstBatch + static_cast<std::time_t>(place) * kBetweenBatches;
    }
    Write("answer-" + std::to_string(place), client.Ask(ask[place]));
  }
  // Every second one for a shutdown that has not been heard.
  for (int turn = 1; !g_isServiceOver; ++turn) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (turn % 1000 == 0) {
      ::kill(::getpid(), SIGTERM);
    }
  }
}

/// The daemon's exit value; a negative one for an exception that would end it.
int RunDaemon() {
  std::string name = "qmtdmon";
  std::array<char*, 2> words{name.data(), nullptr};
  try {
    return RunService(1, words.data());
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "thrown: %s\n", exception.what());
    return -1;
  }
}

/// The child's whole life; its findings are files of the working directory.
void Walk(const Fault& fault) {
  fs::create_directories("opt/qmtrx/mond");
  const bool isRare = fault.scene == WalkScene::kBatches;
  Write("qmtagt.ini", std::string(kSettings) + (isRare ? kRareSchedule : kOftenSchedule));
  if (!isRare) {
    Write("alarms", kAlarm);
  }
  Write("wgfile", "workgroup = root\nusers = root\n");
  SetProductRoot(fs::current_path().string());
  faults::BeginProcessOfWalk(kLimitSeconds);
  SetStillCalls();
  const int before = faults::CountDescriptors();
  std::thread asker(AskAll, fault.scene);
  std::thread follower([isRare] {
    if (!isRare) {
      Follow();
    }
  });
  faults::OnFailure([] {
    g_failedAt = g_question;
    faults::NotePlaceOfFailure();
  });
  faults::Arm(fault.kind, fault.place, fault.turn);
  const int exitValue = RunDaemon();
  const std::size_t calls = faults::Disarm();
  g_isServiceOver = true;
  asker.join();
  follower.join();
  std::ostringstream figures;
  const int after = faults::CountDescriptorsAtRest(before);
  figures << exitValue << ' ' << calls << ' ' << faults::HasFailed() << ' ' << g_failedAt << ' '
          << before << ' ' << after << ' ' << faults::HasLeak() << ' ' << g_followed;
  for (const std::string& name : faults::OsCallNames()) {
    figures << ' ' << faults::CallsOf(name);
  }
  Write("figures", figures.str());
  std::ostringstream places;
  for (const std::size_t place : faults::Places()) {
    places << place << ' ';
  }
  Write("places", places.str());
}

WalkResult ReadResult(const fs::path& folder, WalkScene scene, int status) {
  WalkResult result;
  result.status = status;
  std::istringstream figures(FileText(folder / "figures"));
  figures >> result.exitValue >> result.calls >> result.hasFailed >> result.failedAt >>
      result.descriptorsBefore >> result.descriptorsAfter >> result.hasLeak >> result.followed;
  for (const std::string& name : faults::OsCallNames()) {
    figures >> result.callsOf[name];
  }
  std::istringstream places(FileText(folder / "places"));
  result.places.assign(std::istream_iterator<std::size_t>(places), {});
  result.failedPlace = FileText(folder / "place");
  result.firstAnswer = FileText(folder / "status");
  std::istringstream(FileText(folder / "places-before")) >> result.placesBefore;
  std::istringstream(FileText(folder / "places-to-stop")) >> result.placesToStop;
  for (std::size_t place = 0; place < QuestionsOf(scene).size(); ++place) {
    result.answers.push_back(FileText(folder / ("answer-" + std::to_string(place))));
  }
  result.log = FileText(folder / "log/qmtdmon.log");
  result.errors = FileText(folder / "stderr.txt");
  return result;
}

/// Writes the first state of a table of tests/fixtures/modern-rows, whose README.md tells its form.
void FillFrom(const fs::path& table, const process_tree::HostTree& host) {
  std::map<std::string, std::string> texts;
  std::ifstream in(table);
  for (std::string line; std::getline(in, line);) {
    std::istringstream cells(line);
    std::string path;
    std::string text;
    std::getline(cells, path, '\t');
    std::getline(cells, text, '\t');
    for (std::size_t at = 0; (at = text.find("\\t", at)) != std::string::npos; ++at) {
      text.replace(at, 2, "\t");
    }
    if (path.ends_with('@')) {
      path.pop_back();
      host.Link(path, text);
    } else {
      texts[path] += text + '\n';
    }
  }
  for (const auto& [path, text] : texts) {
    host.Write(path, text);
  }
}

}  // namespace

const std::vector<std::string>& QuestionsOf(WalkScene scene) {
  constexpr const char* kScrape = R"({"op":"metrics","format":"openmetrics"})";
  static const std::vector<std::string> batches{kAllRecords, kAllRecords, kAllRecords,
                                                kScrape,     kScrape,     R"({"op":"shutdown"})"};
  static const std::vector<std::string> operations(std::begin(kOperations), std::end(kOperations));
  return scene == WalkScene::kOperations ? operations : batches;
}

bool WalkResult::HasEnded() const { return WIFEXITED(status) && exitValue >= 0; }

Walks::Walks() {
  m_host.CopyFrom(fs::path(QMT_TEST_DIR) / "fixtures/2.6.9");
  FillFrom(fs::path(QMT_TEST_DIR) / "fixtures/modern-rows/host.tsv", m_host);
}

WalkResult Walks::Run(const Fault& fault) const {
  WalkResult result;
  RunEach({fault}, [&](const Fault&, const WalkResult& walk) {
    result = walk;
    return true;
  });
  return result;
}

void Walks::RunEach(
    const std::vector<Fault>& faults,
    const std::function<bool(const Fault& fault, const WalkResult& walk)>& look) const {
  faults::RunWalks(faults, Walk, [&](const Fault& fault, const fs::path& folder, int status) {
    return look(fault, ReadResult(folder, fault.scene, status));
  });
}
