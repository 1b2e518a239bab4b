#include "records/RecordLayouts.h"
#include "records/RecordMapping.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kManual = QMT_TEST_DIR "/../docs/records.md";
constexpr const char* kIntro = R"(# Records

Every record with all of its fields, as they lie in a row: texts are padded with zero bytes,
numbers are little-endian, `utime` is seconds and microseconds of 32 bits each. A `key` tells the
rows of one record apart; a `counter` grows while its source lives. A field with *No source* is told
by no host that the collector knows, one with *`classic` only* or *`modern` only* under that host
profile alone; see [host-profile.md](host-profile.md). `qmtctl schema RECORD` shows the same of a
running agent.

This file is made from the layouts. To renew it, run `records_test` with the environment
variable `QMT_WRITE_MANUAL=1`.
)";

bool Names(std::span<const RecordMapping> table, const RecordLayout& layout) {
  return std::ranges::any_of(table, [&](const RecordMapping& row) {
    return row.name == std::string(layout.name) && row.category == layout.category;
  });
}

const char* HowServed(const RecordLayout& layout) {
  if (Names(ModernRecordMappings(), layout)) {
    return "answered under the profile `modern`";
  }
  if (Names(UnixBaseRecordMappings(), layout)) {
    return "answered";
  }
  const bool isOptional = std::ranges::any_of(OptionalRecordTable(), [&](const auto& record) {
    return record.name == std::string(layout.name);
  });
  return isOptional && Names(PoolRecordMappings(), layout) ? "answered where `optrecs.dat` names it"
                                                           : "in no table of answered records";
}

const char* KindName(unsigned char category) {
  return category == '4' ? "interval" : category == '3' ? "detail" : "log";
}

std::string TypeName(const FieldLayout& field) {
  return field.type == FieldType::kText ? "text" : FieldTypeName(field.type);
}

/// What a field is for, and where it differs what it is for under the profile `modern`.
std::string Purpose(const FieldLayout& classic, const FieldLayout& modern) {
  const bool isOther = std::string(classic.help) != modern.help;
  std::string text = classic.help;
  text += isOther ? std::string(" *`modern`:* ") + modern.help : "";
  if (classic.hasSource == modern.hasSource) {
    return text + (classic.hasSource ? "" : " *No source.*");
  }
  return text + (classic.hasSource ? " *`classic` only.*" : " *`modern` only.*");
}

std::vector<const RecordLayout*> LayoutsOf(HostProfile profile) {
  LayoutRegistry::Instance() = {};
  g_hostProfile = profile;
  PublishLayouts();
  g_hostProfile = HostProfile::kClassic;
  return LayoutRegistry::Instance().Layouts();
}

std::string Manual() {
  const std::vector<const RecordLayout*> modern = LayoutsOf(HostProfile::kModern);
  const std::vector<const RecordLayout*> classic = LayoutsOf(HostProfile::kClassic);
  std::ostringstream text;
  text << kIntro;
  for (std::size_t record = 0; record < modern.size(); ++record) {
    const RecordLayout* layout = modern[record];
    text << "\n## " << layout->name << "\n\n`" << layout->structure << "`, "
         << KindName(layout->category) << ", " << layout->size << " bytes, " << HowServed(*layout)
         << ". " << layout->about
         << "\n\n| field | type | offset | bytes | meaning | what it is for |\n"
            "|---|---|---|---|---|---|\n";
    for (std::size_t place = 0; place < layout->fields.size(); ++place) {
      const FieldLayout& field = layout->fields[place];
      text << "| " << field.label << " | " << TypeName(field) << " | " << field.offset << " | "
           << field.width << " | " << FieldMeaningName(field.meaning) << " | "
           << Purpose(layout->isModern ? field : classic[record]->fields[place], field) << " |\n";
    }
  }
  return text.str();
}

TEST(RecordsManual, ListsEveryFieldOfEveryRecord) {
  const std::string manual = Manual();
  EXPECT_EQ(LayoutRegistry::Instance().Layouts().size(), 32U);  // those of the profile `classic`
  if (std::getenv("QMT_WRITE_MANUAL") != nullptr) {
    std::ofstream(kManual) << manual;
  }
  const std::string written = FileText(kManual);
  EXPECT_TRUE(written == manual)
      << "docs/records.md is out of date; its head tells how to renew it";
}

}  // namespace
