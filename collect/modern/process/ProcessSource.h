#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collect/ProcessWalk.h"
#include "collect/Source.h"
#include "collect/modern/process/KeptArguments.h"
#include "collect/process/ProcessSourceLINUX.h"

struct ProcessPages;
struct ProcessStat;

/// Walks /proc as the kernels of today fill it and gives one row per process, from its stat, statm,
/// status, io and cmdline, and its limits and cwd where they are asked for; the limits go into
/// Collector::GetProcessLimits(). Nothing asks for its root. A process that has ended has no row
/// and costs two looks; one that stays in execve(2) has none either, see ExecWait.h. A thread
/// group whose leader has ended is told by its first live thread. The boot time is that of
/// /proc/stat at the walk; without it no process has a start time. The category fails only if /proc
/// cannot be opened, or /proc/stat goes beyond its limit.
class ModernProcessSource : public PtrSource<Process, Process, std::vector<Process>> {
 public:
  ModernProcessSource();
  ~ModernProcessSource() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(Process* record) override;
  /// Reads one process without a walk, for a source that has the others from elsewhere; its limits
  /// go behind those that the collector has. False if it has no row.
  [[nodiscard]] bool ReadSingle(Collector* collector, std::int32_t pid, Process& record);
  /// Publishes the two figures below if they aren't yet, and has them begin anew; of a collection
  /// without a walk they are 0.
  static void BeginFigures();
  /// Processes of the last walk that are there but have no row, as they cannot be read.
  [[nodiscard]] static std::uint32_t Skipped() { return s_skipped; }
  /// Adds one that another source has left out.
  static void CountSkipped() { ++s_skipped; }
  /// Processes of the last walk whose io may not be read; its figures are 0.
  [[nodiscard]] static std::uint32_t IoDenied() { return s_ioDenied; }
  /// What walks keep for the next one: for when there is none.
  static void ForgetArguments() { s_arguments.Clear(); }

 private:
  /// The files of a process that are read, but for that of its arguments.
  enum FileOfProcess : std::size_t { kStat, kStatm, kStatus, kIo, kLimits, kFiles };
  struct FileRule;
  /// What the walk has seen of one kind of file, for what is told at its end.
  struct Seen {
    bool missing = false;       ///< somewhere
    bool there = false;         ///< somewhere
    std::uint32_t entries = 0;  ///< that were there in any
  };

  static const std::array<FileRule, kFiles> kFileRules;
  static constexpr std::size_t kMostText = 8192;

  void Begin();
  void TakeWishes();
  void End();
  [[nodiscard]] bool ReadProcess(const char* pid, Process& record);
  [[nodiscard]] std::optional<ProcessPages> ReadPages(ProcessFolder& folder);
  /// All but the figures of the calls, which a group has as a whole; false if there is no status.
  [[nodiscard]] bool ReadMemory(ProcessFolder& folder, const std::optional<ProcessPages>& pages,
                                Process& record);
  /// Those of the leader alone, which a difference may be made of whichever thread lives.
  void ReadSwitches(ProcessFolder& folder, Process& record);
  void ReadIo(ProcessFolder& folder, Process& record);
  void TakeArguments(ProcessFolder& folder, Process& record);
  [[nodiscard]] ProcessLimits ReadLimits(ProcessFolder& folder);
  /// Makes `name` the folder below /proc of a live thread, and takes from its stat what the ended
  /// leader's lacks. False if there is none.
  [[nodiscard]] bool FindLiveThread(const char* pid, ProcessStat& stat, ProcessPath& name);
  /// The text of a file of a process, valid until the next one is read; `errno` tells of an empty
  /// one why it is (0: the file is so).
  [[nodiscard]] std::string_view ReadFile(ProcessFolder& folder, FileOfProcess file);
  /// Counts a process without a row, unless it has ended meanwhile.
  void Skip(const char* pid, FileOfProcess file, int code);

  inline static SourceStatistics s_statistics;
  inline static std::uint32_t s_skipped = 0;
  inline static std::uint32_t s_ioDenied = 0;
  inline static KeptArguments s_arguments;  ///< of walks, which forget them

  ProcessWalk m_walk;
  std::int32_t m_bootTime = 0;  ///< 0 if unknown
  std::uint64_t m_pageBytes = 0;
  std::vector<ProcessLimits>* m_limits = nullptr;  ///< null where they are not asked for
  bool m_wantsFolder = false;
  bool m_hasBegun = false;
  bool m_isSingle = false;
  std::array<Seen, kFiles> m_seen{};
  std::array<char, kMostText> m_text{};
  std::string m_longText;  ///< of a status that does not fit there
};
