#include "local/metrics/RowBound.h"

#include <cstdint>
#include <limits>

#include "local/metrics/MetricFamily.h"
#include "local/metrics/MetricText.h"
#include "node/ProductRecord.h"
#include "tests/support/Testing.h"

namespace {

/// Control groups as metrics see them.
struct recordGroup {
  Text<8> recordType;
  Packed<std::int32_t> recordTime;
  Text<32> path;
  Packed<double> memory;
  Packed<double> reads;
  Packed<float> share;
  Packed<double> untold;
  Packed<double> limit;
};

constexpr std::array kGroupFields{
    FieldLayout{"Record Type", FieldType::kText, 0, 8, FieldMeaning::text},
    FieldLayout{"Record Time", FieldType::kLong, 8, 4, FieldMeaning::time},
    FieldLayout{"Path", FieldType::kText, 12, 32, FieldMeaning::key},
    FieldLayout{"Memory Bytes", FieldType::kDouble, 44, 8, FieldMeaning::gauge},
    FieldLayout{"Reads", FieldType::kDouble, 52, 8, FieldMeaning::counter},
    FieldLayout{"Limit %", FieldType::kFloat, 60, 4, FieldMeaning::percent},
    FieldLayout{"Swap Bytes", FieldType::kDouble, 64, 8, FieldMeaning::gauge},
    FieldLayout{"Limit Bytes", FieldType::kDouble, 72, 8, FieldMeaning::gauge}};
constexpr RecordLayout GroupLayout(const char* name) {
  return {name, "recordGroup", '4', sizeof(recordGroup), kGroupFields, "", {}, true};
}

class GroupRecord : public CMBProductRecord<recordGroup> {
 public:
  GroupRecord(const std::string& path, double memory) : CMBProductRecord('4', nullptr, 0) {
    m_record.path = path;
    m_record.memory = memory;
    m_record.reads = 1.0;
    m_record.share = 50.0F;
    m_record.limit = 9.0;
    m_record.untold = std::numeric_limits<double>::quiet_NaN();
  }
  [[nodiscard]] const void* GetRecStart() const override { return &m_record; }
};

/// Of 500 groups "/gN", the root and those given, in this order.
std::vector<std::unique_ptr<GroupRecord>> Groups(
    const std::vector<std::pair<std::string, double>>& others) {
  std::vector<std::unique_ptr<GroupRecord>> groups;
  groups.push_back(std::make_unique<GroupRecord>("/", std::numeric_limits<double>::quiet_NaN()));
  for (int number = 1; number < 500; ++number) {
    groups.push_back(std::make_unique<GroupRecord>("/g" + std::to_string(number), 1000.0));
  }
  for (const auto& [path, memory] : others) {
    groups.push_back(std::make_unique<GroupRecord>(path, memory));
  }
  return groups;
}

struct Exposed {
  std::size_t leftOut;
  std::string text;
};

Exposed Expose(const char* record, const std::vector<std::pair<std::string, double>>& others) {
  const auto groups = Groups(others);
  std::vector<const CMBRecord*> rows;
  for (const auto& group : groups) {
    rows.push_back(group.get());
  }
  const RecordLayout layout = GroupLayout(record);
  MetricText text(MetricFormat::kText);
  const std::size_t leftOut = text.AddRows(MetricsOf(layout), rows);
  return {leftOut, text.Finish()};
}

TEST(RowBound, KeepsTheLargestGroupsAndSumsTheRestWithoutCountingTwice) {
  const Exposed exposed = Expose("CGRP", {{"/small", 30},
                                          {"/small/in it", 20},
                                          {"/small/in it/deep", 10},
                                          {"/smaller", 7},
                                          {"/large", 5000},
                                          {"...0badcafe.../deep", 3},
                                          {"/untold", std::numeric_limits<double>::quiet_NaN()}});
  // One of the 500 gives way to the large one.
  EXPECT_EQ(exposed.leftOut, 7U);
  EXPECT_THAT(exposed.text, HasSubstr("qmt_cgrp_memory_bytes{path=\"/large\"} 5000\n"));
  EXPECT_THAT(exposed.text, Not(HasSubstr("/small")));
  EXPECT_THAT(exposed.text, HasSubstr("qmt_cgrp_memory_bytes{path=\"other\"} 1037\n"));
  EXPECT_THAT(exposed.text, HasSubstr("qmt_cgrp_reads_total{path=\"other\"} 4\n"));
  EXPECT_THAT(exposed.text, HasSubstr("qmt_cgrp_limit_ratio{path=\"/large\"} 0.5\n"));
  EXPECT_THAT(exposed.text, Not(HasSubstr("limit_ratio{path=\"other\"}")));
  EXPECT_THAT(exposed.text, Not(HasSubstr("swap_bytes"))) << "no group tells it";
  EXPECT_THAT(exposed.text, HasSubstr("qmt_cgrp_reads_total{path=\"/\"} 1\n"));
  EXPECT_THAT(exposed.text, Not(HasSubstr("limit_bytes{path=\"other\"}")));
}

TEST(RowBound, LeavesFewRowsAndOtherRecordsAsTheyAre) {
  for (const auto& [record, others] :
       std::vector<std::pair<const char*, std::vector<std::pair<std::string, double>>>>{
           {"CGRP", {}}, {"DISK", {{"/small", 30}}}}) {
    const Exposed exposed = Expose(record, others);
    EXPECT_EQ(exposed.leftOut, 0U) << record;
    EXPECT_THAT(exposed.text, Not(HasSubstr("\"other\""))) << record;
  }
}

}  // namespace
