#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/TextFile.h"

class UtlError;
struct DeviceId;

/// One line of a /proc file with its terminator. A longer line is read in pieces, each of which
/// counts as a line.
using ProcLine = std::array<char, 1024>;

/// The files that ProcLib::Initialize opens.
enum ProcFile : int {
  kProcStat = 0,
  kProcInterrupts = 1,
  kProcCpuinfo = 2,
  kProcNetRpcNfs = 3,
  kProcNetRpcNfsd = 4,
  kProcPartitions = 5,
  kProcUptime = 6,
  kProcLoadavg = 7,
  kProcDiskstats = 8,
  kProcVmstat = 9,
};

/// A handle on one /proc file, a map from key to value made of its lines, and look-ups that concern
/// the whole system. 0 is success and -1 failure unless told otherwise.
class ProcLib {
 public:
  ProcLib() = default;

  /// The plain absolute path of a ProcFile; null for another number.
  [[nodiscard]] static const char* FilePath(int index);

  /// Opens the ProcFile. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Initialize(int index);
  /// Opens any file, named by its plain absolute path, into this handle; null on failure. The
  /// handle keeps the ownership.
  [[nodiscard]] std::FILE* GetProcFp(const char* path);

  /// The next line with its end, or its next piece.
  [[nodiscard]] int GetLine(ProcLine& line);
  /// The next line without its last character, be that a line end or not. -1 at the end too.
  [[nodiscard]] int GetString(ProcLine& line);
  /// Lines of the file as GetString gives them, counted at the first call; -1 if there are none.
  [[nodiscard]] int GetNumLines();

  /// Makes the map: the key is the first word of a line, parted by the characters of `delim`, and
  /// the value the rest. A line without a value is left out. As many lines at most as GetNumLines
  /// says; a key keeps 31 characters. The file is read from its start and rewound.
  [[nodiscard]] int BuildProcMap(const char* delim);
  /// The value of the first key, in the file's order, that contains `key`.
  [[nodiscard]] int GetProcMapValue(const char* key, ProcLine& out) const;

  /// The numbers of the "processor" lines of /proc/cpuinfo, as many as processors are configured.
  /// Nothing if the file is not open or the processors cannot be counted.
  [[nodiscard]] std::optional<std::vector<std::uint32_t>> GetCPUIds();
  /// The texts of the "model name" lines, cut to 40 characters; empty where there is none.
  [[nodiscard]] std::optional<std::vector<std::string>> GetCPUTypes();

  /// Reads on, by GetString, to the next "processor" line of /proc/cpuinfo; false at the end. `id`
  /// becomes the number behind its colon, or empty if there is none.
  [[nodiscard]] bool NextProcessor(ProcLine& line, std::optional<std::uint32_t>& id);

  /// 0 if all characters are digits; so it is for an empty text.
  [[nodiscard]] static int IsNumeric(const char* text);
  /// 0 if `name` is `prefix` and then a number without leading zeros.
  [[nodiscard]] static int IsNumberedName(const char* name, const char* prefix);

  /// On-line processors when they were first counted; -1 on failure, then counted again next time.
  [[nodiscard]] static int GetNumCPUs();
  /// Seconds since 1970, read once; 0 if /proc/stat does not tell, -1 if it cannot be opened.
  [[nodiscard]] static int GetBootTime();
  /// Seconds since the start; -1 on failure.
  [[nodiscard]] static int GetUpTime();

  /// Appends the whole disks of /proc/partitions, in the file's order, going by MajorTable. Returns
  /// how many; -1 if the file cannot be opened.
  [[nodiscard]] static int GetNumDevices(std::vector<DeviceId>& devices);

  /// Forgets processor count and boot time, for a process that changes its host root.
  static void ResetCaches();

 private:
  /// Key and value stand one behind the other in the map's text.
  struct ProcMapEntry {
    std::size_t begin;
    std::size_t keyLength;
    std::size_t valueLength;
  };
  using FilePtr = TextFilePtr;

  [[nodiscard]] static FilePtr Open(const char* path);

  FilePtr m_fp;
  std::vector<ProcMapEntry> m_map;
  std::string m_mapText;
  int m_numLines = 0;
};
