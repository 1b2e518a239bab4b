#include "gate/access/Access.h"

#include <crypt.h>

#include <atomic>
#include <condition_variable>
#include <deque>

#include "gate/access/AccessError.h"
#include "gate/access/Authorization.h"
#include "tests/support/TempFolder.h"

namespace {

using namespace std::chrono_literals;
using testing::SizeIs;

std::string CryptHash(const std::string& secret, const char* prefix, unsigned long cost) {
  char salt[CRYPT_GENSALT_OUTPUT_SIZE];
  crypt_data data{};
  return ::crypt_r(secret.c_str(), ::crypt_gensalt_rn(prefix, cost, nullptr, 0, salt, sizeof salt),
                   &data);
}

const std::string kBcrypt = CryptHash("open", "$2b$", 4);
const std::string kYescrypt = CryptHash("sesame", "$y$", 1);
const std::string kTokenHash = CryptHash("secret", "$5$", 1000);

std::string ErrorOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const AccessError& error) {
    return error.what();
  }
  return {};
}

TEST(AccessTest, LinesOfFiles) {
  const std::string cost(kBcrypt.substr(7));
  const struct {
    AccountKind kind;
    std::string text;
    std::string error;  ///< empty if the text is fine
  } cases[] = {
      {AccountKind::kUsers, "\n# a\n  \na:" + kBcrypt + "\r\nb:" + kYescrypt + ":metrics", ""},
      {AccountKind::kTokens, "scraper:" + kTokenHash + ":metrics\n", ""},
      {AccountKind::kUsers, "a:" + kBcrypt + "\nb", "f:2: the line is not of the form"},
      {AccountKind::kUsers, "a b:" + kBcrypt, "f:1: the line is not of the form"},
      {AccountKind::kUsers, "a:" + kBcrypt + ":admin", "f:1: the role is neither"},
      {AccountKind::kUsers, "a:" + kBcrypt + ":", "f:1: the role is neither"},
      {AccountKind::kUsers, "a:" + kBcrypt + "\n\na:" + kYescrypt, "f:3: the name a stands"},
      {AccountKind::kUsers, "a:" + kTokenHash, "neither bcrypt"},
      {AccountKind::kUsers, "a:open", "neither bcrypt"},
      {AccountKind::kUsers, "a:" + kBcrypt.substr(1), "neither bcrypt"},
      {AccountKind::kUsers, "a:" + kBcrypt + "x", "the hash is broken"},
      {AccountKind::kUsers, "a:$2b$03$" + cost, "the hash is broken"},
      {AccountKind::kUsers, "a:$2b$15$" + cost, "too long"},
      {AccountKind::kUsers, "a:$y$jFT" + kYescrypt.substr(6), "too long"},
      {AccountKind::kUsers, "a:$y$", "the hash is broken"},
      {AccountKind::kTokens, "a:" + kTokenHash, "f:1: the role is neither"},
      {AccountKind::kTokens, "a:" + kBcrypt + ":read", "the hash is none that"},
      {AccountKind::kTokens, "a:$5$rounds=1000$salt$short:read", "the hash is none that"},
  };
  for (const auto& each : cases) {
    const std::string error =
        ErrorOf([&] { static_cast<void>(ParseAccounts(each.kind, each.text, "f")); });
    EXPECT_EQ(error.empty(), each.error.empty()) << each.text << error;
    EXPECT_THAT(error, HasSubstr(each.error)) << each.text;
  }
  const AccountTable table = ParseAccounts(
      AccountKind::kUsers, "a:" + kYescrypt + "\nb:" + kBcrypt + "\nc:" + kYescrypt, "f");
  EXPECT_EQ(table.decoy.substr(0, 7), "$y$j75$") << "of the kind that most have";
}

