#include "client/commands/UserData.h"

#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "client/ask/Errors.h"
#include "client/files/UserRows.h"
#include "client/files/UserStore.h"
#include "client/show/Terminal.h"

namespace {

/// Faults have been told already.
struct Refused {};

const UserFileKind& NeedKind(const std::string& name) {
  const UserFileKind* kind = FindUserFileKind(name);
  if (kind == nullptr) {
    throw UsageError("\"" + name + "\" is none of UPI, UPIB, UPD and UPDB");
  }
  return *kind;
}

void Tell(const std::string& file, const std::vector<UserFault>& faults, const char* kind) {
  for (const UserFault& fault : faults) {
    Complain((file == "-" ? "standard input" : file) + ":" + std::to_string(fault.line) + ": " +
             kind + fault.text);
  }
}

/// Throws Refused, with the faults told, if any row is wrong.
UserRecords ReadRecords(const UserFileKind& kind, const UserDataOptions& options) {
  std::vector<UserFault> faults;
  const UserTable table = ReadUserTable(ReadInput(options.file), faults);
  UserRecords records = MakeUserRecords(kind, table, std::time(nullptr));
  faults.insert(faults.end(), records.faults.begin(), records.faults.end());
  Tell(options.file, faults, "");
  Tell(options.file, records.warnings, "warning: ");
  if (!faults.empty()) {
    throw Refused();
  }
  return records;
}

/// The agent takes the first of neighbours with the same keys only.
bool HasSameKeys(const char* a, const char* b) {
  constexpr std::size_t kKeySize = 20;
  constexpr std::size_t kDataKeyOffset = 40;
  return std::strncmp(a, b, kKeySize) == 0 &&
         std::strncmp(a + kKeySize, b + kKeySize, kKeySize) == 0 &&
         std::memcmp(a + kDataKeyOffset, b + kDataKeyOffset, sizeof(std::uint32_t)) == 0;
}

/// Warns of rows that the agent would not take, behind `present` records.
void WarnOfLost(const UserFileKind& kind, const UserDataOptions& options,
                const std::string& present, const UserRecords& records) {
  const std::string all = present + records.bytes;
  const std::size_t before = present.size() / kind.recordSize;
  std::vector<UserFault> warnings;
  for (std::size_t i = 0; i < records.lines.size(); ++i) {
    const char* record = all.data() + (before + i) * kind.recordSize;
    if (before + i > 0 && HasSameKeys(record - kind.recordSize, record)) {
      warnings.push_back(
          {records.lines[i], "the row before has the same keys: the agent drops this one"});
    }
    if (before + i == options.limit) {
      warnings.push_back(
          {records.lines[i], "from here on the rows are behind the agent's limit of " +
                                 std::to_string(options.limit)});
    }
  }
  Tell(options.file, warnings, "warning: ");
}

int Write(const UserDataOptions& options, bool isAppending) {
  const UserFileKind& kind = NeedKind(options.kind);
  try {
    const UserRecords records = ReadRecords(kind, options);
    std::string present;
    UserStore(kind, options.waitSeconds).Change([&](const std::string& old) {
      present = isAppending ? old : std::string();
      return present + records.bytes;
    });
    WarnOfLost(kind, options, present, records);
    return kExitDone;
  } catch (const Refused&) {
    return kExitFailed;
  }
}

}  // namespace

int RunUserImport(const UserDataOptions& options) { return Write(options, false); }
int RunUserAppend(const UserDataOptions& options) { return Write(options, true); }

int RunUserCheck(const UserDataOptions& options) {
  const UserFileKind& kind = NeedKind(options.kind);
  try {
    WarnOfLost(kind, options, "", ReadRecords(kind, options));
    return kExitDone;
  } catch (const Refused&) {
    return kExitFailed;
  }
}

int RunUserShow(const CommonOptions& common, const UserDataOptions& options) {
  const UserFileKind& kind = NeedKind(options.kind);
  RecordAnswer answer;
  answer.record = kind.name;
  answer.time = std::time(nullptr);
  answer.rows = UserRowsJson(kind, UserStore(kind, options.waitSeconds).Read());
  if (options.format == Format::kCsv) {
    WriteOutput(CsvText(answer.rows));
    return kExitDone;
  }
  if (options.format == Format::kJson) {
    WriteOutput(ShownJson(answer.rows, 2) + '\n');
    return kExitDone;
  }
  if (answer.rows.Elements().empty()) {
    Complain(options.kind + ": no records");
  }
  const ShownRecord shown{std::move(answer), {}};
  WriteOutput(RowsText(shown, ReadScreen(common.color)));
  return kExitDone;
}

int RunUserClear(const UserDataOptions& options) {
  UserStore(NeedKind(options.kind), options.waitSeconds).Change([](const std::string&) {
    return std::string();
  });
  return kExitDone;
}
