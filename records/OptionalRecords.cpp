#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "records/RecordMapping.h"
#include "support/HostPaths.h"
#include "support/TextFile.h"
#include "support/TraceLog.h"

namespace {

constexpr const char* kFunction = "RecordBuilder::ReadOptrecsFile";
constexpr int kLineLimit = 100;
constexpr std::size_t kLineBuffer = 64;
constexpr std::size_t kNameLength = 4;

constexpr const char* kOptrecsPath = "/opt/qmtrx/mond/agent/optrecs.dat";

TextFilePtr OpenOptrecs(const std::string& path) {
  struct ::stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    Trace(20, kInformation, "Optional Mode = No. rc=%1", errno);
    return nullptr;
  }
  if (S_ISDIR(status.st_mode)) {
    Trace(20, kError, " %1 is a directory.", kOptrecsPath);
    return nullptr;
  }
  if (status.st_size == 0) {
    Trace(20, kInformation, "Optional Mode = No. rc=%1", errno);
    return nullptr;
  }
  TextFilePtr file = OpenTextFile(path);
  if (!file) {
    Trace(20, kError,
          "The error occurred by OS API(fopen) in function (%4). (en=%1, arg1=%2, arg2=%3)", errno,
          kOptrecsPath, "r", kFunction);
  }
  return file;
}

/// Whether there is a record of that name.
bool ChooseByName(const char* name, OptionalRecordChoice& choice) {
  bool isKnown = false;
  for (const OptionalRecord& row : OptionalRecordTable()) {
    if (::strcasecmp(row.name, name) != 0) {
      continue;
    }
    isKnown = true;
    if ((choice.mask & row.bit) == 0) {
      choice.mask |= row.bit;
      ++choice.count;
      Trace(20, kInformation, "%1 record Option = Yes. rc=%2", row.name, errno);
    }
  }
  return isKnown;
}

/// What is wrong with the line; empty for a good one.
std::string TakeLine(char* line, OptionalRecordChoice& choice) {
  const std::size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '\n') {
    line[length - 1] = '\0';
  }
  if (line[0] == ' ' || line[0] == '\t' || std::strlen(line) != kNameLength) {
    Trace(20, kWarning, "Invalid entry found in %2. Entry = %1", line, kOptrecsPath);
    return std::string("\"") + line + "\" is no name of four characters";
  }
  const std::string name = line;
  return ChooseByName(line, choice) ? "" : "no optional record \"" + name + "\"";
}

/// Reads the next piece of a line, at most kLineBuffer - 1 bytes; whether it ended a line goes to
/// `isEnd`. False at the end of the file.
bool ReadPiece(std::FILE* file, std::array<char, kLineBuffer>& piece, bool& isEnd) {
  // Zero bytes of the file hide the length; the last zero byte is the terminator.
  piece.fill('\n');
  if (std::fgets(piece.data(), static_cast<int>(piece.size()), file) == nullptr) {
    return false;
  }
  const auto terminator = std::find(piece.rbegin(), piece.rend(), '\0');
  isEnd = terminator + 1 != piece.rend() && *(terminator + 1) == '\n';
  return true;
}

}  // namespace

OptionalRecordChoice ReadOptrecsFile() {
  return ReadOptrecsFile(ProductPath(kOptrecsPath), nullptr);
}

OptionalRecordChoice ReadOptrecsFile(const std::string& path, const OptionalRecordFault& fault) {
  OptionalRecordChoice choice;
  const TextFilePtr file = OpenOptrecs(path);
  if (!file) {
    return choice;
  }
  std::array<char, kLineBuffer> piece{};
  int pieces = 0;
  int line = 1;
  bool isEnd = false;
  while (pieces < kLineLimit && ReadPiece(file.get(), piece, isEnd)) {
    ++pieces;
    const std::string what = TakeLine(piece.data(), choice);
    if (fault && !what.empty()) {
      fault(line, what);
    }
    line += isEnd ? 1 : 0;
  }
  if (pieces == kLineLimit) {
    Trace(20, kWarning,
          "Completed reading first 100 Entries in optrecs.dat file. Further processing of file is "
          "stopped.");
    if (fault && std::fgetc(file.get()) != EOF) {
      fault(line, "only the first 100 entries are read");
    }
  } else if (std::ferror(file.get()) != 0) {
    Trace(20, kError, "The error occurred by OS API(fgets) in function (%3). (en=%1, arg1=%2)",
          errno, kOptrecsPath, kFunction);
  }
  if (choice.count >= 1) {
    Trace(20, kInformation, "Optional Mode = Yes. rc=%1", errno);
  } else {
    Trace(20, kInformation, "Optional Mode = No. rc=%1", errno);
  }
  return choice;
}