TEST(AccessTest, Headers) {
  using Kind = Authorization::Kind;
  const struct {
    std::string header;
    Kind kind;
    const char* name = "";
    const char* secret = "";
  } cases[] = {
      {"", Kind::kNone},
      {"Basic YTpvcGVu", Kind::kBasic, "a", "open"},
      {"basic  YTpvOnA=", Kind::kBasic, "a", "o:p"},
      {"Basic Og==", Kind::kBasic},
      {"Basic YQ==", Kind::kBroken},       // no colon
      {"Basic YTpvOnA", Kind::kBroken},    // no padding
      {"Basic YTpvOnB=", Kind::kBroken},   // bits left over
      {"Basic YTpv=nA=", Kind::kBroken},   // padding within
      {"Basic YTpvcGVu ", Kind::kBroken},  // a blank
      {"Basic YTpvAHA=", Kind::kBroken},   // a null byte
      {"Basic " + std::string(2048, 'A'), Kind::kBroken},
      {"bearer ab.cd", Kind::kBearer, "", "ab.cd"},
      {"Bearer", Kind::kBroken},
      {"Bearer a b", Kind::kBroken},
      {"Bearer " + std::string(257, 'a'), Kind::kBroken},
      {"Digest a", Kind::kBroken},
  };
  for (const auto& each : cases) {
    const Authorization read = ParseAuthorization(each.header);
    EXPECT_EQ(read.kind, each.kind) << each.header;
    EXPECT_EQ(read.name, each.name) << each.header;
    EXPECT_EQ(read.secret, each.secret) << each.header;
  }
}

/// A loop whose time is the test's own, with a daemon that knows one token.
class AccessRulesTest : public ::testing::Test {
 protected:
  AccessRulesTest() {
    Write("users", "a:" + kBcrypt + "\ny:" + kYescrypt + ":metrics\n");
    Write("tokens", "scraper:" + kTokenHash + ":metrics\n");
    m_access = Make();
  }
  ~AccessRulesTest() override { m_access.reset(); }

  [[nodiscard]] std::string Path(const char* name) const { return m_folder.Path() / name; }
  void Write(const char* name, const std::string& text) const {
    std::ofstream(Path(name) + ".new") << text;
    std::filesystem::rename(Path(name) + ".new", Path(name));
  }
  std::unique_ptr<Access> Make(std::uint64_t failuresBefore = 0) {
    AccessHooks hooks;
    hooks.post = [this](std::function<void()> action) {
      const std::scoped_lock lock(m_mutex);
      m_actions.push_back(std::move(action));
      m_wake.notify_one();
    };
    hooks.after = [this](std::chrono::milliseconds wait, std::function<void()> action) {
      m_timers.emplace_back(wait, std::move(action));
    };
    hooks.askDaemon = [this](const std::string& token, AccessHooks::TokenAnswer answer) {
      ++m_asked;
      if (token == "gone") {
        answer(std::nullopt, 0);
      } else {
        answer(token == "console", std::time(nullptr) + m_tokenLasts);
      }
    };
    hooks.report = [this](const std::string& text) { m_log.push_back(text); };
    hooks.now = [this] { return m_now; };
    return std::make_unique<Access>(Path("users"), Path("tokens"), std::move(hooks),
                                    failuresBefore);
  }
  void Ask(const std::string& header, bool isTls = true, bool isLoopback = false,
           const char* peer = "192.0.2.1") {
    m_access->Judge({header, isTls, isLoopback, peer},
                    [this](const Verdict& verdict) { m_verdicts.push_back(verdict); });
  }
  /// Runs what was posted until there are so many verdicts.
  void Await(std::size_t count) {
    while (m_verdicts.size() < count && RunAction()) {
    }
  }
  /// Runs the next that is posted.
  bool RunAction() {
    std::unique_lock lock(m_mutex);
    if (!m_wake.wait_for(lock, 20s, [this] { return !m_actions.empty(); })) {
      ADD_FAILURE() << "nothing is posted";
      return false;
    }
    const auto action = std::move(m_actions.front());
    m_actions.pop_front();
    lock.unlock();
    action();
    return true;
  }
  Verdict AskOnce(const std::string& header, bool isTls = true, bool isLoopback = false,
                  const char* peer = "192.0.2.1") {
    m_verdicts.clear();
    Ask(header, isTls, isLoopback, peer);
    for (bool isRunning = true; isRunning && m_verdicts.empty();) {
      RunTimers(20s);
      isRunning = !m_verdicts.empty() || RunAction();
    }
    return m_verdicts.empty() ? Verdict() : m_verdicts.front();
  }
  /// Runs those that wait no longer than that.
  void RunTimers(std::chrono::milliseconds longest) {
    for (auto& [wait, action] : std::exchange(m_timers, {})) {
      if (wait > longest) {
        m_timers.emplace_back(wait, std::move(action));
      } else {
        m_waits.push_back(wait);
        action();
      }
    }
  }

  TempFolder m_folder;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<std::function<void()>> m_actions;
  std::vector<std::pair<std::chrono::milliseconds, std::function<void()>>> m_timers;
  std::vector<std::chrono::milliseconds> m_waits;  ///< of the timers that were run
  std::vector<std::string> m_log;
  std::vector<Verdict> m_verdicts;
  int m_asked = 0;
  std::int64_t m_tokenLasts = 20;
  std::chrono::steady_clock::time_point m_now{1000s};
  std::unique_ptr<Access> m_access;
};

