#include "client/commands/Report.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <set>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/report/MakeSummary.h"
#include "client/report/Renderers.h"
#include "client/show/TimeText.h"
#include "json/RowText.h"
#include "support/AtomicFile.h"

namespace {

constexpr std::int64_t kDay = 86400;

enum class ReportFormat { kText, kMarkdown, kHtml };

ReportFormat FormatOf(const ReportOptions& options) {
  if (!options.format.empty()) {
    return options.format == "html"       ? ReportFormat::kHtml
           : options.format == "markdown" ? ReportFormat::kMarkdown
                                          : ReportFormat::kText;
  }
  const std::string name = LowerCase(options.output);
  return name.ends_with(".html") || name.ends_with(".htm") ? ReportFormat::kHtml
         : name.ends_with(".md")                           ? ReportFormat::kMarkdown
                                                           : ReportFormat::kText;
}

/// Names parted by commas, in any case.
std::set<std::string> RecordsOf(const std::vector<std::string>& texts) {
  std::set<std::string> records;
  for (const std::string& text : texts) {
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find(',', begin), text.size());
      std::string name(Trimmed(std::string_view(text).substr(begin, end - begin)));
      if (name.empty()) {
        throw UsageError("--records: a name is empty in \"" + text + '"');
      }
      std::ranges::transform(name, name.begin(), [](unsigned char letter) {
        return static_cast<char>(std::toupper(letter));
      });
      records.insert(std::move(name));
      begin = end + 1;
    }
  }
  return records;
}

SummaryChoice ChoiceOf(const ReportOptions& options) {
  const std::int64_t now = std::time(nullptr);
  SummaryChoice choice;
  choice.until = options.until.empty() ? now : std::min(ParseTime(options.until, now), now);
  choice.since = options.since.empty() ? choice.until - kDay : ParseTime(options.since, now);
  if (choice.since >= choice.until || choice.since < 0) {
    throw UsageError(
        "the end (--until) must lie behind the beginning (--since), which must have come");
  }
  choice.records = RecordsOf(options.records);
  choice.hasCharts = FormatOf(options) == ReportFormat::kHtml;
  return choice;
}

/// A device or a pipe must not be replaced by a file, nor a link to one: that may be /dev/stdout.
void CheckPlace(const std::string& path) {
  struct stat found {};
  if (::stat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode)) {
    throw ClientError(path + ": is no file that could be replaced");
  }
}

void WriteFile(const std::string& path, const std::string& text) {
  CheckPlace(path);
  std::string error;
  if (!ReplaceFile(path, text, error)) {
    throw ClientError(error);
  }
  if (!error.empty()) {
    Complain(error);
  }
}

std::string Rendered(const Summary& summary, ReportFormat format, const Screen& screen) {
  return format == ReportFormat::kHtml       ? SummaryHtml(summary)
         : format == ReportFormat::kMarkdown ? SummaryMarkdown(summary)
                                             : SummaryText(summary, screen);
}

}  // namespace

int RunReport(const CommonOptions& common, const ReportOptions& options) {
  const SummaryChoice choice = ChoiceOf(options);
  if (!options.output.empty()) {
    CheckPlace(options.output);
  }
  Connection connection(common.socket);
  const Summary summary = MakeSummary(connection, choice);
  const Screen screen = options.output.empty() ? ReadScreen(common.color) : Screen{};
  const std::string text = Rendered(summary, FormatOf(options), screen);
  if (options.output.empty()) {
    WriteOutput(text);
  } else {
    WriteFile(options.output, text);
  }
  return kExitDone;
}
