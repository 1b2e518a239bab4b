#pragma once

#include <memory>

#include "local/control/ControlRequest.h"
#include "local/control/RequestTurns.h"
#include "local/loop/EventLoop.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/RecordSink.h"
#include "local/schedule/ScheduleBook.h"

/// The operations that answer with rows: `get`, one batch for all the records of a request, and
/// `last`, what the schedules have left.
class RecordQueries {
 public:
  RecordQueries(EventLoop& loop, RequestTurns& turns, BatchDesk& desk, const ScheduleBook& schedule,
                const LastRows& lastRows)
      : m_loop(loop), m_turns(turns), m_desk(desk), m_schedule(schedule), m_lastRows(lastRows) {}

  void Get(const std::shared_ptr<ControlRequest>& request);
  void Last(const std::shared_ptr<ControlRequest>& request);

 private:
  struct GetPlan;
  void RunGet(CMBNode& node, const GetPlan& plan);
  void AnswerGet(CMBNode& node, const GetPlan& plan);

  EventLoop& m_loop;
  RequestTurns& m_turns;
  BatchDesk& m_desk;
  const ScheduleBook& m_schedule;
  const LastRows& m_lastRows;
};