const std::string kUserHeader = "Basic YTpvcGVu";         // a:open
const std::string kMetricsHeader = "Basic eTpzZXNhbWU=";  // y:sesame
const std::string kTokenHeader = "Bearer scraper.secret";

TEST_F(AccessRulesTest, WhoMayDoWhat) {
  using Kind = Verdict::Kind;
  const struct {
    const char* text;
    std::string header;
    bool isTls;
    bool isLoopback;
    Kind kind;
    Role role = Role::kNone;
    const char* name = "";
  } cases[] = {
      {"nobody", "", true, true, Kind::kNone},
      {"a user", kUserHeader, true, false, Kind::kGranted, Role::kRead, "a"},
      {"a user for metrics", kMetricsHeader, true, true, Kind::kGranted, Role::kMetrics, "y"},
      {"a token", kTokenHeader, true, false, Kind::kGranted, Role::kMetrics, "scraper"},
      {"the console", "Bearer console", true, false, Kind::kGranted, Role::kRead, "console"},
      {"plain console", "Bearer console", false, true, Kind::kGranted, Role::kRead, "console"},
      {"plain user", kUserHeader, false, true, Kind::kRefused},
      {"plain token", kTokenHeader, false, true, Kind::kRefused},
      {"plain from afar", "Bearer console", false, false, Kind::kRefused},
      {"wrong password", "Basic YTpjbG9zZWQ=", true, false, Kind::kRefused},
      {"unknown user", "Basic YjpvcGVu", true, false, Kind::kRefused},
      {"wrong token", "Bearer scraper.secre", true, false, Kind::kRefused},
      {"unknown token", "Bearer other.secret", true, false, Kind::kRefused},
      {"wrong console", "Bearer guess", false, true, Kind::kRefused},
      {"no daemon", "Bearer gone", true, false, Kind::kUnavailable},
      {"no scheme", "Guess a", true, false, Kind::kRefused},
      {"broken base64", "Basic YTpjbG9zZWQ", false, true, Kind::kRefused},
  };
  for (const auto& each : cases) {
    const Verdict verdict = AskOnce(each.header, each.isTls, each.isLoopback);
    EXPECT_EQ(verdict.kind, each.kind) << each.text;
    EXPECT_EQ(verdict.role, each.role) << each.text;
    EXPECT_EQ(verdict.name, each.name) << each.text;
  }
  EXPECT_EQ(m_access->Failures(), 7U) << "of what was checked or is broken";
  EXPECT_EQ(Make(m_access->Failures())->Failures(), 7U);
}

TEST_F(AccessRulesTest, ProofsLastAndAreShared) {
  Ask(kUserHeader);
  Ask(kUserHeader);
  EXPECT_THAT(m_verdicts, IsEmpty());
  Await(2);
  EXPECT_THAT(m_actions, IsEmpty()) << "one check for both";
  Ask(kUserHeader);
  EXPECT_THAT(m_verdicts, SizeIs(3)) << "known by now";
  Ask("Bearer console");
  m_now += 19s;
  Ask("Bearer console");
  EXPECT_EQ(m_asked, 1);
  m_now += 2s;
  Ask("Bearer console");
  EXPECT_EQ(m_asked, 2) << "not longer than the token lasts";
  m_now += 40s;
  Ask(kUserHeader);
  EXPECT_THAT(m_verdicts, SizeIs(6)) << "to be proved again";
  Await(7);
  m_tokenLasts = 43200;
  m_now += 1s;
  for (const auto& [passed, asked] : {std::pair(0s, 3), {599s, 3}, {2s, 4}}) {
    m_now += passed;
    Ask("Bearer console");
    EXPECT_EQ(m_asked, asked) << "ten minutes at most";
  }

  Write("users", "a:" + CryptHash("other", "$2b$", 4) + "\n");
  m_now += 1s;
  EXPECT_EQ(AskOnce(kUserHeader).kind, Verdict::Kind::kRefused) << "the password was changed";
}

