#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "node/Packed.h"
#include "userdata/FileFault.h"

/// The file of the monitored applications, by its plain path.
inline constexpr const char* kApplicationFile = "/opt/qmtrx/mond/agent/qmtapp";

/// One condition of an application: so many processes of this name or command line must run.
struct ProcessCondition {
  std::uint8_t kind = 0;   ///< an ApplicationMonitor::Kind; any other one is kept and never matches
  std::int32_t state = 0;  ///< an ApplicationMonitor::Verdict
  std::int32_t count = 0;  ///< processes that matched in this round
  std::int32_t rangeMax = 0;
  std::int32_t rangeMin = 0;
  Text<128> pattern;
};

/// The monitored applications: named sets of conditions, and how the last counting of processes
/// found them. Applications are counted from 0 in the order of their definition, the conditions of
/// each from 0 to kProcesses - 1; a getter of a place that there is not gives 0 or an empty text.
/// Results are 1 for success and 0 for failure.
class ApplicationMonitor {
 public:
  static constexpr int kMaxApplications = 64;
  static constexpr int kProcesses = 15;
  enum Kind : int { kNone = 0, kProgram = 1, kCommandLine = 2 };
  enum Verdict : int { kUnknown = 0, kNormal = 1, kAbnormal = 2 };

  [[nodiscard]] int GetCount() const { return static_cast<int>(m_applications.size()); }
  /// Texts live until the application changes.
  [[nodiscard]] const char* GetName(int application) const;
  /// kAbnormal if any condition is out of its range.
  [[nodiscard]] int GetStatus(int application) const;
  /// kNormal if any condition is within its range.
  [[nodiscard]] int GetExist(int application) const;
  [[nodiscard]] int GetState(int application, int process) const;
  [[nodiscard]] int GetProcessCount(int application, int process) const;
  [[nodiscard]] int GetRangeMax(int application, int process) const;
  [[nodiscard]] int GetRangeMin(int application, int process) const;
  [[nodiscard]] int GetKind(int application, int process) const;
  [[nodiscard]] const char* GetPattern(int application, int process) const;

  /// Adds an application without conditions, its name cut to 63 characters. 0 if the list is full
  /// or knows the name, and for a name that the file can't hold: an empty one, or one with a tab or
  /// a line end.
  [[nodiscard]] int add(const char* name);
  /// 0 if there is no such application.
  [[nodiscard]] int remove(int index);
  void SetKind(int application, int process, Kind kind);
  /// Cuts the pattern to 127 characters. 0 for one with a tab or a line end, which the file can't
  /// hold.
  [[nodiscard]] int SetPattern(int application, int process, const char* pattern);
  /// Takes "5", "5-7" or "5,7", up to 65535; an empty text leaves the range as it is. 0 for any
  /// other text.
  [[nodiscard]] int SetRange(int application, int process, const char* text);

  /// Replaces the list by the file's, named by its plain path below the product root. A missing
  /// file is an empty list. 0 if a line is bad, which is skipped, or if the file can't be read.
  [[nodiscard]] int read(const char* path);
  /// Writes the list in place of the file, so that a crash leaves the old file or the new one. An
  /// empty list removes the file; 0 if there is none. A file that had faults stays beside the new
  /// one with ".bak" behind its name. 0, and nothing is written, after a file that couldn't be
  /// read; `errno` tells of a failure, and is 0 then.
  [[nodiscard]] int write(const char* path);
  /// read() with the path as it is.
  [[nodiscard]] int ReadFile(const std::string& file);
  /// Replaces the list by that of a file's text.
  [[nodiscard]] int ReadText(std::string_view text);
  /// Takes one line of the file, which is split in place. 0 if it is bad.
  [[nodiscard]] int parseLine(char* line);
  /// What the last reading found wrong, each with its line, or line 0 for the whole file; the first
  /// kMaxFaults of them. Besides bad lines it holds what was taken and won't be written back as it
  /// was, such as a name too long.
  [[nodiscard]] const std::vector<FileFault>& Faults() const { return m_faults; }
  static constexpr std::size_t kMaxFaults = 100;

  /// A counting round: begin, each process once, end. The verdicts are those of the end; a round
  /// without a process has none.
  void begin();
  /// Counts a process, unless no round is open or its name is empty.
  void countProcess(const char* programName, const char* arguments);
  void end();

 private:
  struct ApplicationEntry {
    std::int32_t status = 0;
    std::int32_t exist = 0;
    Text<64> name{};
    std::array<ProcessCondition, kProcesses> processes{};
  };
  /// What became of a line: bad ones are skipped; a fault may also be of a line that was taken.
  struct LineVerdict {
    bool isTaken = true;
    std::string fault{};
  };

  [[nodiscard]] const ApplicationEntry& At(int application) const;
  [[nodiscard]] const ProcessCondition& At(int application, int process) const;
  /// Null if there is no such condition.
  [[nodiscard]] ProcessCondition* Find(int application, int process);
  static void Evaluate(ApplicationEntry& application);

  void StartReading();
  void AddFault(int line, std::string text);
  LineVerdict TakeText(std::string_view line);
  LineVerdict TakeLine(char* line);
  LineVerdict TakeApplication(char* fields);
  LineVerdict TakeCondition(char* fields);
  /// The list as the file holds it.
  [[nodiscard]] std::string FileText() const;

  std::vector<ApplicationEntry> m_applications;
  std::vector<FileFault> m_faults;
  int m_currentProcess = 0;  ///< of the last application: where the next process line belongs
  bool m_isFileUnread = false;
  bool m_isFileFaulty = false;  ///< and not yet written anew
  bool m_isCollecting = false;
  bool m_isAnyCounted = false;
};
