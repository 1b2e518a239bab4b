#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "gate/console/ApiRequest.h"
#include "gate/console/EventFrame.h"
#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpExchange.h"
#include "io/LoopTimer.h"

/// Who reads events.
struct EventReader {
  std::string login;              ///< the same for all readers that log in by the same
  std::function<bool()> isLetIn;  ///< whether that still lets it in
};

/// One reader of events. What it has missed is read back from history first, a stretch of time
/// after the other, each with an id at its end, and as fast as the reader takes it; what is made
/// meanwhile waits. One that takes too little is ended, and may come back with the id that it has.
class EventListener : public std::enable_shared_from_this<EventListener> {
 public:
  /// Bytes that may wait for one reader, beyond the event that comes next.
  static constexpr std::size_t kMostWaiting = std::size_t{1} << 20;
  /// The farthest that is read back; beyond it the reader is told that it has lost something.
  static constexpr std::int64_t kMostSecondsBack = 3600;

  EventListener(DaemonDesk& desk, EventReader reader, EventQuery query,
                std::shared_ptr<HttpStream> stream, bool showsArguments);
  ~EventListener();
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  /// `now`: seconds since the epoch.
  void Start(std::int64_t now);
  void Give(const EventFrame& frame);
  [[nodiscard]] const EventReader& Reader() const { return m_reader; }
  [[nodiscard]] bool IsGone() const { return m_stream->IsGone() || m_stream->IsEnded(); }
  void End() {
    StopReading();
    m_stream->End();
  }
  /// Ends it if its reader has closed the connection.
  void EndIfLeft() {
    if (m_stream->HasPeerEnded()) {
      End();
    }
  }

 private:
  /// Whether it is to be given more. Who is let in no longer is ended, and gets nothing
  /// that waits.
  [[nodiscard]] bool IsServed();
  [[nodiscard]] bool Wants(const EventFrame& frame) const;
  /// A step of reading back: where memory lacks the stream ends, and its reader comes again.
  template <class Step>
  void OrEnd(Step step);
  void Put(const EventFrame& frame);
  void AskSchedules();
  void TakeSchedules(const Json& answer);
  void StopReading();
  void BeginStretch();
  void EndStretch();
  void ReadBackNext(const Json& after);
  void WaitForReader(const Json& after, int patience);
  void TakePage(const Json& answer);
  void PutRows(const Json& history, bool isLast);
  void Lose(const std::string& reason);
  void GoLive();

  /// Readers whose past is read back at a time.
  static constexpr int kMostReading = 4;
  static inline int s_reading = 0;

  DaemonDesk& m_desk;
  EventReader m_reader;
  EventQuery m_query;
  std::shared_ptr<HttpStream> m_stream;
  bool m_showsArguments;
  bool m_isLive = true;
  std::vector<std::string> m_records;  ///< whose past is read back
  std::vector<std::string> m_toRead;   ///< those of them in the present stretch, the next one last
  std::int64_t m_stretchSeconds = 0;
  std::int64_t m_stretchEnd = 0;  ///< the first second behind it
  std::int64_t m_pastEnd = 0;  ///< that of the last stretch, which has all that has been kept since
  LoopTimer m_pause;
  bool m_isReading = false;  ///< counted in s_reading
  std::string m_rows;        ///< of the time that the last page has ended in
  std::int64_t m_rowsTime = 0;
  std::deque<EventFrame> m_waiting;  ///< made while the past is read
  std::size_t m_waitingBytes = 0;
  DaemonDesk::QuestionPtr m_question;
};