TEST_F(AccessRulesTest, FailuresAreSlowedAndTold) {
  for (int i = 0; i < 7; ++i) {
    AskOnce("Basic YTpjbG9zZWQ=");
  }
  EXPECT_THAT(m_waits, ElementsAre(200ms, 600ms, 1400ms, 3000ms, 6200ms))
      << "logins that come at once go one behind the other";
  EXPECT_EQ(m_verdicts.front().kind, Verdict::Kind::kTooMany) << "more than 10 s";
  m_waits.clear();
  m_now += 5s;
  EXPECT_EQ(AskOnce(kUserHeader, true, false, "192.0.2.2").kind, Verdict::Kind::kGranted);
  EXPECT_THAT(m_waits, IsEmpty()) << "another address";
  EXPECT_THAT(m_log, ElementsAre("a login from 192.0.2.1 failed"));
  m_now += 60s;
  RunTimers(60s);
  EXPECT_THAT(m_log,
              ElementsAre("a login from 192.0.2.1 failed", "5 logins from 192.0.2.1 failed"));
}

TEST_F(AccessRulesTest, TokensWaitForNobodysFailures) {
  const struct {
    const char* header;
    bool isPosted;  ///< it is checked by the thread
  } wrong[] = {{"Bearer guess", false}, {"Bearer a.guess", true}, {"Guess", false}};
  for (int i = 0; i < 5; ++i) {
    for (const auto& each : wrong) {
      Ask(each.header);
      if (each.isPosted) {
        RunAction();
      }
    }
  }
  EXPECT_EQ(m_access->Failures(), 15U);
  EXPECT_THAT(m_verdicts, SizeIs(1 + 6)) << "the first, and those beyond eight that are held back";
  m_verdicts.clear();
  Ask("Bearer console");
  EXPECT_THAT(m_verdicts, SizeIs(1));
  Ask(kTokenHeader);
  Await(2);
  for (const Verdict& verdict : m_verdicts) {
    EXPECT_EQ(verdict.kind, Verdict::Kind::kGranted);
  }
  RunTimers(20s);
  EXPECT_THAT(m_waits, ElementsAre(200ms, 400ms, 800ms, 1600ms, 3200ms, 5s, 5s, 5s));
  EXPECT_EQ(m_verdicts.back().kind, Verdict::Kind::kRefused);
  m_waits.clear();
  AskOnce(kUserHeader);
  EXPECT_THAT(m_waits, ElementsAre(5s)) << "a password waits, but not behind those answers";
  Ask("Bearer guess");
  EXPECT_THAT(m_timers.back().first, 5s) << "their places are free again";
}

TEST_F(AccessRulesTest, ChangedFiles) {
  const std::string path = Path("users");
  Write("users", "a:" + kBcrypt + ":metrics\n");
  m_now += 999ms;
  EXPECT_EQ(AskOnce(kUserHeader).role, Role::kMetrics) << "never looked at before";
  Write("users", "a:" + kBcrypt + "\n");
  EXPECT_EQ(AskOnce(kUserHeader).role, Role::kMetrics) << "within a second";
  m_now += 1s;
  EXPECT_EQ(AskOnce(kUserHeader).role, Role::kRead);
  Write("users", "a:" + kBcrypt + "\nb");
  for (int i = 0; i < 2; ++i) {
    m_now += 1s;
    EXPECT_EQ(AskOnce(kUserHeader).role, Role::kRead) << "the former stays";
  }
  EXPECT_THAT(m_log, ElementsAre(HasSubstr("users:2: ")));
  Write("users", "a:" + kBcrypt + ":metrics\n");
  ::chmod(path.c_str(), 0664);
  m_now += 1s;
  EXPECT_EQ(AskOnce(kUserHeader).role, Role::kRead);
  EXPECT_THAT(ErrorOf([&] { Make(); }), HasSubstr("others than its owner"));
  ::chmod(path.c_str(), 0640);
  m_now += 1s;
  EXPECT_EQ(AskOnce(kUserHeader).role, Role::kMetrics) << "its rights alone have changed";

  std::ofstream(path, std::ios::app) << std::string(1'000'000, '\n');
  EXPECT_THAT(ErrorOf([&] { Make(); }), HasSubstr("longer than"));
  std::filesystem::remove(path);
  EXPECT_THAT(ErrorOf([&] { Make(); }), HasSubstr("No such file"));
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_THAT(ErrorOf([&] { Make(); }), HasSubstr("no regular file"));
}

