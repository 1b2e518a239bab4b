#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gate/GateLoop.h"
#include "gate/GatePages.h"
#include "gate/GateSettings.h"
#include "gate/TlsFiles.h"
#include "gate/alarm/AlarmDesk.h"
#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpServer.h"
#include "gate/send/HttpSender.h"

/// The gate as a whole: asks the daemon what to work by, listens, and serves. While the daemon is
/// away it goes on listening and asks again; settings that have changed then are taken up.
class Gate {
 public:
  /// `controlPath`: the daemon's control socket. `isChild`: the daemon has started it.
  Gate(std::string controlPath, bool isChild);
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
  void OnBytes(std::string_view bytes);
  void OnAnswer(const Json& answer);
  void AskAgain();
  void TakeUp(const GateSettings& settings);
  /// While a file of accounts or of the certificate is not as it should be.
  void LookAtFaults();
  void OpenAccess();
  void OpenTls();
  void OpenListener(const std::string& text);
  void OpenAlarms();
  void TellAddresses();
  /// Tells soon what receivers of alarms have been sent.
  void PlanNotices();
  [[nodiscard]] Json NoticesJson() const;
  [[nodiscard]] AccessHooks Hooks();
  void CheckToken(const std::string& token, const AccessHooks::TokenAnswer& answer);

  bool m_isChild;
  GateLoop m_loop;
  DaemonDesk m_desk;
  GatePages m_pages;
  std::unique_ptr<TlsFiles> m_tls;
  std::vector<std::unique_ptr<HttpServer>> m_servers;
  GateSettings m_settings;
  /// The connection whose end tells that the daemon has ended.
  std::unique_ptr<DaemonAsk> m_link;
  std::string m_answer;
  bool m_hasSettings = false;
  bool m_hasFault = false;  ///< a file of accounts or of the certificate is not as it should be
  bool m_areAddressesTold = false;  ///< on the present connection
  bool m_isToldGone = false;
  std::vector<FileStamp> m_faultStamps;
  LoopTimer m_fault;
  LoopTimer m_again;
  LoopTimer m_notices;
  bool m_areNoticesPlanned = false;
  /// Made with the first who is to be sent something, as the library behind it takes memory.
  std::unique_ptr<HttpSender> m_sender;
  std::unique_ptr<AlarmDesk> m_alarms;  ///< null while nobody is to be told
};
