#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "client/looks/Pace.h"
#include "client/view/Wish.h"
#include "support/Descriptor.h"

/// Asks the daemon in a thread of its own, so that a slow one never holds up the keys. It looks at
/// once when the wish changes, and again with every beat as long as the wish is for now.
class Feed {
 public:
  /// Looks go to the daemon's control socket, `every` seconds apart. Throws UsageError for seconds
  /// that are no pace, ClientError.
  Feed(std::string socket, double every);
  /// Ends the thread, also while the daemon lets it wait.
  ~Feed();
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  /// Replaces the wish.
  void Ask(Wish wish);
  /// Whether looks go on; without, what is seen stays as it is.
  void SetPaused(bool isPaused);
  void SetEvery(double seconds);

  /// Readable when there is a sight to take.
  [[nodiscard]] int Ready() const { return m_ready.Get(); }
  /// The newest sight, once.
  [[nodiscard]] std::unique_ptr<Sight> Take();
  /// How long the daemon has been asked without an answer.
  [[nodiscard]] std::chrono::seconds Waiting() const;

 private:
  enum class Outcome { kWhole, kFirst, kFailed };

  void Run();
  /// Waits until there is something to look for: a wish of another number than `done`, or a beat of
  /// one that is for now, or of any if `last` failed. A first look has its second soon. Nothing at
  /// the end.
  [[nodiscard]] std::optional<Wish> AwaitWish(std::uint64_t done, Outcome last);
  void Give(std::unique_ptr<Sight> sight);

  std::string m_socket;
  Descriptor m_ready;
  Descriptor m_stop;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::optional<Wish> m_wish;
  std::unique_ptr<Sight> m_sight;
  std::optional<std::chrono::steady_clock::time_point> m_askedAt;
  Pace m_pace;
  bool m_isPaused = false;
  bool m_isEnding = false;
  std::thread m_thread;
};
