#include "local/CaptureRun.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <system_error>
#include <utility>

#include "json/JsonText.h"
#include "node/LayoutRegistry.h"
#include "support/AtomicFile.h"
#include "support/HostPaths.h"

namespace {

constexpr const char* kRoomFolder = "/work";
constexpr const char* kRoomHome = "/opt/qmtrx/mond/agent";
constexpr const char* kRoomIni = "qmtagt.ini";

/// Takes one answer whole.
class CapturePeer : public ControlPeer {
 public:
  explicit CapturePeer(std::function<void(const std::string&)> take) : m_take(std::move(take)) {}

  [[nodiscard]] Rights PeerRights() const override { return Rights::kRead; }
  [[nodiscard]] bool IsGate() const override { return false; }
  [[nodiscard]] bool IsGone() const override { return false; }
  [[nodiscard]] RequestBook& Requests() override { return m_requests; }
  void Answer(std::string line) override { m_take(line); }
  void AnswerInPieces(AnswerPieces pieces) override {
    std::string line;
    std::string piece;
    for (bool isMore = true; isMore; line += piece) {
      isMore = pieces(piece);
    }
    m_take(line);
  }
  void AnswerRaw(std::string line, std::string /*bytes*/) override { m_take(line); }
  void AnswerWithoutEnd(AnswerPieces /*pieces*/) override { m_take(""); }
  void Continue() override {}
  void Abandon() override { m_take(""); }

 private:
  std::function<void(const std::string&)> m_take;
  RequestBook m_requests;
};

/// The question for all served records that have a layout.
std::string AllRecordsQuestion() {
  Json records = Json::Array();
  const LayoutRegistry& registry = LayoutRegistry::Instance();
  for (const RecordListing& listing : registry.Listing()) {
    if (listing.served && registry.Find(listing.name, listing.category) != nullptr) {
      records.PushBack(Json{{"record", listing.name},
                            {"category", std::string(1, static_cast<char>(listing.category))}});
    }
  }
  return JsonText(Json{{"op", "get"}, {"records", records}});
}

/// Each name once: records of two categories may have one.
std::vector<std::string> NamesWithRows(const Json& results) {
  std::vector<std::string> names;
  for (const Json& result : results.Elements()) {
    const Json* name = result.Find("record");
    const Json* rows = result.Find("rows");
    if (name != nullptr && rows != nullptr && rows->Size() > 0 &&
        std::find(names.begin(), names.end(), name->Text()) == names.end()) {
      names.push_back(name->Text());
    }
  }
  return names;
}

}  // namespace

std::string CaptureRoom::Make(const CaptureOrder& order) {
  if (std::string problem = m_folder.Open(order.folder); !problem.empty()) {
    return problem;
  }
  // It holds command lines and names of users.
  ::umask(S_IRWXG | S_IRWXO);
  const std::string home = m_folder.Place() + kRoomFolder + kRoomHome;
  std::error_code error;
  std::filesystem::create_directories(home, error);
  if (error || ::chdir(home.c_str()) != 0) {
    return m_folder.Named(home + ": " + (error ? error.message() : std::strerror(errno)));
  }
  SetProductRoot(m_folder.Place() + kRoomFolder);
  std::string problem;
  const std::string profile = order.profile.empty() ? "" : "Profile = " + order.profile + '\n';
  return ReplaceFile(kRoomIni, "[Host]\n" + profile + "[Schedule]\n", problem) ? "" : problem;
}

void CaptureRoom::Remove() const {
  std::error_code error;
  std::filesystem::remove_all(m_folder.Place() + kRoomFolder, error);
}

CaptureRun::CaptureRun(EventLoop& loop, ControlOperations& operations, HostRecorder& recorder,
                       CaptureOrder order, std::string folder)
    : m_operations(operations),
      m_recorder(recorder),
      m_order(std::move(order)),
      m_folder(std::move(folder)),
      m_timer(loop) {}

void CaptureRun::Start() {
  m_begin = std::chrono::steady_clock::now();
  TakeSample();
}

void CaptureRun::TakeSample() {
  const auto number = static_cast<long>(m_facts.samples.size()) + 1;
  if (number > 1 && !m_recorder.BeginSample(number)) {
    End(m_recorder.Problem());
    return;
  }
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  m_facts.samples.push_back({SampleFolder(number), std::chrono::duration<double>(now).count()});
  m_operations.Handle(
      AllRecordsQuestion(),
      std::make_shared<CapturePeer>([this](const std::string& line) { TakeAnswer(line); }));
}

void CaptureRun::TakeAnswer(const std::string& line) {
  const ParsedJson answer = ParseJson(line);
  const Json* results = answer.value.Find("results");
  if (results == nullptr) {
    End("the records were not built: " + line.substr(0, 200));
    return;
  }
  if (m_facts.samples.size() == 1) {
    m_facts.records = NamesWithRows(*results);
  }
  const std::string path = m_folder + '/' + m_facts.samples.back().folder + '/' + kRecordsFile;
  std::string problem;
  if (!ReplaceFile(path, JsonText(*results) + '\n', problem)) {
    End(problem);
    return;
  }
  if (!m_recorder.Problem().empty()) {
    End(m_recorder.Problem());
    return;
  }
  GoOn();
}

void CaptureRun::GoOn() {
  const auto taken = static_cast<long>(m_facts.samples.size());
  if (taken >= m_order.count) {
    m_isDone = true;
    End("");
    return;
  }
  constexpr std::chrono::steady_clock::duration kAtOnce{0};
  const auto next = m_begin + std::chrono::seconds(m_order.everySeconds * taken);
  m_timer.After(std::max(next - std::chrono::steady_clock::now(), kAtOnce),
                [this] { TakeSample(); });
}

void CaptureRun::End(std::string problem) {
  m_problem = std::move(problem);
  EventLoop::RequestStop();
}
