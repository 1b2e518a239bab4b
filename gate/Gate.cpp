#include "gate/Gate.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "gate/GateLog.h"
#include "gate/access/CheckedFile.h"
#include "json/JsonText.h"
#include "support/ListenAddress.h"

namespace {

constexpr std::chrono::seconds kAskAgainPause{1};
constexpr std::size_t kMaxSettings = std::size_t{2} << 20;
/// So often it is looked whether a file that is not as it should be has changed.
constexpr std::chrono::seconds kFaultPause{2};
/// So often the daemon is told what is sent.
constexpr std::chrono::seconds kTellPause{5};

/// Whether the system has what it takes to read the files; what they hold is another matter.
bool AreReadable(const GateSettings& settings) {
  for (const std::string* path :
       {&settings.users, &settings.tokens, &settings.certificate, &settings.key}) {
    try {
      if (!path->empty()) {
        static_cast<void>(ReadCheckedFile(*path));
      }
    } catch (const PassingAccessError&) {
      return false;
    } catch (const AccessError&) {
      // As it is told when it is taken up.
    }
  }
  return true;
}

}  // namespace

Gate::Gate(std::string controlPath, bool isChild, std::string state, const PushPace& pace)
    : m_isChild(isChild),
      m_state(std::move(state)),
      m_pace(pace),
      m_desk(m_loop, std::move(controlPath)),
      m_pages(m_desk),
      m_fault(m_loop),
      m_again(m_loop),
      m_tell(m_loop) {}

Gate::~Gate() = default;

int Gate::Run() {
  m_loop.StopBySignals();
  AskSettings();
  m_loop.Run();
  m_servers.clear();
  m_push.reset();
  return 0;
}

template <class Action>
void Gate::Guarded(Action action) {
  try {
    action();
  } catch (const std::exception&) {
    // What has been taken up is not whole: the question is asked anew, and all is taken up.
    m_hasSettings = false;
    AskLater();
    throw;
  }
}

void Gate::AskLater() {
  m_again.After(kAskAgainPause, [this] { Guarded([this] { AskSettings(); }); });
}

void Gate::AskSettings() {
  m_answer.clear();
  m_areAddressesTold = false;
  m_link = std::make_unique<DaemonAsk>(m_loop, std::chrono::milliseconds(0));
  m_link->Start(
      m_desk.Path(), JsonText(Json{{"op", "gate"}}),
      [this](std::string_view bytes) { Guarded([&] { OnBytes(bytes); }); },
      [this](DaemonAsk::End) { AskAgain(); });
}

void Gate::OnBytes(std::string_view bytes) {
  m_answer += bytes;
  if (m_answer.size() > kMaxSettings) {
    // It would go on, and put the next question off.
    std::string().swap(m_answer);
    m_areAddressesTold = false;
    m_link.reset();
    AskAgain();
    return;
  }
  for (std::size_t end = 0; (end = m_answer.find('\n')) != std::string::npos;) {
    const std::string line = m_answer.substr(0, end);
    m_answer.erase(0, end + 1);
    OnAnswer(ParseJson(line).value);
  }
}

void Gate::AskAgain() {
  AskLater();
  if (!std::exchange(m_isToldGone, true)) {
    GateLog(m_desk.Path() + ": the daemon can't be asked; trying again");
  }
}

void Gate::OnAnswer(const Json& answer) {
  GateSettings settings;
  if (!ReadGateSettings(answer, settings)) {
    const Json* error = answer.Find("error");
    const Json* message = error == nullptr ? nullptr : error->Find("message");
    if (!m_isToldGone) {
      GateLog("the daemon refuses: " + (message != nullptr && message->IsString()
                                            ? message->Text()
                                            : std::string("its answer can't be read")));
    }
    AskAgain();
    return;
  }
  if (std::exchange(m_isToldGone, false)) {
    GateLog(m_desk.Path() + ": the daemon answers");
  }
  const bool isMine = settings.mode == (m_isChild ? "child" : "unit");
  if (!isMine) {
    GateLog("the daemon's settings have \"Gate = " + settings.mode + "\": nothing to do here");
    m_loop.Stop();
    return;
  }
  if (!m_hasSettings || !(settings == m_settings)) {
    TakeUp(settings);
  }
  if (!std::exchange(m_areAddressesTold, true)) {
    TellAddresses();
    TellFiguresSoon();
    m_desk.Memory().NoteRareWork();
  }
}

