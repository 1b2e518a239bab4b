#include "client/show/RowChoice.h"

#include "client/ask/Errors.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

Schema Processes() {
  Schema schema{"PD", "recordPD", "3", 100, {}};
  for (const auto& [label, type, meaning] :
       std::initializer_list<std::array<const char*, 3>>{{"PID", "long", "key"},
                                                         {"Program", "char[256]", "text"},
                                                         {"CPU %", "float", "percent"},
                                                         {"Snapshot Time", "long", "time"},
                                                         {"User", "char[36]", "text"},
                                                         {"USER", "char[36]", "text"}}) {
    schema.fields.push_back({label, type, 0, 4, meaning, "", ""});
  }
  return schema;
}

Json Rows() {
  return JsonOf(R"([
    {"PID": 9, "Program": "bash", "CPU %": 2.5, "Snapshot Time": 1700000000, "User": "a", "USER": ""},
    {"PID": 10, "Program": "a=b<c", "CPU %": 12.5, "Snapshot Time": 0, "User": "b", "USER": ""},
    {"PID": 11, "Program": "bash2", "CPU %": null, "Snapshot Time": 1700000060, "User": "a", "USER": ""},
    {"PID": 12, "Program": "bash", "CPU %": 12.5, "Snapshot Time": 1700086400, "User": "c", "USER": ""}])");
}

/// The process numbers that are left, in their order.
std::string Chosen(const ChoiceOptions& options) {
  Json rows = Rows();
  RowChoice(options, Processes()).Apply(rows);
  std::string text;
  for (const Json& row : rows.Elements()) {
    text += (text.empty() ? "" : " ") + JsonText(row["PID"]);
  }
  return text;
}

TEST(RowChoice, ChoosesAndSortsRows) {
  ::setenv("TZ", "UTC", 1);
  const struct {
    std::vector<std::string> where;
    std::vector<std::string> sort;
    const char* expected;
  } cases[] = {
      {{"Program=bash"}, {}, "9 12"},
      {{" program = bash ", "PID>9"}, {}, "12"},
      {{"Program=a=b<c"}, {}, "10"},
      {{"Program!=bash"}, {}, "10 11"},
      {{"Program~bash*"}, {}, "9 11 12"},
      {{"Program<bash"}, {}, "10"},
      {{"PID~1?"}, {}, "10 11 12"},
      {{"PID<10"}, {}, "9"},
      {{"pid<=1.0e1"}, {}, "9 10"},
      {{"CPU %>=2.5"}, {}, "9 10 12"},
      {{"CPU %!=12.5"}, {}, "9 11"},
      {{"CPU %<99"}, {}, "9 10 12"},
      {{"Snapshot Time=2023-11-14 22:13:20"}, {}, "9"},
      {{"Snapshot Time>2023-11-14 22:13:20", "Snapshot Time<2023-11-15"}, {}, "11"},
      {{"Snapshot Time=-"}, {}, "10"},
      {{"Snapshot Time=1700000060"}, {}, "11"},
      {{"Snapshot Time~*22:14*"}, {}, "11"},
      {{}, {"CPU %"}, "10 12 9 11"},
      {{}, {"+CPU %", "-PID"}, "9 12 10 11"},
      {{}, {"Program"}, "10 9 12 11"},
      {{}, {"-Program", "PID"}, "11 12 9 10"},
  };
  for (const auto& entry : cases) {
    EXPECT_EQ(Chosen({entry.where, entry.sort, {}}), entry.expected)
        << testing::PrintToString(entry.where) << testing::PrintToString(entry.sort);
  }
}

TEST(RowChoice, ColumnsStandInTheOrderWanted) {
  Json rows = Rows();
  RowChoice({{"PID=9"}, {"User"}, {"cpu %, User", "PID"}}, Processes()).Apply(rows);
  EXPECT_EQ(JsonText(rows), R"([{"CPU %":2.5,"User":"a","PID":9}])");
  rows = Rows();
  RowChoice({{"PID=9"}, {}, {"*"}}, Processes()).Apply(rows);
  EXPECT_EQ(rows[0].Members().size(), Processes().fields.size());
  Schema schema = Processes();
  schema.fields[1].label = "A, B";
  rows = JsonOf(R"([{"PID": 1, "A, B": 2}])");
  RowChoice({{}, {}, {"A, B"}}, schema).Apply(rows);
  EXPECT_EQ(JsonText(rows), R"([{"A, B":2}])");
}

TEST(RowChoice, NamesRowsByKeysAndTextsAlone) {
  const std::string longest(256, 'x');
  const struct {
    std::vector<std::string> where;
    std::vector<std::string> names;
  } cases[] = {
      {{"PID=9", "Program = bash "}, {"9", "bash"}},
      {{"CPU %=1", "Snapshot Time=1700000000"}, {}},
      {{"PID!=9", "PID>9", "Program~bash"}, {}},
      {{"Program=" + longest, "Program=" + longest + "x"}, {longest}},
      {std::vector<std::string>(17, "PID=9"), std::vector<std::string>(16, "9")},
  };
  for (const auto& entry : cases) {
    EXPECT_EQ(RowChoice({entry.where, {}, {}}, Processes()).NamedRows(), entry.names)
        << testing::PrintToString(entry.where);
  }
}

TEST(RowChoice, SaysWhatCannotBeMeant) {
  const struct {
    ChoiceOptions options;
    const char* words;
  } cases[] = {
      {{{"Program"}, {}, {}}, "\"Program\" compares nothing"},
      {{{"Progam=x"}, {}, {}}, "3:PD has no label \"Progam\"; did you mean \"Program\"?"},
      {{{"PID=bash"}, {}, {}}, "\"PID\" is compared with a number, not with \"bash\""},
      {{{"Snapshot Time=soon"}, {}, {}}, "time as in 2023-11-14 23:13:20, not with \"soon\""},
      {{{"Snapshot Time>=2026-02-30"}, {}, {}}, "13:20, not with \"2026-02-30\""},
      {{{"=5"}, {}, {}}, "no label \"\""},
      {{{}, {"-CPU"}, {}}, "no label \"CPU\"; did you mean \"CPU %\"?"},
      {{{}, {"uSER"}, {}}, "no label \"uSER\"; did you mean \"USER\", \"User\"?"},
      {{{}, {}, {"PID,,User"}}, "no label \"\""},
      {{{}, {}, {std::string(100000, 'x')}}, "no label \"xxx"},
  };
  for (const auto& entry : cases) {
    EXPECT_THAT([&] { RowChoice(entry.options, Processes()); },
                testing::ThrowsMessage<UsageError>(testing::HasSubstr(entry.words)));
  }
}

}  // namespace
