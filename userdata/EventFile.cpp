#include "userdata/EventFile.h"

#include <cstdio>
#include <sstream>

#include "support/RegExp.h"
#include "support/TraceLog.h"

namespace {

enum EventKeyword : int { kLogfile = 1, kId = 2, kRegexp = 3 };

/// Copies at most 1022 characters into a buffer of mondEvFile::kBufferSize bytes.
void Copy(char* buffer, const std::string& text) {
  std::snprintf(buffer, mondEvFile::kBufferSize - 1, "%s", text.c_str());
}

}  // namespace

int mondEvFile::mondInitFileAnalyze(const char* path) {
  TraceEntry("mondEvFile::mondInitFileAnalyze", path);
  const int rc = mondFile::mondInitFileAnalyze(path);
  if (rc == 0) {
    for (const char* keyword : {"logfile", "id", "regexp"}) {
      AddKeyword(keyword);
    }
  }
  TraceExit("mondEvFile::mondInitFileAnalyze");
  return rc;
}

void mondEvFile::CheckLength(const x_mondline& line, std::size_t length) {
  if (m_checksValues && length > kBufferSize - 2) {
    AddFault(line, "the text is cut to " + std::to_string(kBufferSize - 2) + " characters");
  }
}

void mondEvFile::CheckValue(const x_mondline& line, int keyword) {
  if (keyword != kRegexp) {
    CheckLength(line, line.value.size());
    if (line.value.find('*') != std::string::npos) {
      AddFault(line, "a '*' would part the value of \"" + line.key + '"');
    }
    return;
  }
  std::istringstream pieces(line.value);
  for (std::string piece; std::getline(pieces, piece, '\t');) {
    const RegExp expression(piece.c_str());
    if (piece != "*" && !expression.CompileError().empty()) {
      AddFault(line,
               "the expression \"" + piece + "\" does not compile: " + expression.CompileError());
    }
  }
}

int mondEvFile::mondGetEvFileEntry(char* logfile, char* id, char* regexp) {
  TraceEntry("mondEvFile::mondGetEvFileEntry");
  static constexpr std::array kKeywords{Keyword{"logfile", kLogfile}, Keyword{"id", kId},
                                        Keyword{"regexp", kRegexp}};
  const Entry* entry = NextEntry();
  if (entry == nullptr) {
    TraceExit("mondEvFile::mondGetEvFileEntry");
    return -1;
  }
  *logfile = *id = *regexp = '\0';
  std::string expressions;
  for (const x_mondline& line : *entry) {
    const int keyword = Classify(line.key, kKeywords);
    if (m_checksValues) {
      CheckValue(line, keyword);
    }
    switch (keyword) {
      case kLogfile:
        Copy(logfile, line.value);
        break;
      case kId:
        Copy(id, line.value);
        break;
      case kRegexp:
        expressions += (expressions.empty() ? "" : "\t") + line.value;
        CheckLength(line, expressions.size());
        break;
      default:
        AddFault(line, "unknown keyword \"" + line.key + '"');
        ReportEntryLine("Invalid line found in file (%1) at line (%2)", line);
        TraceExit("mondEvFile::mondGetEvFileEntry");
        return -2;
    }
  }
  Copy(regexp, expressions);
  TraceExit("mondEvFile::mondGetEvFileEntry");
  return 0;
}
