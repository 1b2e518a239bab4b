#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "collect/ProcessWalk.h"
#include "collect/modern/process/TaskStream.h"
#include "collect/modern/process/TaskTimes.h"

struct ProcessLimits;
struct ProcessSurroundings;
struct KeptSurroundings;

/// The figures of a process that only grow.
inline constexpr std::array kGrowingTaskFigures{
    &TaskFigures::minorFaults, &TaskFigures::majorFaults, &TaskFigures::readChars,
    &TaskFigures::writeChars,  &TaskFigures::readCalls,   &TaskFigures::writeCalls,
    &TaskFigures::readBytes,   &TaskFigures::writeBytes,  &TaskFigures::cancelledBytes};

/// What is kept of one process while it lives, since the task iterator lacks it.
struct KeptPart {
  KeptPart();
  ~KeptPart();
  KeptPart(const KeptPart&) = delete;
  KeptPart& operator=(const KeptPart&) = delete;

  // The process and its image.
  std::int32_t pid = 0;
  std::uint64_t startTime = 0;  ///< nanoseconds since the start of the host
  std::uint64_t execId = 0;

  // Of its files in /proc.
  bool isRead = false;            ///< the first two are of this image
  std::uint64_t codeKB = 0;       ///< of its program, libraries left out
  std::string commandLine;        ///< fit to be shown, 1,023 bytes at most
  bool lacksCommandLine = false;  ///< it could not be asked for when its turn was
  bool lacksParts = false;        ///< some had no descriptor to be read with
  bool staysInExec = false;       ///< so that nothing could be read, see ExecWait.h
  std::string kernelName;  ///< of a thread of the kernel, which may be longer than that of a task
  std::optional<std::uint64_t> folderMark;  ///< see ReadFolderMark(); where it was wished for
  std::unique_ptr<ProcessLimits> limits;    ///< where they were wished for
  std::unique_ptr<KeptSurroundings> surroundings;  ///< the same

  // What it has been told with: figures that never fall.
  TaskTimes times;
  bool hasTimes = false;  ///< `times` go on from those of its stat
  std::array<std::uint64_t, kGrowingTaskFigures.size()> grown{};
};

/// The name in the stat line of a process, which goes on behind the task's for a thread of the
/// kernel; it lives as long as the two.
[[nodiscard]] std::string_view NameOfTask(const TaskFigures& task, const KeptPart& part);

/// What a batch wishes for of each process.
struct PartWishes {
  bool folder = false;
  bool limits = false;
};

/// The kept parts of all processes. One is read with the first batch that sees the image of a
/// process, that is its number, start time and program; what changes without another program is
/// read anew for one in so many processes in each batch, as the option "Process Refresh" of "Host"
/// says (10). It is freed when its process has ended. A part takes some 500 bytes and its texts.
class KeptParts {
 public:
  static KeptParts& Instance();

  /// A new batch: makes the parts those of these processes, which are in the order of their
  /// numbers, and puts the figures that never fall into the processes; times stay in the parts. Of
  /// processes whose number or name is one of `named` everything is read anew in this batch.
  void Match(std::vector<TaskGroup>& groups, std::span<const std::string> named = {});
  /// Of the process of that place in the last Match().
  [[nodiscard]] const KeptPart& At(std::size_t index) const { return *m_parts[index]; }
  /// Reads what is due of a process; false if it has ended before its part could be read, or stays
  /// in the execve(2) of a program that was not seen yet.
  [[nodiscard]] bool Read(const ProcessWalk& walk, const TaskGroup& group, std::size_t index,
                          PartWishes wishes);
  /// What is kept of the surroundings of that process: null where they are to be read, as it has
  /// run since or stands in another control group, or as its turn has come. Who does not run opens
  /// no file and waits where it waited.
  [[nodiscard]] const ProcessSurroundings* Surroundings(const TaskGroup& group, std::size_t index);
  /// Keeps them, as they were read in this batch.
  void KeepSurroundings(const TaskGroup& group, std::size_t index, ProcessSurroundings read);
  void Clear() { m_parts.clear(); }
  [[nodiscard]] std::size_t Count() const { return m_parts.size(); }
  /// Memory of all parts.
  [[nodiscard]] std::size_t Bytes() const;

 private:
  /// What is due of the process; false for one that has ended or stays in execve(2).
  [[nodiscard]] bool ReadDue(const ProcessWalk& walk, const TaskGroup& group, KeptPart& part,
                             PartWishes wishes);
  [[nodiscard]] bool ReadImage(const ProcessWalk& walk, const TaskGroup& group, KeptPart& part);
  /// What is read anew at the pace, each in so many of the batches that ask for it.
  enum Kind { kArguments, kFolder, kLimits, kSurroundings, kKinds };

  /// Whether the pace or a name wants that of the process read anew in this batch.
  [[nodiscard]] bool IsItsTurn(Kind kind, const TaskFigures& task, const KeptPart& part);

  std::vector<std::unique_ptr<KeptPart>> m_parts;  ///< in the order of their numbers
  std::vector<std::string> m_named;
  std::uint64_t m_batch = 0;
  struct Turns {
    std::uint64_t batches = 0;  ///< that have asked for it
    std::uint64_t last = 0;     ///< of these
  };
  std::array<Turns, kKinds> m_turns;
  std::uint64_t m_pace = 1;
};
