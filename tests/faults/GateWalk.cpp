#include "tests/faults/GateWalk.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "gate/Gate.h"
#include "gate/GateLog.h"
#include "tests/faults/Allocator.h"
#include "tests/faults/Faults.h"
#include "tests/faults/SystemCalls.h"
#include "tests/gate/FakeServer.h"
#include "tests/gate/GateHarness.h"
#include "tests/gate/push/PushHistory.h"
#include "tests/gate/push/WriteText.h"
#include "tests/support/TempFolder.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr std::size_t kGatesAtATime = 12;
constexpr unsigned kGateSeconds = 60;
constexpr std::chrono::seconds kPatience{20};
constexpr const char* kMetrics = "# TYPE a gauge\na 1\n# EOF\n";
constexpr PushPace kWalkPace{milliseconds(50), milliseconds(50), milliseconds(200),
                             milliseconds(2000), milliseconds(100)};

int g_gatePlaceFile = -1;

void NotePlaceOfGate() {
  std::array<void*, 40> callers{};
  const int depth = ::backtrace(callers.data(), static_cast<int>(callers.size()));
  ::backtrace_symbols_fd(callers.data(), depth, g_gatePlaceFile);
}

std::string ReadAll(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int CountDescriptors() {
  return static_cast<int>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// A thread of the gate's that has written a file may still be about to end.
int CountDescriptorsAtRest(int expected) {
  int count = CountDescriptors();
  for (int turn = 0; turn < 100 && count > expected; ++turn) {
    std::this_thread::sleep_for(milliseconds(10));
    count = CountDescriptors();
  }
  return count;
}

bool IsLeaking() {
#ifdef __SANITIZE_ADDRESS__
  return __lsan_do_recoverable_leak_check() != 0;
#else
  return false;
#endif
}

int RunGate() {
  try {
    return Gate("control.sock", false, "state", kWalkPace).Run();
  } catch (const std::exception& error) {
    // As the program does.
    GateLog(error.what());
    return 1;
  }
}

/// The gate's process, alone in it; its findings are files of the working directory.
[[noreturn]] void LiveAsGate(const Fault& fault, int begin) {
  ::alarm(kGateSeconds);
  const int errors = ::open("stderr.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  ::dup2(errors, STDERR_FILENO);
  ::close(errors);
  std::signal(SIGPIPE, SIG_IGN);
  void* caller = nullptr;
  (void)::backtrace(&caller, 1);
  g_gatePlaceFile = ::open("place", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  char byte = 0;
  (void)!::read(begin, &byte, 1);
  const int before = CountDescriptors();
  faults::OnFailure(NotePlaceOfGate);
  const bool isAllocation = fault.kind == faults::kAllocation;
  faults::ForgetFailure();
  faults::ArmSystemCall(fault.kind, fault.place);
  if (isAllocation) {
    faults::CountAllocationsOfAll(fault.place);
  }
  const int exitValue = RunGate();
  const std::size_t allocations = faults::StopCountingAllocationsOfAll();
  faults::DisarmSystemCalls();
  const int after = CountDescriptorsAtRest(before);
  std::ofstream figures("figures");
  figures << exitValue << ' ' << faults::HasFailed() << ' ' << before << ' ' << after << ' '
          << IsLeaking() << ' ' << allocations;
  for (const std::string& name : faults::SystemCallNames()) {
    figures << ' ' << faults::SystemCallsOf(name);
  }
  figures.close();
  ::_exit(0);
}

/// What stands around the gate: a daemon, a server that is pushed to and a reader.
class Surroundings {
 public:
  explicit Surroundings(pid_t gate)
      : m_gate(gate),
        m_server([this](const auto& request) { return Store(request); }),
        m_daemon("control.sock", [this](const Json& request) { return AnswerGate(request); }) {
    m_history.SetEnd(GateWalkResult::kRows);
  }

  void Walk() {
    if (WaitFor([this] { return !Address().empty() || IsListenerLeftOut(); }) &&
        !Address().empty()) {
      Write("address", Address());
      ScrapeUntilRight();
      WaitFor([this] { return HasAll(GateWalkResult::kRows); });
      ScrapeUntilRight();
    } else {
      WaitFor([this] { return HasAll(GateWalkResult::kRows); });
    }
    m_history.SetEnd(GateWalkResult::kRows + 1);
    WaitFor([this] { return HasAll(GateWalkResult::kRows + 1) && IsCursorAtEnd(); });
  }
  /// Stops the gate by its signal.
  void Stop() {
    ::kill(m_gate, SIGTERM);
    if (!m_isOver && !WaitUntil([this] { return IsOver(); })) {
      Write("hung", "yes");
      ::kill(m_gate, SIGKILL);
      ::waitpid(m_gate, &m_status, 0);
    }
    Write("status", std::to_string(m_status));
    std::string stored;
    for (const std::string& sample : m_stored) {
      stored += sample + '\n';
    }
    Write("samples", stored);
    Write("scrapes", m_scrapes);
    Write("told", m_told);
  }

 private:
  static void Write(const std::string& name, const std::string& text) {
    std::ofstream(name, std::ios::binary) << text;
  }
  bool IsOver() {
    m_isOver = m_isOver || ::waitpid(m_gate, &m_status, WNOHANG) == m_gate;
    return m_isOver;
  }
  static bool WaitUntil(const std::function<bool()>& isDone) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!isDone()) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
  }
  /// Not longer than the gate lives.
  bool WaitFor(const std::function<bool()>& isDone) {
    return WaitUntil([&] { return isDone() || IsOver(); }) && !IsOver();
  }
  std::string Address() {
    const std::lock_guard lock(m_mutex);
    return m_address;
  }
  static bool IsListenerLeftOut() {
    return ReadAll("stderr.txt").find("Listen: ") != std::string::npos;
  }
  bool HasAll(int rows) {
    const std::lock_guard lock(m_mutex);
    return m_stored.size() == PushHistory::Samples(1, rows).size();
  }
  bool IsCursorAtEnd() {
    const std::string end = std::to_string(GateWalkResult::kRows + 1);
    return ReadAll("state/push-far.json").find("[" + end + "," + end + "]") != std::string::npos;
  }
  bool Store(const FakeServer::Request& request) {
    const std::vector<std::string> lines = WriteText(request.body);
    const std::lock_guard lock(m_mutex);
    m_stored.insert(lines.begin(), lines.end());
    return request.Answer("204 No Content");
  }
  std::string AnswerGate(const Json& request) {
    const std::string& op = request["op"].Text();
    if (op == "samples") {
      return m_history.Answer(request);
    }
    if (op == "metrics") {
      return JsonText(Json{{"ok", true},
                           {"metrics", Json{{"bytes", std::strlen(kMetrics)},
                                            {"content_type", "text/plain"}}}}) +
             '\n' + kMetrics;
    }
    if (op != "gate") {
      return "{\"ok\":false,\"error\":{\"code\":\"bad-field\",\"message\":\"no\"}}\n";
    }
    const Json* addresses = request.Find("addresses");
    const std::lock_guard lock(m_mutex);
    if (addresses != nullptr) {
      m_address = addresses->Size() == 0 ? "" : (*addresses)[0].Text();
    }
    if (const Json* push = request.Find("push")) {
      m_told = JsonText(*push);
    }
    const Json target{{"name", "far"},
                      {"url", m_server.Url("/write")},
                      {"records", Json::Array({"PI", "FSL"})},
                      {"batch", 10},
                      {"days", 36500}};
    return JsonText(Json{{"ok", true},
                         {"gate", Json{{"mode", "unit"},
                                       {"listen", Json::Array({"127.0.0.1:0"})},
                                       {"host", "own.example"},
                                       {"push", Json::Array({target})}}}}) +
           '\n';
  }
  void ScrapeUntilRight() {
    for (int turn = 0; turn < 4 && !IsOver(); ++turn) {
      HttpClient client(Address());
      client.Ask("/metrics");
      const std::string answer = client.Receive();
      const bool isRight = answer.starts_with("HTTP/1.1 200") &&
                           answer.ends_with(std::string("\r\n\r\n") + kMetrics);
      m_scrapes += (isRight ? "right" : answer.substr(0, answer.find("\r\n"))) + '\n';
      if (isRight) {
        return;
      }
    }
  }

  pid_t m_gate;
  int m_status = 0;
  bool m_isOver = false;
  std::mutex m_mutex;
  std::string m_address;
  std::string m_told;
  std::string m_scrapes;
  std::set<std::string> m_stored;
  PushHistory m_history;
  FakeServer m_server;
  FakeDaemon m_daemon;
};

/// The process around the gate, which it starts first: it has no thread yet.
[[noreturn]] void LiveAround(const Fault& fault) {
  fs::create_directory("state");
  int ends[2];
  (void)!::pipe2(ends, O_CLOEXEC);
  const pid_t gate = ::fork();
  if (gate == 0) {
    ::close(ends[1]);
    LiveAsGate(fault, ends[0]);
  }
  {
    Surroundings around(gate);
    (void)!::write(ends[1], "b", 1);
    around.Walk();
    around.Stop();
  }
  ::_exit(0);
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

GateWalkResult ReadGateResult(const fs::path& folder) {
  GateWalkResult result;
  std::istringstream(ReadAll(folder / "status")) >> result.status;
  std::istringstream figures(ReadAll(folder / "figures"));
  std::size_t allocations = 0;
  figures >> result.exitValue >> result.hasFailed >> result.descriptorsBefore >>
      result.descriptorsAfter >> result.hasLeak >> allocations;
  result.calls[faults::kAllocation] = allocations;
  for (const std::string& name : faults::SystemCallNames()) {
    figures >> result.calls[name];
  }
  result.hasHung = fs::exists(folder / "hung");
  result.errors = ReadAll(folder / "stderr.txt");
  result.failedPlace = ReadAll(folder / "place");
  result.hasAddress = fs::exists(folder / "address");
  result.scrapes = LinesOf(ReadAll(folder / "scrapes"));
  result.samples = LinesOf(ReadAll(folder / "samples"));
  result.told = ReadAll(folder / "told");
  result.cursor = ReadAll(folder / "state/push-far.json");
  return result;
}

/// One that is under way.
class RunningGateWalk {
 public:
  explicit RunningGateWalk(const Fault& fault) {
    m_child = ::fork();
    if (m_child == 0) {
      fs::current_path(m_folder.Path());
      LiveAround(fault);
    }
  }
  ~RunningGateWalk() { Wait(); }
  RunningGateWalk(const RunningGateWalk&) = delete;
  RunningGateWalk& operator=(const RunningGateWalk&) = delete;

  GateWalkResult End() {
    Wait();
    return ReadGateResult(m_folder.Path());
  }

 private:
  void Wait() {
    if (std::exchange(m_isRunning, false)) {
      ::waitpid(m_child, nullptr, 0);
    }
  }

  TempFolder m_folder;
  pid_t m_child = -1;
  bool m_isRunning = true;
};

}  // namespace

void RunGateWalks(const std::vector<Fault>& faults,
                  const std::function<void(const Fault& fault, const GateWalkResult& walk)>& look) {
  std::deque<std::unique_ptr<RunningGateWalk>> running;
  auto next = faults.begin();
  for (const Fault& fault : faults) {
    for (; next != faults.end() && running.size() < kGatesAtATime; ++next) {
      running.push_back(std::make_unique<RunningGateWalk>(*next));
    }
    const GateWalkResult walk = running.front()->End();
    running.pop_front();
    look(fault, walk);
  }
}