TEST_F(AccessRulesTest, WhatLetSomebodyInHoldsAsLongAsItsAccount) {
  m_tokenLasts = 20;
  Grant console = AskOnce("Bearer console").grant;
  const Grant user = AskOnce(kUserHeader).grant;
  const Grant again = AskOnce(kUserHeader).grant;
  EXPECT_EQ(user.login, again.login);
  EXPECT_NE(user.login, console.login);
  const auto hold = [&](Role wanted) {
    m_now += 1s;
    return std::pair(m_access->Holds(user, wanted), m_access->Holds(again, wanted));
  };
  EXPECT_EQ(hold(Role::kRead), std::pair(true, true));
  EXPECT_TRUE(m_access->Holds(console, Role::kRead));
  Write("users", "a:" + kBcrypt + ":metrics\n");
  EXPECT_EQ(hold(Role::kRead), std::pair(false, false));
  EXPECT_EQ(hold(Role::kMetrics), std::pair(true, true));
  Write("users", "a:" + kYescrypt + "\n");
  EXPECT_EQ(hold(Role::kRead), std::pair(false, false)) << "another password";
  EXPECT_LE(console.end, std::time(nullptr) + m_tokenLasts);
  console.end = std::time(nullptr);
  EXPECT_FALSE(m_access->Holds(console, Role::kRead));
  EXPECT_EQ(m_access->Failures(), 0U);
}

TEST_F(AccessRulesTest, TooManyAndAnEnd) {
  for (int i = 0; i < 9; ++i) {
    Ask("Basic YTp4" + std::string(static_cast<std::size_t>(i) * 4, 'a'));
  }
  EXPECT_THAT(m_verdicts, SizeIs(1)) << "eight of an address";
  for (int i = 0; i < 40; ++i) {
    Ask("Basic YTp4", true, false, ("198.51.100." + std::to_string(i)).c_str());
  }
  EXPECT_GE(m_verdicts.size(), 1 + 40 - (32 - 8) - 2U) << "32 in all";
  EXPECT_EQ(m_verdicts.back().kind, Verdict::Kind::kTooMany);
  const std::size_t before = m_verdicts.size();
  m_access.reset();
  for (const auto& action : m_actions) {
    action();
  }
  EXPECT_THAT(m_verdicts, SizeIs(before)) << "nobody is called any more";
}

TEST(PasswordCheckTest, EndsWithoutWaiting) {
  const auto clock = [] { return std::chrono::steady_clock::now(); };
  const auto start = clock();
  const std::string hash = CryptHash("open", "$2b$", 12);
  const auto duration = clock() - start;
  const auto posted = std::make_shared<std::atomic<int>>(0);
  auto check = std::make_unique<PasswordCheck>([posted](const auto&) { ++*posted; }, 0ms, 2);
  EXPECT_TRUE(check->Check("open", hash, [](std::optional<bool>) {}));
  std::this_thread::sleep_for(duration / 4);
  EXPECT_TRUE(check->Check("open", hash, [](std::optional<bool>) {}));
  EXPECT_TRUE(check->Check("open", hash, [](std::optional<bool>) {}));
  EXPECT_FALSE(check->Check("open", hash, [](std::optional<bool>) {})) << "two wait";
  const auto end = clock();
  check.reset();
  EXPECT_LT(clock() - end, duration / 2);
  EXPECT_TRUE(WaitUntil([&] { return posted.use_count() == 1; }, std::chrono::seconds(10)))
      << "the thread has ended";
  EXPECT_EQ(*posted, 0);
}

TEST(FailureTableTest, AddressesAndBounds) {
  const std::pair<const char*, const char*> cases[] = {
      {"192.0.2.1", "192.0.2.1"},
      {"::ffff:192.0.2.1", "192.0.2.1"},
      {"2001:db8:0:1:2::3", "2001:db8:0:1::/64"},
      {"fe80::1%eth0", "fe80::/64"},
      {"", ""},
  };
  for (const auto& [address, key] : cases) {
    EXPECT_EQ(FailureTable::KeyOf(address), key);
  }
  std::vector<std::string> log;
  FailureTable table([&](const std::string& text) { log.push_back(text); }, 5);
  const std::chrono::steady_clock::time_point start{1000s};
  for (int i = 0; i < 2000; ++i) {
    table.Fail(std::to_string(i), start + i * 1ms);
  }
  EXPECT_THAT(log, SizeIs(30)) << "of a minute";
  EXPECT_TRUE(table.TellRest(start + 62s));
  EXPECT_EQ(log.at(30), "946 logins from further addresses failed");
  EXPECT_EQ(table.Enter("0", start + 3s), 0ms) << "forgotten for others";
  EXPECT_EQ(table.Enter("1999", start + 3s), 200ms);
  EXPECT_EQ(table.Enter("1999", start + 602s), 0ms) << "forgotten after ten minutes";
  EXPECT_EQ(table.Failures(), 2005U);
}

}  // namespace
