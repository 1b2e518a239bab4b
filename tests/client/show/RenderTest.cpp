#include "client/show/Render.h"

#include "client/show/TerminalCodes.h"

#include "client/ask/Errors.h"
#include "client/show/RecordWriters.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

Field MeaningOf(const char* label, const char* meaning) {
  return {label, "long", 0, 4, meaning, "", ""};
}

Field InGroup(const char* label, const char* group) {
  return {label, "float", 0, 4, "gauge", group, ""};
}

TEST(Csv, QuotesAsItMust) {
  const Json rows = JsonOf(R"([
    {"Name": "a,b", "Said": "\"hi\"", "Lines": "1\n2", "N, M": 1.5, "Gone": null},
    {"Name": "plain", "Said": "", "N, M": 18446744073709551615, "Extra": true}])");
  EXPECT_EQ(CsvText(rows),
            "Name,Said,Lines,\"N, M\",Gone,Extra\n"
            "\"a,b\",\"\"\"hi\"\"\",\"1\n2\",1.5,,\n"
            "plain,,,18446744073709551615,,true\n");
  EXPECT_EQ(CsvText(Json::Array()), "");
}

TEST(Rows, ShowOneLookAtFileSystemsAsDfDoes) {
  ShownRecord record;
  record.answer.record = "FSL";
  // The texts that df -h prints for these figures; the last but one has no size, the last no sense.
  record.answer.rows = JsonOf(R"([
    {"Record Time": 9, "File System": "/", "Device Name": "/dev/vda", "File System Type": "ext4",
     "Total Size Mbytes": 258019.6, "Mbytes in Use": 22792.91, "Available Space Mbytes": 75192.6},
    {"Record Time": 9, "File System": "/t p", "Device Name": "none", "File System Type": "tmpfs",
     "Total Size Mbytes": 0.00390625, "Mbytes in Use": 0.001, "Available Space Mbytes": 1023.2},
    {"Record Time": 9, "File System": "/sys", "Device Name": "sysfs", "File System Type": "sysfs",
     "Total Size Mbytes": 0.0, "Mbytes in Use": 0.0, "Available Space Mbytes": 0.0},
    {"Record Time": 9, "File System": "/x", "Host": "srv", "Remote File System": "/x",
     "File System Type": "nfs", "Total Size Mbytes": 1e300, "Mbytes in Use": -1,
     "Available Space Mbytes": null}])");
  EXPECT_EQ(RowsText(record, Screen{}),
            "Filesystem  Type   Size  Used  Avail  Use%  Mounted on\n"
            "/dev/vda    ext4   252G   23G    74G   24%  /\n"
            "none        tmpfs  4.0K  1.1K   1.0G    1%  /t p\n"
            "sysfs       sysfs     0     0      0     -  /sys\n"
            "srv:/x      nfs       -     -      -     -  /x\n");
  record.answer.rows[1]["Record Time"] = 10;
  EXPECT_EQ(RowsText(record, Screen{}).find("Filesystem"), std::string::npos);
  record.answer.rows = JsonOf(R"([{"Record Time": 9, "File System": "/"}])");
  EXPECT_EQ(RowsText(record, Screen{}), "Record Time  File System\n          9  /\n");
}

TEST(Rows, ShowADashWhereNothingTellsTheField) {
  const Json answer = JsonOf(R"({"schema": {"record": "X", "structure": "x", "category": "4",
    "size": 8, "fields": [
      {"label": "Up", "type": "ulong", "offset": 0, "width": 4, "meaning": "gauge",
       "help": "Seconds."},
      {"label": "Traps", "type": "ulong", "offset": 4, "width": 4, "meaning": "counter",
       "help": "Exceptions.", "source": false}]}})");
  ShownRecord record;
  record.schema = ReadSchema(answer);
  EXPECT_EQ(SchemaText(record.schema, Screen{}),
            "X: x, category 4, 8 bytes\n\n"
            "Offset  Width  Type   Label  Meaning  What it is\n"
            "     0      4  ulong  Up     gauge    Seconds.\n"
            "     4      4  ulong  Traps  counter  Exceptions. (no source)\n");
  record.answer.rows = JsonOf(R"([{"Up": 1, "Traps": null}])");
  EXPECT_EQ(RowsText(record, Screen{}), "Up  Traps\n 1      -\n");
}