void Gate::TakeUp(const GateSettings& settings) {
  const bool isPushSame = m_hasSettings && settings.push == m_settings.push;
  m_hasSettings = true;
  m_settings = GateSettings(settings);
  m_servers.clear();
  m_tls.reset();
  m_hasFault = false;
  m_isFaultPassing = false;
  m_pages.ShowArguments(settings.showsArguments);
  OpenAccess();
  OpenTls();
  for (const std::string& text : settings.listen) {
    OpenListener(text);
  }
  OpenAlarms();
  LookAtFaults();
  if (!isPushSame) {
    OpenPush();
  }
}

void Gate::OpenPush() {
  m_push.reset();
  TellFiguresSoon();
  if (m_settings.push.empty()) {
    return;
  }
  m_push = std::make_unique<PushDesk>(m_desk, Sender(), m_settings.push, m_state,
                                      PushHooks{GateLog, [this] { TellFiguresSoon(); }}, m_pace);
}

HttpSender& Gate::Sender() {
  if (m_sender == nullptr) {
    m_sender = std::make_unique<HttpSender>(m_loop);
  }
  return *m_sender;
}

void Gate::TellFiguresSoon() {
  if (!std::exchange(m_isTellDue, true)) {
    m_tell.At(m_lastTold + kTellPause, [this] {
      m_isTellDue = false;
      try {
        TellFigures();
      } catch (const std::exception&) {
        TellFiguresSoon();
        throw;
      }
    });
  }
}

void Gate::TellFigures() {
  // A new connection is told then.
  if (!m_areAddressesTold) {
    return;
  }
  m_lastTold = LoopTimer::Clock::now();
  m_link->Say(JsonText(Json{{"op", "gate"},
                            {"push", m_push == nullptr ? Json::Array() : m_push->Figures()},
                            {"notices", NoticesJson()}}));
}

void Gate::LookAtFaults() {
  if (!m_hasFault) {
    return;
  }
  const std::vector<FileStamp> stamps{StampOf(m_settings.certificate), StampOf(m_settings.key),
                                      StampOf(m_settings.users), StampOf(m_settings.tokens)};
  const bool isFirstLook = m_faultStamps.empty();
  const bool isPassing = m_isFaultPassing && !isFirstLook && AreReadable(m_settings);
  if (isPassing || (stamps != std::exchange(m_faultStamps, stamps) && !isFirstLook)) {
    m_faultStamps.clear();
    m_toldFaults.clear();
    TakeUp(m_settings);
    TellAddresses();
    return;
  }
  m_fault.After(kFaultPause, [this] { Guarded([this] { LookAtFaults(); }); });
}

void Gate::OpenAccess() {
  const bool hasAccounts = !m_settings.users.empty() || !m_settings.tokens.empty();
  std::unique_ptr<Access> access;
  try {
    access =
        std::make_unique<Access>(m_settings.users, m_settings.tokens, Hooks(), m_pages.Failures());
  } catch (const AccessError& error) {
    NoteFault(error);
    access = std::make_unique<Access>("", "", Hooks(), m_pages.Failures());
  }
  m_pages.SetAccess(std::move(access), hasAccounts);
}

void Gate::OpenTls() {
  if (m_settings.certificate.empty() && m_settings.key.empty()) {
    return;
  }
  // The daemon, whose settings they are, has told that one is missing.
  if (m_settings.certificate.empty() || m_settings.key.empty()) {
    m_hasFault = true;
    return;
  }
  try {
    m_tls = std::make_unique<TlsFiles>(m_settings.certificate, m_settings.key);
  } catch (const AccessError& error) {
    NoteFault(error);
  }
}

void Gate::NoteFault(const AccessError& error) {
  m_hasFault = true;
  m_isFaultPassing = m_isFaultPassing || dynamic_cast<const PassingAccessError*>(&error) != nullptr;
  if (m_toldFaults.insert(error.what()).second) {
    GateLog(std::string(error.what()) + "; addresses with TLS are left out");
  }
}

