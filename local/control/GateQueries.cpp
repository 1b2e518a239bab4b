#include "local/control/GateQueries.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "json/JsonText.h"
#include "node/MessageCatalog.h"
#include "support/ListenAddress.h"

namespace {

constexpr const char* kTokenFile = "run/console.tokens";

const char* KindName(int kind) {
  switch (kind) {
    case kError:
      return "error";
    case kWarning:
      return "warning";
    default:
      return "information";
  }
}

/// Nothing if it is no array of at most so many addresses.
std::optional<std::vector<std::string>> ReadAddresses(const Json& list) {
  if (!list.IsArray() || list.Size() > GateQueries::kMostAddresses) {
    return std::nullopt;
  }
  std::vector<std::string> addresses;
  for (const Json& address : list.Elements()) {
    if (!address.IsString() || !ParseListenAddress(SplitScheme(address.Text()).address)) {
      return std::nullopt;
    }
    addresses.push_back(address.Text());
  }
  return addresses;
}

}  // namespace

GateQueries::GateQueries()
    : m_tokens(kTokenFile, [this](const std::string& problem) { m_report(problem); }) {}

bool GateQueries::IsGateThere() const {
  const std::shared_ptr<ControlPeer> gate = m_gate.lock();
  return gate != nullptr && !gate->IsGone();
}

std::vector<std::string> GateQueries::Addresses() const {
  return IsGateThere() ? m_addresses : std::vector<std::string>{};
}

GateFigures GateQueries::Figures() const { return IsGateThere() ? m_figures : GateFigures{}; }

std::optional<ControlError> GateQueries::ReadTold(const Json& message, Told& told) {
  const auto isBad = [&](const char* name, auto& target, auto read) {
    const Json* const member = message.Find(name);
    if (member != nullptr) {
      target = read(*member);
    }
    return member != nullptr && !target;
  };
  if (isBad("addresses", told.addresses, ReadAddresses)) {
    return ControlError{"bad-field",
                        "addresses must be an array of at most " + std::to_string(kMostAddresses) +
                            " texts ADDRESS:PORT",
                        "addresses"};
  }
  const std::string figures =
      " must be an array of at most " + std::to_string(GateFigures::kMost) + " objects of figures";
  if (isBad("push", told.push, ReadPushFigures)) {
    return ControlError{"bad-field", "push" + figures, "push"};
  }
  if (isBad("notices", told.notices, ReadNoticeFigures)) {
    return ControlError{"bad-field", "notices" + figures, "notices"};
  }
  return std::nullopt;
}

void GateQueries::Gate(const ControlRequest& request, const std::string& host) {
  Told told;
  if (const auto error = ReadTold(request.Message(), told)) {
    request.Fail(*error);
    return;
  }
  Take(request, std::move(told));
  request.Succeed("gate", Json{{"mode", m_facts.mode},
                               {"listen", m_facts.listen},
                               {"names", m_facts.names},
                               {"certificate", m_facts.certificate},
                               {"key", m_facts.key},
                               {"users", m_facts.users},
                               {"tokens", m_facts.tokens},
                               {"arguments", m_facts.arguments},
                               {"state", m_facts.state},
                               {"push", m_facts.push},
                               {"alarms", m_facts.alarms},
                               {"host", host},
                               {"version", QMT_VERSION}});
}

void GateQueries::Take(const ControlRequest& request, Told told) {
  const bool isGate = m_gate.lock() == request.SharedPeer();
  // Else any reader could take them away, or send people elsewhere.
  if (!(told.addresses || told.push || told.notices) || (IsGateThere() && !isGate)) {
    return;
  }
  if (!isGate) {
    m_addresses.clear();
    m_figures = {};
    m_gate = request.SharedPeer();
  }
  const auto put = [](auto& from, auto& to) {
    if (from) {
      to = *std::move(from);
    }
  };
  put(told.addresses, m_addresses);
  put(told.push, m_figures.push);
  put(told.notices, m_figures.notices);
}

void GateQueries::MakeToken(const ControlRequest& request) {
  const auto now = std::chrono::steady_clock::now();
  if (m_lastToken && now - *m_lastToken < kTokenPause) {
    request.Fail({"busy", "a console token has just been made: ask again in a second", ""});
    return;
  }
  m_lastToken = now;
  ConsoleToken token = m_tokens.Make();
  if (token.text.empty()) {
    request.Fail({"token-failed", "the system gives no random bits", ""});
    return;
  }
  request.Succeed("console", Json{{"token", std::move(token.text)},
                                  {"expires", token.expires},
                                  {"addresses", Addresses()}});
}

void GateQueries::CheckToken(const ControlRequest& request) {
  const Json* token = request.Message().Find("token");
  if (token == nullptr || !token->IsString()) {
    request.Fail({"bad-field", "token must be a text", "token"});
    return;
  }
  const std::time_t expires = m_tokens.Check(token->Text());
  request.Peer().Answer(request.AnswerHead() +
                        (expires == 0 ? ",\"valid\":false" : ",\"valid\":true") +
                        ",\"expires\":" + std::to_string(expires) + '}');
}

void GateQueries::Log(const ControlRequest& request) const {
  std::size_t count = RecentMessages::kMost;
  if (const Json* lines = request.Message().Find("lines"); lines != nullptr) {
    if (!lines->IsUnsigned() || lines->Unsigned() < 1 || lines->Unsigned() > count) {
      request.Fail({"bad-field", "lines must be a whole number from 1 to " + std::to_string(count),
                    "lines"});
      return;
    }
    count = lines->Unsigned();
  }
  Json list = Json::Array();
  for (RecentMessage& message : m_log ? m_log(count) : std::vector<RecentMessage>{}) {
    list.PushBack(Json{{"time", message.time},
                       {"level", KindName(message.kind)},
                       {"text", std::move(message.text)}});
  }
  request.Succeed("log", std::move(list));
}
