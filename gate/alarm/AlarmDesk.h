#pragma once

#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "gate/alarm/AlarmMemory.h"
#include "gate/alarm/AlarmReceiver.h"
#include "gate/alarm/MissedAlarms.h"
#include "gate/daemon/DaemonFollow.h"
#include "gate/send/HttpSender.h"
#include "io/FileWriter.h"
#include "io/LoopTimer.h"

/// Who is to be told of alarms.
struct AlarmTargets {
  std::vector<std::string> alertmanagers;  ///< addresses, as the next
  std::vector<std::string> webhooks;
  SendIdentity identity;  ///< for all of them
  std::string link;       ///< an address that receivers may show; empty for none
  std::string host;       ///< this host's name
  /// The folder where it is kept what was told; empty for none, and then a gate that begins tells
  /// all that is active, and no end that it has missed.
  std::string folder;

  friend bool operator==(const AlarmTargets&, const AlarmTargets&) = default;
};

/// Has the receivers told of each alarm that begins or ends, those that did so while the daemon
/// could not be followed too. Without a receiver it asks nothing. For the loop's thread.
class AlarmDesk {
 public:
  struct Hooks {
    /// Takes a line for the log.
    std::function<void(const std::string& text)> report;
    /// Figures have changed.
    std::function<void()> onFigures;
    /// The clock.
    std::function<std::time_t()> now = [] { return std::time(nullptr); };
  };

  /// `desk` and `sender` outlive it.
  AlarmDesk(DaemonDesk& desk, HttpSender& sender, AlarmTargets targets, Hooks hooks);
  ~AlarmDesk();
  AlarmDesk(const AlarmDesk&) = delete;
  AlarmDesk& operator=(const AlarmDesk&) = delete;

  [[nodiscard]] const AlarmTargets& Targets() const { return m_targets; }
  /// Of each receiver.
  [[nodiscard]] std::vector<ReceiverFigures> Figures() const;

 private:
  void MakeReceivers();
  void Remember();
  void Follow();
  void FollowAgain(std::chrono::milliseconds pause);
  void OnAnswer(bool isGood, std::string_view line);
  void OnLine(std::string_view line);
  void TakeActive(const Json& list);
  void AskMissed();
  void TellMissed();
  void GoLive();
  /// Has it noted now and then until when all is known.
  void NoteContact();
  void EndForgotten();
  void TakeEvent(const AlarmPtr& alarm);
  /// `isNews`: to all receivers, else to those alone that it is owed to.
  void Tell(const AlarmPtr& alarm, bool isNews);
  void PlanSave();
  void Save();
  void OnSaved(const std::string& error);

  DaemonDesk& m_desk;
  HttpSender& m_sender;
  AlarmTargets m_targets;
  Hooks m_hooks;
  std::vector<std::unique_ptr<AlarmReceiver>> m_receivers;
  AlarmMemory m_memory;
  /// As it was when the daemon was asked last, but that what is new is measured by what was told
  /// when it was followed last.
  AlarmMemory m_before;
  AlarmMemory m_saved;                    ///< what the file was given last
  std::map<AlarmKey, AlarmPtr> m_active;  ///< as they were told last
  std::set<AlarmKey> m_listed;            ///< what the daemon has told to be active at first
  std::optional<MissedAlarms> m_missed;   ///< while it is asked for them
  std::unique_ptr<DaemonFollow> m_follow;
  bool m_isLive = false;             ///< what was missed is told
  bool m_isCatchingUp = false;       ///< from an answer on until it is
  std::vector<std::string> m_lines;  ///< that came before it was
  DaemonDesk::QuestionPtr m_question;
  LoopTimer m_again;
  LoopTimer m_save;
  LoopTimer m_tick;
  FileWriter m_file;
  bool m_isSavePlanned = false;
  bool m_isRefusalTold = false;
  bool m_isFaultTold = false;  ///< that the file can't be written
};
