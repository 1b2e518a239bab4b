#include "client/Render.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

Field MeaningOf(const char* label, const char* meaning) { return {label, "long", 0, 4, meaning}; }

TEST(Csv, QuotesAsItMust) {
  const Json rows = Json::parse(R"([
    {"Name": "a,b", "Said": "\"hi\"", "Lines": "1\n2", "N, M": 1.5, "Gone": null},
    {"Name": "plain", "Said": "", "N, M": 18446744073709551615, "Extra": true}])");
  EXPECT_EQ(CsvText(rows),
            "Name,Said,Lines,\"N, M\",Gone,Extra\n"
            "\"a,b\",\"\"\"hi\"\"\",\"1\n2\",1.5,,\n"
            "plain,,,18446744073709551615,,true\n");
  EXPECT_EQ(CsvText(Json::array()), "");
}

TEST(Rows, ShowTimesAndFloatsForPeople) {
  ::setenv("TZ", "UTC", 1);
  ShownRecord record;
  record.schema.fields = {MeaningOf("Record Time", "time"), MeaningOf("Boot Time", "time")};
  record.answer.rows = Json::parse(R"([
    {"Record Time": 1700000000, "Boot Time": 0, "CPU %": 12.34567, "Big": 1e300, "N": 7},
    {"Record Time": 18446744073709551615, "Boot Time": 1, "CPU %": 0.5, "Big": null, "N": 4294967295}
  ])");
  EXPECT_EQ(RowsText(record, Screen{}),
            "Record Time           Boot Time             CPU %     Big           N\n"
            "2023-11-14 22:13:20   -                    12.346  1e+300           7\n"
            "18446744073709551615  1970-01-01 00:00:01   0.500       -  4294967295\n");
  // Without a layout nothing is known to be a time.
  record.schema.fields.clear();
  EXPECT_NE(RowsText(record, Screen{}).find("1700000000"), std::string::npos);
}

TEST(Rows, JsonKeepsTheOrderAndTheTexts) {
  std::vector<ShownRecord> records(1);
  records[0].answer = {"CPUP", "4", 17, Json::parse(R"([{"z": "\u0001é", "a": 0.25}])"), ""};
  EXPECT_EQ(JsonText(records, -1),
            "[{\"record\":\"CPUP\",\"category\":\"4\",\"time\":17,"
            "\"rows\":[{\"z\":\"\\u0001é\",\"a\":0.25}]}]\n");
}

}  // namespace
