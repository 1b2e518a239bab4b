#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "gate/GateLoop.h"
#include "gate/GatePages.h"
#include "gate/GateSettings.h"
#include "gate/TlsFiles.h"
#include "gate/access/AccessError.h"
#include "gate/alarm/AlarmDesk.h"
#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpServer.h"
#include "gate/push/PushDesk.h"
#include "gate/send/HttpSender.h"

/// The gate as a whole: asks the daemon what to work by, listens, serves, and sends. While the
/// daemon is away it goes on listening and asks again; settings that have changed then are taken
/// up.
class Gate {
 public:
  /// `controlPath`: the daemon's control socket. `isChild`: the daemon has started it. `state`: the
  /// folder that it may write to, empty for none.
  Gate(std::string controlPath, bool isChild, std::string state = "", const PushPace& pace = {});
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  /// Serves until a signal ends it, or at once where the daemon runs a gate of another kind. The
  /// exit value.
  [[nodiscard]] int Run();
  /// Has Run return. From any thread.
  void Stop() { m_loop.Stop(); }

 private:
  void AskSettings();
  /// Does what settings ask for; where that can't be done, for want of memory, they are asked for
  /// anew.
  template <class Action>
  void Guarded(Action action);
  void OnBytes(std::string_view bytes);
  void OnAnswer(const Json& answer);
  void AskAgain();
  void AskLater();
  void TakeUp(const GateSettings& settings);
  /// While a file of accounts or of the certificate is not as it should be.
  void LookAtFaults();
  void OpenAccess();
  void OpenTls();
  void NoteFault(const AccessError& error);
  void OpenListener(const std::string& text);
  void OpenAlarms();
  void TellAddresses();
  void OpenPush();
  [[nodiscard]] HttpSender& Sender();
  [[nodiscard]] Json NoticesJson() const;
  /// Has the daemon told what is sent, as soon as it may be told again.
  void TellFiguresSoon();
  void TellFigures();
  [[nodiscard]] AccessHooks Hooks();
  void CheckToken(const std::string& token, const AccessHooks::TokenAnswer& answer);

  bool m_isChild;
  std::string m_state;
  PushPace m_pace;
  GateLoop m_loop;
  DaemonDesk m_desk;
  GatePages m_pages;
  std::unique_ptr<TlsFiles> m_tls;
  std::vector<std::unique_ptr<HttpServer>> m_servers;
  GateSettings m_settings;
  /// The connection whose end tells that the daemon has ended; null between two of them.
  std::unique_ptr<DaemonAsk> m_link;
  std::string m_answer;
  bool m_hasSettings = false;
  bool m_hasFault = false;  ///< a file of accounts or of the certificate is not as it should be
  bool m_isFaultPassing = false;       ///< it may be as it should when it is read again
  std::set<std::string> m_toldFaults;  ///< of these files as they are
  bool m_areAddressesTold = false;     ///< on the present connection
  bool m_isToldGone = false;
  std::vector<FileStamp> m_faultStamps;
  LoopTimer m_fault;
  LoopTimer m_again;
  std::unique_ptr<HttpSender> m_sender;  ///< null until something is to be sent
  std::unique_ptr<PushDesk> m_push;
  LoopTimer m_tell;
  bool m_isTellDue = false;
  LoopTimer::Clock::time_point m_lastTold;
  std::unique_ptr<AlarmDesk> m_alarms;
};
