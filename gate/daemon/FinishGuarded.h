#pragma once

#include <exception>

#include "gate/daemon/DaemonDesk.h"

/// Ends an answer by its Finish; one that can't be made, for want of memory, is ended as that of no
/// daemon, which is short, so that its reader does not wait for it.
template <class Answer>
void FinishGuarded(Answer& answer, DaemonDesk::End end) {
  try {
    answer.Finish(end);
  } catch (const std::exception&) {
    answer.Finish(DaemonDesk::End::kNoDaemon);
  }
}
