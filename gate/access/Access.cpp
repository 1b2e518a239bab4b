#include "gate/access/Access.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "gate/access/Authorization.h"
#include "io/OrIfNoMemory.h"
#include "support/AccountText.h"

namespace {

constexpr std::chrono::milliseconds kBetweenChecks{100};
constexpr std::size_t kMaxPasswordChecks = 32;
constexpr std::size_t kMaxTokenChecks = 256;
constexpr std::chrono::seconds kGoodFor{60};
constexpr std::chrono::seconds kConsoleGoodFor{600};
constexpr std::chrono::milliseconds kTellAfter{60'000};
constexpr std::size_t kMaxSharing = 64;

Verdict Denied(Verdict::Kind kind, const char* reason) { return {kind, Role::kNone, {}, reason}; }

Verdict NoMemory() { return Denied(Verdict::Kind::kNoMemory, "out of memory"); }

/// Those behind it are to be answered whatever comes of it.
void AnswerNoMemory(const Access::Callback& callback) {
  try {
    callback(NoMemory());
  } catch (const std::bad_alloc&) {
  }
}

void AnswerOne(const Access::Callback& callback, const Verdict& verdict) {
  try {
    callback(verdict);
  } catch (const std::bad_alloc&) {
    AnswerNoMemory(callback);
  }
}

Verdict TooMany() { return Denied(Verdict::Kind::kTooMany, "too many logins wait to be checked"); }

}  // namespace

Access::Access(const std::string& usersPath, const std::string& tokensPath, AccessHooks hooks,
               std::uint64_t failuresBefore)
    : m_hooks(std::move(hooks)),
      m_users(AccountKind::kUsers, usersPath, m_hooks.report),
      m_tokens(AccountKind::kTokens, tokensPath, m_hooks.report),
      m_failures(m_hooks.report, failuresBefore),
      m_passwordCheck(m_hooks.post, kBetweenChecks, kMaxPasswordChecks),
      m_tokenCheck(m_hooks.post, std::chrono::milliseconds(0), kMaxTokenChecks) {}

Access::~Access() = default;

void Access::Judge(const AccessRequest& request, Callback callback) {
  using Kind = Authorization::Kind;
  Authorization said = ParseAuthorization(request.authorization);
  const auto refuse = [&](const char* reason) {
    callback(Denied(Verdict::Kind::kRefused, reason));
  };
  if (said.kind == Kind::kNone) {
    callback(Denied(Verdict::Kind::kNone, "this needs a login"));
    return;
  }
  if (!request.isTls && !request.isLoopback) {
    refuse("without TLS nobody is let in from another host");
    return;
  }
  if (said.kind == Kind::kBroken) {
    FailLate(FailureTable::KeyOf(request.peerAddress), {std::move(callback)},
             Denied(Verdict::Kind::kRefused, "the header Authorization is broken"));
    return;
  }
  const bool isBasic = said.kind == Kind::kBasic;
  const std::size_t dot = isBasic ? std::string::npos : said.secret.rfind(kTokenDot);
  const bool isOfFile = isBasic || dot != std::string::npos;
  if (isOfFile && !request.isTls) {
    refuse("without TLS only a console token is taken");
    return;
  }
  const auto now = m_hooks.now();
  Login login = isBasic    ? LoginOf(std::move(said.name), std::move(said.secret), m_users, "user")
                : isOfFile ? LoginOf(said.secret.substr(0, dot), said.secret.substr(dot + 1),
                                     m_tokens, "token")
                           : ConsoleLogin(std::move(said.secret));
  login.isPassword = isBasic;
  if (const auto end = m_good.EndOf(login.key, now); login.isKnown && end) {
    login.end = *end;
    callback(Granted(login));
    return;
  }
  login.address = FailureTable::KeyOf(request.peerAddress);
  login.place = login.key + login.address;
  Prove(std::move(login), std::move(callback));
}

Access::Login Access::LoginOf(std::string name, std::string secret, AccountFile& file,
                              const char* kind) {
  const AccountTable& table = file.Look(m_hooks.now());
  const auto found = table.accounts.find(name);
  const bool isKnown = found != table.accounts.end();
  Login login;
  login.hash = isKnown ? found->second.hash : table.decoy;
  login.role = isKnown ? found->second.role : Role::kNone;
  login.isKnown = isKnown;
  login.key = m_good.KeyOf(kind, name, secret, login.hash);
  login.name = std::move(name);
  login.secret = std::move(secret);
  return login;
}

Access::Login Access::ConsoleLogin(std::string token) const {
  Login login;
  login.role = Role::kRead;
  login.isKnown = true;
  login.key = m_good.KeyOf("console", {}, token, {});
  login.name = "console";
  login.secret = std::move(token);
  return login;
}

Verdict Access::Granted(const Login& login) {
  return {Verdict::Kind::kGranted,
          login.role,
          login.name,
          {},
          {login.key, login.name, login.hash, login.isPassword, login.end}};
}

bool Access::Holds(const Grant& grant, Role wanted) {
  if (grant.hash.empty()) {
    return std::time(nullptr) < grant.end;
  }
  const AccountTable& table = (grant.isUser ? m_users : m_tokens).Look(m_hooks.now());
  const auto found = table.accounts.find(grant.name);
  return found != table.accounts.end() && found->second.hash == grant.hash &&
         found->second.role >= wanted;
}

void Access::Prove(Login login, Callback callback) {
  // A page asks for several things at once: one proof is enough for all of them.
  const auto found = m_waiting.find(login.place);
  if (found != m_waiting.end()) {
    if (found->second.size() < kMaxSharing) {
      found->second.push_back(std::move(callback));
    } else {
      callback(TooMany());
    }
    return;
  }
  if (login.isPassword) {
    ProvePassword(std::move(login), std::move(callback));
  } else {
    ProveToken(std::move(login), std::move(callback));
  }
}

void Access::ProvePassword(Login login, Callback callback) {
  const auto wait = m_failures.Enter(login.address, m_hooks.now());
  if (!wait) {
    callback(TooMany());
    return;
  }
  Wait(login, std::move(callback));
  OrGiveUp(login, [&] {
    if (wait->count() == 0) {
      StartCheck(login, m_passwordCheck);
      return;
    }
    m_hooks.after(*wait, [self = std::weak_ptr(m_self), login]() mutable {
      if (const auto access = self.lock()) {
        (*access)->OrGiveUp(login,
                            [&] { (*access)->StartCheck(login, (*access)->m_passwordCheck); });
      }
    });
    ::explicit_bzero(login.secret.data(), login.secret.size());
  });
}

void Access::ProveToken(Login login, Callback callback) {
  if (m_tokenChecks >= kMaxTokenChecks) {
    callback(TooMany());
    return;
  }
  ++m_tokenChecks;
  Wait(login, std::move(callback));
  OrGiveUp(login, [&] {
    if (login.hash.empty()) {
      AskConsole(login);
    } else {
      StartCheck(login, m_tokenCheck);
    }
  });
}

void Access::Wait(const Login& login, Callback callback) {
  OrIfNoMemory(
      [&] {
        std::vector<Callback> callbacks;
        callbacks.push_back(std::move(callback));
        m_waiting.emplace(login.place, std::move(callbacks));
      },
      [&] { EndCheck(login); });
}

template <class Step>
void Access::OrGiveUp(const Login& login, Step step) {
  OrIfNoMemory(step, [&] { Answer(login, NoMemory()); });
}

void Access::StartCheck(Login& login, PasswordCheck& check) {
  std::string secret = std::exchange(login.secret, {});
  const auto done = [self = std::weak_ptr(m_self), login](std::optional<bool> isRight) {
    if (const auto access = self.lock()) {
      if (isRight) {
        (*access)->Finish(login, *isRight && login.isKnown, kGoodFor);
      } else {
        (*access)->Answer(login, NoMemory());
      }
    }
  };
  if (!check.Check(std::move(secret), login.hash, done)) {
    Answer(login, TooMany());
  }
}

void Access::AskConsole(const Login& login) {
  m_hooks.askDaemon(login.secret, [self = std::weak_ptr(m_self), login = Login(login)](
                                      std::optional<bool> isValid, std::int64_t expires) mutable {
    const auto access = self.lock();
    if (access == nullptr) {
      return;
    }
    if (!isValid) {
      (*access)->Answer(login, Denied(Verdict::Kind::kUnavailable, "the daemon does not answer"));
      return;
    }
    const std::int64_t left = std::clamp<std::int64_t>(expires, 0, INT64_MAX) - std::time(nullptr);
    login.end = expires;
    (*access)->Finish(login, *isValid, std::min(kConsoleGoodFor, std::chrono::seconds(left)));
  });
}

void Access::Finish(const Login& login, bool isRight, std::chrono::seconds good) {
  OrGiveUp(login, [&] {
    if (isRight) {
      const Verdict granted = Granted(login);
      NoteGood(login, m_hooks.now() + good);
      Answer(login, granted);
      return;
    }
    const Verdict refusal = Denied(Verdict::Kind::kRefused, "the login is not right");
    if (login.isPassword) {
      CountFailure(login.address);
      Answer(login, refusal);
    } else {
      FailLate(login.address, TakeWaiting(login), refusal);
    }
  });
}

void Access::NoteGood(const Login& login, std::chrono::steady_clock::time_point until) {
  try {
    m_good.Add(login.key, until, login.end);
  } catch (const std::bad_alloc&) {
    // It has to be proved again next time.
  }
}

void Access::EndCheck(const Login& login) {
  if (login.isPassword) {
    m_failures.Leave(login.address);
  } else {
    --m_tokenChecks;
  }
}

void Access::Answer(const Login& login, const Verdict& verdict) {
  // A callback may ask again, or be the end of this object.
  for (const Callback& callback : TakeWaiting(login)) {
    AnswerOne(callback, verdict);
  }
}

std::vector<Access::Callback> Access::TakeWaiting(const Login& login) {
  const auto found = m_waiting.find(login.place);
  if (found == m_waiting.end()) {
    return {};
  }
  std::vector<Callback> callbacks = std::move(found->second);
  m_waiting.erase(found);
  EndCheck(login);
  return callbacks;
}

void Access::CountFailure(const std::string& address) {
  if (m_failures.Fail(address, m_hooks.now())) {
    TellLater();
  }
}

/// Counts a failure; its answers wait as long as those before it demand.
void Access::FailLate(const std::string& address, std::vector<Callback> callbacks,
                      const Verdict& verdict) {
  for (Callback& callback : callbacks) {
    if (AnswerLater(address, callback, verdict)) {
      callback = nullptr;
    }
  }
  try {
    CountFailure(address);
  } catch (const std::bad_alloc&) {
    // Who asked is to be answered all the same.
  }
  for (const Callback& callback : callbacks) {
    if (callback) {
      AnswerOne(callback, verdict);
    }
  }
}

bool Access::AnswerLater(const std::string& address, const Callback& callback,
                         const Verdict& verdict) {
  std::chrono::milliseconds wait{0};
  try {
    // Each has its own place, as each keeps a connection.
    wait = m_failures.EnterLate(address, m_hooks.now());
    if (wait.count() != 0) {
      m_hooks.after(wait, [self = std::weak_ptr(m_self), address, callback, verdict] {
        if (const auto access = self.lock()) {
          (*access)->m_failures.LeaveLate(address);
          AnswerOne(callback, verdict);
        }
      });
    }
    return wait.count() != 0;
  } catch (const std::bad_alloc&) {
    if (wait.count() != 0) {
      m_failures.LeaveLate(address);
    }
    AnswerNoMemory(callback);
    return true;
  }
}

void Access::TellLater() {
  if (m_isTellingLater) {
    return;
  }
  m_hooks.after(kTellAfter, [self = std::weak_ptr(m_self)] {
    if (const auto access = self.lock()) {
      (*access)->m_isTellingLater = false;
      (*access)->TellRest();
    }
  });
  m_isTellingLater = true;
}

void Access::TellRest() {
  OrIfNoMemory(
      [&] {
        if (m_failures.TellRest(m_hooks.now())) {
          TellLater();
        }
      },
      [&] { TellLater(); });
}
