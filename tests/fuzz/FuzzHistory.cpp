// A file of history that is damaged, of another layout or made by somebody else, and the file of
// what waits beside it: batches go into it, or its alarms go on, and it is asked.
#include <sqlite3.h>

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "json/JsonText.h"
#include "local/control/AlarmQueries.h"
#include "local/control/HistoryQueries.h"
#include "local/control/SampleQueries.h"
#include "local/history/HistoryStore.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"

namespace {

constexpr const char* kHistoryFile = "records.db";
constexpr const char* kWaitingFile = "records.db-waiting";
constexpr std::uint8_t kTotals = 240;
constexpr std::uint8_t kForAlarms = 8;
/// It foretells, which takes the rows of the past.
constexpr const char* kAlarms =
    "alarm = full\nrecord = FAKE\nwhere = Label ~ a*\ncondition = Count > 1\nuntil = Count < 1\n"
    "predict = 6h\nover = 1d\nfor = 0s\nalarm = quick\nrecord = FAKE\ncondition = Count > 1\n";

/// The system is not asked to have the files on the disk, which takes most of the time.
void LeaveOutSyncs() {
  static ::sqlite3_vfs* const real = ::sqlite3_vfs_find(nullptr);
  static ::sqlite3_vfs quick = *real;
  quick.zName = "quick";
  quick.xOpen = [](::sqlite3_vfs*, const char* name, ::sqlite3_file* file, int flags, int* out) {
    static std::map<const ::sqlite3_io_methods*, ::sqlite3_io_methods> quickMethods;
    const int result = real->xOpen(real, name, file, flags, out);
    if (file->pMethods != nullptr) {
      auto& methods = quickMethods.try_emplace(file->pMethods, *file->pMethods).first->second;
      methods.xSync = [](::sqlite3_file*, int) { return SQLITE_OK; };
      file->pMethods = &methods;
    }
    return result;
  };
  Require(::sqlite3_vfs_register(&quick, 1) == SQLITE_OK);
}

void TakeBatch(HistoryStore& store, std::int32_t time) {
  const FakeRecord row(4000000000U, time);
  const std::vector<const CMBRecord*> rows{&row};
  store.Take({"FAKE", '4', time, rows});
  store.TakeTotals({"FAKE", '4', time, rows});
  store.EndBatch();
}

/// The file's alarm of that number: one that is over or, else, the one of the first definition.
void KeepAlarm(AlarmHistory& alarms, std::int64_t id, const Json& until) {
  alarms.Put(Json{{"id", id},
                  {"alarm", "full"},
                  {"record", "FAKE"},
                  {"severity", "warning"},
                  {"since", std::time(nullptr) - 60},
                  {"until", until},
                  {"text", "full"},
                  {"key", Json{{"Label", "a"}}},
                  {"values", Json{{"Count", 5}}},
                  {"captured", Json::Array({"FAKE"})}});
  alarms.PutRow({id, "FAKE", std::time(nullptr), R"({"Label":"a","Count":5})"});
}

/// The bytes of a good file with some rows and alarms.
const std::string& GoodFile() {
  static const std::string bytes = [] {
    HistoryStore store([](const std::string&) {});
    store.Configure({});
    const auto now = static_cast<std::int32_t>(std::time(nullptr));
    for (std::int32_t batch = 50; batch > 0; --batch) {
      TakeBatch(store, now - batch);
    }
    AlarmHistory alarms(store, [](const std::string&) {});
    KeepAlarm(alarms, 1, now - 30);
    KeepAlarm(alarms, 2, nullptr);
    while (alarms.Flush()) {
    }
    store.Configure({});
    std::ifstream file(kHistoryFile, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  return bytes;
}

/// A good file with bytes put in at some places: there is no sum over it that would tell.
std::string PatchedFile(Input& input) {
  std::string bytes = GoodFile();
  while (!input.IsEmpty()) {
    const std::size_t place = input.Word() % bytes.size();
    const std::string_view patch = input.Bytes(input.Byte() % 8U + 1U);
    bytes.replace(place, std::min(patch.size(), bytes.size() - place),
                  patch.substr(0, bytes.size() - place));
  }
  return bytes;
}

/// Runs what a stranger may have made the file by; statements stand between zero bytes.
void MakeFile(const char* name, Input& input) {
  sqlite3* handle = nullptr;
  Require(::sqlite3_open(name, &handle) == SQLITE_OK);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(handle, ::sqlite3_close);
  int steps = 0;
  constexpr int kOften = 1000;
  ::sqlite3_progress_handler(
      handle, kOften, [](void* count) { return ++*static_cast<int*>(count) > 50 ? 1 : 0; }, &steps);
  ::sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, 1 << 16);
  ::sqlite3_set_authorizer(
      handle,
      [](void*, int action, const char*, const char*, const char*, const char*) {
        const bool isElsewhere = action == SQLITE_ATTACH || action == SQLITE_PRAGMA;
        return isElsewhere ? SQLITE_DENY : SQLITE_OK;
      },
      nullptr);
  while (!input.IsEmpty()) {
    const std::string statement(input.Until('\0'));
    ::sqlite3_exec(handle, statement.c_str(), nullptr, nullptr, nullptr);
  }
}

/// A good file whose totals are other bytes, behind what tells their layout.
void MakeTotals(const char* name, Input& input) {
  std::ofstream(name, std::ios::binary) << GoodFile();
  SqlDatabase database(name, 0);
  const std::string_view description = input.Until('\0');
  const std::int64_t number = TotalsLayoutNumber(description);
  SqlStatement layout =
      database.Prepare("INSERT OR REPLACE INTO \"qmt totals layouts\" VALUES (?1, ?2)");
  layout.Bind(1, number);
  layout.Bind(2, description);
  layout.Run();
  std::string pack(reinterpret_cast<const char*>(&number), sizeof number);
  pack += input.Rest();
  SqlStatement totals =
      database.Prepare("UPDATE \"qmt totals\" SET Rows = CAST(?1 AS BLOB) WHERE rowid % 2");
  totals.Bind(1, std::string_view(pack));
  totals.Run();
}

/// Asks; the answer comes once and says how it went.
template <class Queries>
void Ask(Queries& queries, void (Queries::*operation)(const std::shared_ptr<ControlRequest>&),
         EventLoop& loop, FakeAgent& agent, const char* members) {
  const auto peer = std::make_shared<FakePeer>(Rights::kRead);
  (queries.*operation)(std::make_shared<ControlRequest>(ParseJson(members).value, peer));
  for (int turn = 0; turn < 3; ++turn) {
    RunATurn(loop, agent);
  }
  Require(peer->answers.size() == 1);
  const std::string& text = peer->answers.front();
  const ParsedJson answer = ParseJson(std::string_view(text).substr(0, text.find('\n')));
  Require(answer.fault == JsonFault::kNone && answer.value.Find("ok") != nullptr);
}

/// What the daemon hangs on, of which nothing is kept from one file to the next.
struct DaemonParts {
  DaemonParts() {
    schedule.Load({{"FAKE", "86400", 1}}, [](std::size_t, const std::string&) {});
  }

  EventLoop loop;
  FakeAgent agent;
  BatchDesk desk;
  LastRows rows;
  ScheduleBook schedule{loop, desk, rows};
};

/// The daemon takes up the alarms of the file, goes on with them and is asked for them.
void UseAlarms(DaemonParts& daemon, HistoryStore& store, RequestTurns& turns) {
  AlarmBook book(daemon.loop, daemon.desk, daemon.schedule, daemon.rows, store,
                 [](const std::string& text) { Require(!text.empty()); });
  AlarmQueries queries(turns, store);
  queries.Serve(book);
  std::ofstream("alarms") << kAlarms;
  AlarmBookSettings settings;
  settings.file = "alarms";
  settings.statesFile = "alarms.state";
  book.Configure(settings);
  for (std::int32_t batch = 1; batch < 4; ++batch) {
    const auto time = static_cast<std::int32_t>(std::time(nullptr)) + 60 * batch;
    const FakeRecord row(batch == 2 ? 0 : 4000000000U, time);
    const std::vector<const CMBRecord*> list{&row};
    daemon.rows.Take({"FAKE", '4', time, list});
    book.Take({"FAKE", '4', time, list});
    book.EndBatch();
    for (int turn = 0; turn < 3; ++turn) {
      RunATurn(daemon.loop, daemon.agent);
    }
  }
  for (const char* members : {R"({"since":0})", R"({"state":"active","limit":3})"}) {
    Ask(queries, &AlarmQueries::Alarms, daemon.loop, daemon.agent, members);
  }
  for (const char* members : {R"({"id":2})", R"({"id":1,"arguments":false})"}) {
    Ask(queries, &AlarmQueries::Alarm, daemon.loop, daemon.agent, members);
  }
  book.Stop();
}

void UseFile(bool forAlarms) {
  static DaemonParts daemon;
  static EventLoop& loop = daemon.loop;
  static FakeAgent& agent = daemon.agent;
  HistoryStore store([](const std::string& text) { Require(!text.empty()); });
  store.Configure({.megabytes = 1, .waitingMegabytes = 1});
  RequestTurns turns(loop);
  if (forAlarms) {
    UseAlarms(daemon, store, turns);
    return;
  }
  HistoryQueries queries(turns, store);
  SampleQueries samples(turns, store, daemon.schedule);
  const auto history = [&](const char* members) {
    Ask(queries, &HistoryQueries::History, loop, agent, members);
  };
  const auto now = static_cast<std::int32_t>(std::time(nullptr));
  for (int batch = 0; batch < 3; ++batch) {
    TakeBatch(store, now + batch);
    history(R"({"id":1,"record":"FAKE","since":0,"where":["Count>1"]})");
    Ask(samples, &SampleQueries::Samples, loop, agent, R"({"records":["FAKE"],"samples":50})");
  }
  history(R"({"id":1,"record":"FAKE","since":0,"points":10,"columns":["Rate"]})");
  history(R"({"id":1,"record":"FAKE","at":1700000000})");
  store.EndBatch();
}

void EmptyFolder() {
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    std::filesystem::remove_all(entry.path());
  }
}

}  // namespace

/// The first byte chooses how the file is made, whether it is the one that waits, and what for.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchDirectory folder;
  static const bool isPublished = (PublishFakeRecords(), LeaveOutSyncs(), true);
  static_cast<void>(isPublished);
  static_cast<void>(GoodFile());
  EmptyFolder();
  Input input(data, size);
  const std::uint8_t kind = input.Byte();
  const char* name = kind % 8 < 6 ? kHistoryFile : kWaitingFile;
  if (kind >= kTotals) {
    MakeTotals(name, input);
  } else if (kind % 3 == 0) {
    std::ofstream(name, std::ios::binary) << PatchedFile(input);
  } else if (kind % 3 == 1) {
    MakeFile(name, input);
  } else {
    std::ofstream(name, std::ios::binary) << input.Rest();
  }
  UseFile((kind & kForAlarms) != 0);
  return 0;
}
