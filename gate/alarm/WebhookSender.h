#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "gate/alarm/AlarmReceiver.h"
#include "gate/alarm/FailureNote.h"
#include "gate/send/Backoff.h"
#include "gate/send/HttpSender.h"
#include "io/LoopTimer.h"

/// Posts {"host","alarm"} to an address for each begin and end, one after the other in their order.
class WebhookSender : public AlarmReceiver {
 public:
  static constexpr int kMostTries = 5;
  /// Notices that wait; with one more the oldest is dropped.
  static constexpr std::size_t kMostWaiting = 1000;

  /// `loop` and `sender` outlive it. `pause` is the first one before a notice is tried again.
  WebhookSender(IoLoop& loop, HttpSender& sender, const std::string& url,
                AlarmReceiverSettings settings, Backoff::Pause pause = std::chrono::seconds(1));

  void Take(const AlarmPtr& alarm, bool isNews) override;
  void Miss(std::uint64_t count) override { m_figures.dropped += count; }
  [[nodiscard]] const ReceiverFigures& Figures() const override { return m_figures; }
  void AddOwed(std::set<AlarmKey>& keys) const override;

 private:
  /// Sends the next one after so long, and where memory lacks, once more later.
  void Plan(Backoff::Pause pause);
  void SendNext();
  void OnResult(const SendResult& result);

  HttpSender& m_sender;
  AlarmReceiverSettings m_settings;
  ReceiverFigures m_figures;
  FailureNote m_note;
  Backoff m_backoff;
  LoopTimer m_pause;
  std::deque<AlarmPtr> m_waiting;  ///< the first of them is being sent
  int m_tries = 0;                 ///< of that one
  bool m_isAtWork = false;         ///< it is on its way, or waits for its next try
  HttpSender::SendingPtr m_sending;
};
