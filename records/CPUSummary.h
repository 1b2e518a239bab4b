#pragma once

#include <cstdint>
#include <vector>

#include "support/TimeValues.h"
#include "support/UtlError.h"

class CPU;
class Collector;

/// All processors of one pass added up. Under the profile `modern` one that is off line counts as
/// it last did on line, so that no sum falls, nor jumps once it is back; one that was off line when
/// it was first looked at counts from its first look on line.
class CPUSummary {
 public:
  /// The collector is not owned.
  explicit CPUSummary(Collector* collector);

  /// Sums the collector's processor rows, once for each `requestId`. Null, or an error that the
  /// caller owns.
  [[nodiscard]] UtlError* Build(std::uint32_t requestId);
  void Clear();

  // Each of the following warns at level 30 before the first Build.
  [[nodiscard]] std::uint32_t GetCPUCount() const { return Read(m_cpuCount); }
  [[nodiscard]] std::uint32_t GetContextSwitches() const { return Read(m_contextSwitches); }
  [[nodiscard]] std::uint32_t GetTraps() const { return Read(m_traps); }
  [[nodiscard]] std::uint32_t GetInterrupts() const { return Read(m_interrupts); }
  [[nodiscard]] std::uint32_t GetSystemCalls() const { return Read(m_systemCalls); }
  [[nodiscard]] UtlTime GetIdleTime() const { return Read(m_idleTime); }
  [[nodiscard]] UtlTime GetUserTime() const { return Read(m_userTime); }
  [[nodiscard]] UtlTime GetKernelTime() const { return Read(m_kernelTime); }
  [[nodiscard]] UtlTime GetWaitTime() const { return Read(m_waitTime); }
  [[nodiscard]] UtlTime GetTotalTime() const { return Read(m_totalTime); }

 private:
  /// What one processor adds.
  struct Figures {
    std::uint32_t interrupts = 0;
    tagUTIME idleTime;
    tagUTIME userTime;
    tagUTIME kernelTime;
    tagUTIME waitTime;
  };

  /// What is known of one processor.
  struct History {
    Figures last;  ///< on line
    Figures base;  ///< what it had done unseen
    bool isSeen = false;
    bool isBaseDue = false;
  };

  /// What the processor's row says.
  Figures CurrentFigures(const CPU& cpu);
  /// The same, or what it last said on line, less what it had done unseen.
  Figures LastFigures(const CPU& cpu);
  template <class Value>
  const Value& Read(const Value& value) const {
    WarnUnlessBuilt();
    return value;
  }
  void WarnUnlessBuilt() const;
  void AddTime(UtlTime& field, const tagUTIME& value);

  Collector* m_collector;
  std::vector<History> m_histories;  ///< by the processor's number
  bool m_built = false;
  std::uint32_t m_lastRequest = 0;
  std::uint32_t m_cpuCount = 0;
  std::uint32_t m_contextSwitches = 0;
  std::uint32_t m_traps = 0;
  std::uint32_t m_interrupts = 0;
  std::uint32_t m_systemCalls = 0;
  UtlTime m_idleTime;
  UtlTime m_userTime;
  UtlTime m_kernelTime;
  UtlTime m_waitTime;
  UtlTime m_totalTime;
};