TEST(Rows, ShowTheChosenColumnsUnderTheirHeadings) {
  ShownRecord record;
  record.schema = ReadSchema(JsonOf(R"({"schema": {"record": "X", "structure": "x", "category": "4",
    "size": 24, "about": "A disk.", "shown": [{"label": "Read Bytes/sec", "heading": "Read/s"},
      {"label": "Disk", "heading": "Dev"}, {"label": "Megabytes", "heading": "M"}], "fields": [
      {"label": "Disk", "type": "char[8]", "offset": 0, "width": 8, "meaning": "key"},
      {"label": "Reads", "type": "double", "offset": 8, "width": 8, "meaning": "counter"},
      {"label": "Read Bytes/sec", "type": "float", "offset": 16, "width": 4, "meaning": "rate"},
      {"label": "Megabytes", "type": "float", "offset": 20, "width": 4, "meaning": "gauge"}]}})"));
  EXPECT_NE(SchemaText(record.schema, Screen{}).find("24 bytes\nA disk.\n\n"), std::string::npos);
  record.answer.rows = JsonOf(R"([
    {"Disk": "a", "Reads": 5, "Read Bytes/sec": 1536.0, "Megabytes": 2048.5},
    {"Disk": "b", "Reads": 5, "Read Bytes/sec": null, "Megabytes": 1.0}])");
  EXPECT_EQ(RowsText(record, Screen{}),
            "Read/s  Dev       M\n"
            "  1.5K  a    2048.5\n"
            "     -  b       1.0\n");
  record.schema.shown.clear();
  EXPECT_EQ(RowsText(record, Screen{}).substr(0, 38), "Disk  Reads  Read Bytes/sec  Megabytes");
}

TEST(Rows, ShowTimesAndFloatsForPeople) {
  ::setenv("TZ", "UTC", 1);
  ShownRecord record;
  record.schema.fields = {MeaningOf("Record Time", "time"), MeaningOf("Boot Time", "time")};
  record.answer.rows = JsonOf(R"([
    {"Record Time": 1700000000, "Boot Time": 0, "CPU %": 12.34567, "Big": 1e300, "N": 7},
    {"Record Time": 18446744073709551615, "Boot Time": 1, "CPU %": 0.5, "Big": null, "N": 4294967295}
  ])");
  EXPECT_EQ(RowsText(record, Screen{}),
            "Record Time           Boot Time             CPU %     Big           N\n"
            "2023-11-14 22:13:20   -                    12.346  1e+300           7\n"
            "18446744073709551615  1970-01-01 00:00:01   0.500       -  4294967295\n");
  record.schema.fields.push_back({"N", "long", 0, 4, "key", ""});
  record.schema.fields.push_back({"Start Time", "long", 0, 4, "key", ""});
  record.answer.rows[1]["Start Time"] = 1700000000;
  EXPECT_NE(RowsText(record, Screen{}).find(" 4294967295  2023-11-14 22:13:20\n"),
            std::string::npos);
  // Without a layout nothing is known to be a time.
  record.schema.fields.clear();
  EXPECT_NE(RowsText(record, Screen{}).find("1700000000"), std::string::npos);
}

