#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "gate/access/AccountFile.h"
#include "gate/access/FailureTable.h"
#include "gate/access/GoodLogins.h"
#include "gate/access/PasswordCheck.h"

/// What is known of a request that wants in. Its texts need only last for the call.
struct AccessRequest {
  std::string_view authorization;  ///< the value of the header, empty if there is none
  bool isTls = false;
  bool isLoopback = false;       ///< the listener's address is one of the loopback
  std::string_view peerAddress;  ///< without a port
};

/// What somebody was let in by, for who looks later whether it still is so.
struct Grant {
  std::string login;  ///< no two logins have the same; without the secret
  std::string name;
  std::string hash;  ///< of the account, empty for a console token
  bool isUser = false;
  std::int64_t end = INT64_MAX;  ///< of a console token, in seconds since the epoch
};

/// What comes of it.
struct Verdict {
  enum class Kind {
    kNone,         ///< it says nothing of who asks
    kGranted,      ///< `role` and `name` tell who asks
    kRefused,      ///< what it says is not right
    kTooMany,      ///< too many wait to be checked
    kUnavailable,  ///< the daemon can't be asked about the token
    kNoMemory      ///< it can't be checked for want of memory
  };

  Kind kind = Kind::kNone;
  Role role = Role::kNone;
  std::string name;    ///< of a user or a token, or "console"
  std::string reason;  ///< of what is not granted, for who asked; it gives nothing away
  Grant grant = {};    ///< of what is granted
};

/// What the room takes from the program around it.
struct AccessHooks {
  /// Tells whether the console token is one, and until when, in seconds since the epoch; nothing if
  /// the daemon can't be asked.
  using TokenAnswer = std::function<void(std::optional<bool> isValid, std::int64_t expires)>;

  /// Has the loop run an action soon. Called from a thread that is not the loop's.
  PasswordCheck::Poster post;
  /// Has the loop run an action after so long.
  std::function<void(std::chrono::milliseconds, std::function<void()> action)> after;
  /// Asks the daemon's `token_check`; answers once, at once or later on the loop.
  std::function<void(const std::string& token, TokenAnswer answer)> askDaemon;
  /// Writes a line into the log.
  std::function<void(const std::string& text)> report;
  std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};

/// Says who asks and what that one may see. For the loop's thread alone.
class Access {
 public:
  using Callback = std::function<void(const Verdict& verdict)>;

  /// The paths of the files of users and of tokens may be empty. `failuresBefore` is what
  /// Failures() goes on from. Throws AccessError.
  Access(const std::string& usersPath, const std::string& tokensPath, AccessHooks hooks,
         std::uint64_t failuresBefore = 0);
  ~Access();
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

  /// Calls `callback` once, at once or later on the loop; not after this object is gone. One that
  /// ends for want of memory is called once more, by kNoMemory.
  ///
  /// Over TLS users are let in by Basic, tokens of the file and console tokens by Bearer; without
  /// it, console tokens on the loopback and nothing elsewhere. Who has proved right need not again
  /// for a minute; with a console token for ten, but no longer than it lasts. A failure, which a
  /// broken header is too, delays what comes from its address next, see FailureTable: the check of
  /// a password, of all else the answer of a further failure, so that a token that is right waits
  /// for nobody's failures.
  void Judge(const AccessRequest& request, Callback callback);

  /// Whether who was let in by that would be now, to what wants such a role. Nothing is proved
  /// anew; what counts is that the account is as it was, or the console token has not ended.
  [[nodiscard]] bool Holds(const Grant& grant, Role wanted);

  /// Failed logins since the start, those before included.
  [[nodiscard]] std::uint64_t Failures() const { return m_failures.Failures(); }

 private:
  /// Something that has to be proved.
  struct Login {
    std::string name;
    std::string secret;
    std::string hash;  ///< empty for a console token
    Role role = Role::kNone;
    bool isKnown = false;
    bool isPassword = false;
    std::string key;               ///< of m_good
    std::string address;           ///< of m_failures
    std::string place;             ///< of m_waiting: both of them
    std::int64_t end = INT64_MAX;  ///< of a console token, once it is proved
  };
  /// All that wait for the proof of one login from one address.
  using Waiting = std::unordered_map<std::string, std::vector<Callback>>;

  [[nodiscard]] Login LoginOf(std::string name, std::string secret, AccountFile& file,
                              const char* kind);
  [[nodiscard]] Login ConsoleLogin(std::string token) const;
  [[nodiscard]] static Verdict Granted(const Login& login);
  void Prove(Login login, Callback callback);
  void ProvePassword(Login login, Callback callback);
  void ProveToken(Login login, Callback callback);
  /// The check has begun, and who asked waits for it.
  void Wait(const Login& login, Callback callback);
  /// A step of a check that is under way: where memory lacks the check is over.
  template <class Step>
  void OrGiveUp(const Login& login, Step step);
  /// Takes the secret.
  void StartCheck(Login& login, PasswordCheck& check);
  void AskConsole(const Login& login);
  void Finish(const Login& login, bool isRight, std::chrono::seconds good);
  void NoteGood(const Login& login, std::chrono::steady_clock::time_point until);
  void EndCheck(const Login& login);
  /// Nothing once it was answered.
  void Answer(const Login& login, const Verdict& verdict);
  /// Ends the check; none once they were taken.
  [[nodiscard]] std::vector<Callback> TakeWaiting(const Login& login);
  void CountFailure(const std::string& address);
  void FailLate(const std::string& address, std::vector<Callback> callbacks,
                const Verdict& verdict);
  /// Whether the callback waits, or has been answered for want of memory.
  bool AnswerLater(const std::string& address, const Callback& callback, const Verdict& verdict);
  void TellLater();
  void TellRest();

  AccessHooks m_hooks;
  AccountFile m_users;
  AccountFile m_tokens;
  GoodLogins m_good;
  FailureTable m_failures;
  Waiting m_waiting;
  std::size_t m_tokenChecks = 0;  ///< that are under way
  bool m_isTellingLater = false;
  /// Gone with this object, which actions that are still with the loop look for.
  std::shared_ptr<Access*> m_self = std::make_shared<Access*>(this);
  PasswordCheck m_passwordCheck;
  PasswordCheck m_tokenCheck;  ///< its own, so that tokens don't queue behind passwords
};