void Gate::OpenListener(const std::string& text) {
  const SchemedAddress target = SplitScheme(text);
  const bool hasCertificate = !m_settings.certificate.empty() || !m_settings.key.empty();
  HttpSettings settings;
  settings.isTls = target.scheme == SchemedAddress::Scheme::kTls ||
                   (target.scheme == SchemedAddress::Scheme::kNone && hasCertificate);
  if (settings.isTls && (m_tls == nullptr || m_hasFault)) {
    if (!hasCertificate) {
      GateLog("Listen: " + text + ": there is no certificate; the others go on without it");
    }
    return;
  }
  if (settings.isTls) {
    settings.onConnection = [this] { m_tls->Look(); };
  }
  auto server = std::make_unique<HttpServer>(
      m_loop, [this](const auto& exchange) { m_pages.Serve(exchange); }, std::move(settings));
  server->SetHostNames(m_settings.names);
  std::string error;
  if (!server->Open(target.address, error)) {
    GateLog("Listen: " + error + "; the others go on without it");
    return;
  }
  const bool hasUsers = !m_settings.users.empty() || !m_settings.tokens.empty();
  if (!server->IsLoopback() && !(server->IsTls() && hasUsers)) {
    GateLog(server->Address() +
            ": without a certificate and users it serves /metrics and the health pages alone");
  }
  m_servers.push_back(std::move(server));
}

void Gate::OpenAlarms() {
  const AlarmReceivers& receivers = m_settings.alarms;
  const SendingSettings& sending = receivers.sending;
  AlarmTargets targets{
      .alertmanagers = receivers.alertmanagers,
      .webhooks = receivers.webhooks,
      .identity = {sending.user, sending.passwordFile, sending.tokenFile, sending.authority,
                   sending.clientCertificate, sending.clientKey},
      .link = receivers.link,
      .host = m_settings.host,
      .folder = m_state};
  if (targets.alertmanagers.empty() && targets.webhooks.empty()) {
    m_alarms.reset();
    return;
  }
  if (m_alarms != nullptr && m_alarms->Targets() == targets) {
    return;
  }
  // What it has told is written before the next one reads it.
  m_alarms.reset();
  m_alarms =
      std::make_unique<AlarmDesk>(m_desk, Sender(), std::move(targets),
                                  AlarmDesk::Hooks{[](const std::string& text) { GateLog(text); },
                                                   [this] { TellFiguresSoon(); }});
}

Json Gate::NoticesJson() const {
  Json notices = Json::Array();
  if (m_alarms == nullptr) {
    return notices;
  }
  for (const ReceiverFigures& one : m_alarms->Figures()) {
    notices.PushBack(Json{{"url", ServerOf(one.url)},
                          {"sent", one.sent},
                          {"failures", one.failures},
                          {"dropped", one.dropped}});
  }
  return notices;
}

void Gate::TellAddresses() {
  std::vector<std::string> addresses;
  for (const auto& server : m_servers) {
    addresses.push_back((server->IsTls() ? "https://" : "") + server->Address());
  }
  m_pages.SetAddresses(addresses);
  if (m_link != nullptr) {
    m_link->Say(JsonText(Json{{"op", "gate"}, {"addresses", addresses}}));
  }
  TellFiguresSoon();
}

AccessHooks Gate::Hooks() {
  AccessHooks hooks;
  hooks.post = [this](std::function<void()> action) { m_loop.Post(std::move(action)); };
  hooks.after = [this](std::chrono::milliseconds time, std::function<void()> action) {
    m_loop.After(time, std::move(action));
  };
  hooks.report = [](const std::string& text) { GateLog(text); };
  hooks.askDaemon = [this](const std::string& token, const AccessHooks::TokenAnswer& answer) {
    CheckToken(token, answer);
  };
  return hooks;
}

void Gate::CheckToken(const std::string& token, const AccessHooks::TokenAnswer& answer) {
  // The question is held by its own end.
  const auto held = std::make_shared<DaemonDesk::QuestionPtr>();
  *held = m_desk.AskJson(Json{{"op", "token_check"}, {"token", token}},
                         [held, answer](const Json& line) {
                           const Json* valid = line.Find("valid");
                           const Json* expires = line.Find("expires");
                           const bool isTold = valid != nullptr && valid->IsBool();
                           answer(isTold ? std::optional(valid->Bool()) : std::nullopt,
                                  expires != nullptr && expires->IsWhole() ? expires->Whole() : 0);
                           held->reset();
                         });
}
