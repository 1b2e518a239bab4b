#include <strings.h>
#include <sys/stat.h>

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

TextFilePtr OpenOptrecs() {
  const std::string path = ProductPath(kOptrecsPath);
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

void ChooseByName(const char* name, OptionalRecordChoice& choice) {
  for (const OptionalRecord& row : OptionalRecordTable()) {
    if (::strcasecmp(row.name, name) != 0 || (choice.mask & row.bit) != 0) {
      continue;
    }
    choice.mask |= row.bit;
    ++choice.count;
    Trace(20, kInformation, "%1 record Option = Yes. rc=%2", row.name, errno);
  }
}

void TakeLine(char* line, OptionalRecordChoice& choice) {
  const std::size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '\n') {
    line[length - 1] = '\0';
  }
  if (line[0] == ' ' || line[0] == '\t' || std::strlen(line) != kNameLength) {
    Trace(20, kWarning, "Invalid entry found in %2. Entry = %1", line, kOptrecsPath);
    return;
  }
  ChooseByName(line, choice);
}

}  // namespace

OptionalRecordChoice ReadOptrecsFile() {
  OptionalRecordChoice choice;
  const TextFilePtr file = OpenOptrecs();
  if (!file) {
    return choice;
  }
  std::array<char, kLineBuffer> line{};
  int lines = 0;
  while (lines < kLineLimit &&
         std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
    ++lines;
    TakeLine(line.data(), choice);
  }
  if (lines == kLineLimit) {
    Trace(20, kWarning,
          "Completed reading first 100 Entries in optrecs.dat file. Further processing of file is "
          "stopped.");
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
