#include "tests/faults/GateSurroundings.h"

#include "json/JsonText.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::chrono::seconds kPatience{20};
constexpr int kTurns = 4;

bool IsListenerLeftOut() { return FileText("stderr.txt").find("Listen: ") != std::string::npos; }

}  // namespace

void GateSurroundings::Write(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

void GateSurroundings::Stop() {
  ::kill(m_gate, SIGTERM);
  if (!m_isOver && !WaitUntil([this] { return IsOver(); }, kPatience)) {
    Write("hung", "yes");
    ::kill(m_gate, SIGKILL);
    ::waitpid(m_gate, &m_status, 0);
  }
  Write("status", std::to_string(m_status));
  const std::lock_guard lock(m_mutex);
  std::string sent;
  for (const std::string& line : m_sent) {
    sent += line + '\n';
  }
  Write("sent", sent);
  Write("pages", m_pages);
  Write("told", m_told);
}

bool GateSurroundings::IsOver() {
  m_isOver = m_isOver || ::waitpid(m_gate, &m_status, WNOHANG) == m_gate;
  return m_isOver;
}

bool GateSurroundings::WaitFor(const std::function<bool()>& isDone) {
  return WaitUntil([&] { return isDone() || IsOver(); }, kPatience) && !IsOver();
}

bool GateSurroundings::HasListener() {
  if (!WaitFor([this] { return !Address().empty() || IsListenerLeftOut(); }) || Address().empty()) {
    return false;
  }
  Write("address", Address());
  return true;
}

std::string GateSurroundings::Address() {
  const std::lock_guard lock(m_mutex);
  return m_address;
}

std::string GateSurroundings::AnswerMetrics(const std::string& page) {
  return JsonText(Json{{"ok", true},
                       {"metrics", Json{{"bytes", page.size()}, {"content_type", "text/plain"}}}}) +
         '\n' + page;
}

std::string GateSurroundings::AnswerSettings(const Json& request, const Json& settings) {
  const std::lock_guard lock(m_mutex);
  if (const Json* addresses = request.Find("addresses")) {
    m_address = addresses->Size() == 0 ? "" : (*addresses)[0].Text();
  }
  m_told = JsonText(request);
  Json gate{{"mode", "unit"}, {"listen", Json::Array({"127.0.0.1:0"})}, {"host", "own.example"}};
  for (const auto& [name, value] : settings.Members()) {
    gate[name] = value;
  }
  return JsonText(Json{{"ok", true}, {"gate", gate}}) + '\n';
}

void GateSurroundings::ReadUntilRight(const std::string& name,
                                      const std::function<std::string()>& ask) {
  bool isRight = false;
  for (int turn = 0; turn < kTurns && !isRight && !IsOver(); ++turn) {
    std::string outcome;
    WaitFor([&] { return !(outcome = ask()).empty(); });
    isRight = outcome == "right";
    m_pages += name + ' ' + outcome + '\n';
  }
}

void GateSurroundings::NoteSent(const std::string& line) {
  const std::lock_guard lock(m_mutex);
  m_sent.insert(line);
}

std::size_t GateSurroundings::CountSent() {
  const std::lock_guard lock(m_mutex);
  return m_sent.size();
}