TEST(Rows, StandUnderTheHeadingsOfTheSchema) {
  ::setenv("TZ", "UTC", 1);
  ShownRecord record;
  record.schema.fields = {MeaningOf("Record Time", "time"), InGroup("Run Queue", "Load"),
                          InGroup("Free Mem %", "Memory"),  InGroup("Total", "Memory"),
                          InGroup("Used", "Memory"),        InGroup("Users", "Load")};
  record.answer.rows = JsonOf(R"([{"Record Time": 1700000000, "Run Queue": 0.25,
    "Free Mem %": 12.5, "Total": 1024, "Used": null, "Users": 3, "New": "x\u001b"}])");
  EXPECT_EQ(RowsText(record, Screen{}),
            "  Record Time  2023-11-14 22:13:20    New                        x\\x1B\n"
            "\n"
            "Load\n"
            "  Run Queue                   0.25    Users                          3\n"
            "\n"
            "Memory\n"
            "  Free Mem %                  12.5    Used                           -\n"
            "  Total                       1024\n");

  // Too narrow for two of the widest pair: the groups of short ones keep their columns.
  Screen narrow;
  narrow.width = 40;
  narrow.color = true;
  const TerminalCodes& codes = OutputCodes();
  EXPECT_EQ(RowsText(record, narrow),
            "  Record Time  2023-11-14 22:13:20\n"
            "  New                        x\\x1B\n"
            "\n" +
                codes.bold + "Load" + codes.plain +
                "\n"
                "  Run Queue  0.25    Users         3\n"
                "\n" +
                codes.bold + "Memory" + codes.plain +
                "\n"
                "  Free Mem %  12.5    Used           -\n"
                "  Total       1024\n");

  // A second row follows below; a third column where there is room for it.
  record.answer.rows.PushBack(record.answer.rows[0]);
  Screen wide;
  wide.width = 106;
  const std::string text = RowsText(record, wide);
  EXPECT_NE(text.find("\n\n  Record Time"), std::string::npos) << text;
  EXPECT_NE(text.find("12.5    Total                       1024    Used "), std::string::npos)
      << text;
  EXPECT_NE(SchemaText(record.schema, Screen{}).find("gauge    Memory\n"), std::string::npos);
}

TEST(Rows, JsonKeepsTheOrderAndTheTexts) {
  std::vector<ShownRecord> records(1);
  records[0].answer = {"CPUP", "4", 17, JsonOf(R"([{"z": "\u0001é", "a": 0.25}])"), ""};
  EXPECT_EQ(RecordsText(records, Format::kJsonLine, false, {}),
            "[{\"record\":\"CPUP\",\"category\":\"4\",\"time\":17,"
            "\"rows\":[{\"z\":\"\\u0001é\",\"a\":0.25}]}]\n");
}

/// More rows than are shown at a time, of which one of the last is wider and finer.
ShownRecord LongRecord() {
  ShownRecord record;
  record.answer = {"LONG", "4", 17, Json::Array(), ""};
  for (std::size_t i = 0; i <= 2 * kRowsAtATime; ++i) {
    record.answer.rows.PushBack({{"Name", i == 2 * kRowsAtATime ? "wide" : "n"}, {"Figure", 1.5}});
  }
  return record;
}

TEST(RecordWriters, ManyRowsComeInPartsThatGoOn) {
  const auto printed = [](Format format, std::size_t& pieces) {
    std::string text;
    const auto writer = MakeRecordWriter(format, false, {}, [&](std::string_view piece) {
      text += piece;
      pieces += piece.empty() ? 0 : 1;
    });
    ShownRecord record = LongRecord();
    writer->Begin(record);
    for (Json& row : record.answer.rows.Elements()) {
      EXPECT_TRUE(writer->Row(std::move(row)));
    }
    writer->End();
    writer->Finish();
    return text;
  };
  std::string table = "Name  Figure\n";
  std::string csv = "Name,Figure\n";
  for (std::size_t i = 0; i < 2 * kRowsAtATime; ++i) {
    table += "n        1.5\n";
    csv += "n,1.5\n";
  }
  std::size_t pieces = 0;
  EXPECT_EQ(printed(Format::kTable, pieces), table + "wide     1.5\n");
  EXPECT_EQ(printed(Format::kCsv, pieces), csv + "wide,1.5\n");
  EXPECT_EQ(pieces, 6U);
  const ShownRecord record = LongRecord();
  const Json whole = Json::Array(
      {{{"record", "LONG"}, {"category", "4"}, {"time", 17}, {"rows", record.answer.rows}}});
  EXPECT_EQ(printed(Format::kJson, pieces), JsonText(whole, 2) + '\n');
  EXPECT_GT(pieces, 10U);
}

TEST(RecordWriters, RowsOfOtherLabelsAreNoPartOfATable) {
  CsvRows rows;
  EXPECT_EQ(rows.Text(JsonOf(R"([{"a": 1}])"), false), "a\n1\n");
  EXPECT_EQ(rows.Text(JsonOf(R"([{"a": 2}])"), false), "2\n");
  EXPECT_THROW(static_cast<void>(rows.Text(JsonOf(R"([{"b": 1}])"), false)), ClientError);
}

}  // namespace
