#include "client/capture/KeptHistory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <set>
#include <string_view>
#include <utility>

#include "client/ask/Answers.h"
#include "client/ask/Errors.h"
#include "client/capture/CaptureFolder.h"
#include "json/JsonText.h"
#include "support/RegularFile.h"

namespace {

/// Whether it may be a part of a file's name: who answers may be anybody.
bool IsPlainName(std::string_view name) {
  constexpr std::size_t kLongest = 64;
  constexpr std::string_view kLetters =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
  return !name.empty() && name.size() <= kLongest &&
         name.find_first_not_of(kLetters) == std::string_view::npos;
}

/// Appends a line; the first one makes the file, where nothing may stand yet.
void WriteLine(TextFilePtr& file, const std::string& path, const std::string& line) {
  constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
  if (file == nullptr) {
    file = OpenRegularStream(path, O_WRONLY | O_CREAT | O_EXCL, kMode, "w");
  }
  if (file == nullptr || std::fwrite(line.data(), 1, line.size(), file.get()) != line.size()) {
    FailErrno(path);
  }
}

Json HistoryQuestion(const RecordName& name, std::int64_t since, std::int64_t until) {
  return {{"op", "history"},
          {"record", name.name},
          {"category", name.category},
          {"since", since},
          {"until", until}};
}

std::uint64_t WriteRecord(Connection& connection, const std::string& path, const RecordName& name,
                          std::int64_t since, std::int64_t until) {
  Json question = HistoryQuestion(name, since, until);
  TextFilePtr file;
  std::uint64_t rows = 0;
  for (bool isMore = true; isMore;) {
    Json answer = connection.Ask(question);
    HistoryPage page = ReadHistory(answer, name);
    for (const Json& row : page.answer.rows.Elements()) {
      WriteLine(file, path, JsonText(row) + '\n');
      ++rows;
    }
    isMore = !page.next.IsNull();
    if (const Json* before = question.Find("after"); isMore && before && *before == page.next) {
      throw ClientError("broken answer: the daemon gives the same page of " + name.name + " again");
    }
    question["after"] = std::move(page.next);
  }
  if (file != nullptr && std::fflush(file.get()) != 0) {
    FailErrno(path);
  }
  return rows;
}

}  // namespace

std::uint64_t WriteKeptHistory(Connection& connection, const std::string& folder,
                               std::int64_t since, std::int64_t until) {
  const std::string place = folder + '/' + kHistoryName;
  if (::mkdir(place.c_str(), S_IRWXU) != 0) {
    FailErrno(place);
  }
  std::uint64_t rows = 0;
  std::set<std::string> taken;
  // Of what is on no schedule any more there may be rows as well.
  for (const Listing& listing : ReadListing(connection.Ask({{"op", "records"}}))) {
    if (!listing.served) {
      continue;
    }
    if (!IsPlainName(listing.record) || !IsPlainName(listing.category)) {
      throw ClientError("broken answer: what the daemon names can be no record");
    }
    // Records of two categories may have one name.
    const std::string name = taken.insert(listing.record).second
                                 ? listing.record
                                 : listing.record + '.' + listing.category;
    try {
      rows += WriteRecord(connection, place + '/' + name + ".jsonl",
                          {listing.record, listing.category}, since, until);
    } catch (const RefusedError&) {
      // It keeps nothing, of this record at least.
    }
  }
  return rows;
}
