#include "client/looks/RecordReader.h"

#include <set>
#include <thread>

#include "client/ask/Errors.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using testing::ThrowsMessage;

constexpr std::size_t kLongBytes = 20'000;
constexpr int kReaderRows = 30;

/// A daemon with a record whose rows are long, by their keys or by a text, and one without layout.
std::string ReaderDaemon(const Json& request) {
  if (request["op"] == "records") {
    return Answer(request, JsonOf(R"({"records": [
        {"record": "KEYS", "category": "4", "served": true, "layout": true},
        {"record": "TEXTS", "category": "4", "served": true, "layout": true},
        {"record": "BARE", "category": "4", "served": true, "layout": false}]})"));
  }
  if (request["op"] == "schema") {
    if (request["record"] == "BARE") {
      return JsonText({{"id", request["id"]},
                       {"ok", false},
                       {"error", {{"code", "no-layout"}, {"message", "no layout"}}}}) +
             "\n";
    }
    return Answer(request, JsonOf(R"({"schema": {"record": "X", "structure": "recordX",
        "category": "4", "size": 100, "fields": [
          {"label": "Interval", "type": "ulong", "offset": 0, "width": 4, "meaning": "duration"},
          {"label": "Name", "type": "char[9]", "offset": 0, "width": 9, "meaning": "key"},
          {"label": "Note", "type": "char[9]", "offset": 9, "width": 9, "meaning": "text"},
          {"label": "Ops", "type": "ulong", "offset": 20, "width": 4, "meaning": "counter"}]}})"));
  }
  Json results = Json::Array();
  for (const Json& record : request["records"].Elements()) {
    Json rows = Json::Array();
    for (int i = 0; i < kReaderRows; ++i) {
      const std::string name = std::to_string(i);
      const std::string text(kLongBytes, 'x');
      const bool hasKeys = record == "KEYS";
      rows.PushBack({{"Interval", 0},
                     {"Name", hasKeys ? name + text : name},
                     {"Note", hasKeys ? name : text},
                     {"Ops", i}});
    }
    results.PushBack(
        {{"record", record}, {"category", "4"}, {"time", 1700000000}, {"rows", std::move(rows)}});
  }
  return Answer(request, {{"results", std::move(results)}});
}

/// Lets every row go.
class CountingSink : public RecordSink {
 public:
  void Begin(const ShownRecord&) override {}
  bool Row(Json) override {
    ++m_rows;
    return true;
  }
  void End() override {}
  [[nodiscard]] int Rows() const { return m_rows; }

 private:
  int m_rows = 0;
};

/// Takes its time at the end of a record.
class SlowSink : public RecordSink {
 public:
  void Begin(const ShownRecord&) override {}
  bool Row(Json row) override {
    m_intervals.insert(row["Interval"].Number());
    return true;
  }
  void End() override { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }
  [[nodiscard]] const std::set<double>& Intervals() const { return m_intervals; }

 private:
  std::set<double> m_intervals;
};

class RecordReaderTest : public testing::Test {
 protected:
  /// It may hold the text of half of the rows, or of so many.
  [[nodiscard]] RecordReader Reader(const RecordOptions& options,
                                    int rows = kReaderRows / 2) const {
    ConnectionLimits limits;
    limits.answerBytes = static_cast<std::size_t>(rows) * kLongBytes;
    return {m_server.Path(), options, "get", -1, limits};
  }

  ScratchFolder m_folder;
  ScriptedServer m_server{m_folder.Path(), "s", ReaderDaemon};
};

TEST_F(RecordReaderTest, WhatIsHeldToCompareIsBounded) {
  RecordOptions options;
  options.records = {"KEYS"};
  EXPECT_THAT(
      [&] { static_cast<void>(Reader(options).LookFirst()); },
      ThrowsMessage<ClientError>(HasSubstr("more rows than can be compared within 300000")));
  options.raw = true;
  RecordReader raw = Reader(options);
  CountingSink sink;
  EXPECT_FALSE(raw.LookFirst());
  EXPECT_TRUE(raw.Read(sink).empty());
  EXPECT_EQ(sink.Rows(), kReaderRows);
}

TEST_F(RecordReaderTest, RowsThatAreComparedAgainAndAgainAreHeldOnce) {
  RecordOptions options;
  options.records = {"KEYS"};
  RecordReader reader = Reader(options, kReaderRows + 2);
  EXPECT_TRUE(reader.LookFirst());
  CountingSink sink;
  for (int look = 0; look < 3; ++look) {
    EXPECT_TRUE(reader.Read(sink).empty());
  }
  EXPECT_EQ(sink.Rows(), 3 * kReaderRows);
}

TEST_F(RecordReaderTest, RecordsOfOneAnswerAreOfOneTimeHoweverSlowlyTheyAreShown) {
  RecordOptions options;
  options.records = {"KEYS", "TEXTS"};
  RecordReader reader = Reader(options, 2 * kReaderRows);
  EXPECT_TRUE(reader.LookFirst());
  SlowSink sink;
  EXPECT_TRUE(reader.Read(sink).empty());
  EXPECT_EQ(sink.Intervals().size(), 1U);
}

TEST_F(RecordReaderTest, TheFirstLookHoldsNoRowsToSort) {
  RecordOptions options;
  options.records = {"TEXTS"};
  options.choice.sort = {"Ops"};
  RecordReader reader = Reader(options);
  EXPECT_TRUE(reader.LookFirst());
  CountingSink sink;
  EXPECT_THAT([&] { static_cast<void>(reader.Read(sink)); },
              ThrowsMessage<ClientError>(HasSubstr("longer than 300000")));
  EXPECT_EQ(sink.Rows(), 0);
}

TEST_F(RecordReaderTest, RowsAreNamedWhereTheFirstRecordHasNoLayout) {
  RecordOptions options;
  options.records = {"BARE", "TEXTS"};
  options.choice.where = {"Name=7", "Ops=7"};
  options.raw = true;
  CountingSink sink;
  EXPECT_THAT(Reader(options).Read(sink), testing::ElementsAre(HasSubstr("BARE: no layout")));
  EXPECT_EQ(JsonText(m_server.Requests().back()["named"]), R"(["7"])");
}

}  // namespace
