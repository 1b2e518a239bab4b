#include "gate/GatePages.h"

#include <utility>

#include "gate/console/AssetPages.h"
#include "gate/daemon/AnswerErrors.h"
#include "json/JsonText.h"

namespace {

constexpr std::string_view kApi = "/api/1/";

HttpAnswer PlainText(unsigned status, const char* text) {
  return {status, HttpAnswer{}.contentType, text};
}

/// What a program may answer a 401 with. The page asks its reader by itself, so that the browser
/// shows no dialog of its own.
void AddChallenge(HttpAnswer& answer, const HttpExchange& exchange) {
  answer.headers.emplace_back("WWW-Authenticate", "Bearer realm=\"qmtdmon\"");
  if (exchange.isTls && exchange.requestedWith.empty()) {
    answer.headers.emplace_back("WWW-Authenticate", "Basic realm=\"qmtdmon\", charset=\"UTF-8\"");
  }
}

HttpAnswer RefusalOf(const Verdict& verdict) {
  switch (verdict.kind) {
    case Verdict::Kind::kTooMany:
    case Verdict::Kind::kNoMemory:
      return ErrorAnswer(503, "busy", verdict.reason);
    case Verdict::Kind::kUnavailable:
      return ErrorAnswer(503, "no-daemon", verdict.reason);
    case Verdict::Kind::kGranted:
      return ErrorAnswer(403, "permission-denied",
                         verdict.name + " may fetch the metrics and no more");
    case Verdict::Kind::kRefused:
      return ErrorAnswer(401, "unauthorized", verdict.reason);
    case Verdict::Kind::kNone:
      break;
  }
  return ErrorAnswer(401, "unauthorized",
                     "this takes a token, which \"qmtctl console\" gives, or over TLS a user");
}

}  // namespace

GatePages::GatePages(DaemonDesk& desk)
    : m_desk(desk), m_metrics(desk), m_api(desk), m_events(desk) {}

void GatePages::ShowArguments(bool isShown) {
  m_showsArguments = isShown;
  m_api.ShowArguments(isShown);
  m_events.ShowArguments(isShown);
}

void GatePages::SetAccess(std::unique_ptr<Access> access, bool hasAccounts) {
  m_access = std::move(access);
  m_hasAccounts = hasAccounts;
}

bool GatePages::ShowsConsole(const HttpExchange& exchange) const {
  return exchange.isLoopback || (exchange.isTls && m_hasAccounts);
}

void GatePages::Serve(const ExchangePtr& exchange) {
  const std::string_view path = exchange->path;
  const bool isAsset = path == "/" || path.starts_with("/assets/");
  const bool isApi = path.starts_with("/api/");
  if (path == "/metrics" || path == "/metrics/node") {
    ServeMetrics(exchange);
  } else if (path == "/-/healthy") {
    exchange->Answer(PlainText(200, "healthy\n"));
  } else if (path == "/-/ready") {
    ServeReady(exchange);
  } else if ((isAsset || isApi) && !ShowsConsole(*exchange)) {
    exchange->Answer(ErrorAnswer(403, "permission-denied",
                                 "beyond the loopback this takes a certificate and users"));
  } else if (isAsset) {
    ServeAsset(*exchange);
  } else if (isApi) {
    ServeApi(exchange);
  } else {
    exchange->Answer(PlainText(404, "no such page\n"));
  }
}

void GatePages::Admit(const ExchangePtr& exchange, Role wanted,
                      std::function<void(const Verdict&)> serve) {
  if (m_access == nullptr) {
    exchange->Answer(ErrorAnswer(503, "no-daemon", "the daemon has not been asked yet"));
    return;
  }
  const AccessRequest request{exchange->authorization, exchange->isTls, exchange->isLoopback,
                              exchange->peer};
  m_access->Judge(request, [exchange, wanted, serve = std::move(serve)](const Verdict& verdict) {
    if (exchange->IsGone()) {
      return;
    }
    if (verdict.kind == Verdict::Kind::kGranted && verdict.role >= wanted) {
      serve(verdict);
      return;
    }
    HttpAnswer answer = RefusalOf(verdict);
    if (answer.status == 401) {
      AddChallenge(answer, *exchange);
    }
    exchange->Answer(std::move(answer));
  });
}

void GatePages::ServeMetrics(const ExchangePtr& exchange) {
  const auto serve = [this, exchange] {
    if (exchange->path == "/metrics") {
      m_metrics.Serve(exchange);
    } else {
      m_metrics.ServeNode(exchange);
    }
  };
  if (exchange->isTls && m_hasAccounts) {
    Admit(exchange, Role::kMetrics, [serve](const Verdict&) { serve(); });
  } else {
    serve();
  }
}

void GatePages::ServeReady(const ExchangePtr& exchange) {
  exchange->Hold(m_desk.AskJson(Json{{"op", "gate"}}, [exchange](const Json& answer) {
    const Json* ok = answer.Find("ok");
    const bool isReady = ok != nullptr && ok->IsBool() && ok->Bool();
    exchange->Answer(
        PlainText(isReady ? 200 : 503, isReady ? "ready\n" : "the daemon does not answer\n"));
  }));
}

void GatePages::ServeApi(const ExchangePtr& exchange) {
  const std::string_view path = exchange->path;
  if (!path.starts_with(kApi)) {
    exchange->Answer(ErrorAnswer(404, "no-page", "no such page"));
    return;
  }
  Admit(exchange, Role::kRead,
        [this, exchange, name = std::string(path.substr(kApi.size()))](const Verdict& verdict) {
          if (name == "events") {
            m_events.Serve(exchange, {verdict.grant.login, [this, grant = verdict.grant] {
                                        return m_access->Holds(grant, Role::kRead);
                                      }});
          } else if (name == "gate") {
            ServeGate(*exchange, verdict);
          } else {
            m_api.Serve(name, exchange);
          }
        });
}

void GatePages::ServeGate(HttpExchange& exchange, const Verdict& verdict) const {
  if (!exchange.arguments.empty()) {
    const std::string& name = exchange.arguments.front().first;
    exchange.Answer(ErrorAnswer(400, "bad-field", "unknown parameter \"" + name + '"', name));
    return;
  }
  const Json gate{{"version", QMT_VERSION},
                  {"addresses", m_addresses},
                  {"arguments", m_showsArguments},
                  {"failed_logins", Failures()},
                  {"listeners", m_events.Listeners()},
                  {"name", verdict.name},
                  {"role", RoleName(verdict.role)}};
  HttpAnswer answer{200, "application/json", JsonText(Json{{"ok", true}, {"gate", gate}}) + '\n'};
  answer.headers = {{"Cache-Control", "no-store"}};
  exchange.Answer(std::move(answer));
}
