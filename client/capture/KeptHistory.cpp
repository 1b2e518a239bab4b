#include "client/capture/KeptHistory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <set>
#include <utility>

#include "client/ask/Answers.h"
#include "client/ask/Errors.h"
#include "client/capture/CaptureFolder.h"
#include "client/show/Terminal.h"
#include "json/JsonText.h"
#include "json/RowText.h"
#include "support/RegularFile.h"

namespace {

/// What a page counts as by itself, so that those without a row come to an end too.
constexpr std::uint64_t kPageBytes = 64;

/// The file of a record's rows.
class RowFile {
 public:
  explicit RowFile(std::string path) : m_path(std::move(path)) {}

  /// Appends a line; the first one makes the file, where nothing may stand yet.
  void Write(const std::string& line) {
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
    if (m_file == nullptr) {
      m_file = OpenRegularStream(m_path, O_WRONLY | O_CREAT | O_EXCL, kMode, "w");
    }
    if (m_file == nullptr ||
        std::fwrite(line.data(), 1, line.size(), m_file.get()) != line.size()) {
      FailErrno(m_path);
    }
  }
  void Flush() {
    if (m_file != nullptr && std::fflush(m_file.get()) != 0) {
      FailErrno(m_path);
    }
  }

 private:
  std::string m_path;
  TextFilePtr m_file;
};

Json HistoryQuestion(const RecordName& name, std::int64_t since, std::int64_t until) {
  return {{"op", "history"},
          {"record", name.name},
          {"category", name.category},
          {"since", since},
          {"until", until}};
}

std::string TimeOfRow(const Json& row) {
  constexpr double kLatest = 1e12;
  const Json* time = row.Find("Record Time");
  const bool isTime = time != nullptr && time->IsWhole() && time->Number() < kLatest;
  return isTime ? DateText(time->Whole()) : "a time that is not told";
}

/// The history of one capture.
class KeptHistory {
 public:
  KeptHistory(Connection& connection, std::string folder, const HistoryLimits& limits)
      : m_connection(connection), m_folder(std::move(folder)), m_limits(limits) {}

  void TakeRecord(const RecordName& name, const std::string& file, std::int64_t since,
                  std::int64_t until);
  [[nodiscard]] std::uint64_t Rows() const { return m_rows; }
  /// Whether nothing more can be taken of any record.
  [[nodiscard]] bool IsFull() const { return m_isFull; }

 private:
  [[nodiscard]] bool TakePage(const RecordName& name, const Json& rows, RowFile& file);
  [[nodiscard]] bool Count(std::uint64_t bytes);
  void TellRest(const RecordName& name, const std::string& from) const;

  Connection& m_connection;
  std::string m_folder;
  HistoryLimits m_limits;
  std::uint64_t m_rows = 0;
  std::uint64_t m_left = m_limits.allBytes;
  std::uint64_t m_leftOfRecord = 0;
  bool m_isFull = false;
};

/// False where that is too much.
bool KeptHistory::Count(std::uint64_t bytes) {
  if (bytes > m_left) {
    m_isFull = true;
    return false;
  }
  if (bytes > m_leftOfRecord) {
    return false;
  }
  m_left -= bytes;
  m_leftOfRecord -= bytes;
  return true;
}

void KeptHistory::TellRest(const RecordName& name, const std::string& from) const {
  const std::string others = IsFull() ? ", and the records behind it," : "";
  const std::string limit = IsFull() ? "a history of " + std::to_string(m_limits.allBytes)
                                     : "one of a record of " + std::to_string(m_limits.recordBytes);
  Complain("the rows of " + name.name + " from " + from + " on" + others +
           " are left out: a capture takes " + limit + " bytes at most");
}

/// False once the rest of the record is left out.
bool KeptHistory::TakePage(const RecordName& name, const Json& rows, RowFile& file) {
  for (const Json& row : rows.Elements()) {
    const std::string line = JsonText(row) + '\n';
    if (!Count(line.size())) {
      TellRest(name, TimeOfRow(row));
      return false;
    }
    file.Write(line);
    ++m_rows;
  }
  return true;
}

void KeptHistory::TakeRecord(const RecordName& name, const std::string& file, std::int64_t since,
                             std::int64_t until) {
  Json question = HistoryQuestion(name, since, until);
  RowFile rows(m_folder + '/' + file);
  m_leftOfRecord = m_limits.recordBytes;
  bool isBegun = false;
  for (bool isMore = true; isMore; isBegun = true) {
    Json answer;
    try {
      answer = m_connection.Ask(question);
    } catch (const RefusedError& error) {
      if (!isBegun) {
        throw;
      }
      Complain("the rows of " + name.name + " are cut short: " + error.what());
      break;
    }
    HistoryPage page = ReadHistory(answer, name);
    if (!TakePage(name, page.answer.rows, rows)) {
      break;
    }
    isMore = GoToNextPage(question, page);
    if (isMore && !Count(kPageBytes)) {
      TellRest(name, DateText(question["after"][0].Whole()));
      break;
    }
  }
  rows.Flush();
}

}  // namespace

std::uint64_t WriteKeptHistory(Connection& connection, const std::string& folder,
                               std::int64_t since, std::int64_t until,
                               const HistoryLimits& limits) {
  const std::string place = folder + '/' + kHistoryName;
  if (::mkdir(place.c_str(), S_IRWXU) != 0) {
    FailErrno(place);
  }
  KeptHistory history(connection, place, limits);
  std::set<std::string> taken;
  // Of what is on no schedule any more there may be rows as well.
  for (const Listing& listing : ReadListing(connection.Ask({{"op", "records"}}))) {
    if (!listing.served || history.IsFull()) {
      continue;
    }
    // They become a part of a file's name, and who answers may be anybody.
    if (!IsPlainName(listing.record) || !IsPlainName(listing.category)) {
      throw ClientError("broken answer: what the daemon names can be no record");
    }
    // Records of two categories may have one name.
    const std::string name = taken.insert(listing.record).second
                                 ? listing.record
                                 : listing.record + '.' + listing.category;
    try {
      history.TakeRecord({listing.record, listing.category}, name + ".jsonl", since, until);
    } catch (const RefusedError&) {
      // It keeps nothing, of this record at least.
    }
  }
  return history.Rows();
}
