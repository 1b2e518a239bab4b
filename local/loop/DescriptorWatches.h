#pragma once

#include <map>
#include <memory>
#include <system_error>

#include "local/log/ProblemReport.h"
#include "local/loop/EventLoop.h"

/// Watches descriptors that somebody else owns: as long as one is readable, a CMBSocketEvent is
/// delivered, again after each handling.
class DescriptorWatches {
 public:
  DescriptorWatches(EventLoop& loop, ProblemReport report);
  ~DescriptorWatches();
  DescriptorWatches(const DescriptorWatches&) = delete;
  DescriptorWatches& operator=(const DescriptorWatches&) = delete;

  /// A watch of the same number is replaced. 0, or the errno of what can't be watched.
  [[nodiscard]] int Watch(int descriptor);
  /// No event of that descriptor is delivered any more, not even one that waits already. 0 if it
  /// was watched, else 1.
  int Unwatch(int descriptor);

 private:
  struct Entry;
  void Arm(const std::shared_ptr<Entry>& entry);
  void OnReadable(const std::shared_ptr<Entry>& entry, const std::error_code& error);
  void PostEvent(const std::shared_ptr<Entry>& entry);

  EventLoop& m_loop;
  ProblemReport m_report;
  std::map<int, std::shared_ptr<Entry>> m_entries;
};
