#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "io/IoLoop.h"
#include "node/Node.h"

/// What waits for its turn. Any of the functions may be empty.
struct LoopTask {
  std::function<void(CMBNode&)> run;
  std::function<void()> drop;  ///< called instead of `run` where the loop ends before its turn
  bool isBatch = false;
  /// Called after a `run` that has ended for want of memory, to answer whoever waits for it.
  std::function<void()> fail = {};
};

/// The event loop of one thread. Callbacks of the I/O library only put tasks into a queue; Run
/// takes one at a time and runs it outside the library, so that a handler may Yield in the middle
/// of its work. Inside a Yield the waiting tasks are run, but no batch: a second batch waits until
/// the first is done. A Yield inside a Yield does nothing. A batch that has not begun may Hold.
class EventLoop : public IoLoop {
 public:
  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  void Post(LoopTask task) { m_queue.push_back(std::move(task)); }

  /// Runs tasks until a stop is asked for, then drops what still waits. The stop is used up by
  /// that. What a task throws leaves Run, but for want of memory, which ends that task alone.
  void Run(CMBNode& node);
  /// One turn for 0 seconds; else turns until nothing waits or the time is over. Outside a task of
  /// Run nothing happens.
  void Yield(long seconds);
  /// What to do when a task or a callback has ended for want of memory.
  void OnNoMemory(std::function<void()> action) { m_onNoMemory = std::move(action); }
  /// Does `step` here and now. Want of memory ends that step alone, as it ends a task of Run, so
  /// that the steps behind it are taken.
  void Try(const std::function<void()>& step);
  /// Runs tasks for so long, batches included, and waits where there are none: for a batch that has
  /// not begun its work. False, at once, in a task of a Yield or of another Hold and outside a task
  /// of Run; false as soon as a stop is asked for.
  [[nodiscard]] bool Hold(long seconds);
  /// Frees the object as soon as no task is running.
  void Retire(std::shared_ptr<void> object);
  /// Handles I/O alone, no task, until `isDone` or the time is over.
  void Pump(std::chrono::steady_clock::duration limit, const std::function<bool()>& isDone);

  /// Makes Run return, also one that has not begun, in this or a later loop. Async-signal-safe and
  /// independent of any object.
  static void RequestStop() noexcept;
  [[nodiscard]] static bool IsStopRequested() noexcept;

 private:
  void WatchWakeUps();
  /// Handles the I/O that is ready, within bounds; whether there was any.
  bool PollIo();
  bool PollOne();
  void WaitForIo();
  void WaitForIoUntil(std::chrono::steady_clock::time_point deadline);
  /// Runs the tasks that wait, batches only if they may; whether there were any.
  bool DeliverWaiting(bool withBatches);
  void Deliver(LoopTask task);
  void FreeRetired();
  void DropWaiting();

  struct Library;
  std::unique_ptr<Library> m_library;
  CMBNode* m_node = nullptr;
  int m_depth = 0;  ///< 0 between tasks, 1 in a task of Run, 2 in a task of a Yield or Hold
  std::deque<LoopTask> m_queue;
  std::function<void()> m_onNoMemory = [] {};
  std::vector<std::shared_ptr<void>> m_retired;
};
