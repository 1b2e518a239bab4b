#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "gate/alarm/AlarmReceiver.h"
#include "gate/alarm/FailureNote.h"
#include "gate/send/Backoff.h"
#include "gate/send/HttpSender.h"
#include "io/LoopTimer.h"

/// The texts of one alert of version 2 of Alertmanager's interface. `now`: seconds since the epoch;
/// an active alarm ends kAlertLife after that by itself. No time but that one is behind `now`, as
/// after a clock was set back: it would be refused, or not count as ended.
[[nodiscard]] Json AlertOf(const Alarm& alarm, const std::string& host, const std::string& link,
                           std::int64_t now);
inline constexpr std::int64_t kAlertLife = 240;

/// Keeps an Alertmanager told: news at once, all that is active each minute, as it forgets what it
/// does not hear of again, and each end until it has taken it. Of a request that it refuses halves
/// are sent, so that an alarm which it will not have, and which is given up, costs no other.
class AlertmanagerSender : public AlarmReceiver {
 public:
  struct Pace {
    std::chrono::milliseconds gather{200};  ///< what comes within this goes together
    std::chrono::milliseconds again{60000};
    Backoff::Pause first{1000};          ///< before a failed request is tried again
    std::chrono::seconds lateEnd{3600};  ///< an end that was not taken for so long is dropped
  };
  static constexpr std::size_t kMostAlarms = 10000;
  static constexpr std::size_t kMostOfRequest = 200;

  /// `loop` and `sender` outlive it. `url` is that of the server, without the path of its
  /// interface.
  AlertmanagerSender(IoLoop& loop, HttpSender& sender, const std::string& url,
                     AlarmReceiverSettings settings, Pace pace);

  void Take(const AlarmPtr& alarm, bool isNews) override;
  void Miss(std::uint64_t count) override { m_figures.dropped += count; }
  [[nodiscard]] const ReceiverFigures& Figures() const override { return m_figures; }
  void AddOwed(std::set<AlarmKey>& keys) const override;

 private:
  struct Notice {
    AlarmPtr alarm;
    bool isUntold = false;  ///< its news was not taken yet
  };
  using NoticePtr = std::shared_ptr<Notice>;

  void Plan(std::chrono::milliseconds pause);
  /// Where the step lacks memory all that is to be told is sent anew, later.
  template <class... Arguments>
  void Try(void (AlertmanagerSender::*step)(Arguments...), Arguments... arguments);
  void BeginRound();
  void EndRound();
  void SendNext();
  void OnResult(const SendResult& result);
  void OnFailure(const SendResult& result);
  void OnRefusal(const SendResult& result);
  /// The next of the round is done with: an end is forgotten, and so is all that was given up.
  void Drop(bool isGivenUp);
  void DropLate();

  HttpSender& m_sender;
  AlarmReceiverSettings m_settings;
  Pace m_pace;
  ReceiverFigures m_figures;
  FailureNote m_note;
  Backoff m_backoff;
  LoopTimer m_timer;
  std::map<AlarmKey, NoticePtr> m_alarms;  ///< active ones, and ends that were not taken yet
  std::vector<NoticePtr> m_round;  ///< what the present round has still to send, the next one last
  std::size_t m_onWay = 0;         ///< how many of them the present request holds
  std::size_t m_most = kMostOfRequest;  ///< and the next one may hold
  bool m_isSending = false;
  bool m_isWaiting = false;                  ///< for its next try, after a failure
  std::set<AlarmKey> m_news;                 ///< what no request has held yet
  LoopTimer::Clock::time_point m_fullRound;  ///< when all are sent again
  HttpSender::SendingPtr m_sending;
};
