#include "client/capture/KeptHistory.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>

#include "client/ask/Answers.h"
#include "client/ask/Errors.h"
#include "client/capture/CaptureFolder.h"
#include "json/JsonText.h"

namespace {

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
  std::ofstream file;
  std::uint64_t rows = 0;
  for (bool isMore = true; isMore;) {
    Json answer = connection.Ask(question);
    HistoryPage page = ReadHistory(answer, name);
    for (const Json& row : page.answer.rows.Elements()) {
      if (!file.is_open()) {
        file.open(path, std::ios::app);
      }
      file << JsonText(row) << '\n';
      ++rows;
    }
    isMore = !page.next.IsNull();
    if (const Json* before = question.Find("after"); isMore && before && *before == page.next) {
      throw ClientError("broken answer: the daemon gives the same page of " + name.name + " again");
    }
    question["after"] = std::move(page.next);
  }
  if (file.is_open() && !file.flush()) {
    throw ClientError(path + ": it can't be written");
  }
  return rows;
}

}  // namespace

std::uint64_t WriteKeptHistory(Connection& connection, const std::string& folder,
                               std::int64_t since, std::int64_t until) {
  const std::string place = folder + '/' + kHistoryName;
  if (::mkdir(place.c_str(), S_IRWXU) != 0) {
    throw ClientError(place + ": " + std::generic_category().message(errno));
  }
  std::uint64_t rows = 0;
  std::set<std::string> taken;
  // Of what is on no schedule any more there may be rows as well.
  for (const Listing& listing : ReadListing(connection.Ask({{"op", "records"}}))) {
    if (!listing.served) {
      continue;
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
