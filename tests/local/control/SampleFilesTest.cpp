#include <sqlite3.h>

#include "local/metrics/MetricText.h"
#include "support/HostProfile.h"
#include "tests/local/control/SampleQueriesFixture.h"

namespace {

/// What another program does to the file, which has not this one's limits.
void ChangeAsAnother(const std::string& statement) {
  sqlite3* file = nullptr;
  ASSERT_EQ(::sqlite3_open("records.db", &file), SQLITE_OK);
  EXPECT_EQ(::sqlite3_exec(file, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  ::sqlite3_close(file);
}

/// Samples of what a file may hold that was written by another version, or by another program.
class SampleFilesTest : public SampleQueriesTest {};

TEST_F(SampleFilesTest, WhatAFileCanHoldIsToldAsFarAsAFieldCanHoldIt) {
  LayoutRegistry::Instance().PublishListing({{"IDLE", '3', true, {}}});
  const FakeRecord idle(1, m_now - 9);
  const CMBRecord* const row = &idle;
  m_store.Take({"IDLE", '3', m_now - 9, {&row, 1}});
  m_store.EndBatch();
  SqlDatabase* database = m_store.Database();
  const auto count = [&](const char* value) {
    database->Execute(std::string("UPDATE IDLE SET Count = ") + value);
    const std::string counts = Counts(Ask("", "IDLE"));
    return counts.substr(0, counts.find(' '));
  };
  EXPECT_EQ(count("4294967295"), "4294967295");
  for (const char* none : {"NULL", "-1", "4294967296", "'x'", "1.5", "9e99"}) {
    EXPECT_EQ(count(none), count("NULL")) << none;
    EXPECT_THAT(m_text, Not(HasSubstr("qmt_idle_count"))) << none;
  }
  database->Execute("UPDATE IDLE SET Count = 2, Label = NULL");
  EXPECT_THAT(Ask("", "IDLE").text, HasSubstr("{label=\"\"} 2 "));
  database->Execute("ALTER TABLE IDLE DROP COLUMN Count");
  EXPECT_THAT(Ask("", "IDLE").text, Not(HasSubstr("qmt_idle_count"))) << "no layout had it then";
  EXPECT_EQ(Ask("", "IDLE").head["rows"], 1);
  database->Execute("DROP TABLE IDLE");
  EXPECT_EQ(Ask("", "IDLE").head["rows"], 0);
}

TEST_F(SampleFilesTest, TotalsThatAnotherVersionHasKeptAreToldAsFarAsTheirFieldsAreTheSame) {
  static constexpr std::array kFormerFields{
      FieldLayout{"Count", FieldType::kUlong, 0, 4, FieldMeaning::counter},
      FieldLayout{"Rate", FieldType::kDouble, 4, 8, FieldMeaning::rate},
      FieldLayout{"Gone", FieldType::kUlong, 12, 4, FieldMeaning::gauge},
      FieldLayout{"Label", FieldType::kText, 16, 8, FieldMeaning::key},
      FieldLayout{"Record Time", FieldType::kLong, 24, 4, FieldMeaning::time}};
  static constexpr RecordLayout kFormer{"FAKE", "recordFormer", '4', 28, kFormerFields};
  std::mt19937 random(7);
  LayoutRegistry::Instance().Publish(kFormer);
  std::vector<std::unique_ptr<AnyRecord>> former;
  std::vector<const CMBRecord*> rows;
  for (int i = 0; i < 20; ++i) {
    rows.push_back(former.emplace_back(std::make_unique<AnyRecord>(kFormer, m_now, random)).get());
  }
  m_store.TakeTotals({"FAKE", '4', m_now, rows});
  m_store.EndBatch();
  MetricText scrape(MetricFormat::kText);
  static constexpr std::array kCommonFields{kFormerFields[0], kFormerFields[3]};
  static constexpr RecordLayout kCommon{"FAKE", "recordFormer", '4', 28, kCommonFields};
  scrape.AddRows(MetricsOf(kCommon), rows);
  PublishFakeRecords();
  m_store.Configure({});
  Batch(m_now + 1, {5});
  const Given given = Ask("");
  const std::string old = Timed(scrape.Finish(), m_now);
  EXPECT_THAT(old, HasSubstr("qmt_fake_count_total{"));
  EXPECT_EQ(given.text.substr(0, old.size()), old);
  EXPECT_THAT(given.text.substr(old.size()), HasSubstr("count_total{label=\"a\xEF\xBF\xBD\"} 5 "));
  EXPECT_EQ(given.head["rows"], 21);
}

TEST_F(SampleFilesTest, OfDamagedTotalsTheOthersAreGiven) {
  const std::string head = "(SELECT substr(Rows, 1, 8) FROM \"qmt totals\" WHERE rowid = 2)";
  const std::string rows = "(SELECT substr(Rows, 17) FROM \"qmt totals\" WHERE rowid = 2)";
  const std::string pack = "UPDATE \"qmt totals\" SET Rows = ";
  // A row more than there is.
  const std::string size = "CAST(" + head + " || x'4800000000000000' || " + rows + " AS BLOB)";
  const std::string text = "UPDATE \"qmt totals layouts\" SET Description = ";
  Batch(m_now - 3, {1});
  Batch(m_now - 2, {2});
  Batch(m_now - 1, {3});
  m_store.Configure({});
  std::filesystem::copy("records.db", "whole.db");
  const std::pair<std::string, const char*> cases[] = {
      {pack + "NULL WHERE rowid = 2", "1 3 "},
      {pack + "5 WHERE rowid = 2", "1 3 "},
      {pack + "x'00' WHERE rowid = 2", "1 3 "},
      {pack + "printf('%.2000000c', 'x') WHERE rowid = 2", "1 3 "},
      {pack + "zeroblob(100) WHERE rowid = 2", "1 3 "},
      {pack + "zeroblob(2000000) WHERE rowid = 2", "1 3 "},
      {pack + "substr(Rows, 1, 51) WHERE rowid = 2", "1 3 "},
      {pack + "substr(Rows, 1, 16) WHERE rowid = 2", "1 3 "},
      {pack + size + " WHERE rowid = 2", "1 3 "},
      {pack + "CAST(Rows || Rows AS BLOB) WHERE rowid = 2", "1 2 3 "},
      {pack + "CAST(Rows || x'ffffffffffffffffffffffffffffffff' AS BLOB) WHERE rowid = 2",
       "1 2 3 "},
      {text + "NULL", ""},
      {text + "replace(Description, '36', '37')", ""},
      {"DROP TABLE \"qmt totals layouts\"", ""},
      {"ALTER TABLE \"qmt totals layouts\" RENAME COLUMN Layout TO Number", ""},
      {"DROP TABLE \"qmt totals\"", ""},
      {"ALTER TABLE \"qmt totals\" DROP COLUMN Rows", ""},
  };
  for (const auto& [damage, counts] : cases) {
    std::filesystem::copy("whole.db", "records.db",
                          std::filesystem::copy_options::overwrite_existing);
    ChangeAsAnother(damage);
    EXPECT_EQ(Counts(Ask("")), counts) << damage;
    // What this version knows itself is put right by the next batch.
    Batch(m_now, {4});
    EXPECT_THAT(Counts(Ask("")), EndsWith("4 ")) << damage;
    m_store.Configure({});
  }
}

TEST_F(SampleFilesTest, ADescriptionThatIsNoneDescribesNothing) {
  Batch(m_now - 3, {1});
  const std::string whole = TotalsLayoutOf(kFakeLayout).description;
  ASSERT_THAT(whole, HasSubstr(R"(["Count","ulong",20,4])"));
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"{", "["},
      {"}", ""},
      {"FAKE", "NONE"},
      {"\"FAKE\"", "5"},
      {"\"size\":36", "\"size\":0"},
      {"\"size\":36", "\"size\":35"},
      {"\"size\":36", "\"size\":65536"},
      {"\"size\":36", "\"size\":-36"},
      {"\"Count\"", "\"Counts\""},
      {"\"ulong\",20", "\"float\",20"},
      {"20,4]", "20]"},
      {"20,4]", "33,4]"},
      {"20,4]", "20,8]"},
      {"20,4]", "4294967295,4]"},
      {"20,4]", "18446744073709551615,4]"},
      {"20,4]", "-1,4]"},
  };
  SqlDatabase& database = *m_store.Database();
  for (const auto& [from, to] : cases) {
    std::string description = whole;
    description.replace(description.find(from), std::strlen(from), to);
    const std::int64_t number = TotalsLayoutNumber(description);
    SqlStatement layout =
        database.Prepare("UPDATE \"qmt totals layouts\" SET Layout = ?1, Description = ?2");
    layout.Bind(1, number);
    layout.Bind(2, std::string_view(description));
    layout.Run();
    SqlStatement pack =
        database.Prepare("UPDATE \"qmt totals\" SET Rows = CAST(?1 || substr(Rows, 9) AS BLOB)");
    pack.Bind(1, std::span(reinterpret_cast<const unsigned char*>(&number), sizeof number));
    pack.Run();
    EXPECT_EQ(Counts(Ask("")), *from == '\0' ? "1 " : "") << description;
  }
}

}  // namespace
