#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"

namespace {

/// One line of the golden table: a field, and the record it belongs to.
struct GoldenField {
  std::string className, type, category;
  int kind, bytes, rows, offset, width;
  std::string label, fieldType, mark;
};

using GoldenTable = std::map<std::string, std::vector<GoldenField>>;  // by structure

void ReadGoldenTable(const char* path, GoldenTable& table) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);  // the names of the columns
  while (std::getline(file, line)) {
    const std::vector<std::string> cells = CutAt('\t', line);
    table[cells.at(0)].push_back({cells.at(1), cells.at(2), cells.at(3), std::stoi(cells.at(4)),
                                  std::stoi(cells.at(5)), std::stoi(cells.at(6)),
                                  std::stoi(cells.at(7)), std::stoi(cells.at(10)), cells.at(8),
                                  cells.at(9), cells.at(11)});
  }
}

GoldenTable ReadGoldenTables() {
  GoldenTable table;
  ReadGoldenTable(QMT_TEST_DIR "/records/records.tsv", table);
  ReadGoldenTable(QMT_TEST_DIR "/records/modern_records.tsv", table);
  return table;
}

/// A record as the program declares it.
struct DeclaredRecord {
  std::string structure, className;
  const RecordLayout& layout;
  std::unique_ptr<CMBRecord> row;
};

std::vector<DeclaredRecord> DeclaredRecords() {
  std::vector<DeclaredRecord> records;
#define BEGIN(structure, className, name, kind, bytes)                            \
  {                                                                               \
    const structure row = NewRow<structure>(1234567890);                          \
    records.push_back({#structure, #className, RecordTraits<structure>::Layout(), \
                       std::make_unique<RecordTraits<structure>::Class>(&row)});  \
  }
#include "records/layout/All.def"
#include "tests/support/Testing.h"
  return records;
}

void AppendDescriptor(std::string& table, int code, int offset, int width) {
  for (const int byte : {code, offset & 0xff, offset >> 8, width & 0xff, width >> 8}) {
    table += static_cast<char>(byte);
  }
}

/// The bytes of the descriptor table of a little-endian machine.
std::string GoldenDescriptors(const std::vector<GoldenField>& fields) {
  static const std::map<std::string, int> kCodes{{"ushort", 3}, {"long", 8},    {"ulong", 8},
                                                 {"float", 21}, {"double", 22}, {"utime", 8}};
  std::string table;
  for (const GoldenField& field : fields) {
    if (field.fieldType == "utime") {
      AppendDescriptor(table, 8, field.offset, 4);
      AppendDescriptor(table, 8, field.offset + 4, 4);
    } else if (kCodes.contains(field.fieldType)) {
      AppendDescriptor(table, kCodes.at(field.fieldType), field.offset, field.width);
    }
  }
  return table;
}

void CompareFields(const RecordLayout& layout, const std::vector<GoldenField>& golden) {
  ASSERT_EQ(layout.fields.size(), golden.size());
  for (std::size_t i = 0; i < golden.size(); ++i) {
    const FieldLayout& field = layout.fields[i];
    SCOPED_TRACE(golden[i].label);
    EXPECT_EQ(field.label, golden[i].label);
    EXPECT_EQ(field.offset, golden[i].offset);
    EXPECT_EQ(field.width, golden[i].width);
    const std::string width =
        field.type == FieldType::kText ? "[" + std::to_string(field.width) + "]" : "";
    EXPECT_EQ(FieldTypeName(field.type) + width, golden[i].fieldType);
    EXPECT_EQ(field.meaning == FieldMeaning::key, golden[i].mark == "key");
    EXPECT_EQ(field.needsTwoLooks, golden[i].mark == "two");
  }
}

TEST(Layouts, SayWhatEachFieldIsFor) {
  std::set<std::string> sourceless;
  for (const DeclaredRecord& record : DeclaredRecords()) {
    for (const FieldLayout& field : record.layout.fields) {
      SCOPED_TRACE(record.structure + ": " + field.label);
      const std::string help = field.help;
      EXPECT_GT(help.size(), 9U);
      EXPECT_TRUE(help.ends_with('.') && help.find_first_of("\n|\t") == std::string::npos) << help;
      if (!field.hasSource) {
        EXPECT_NE(field.meaning, FieldMeaning::key);
        sourceless.insert(std::string(record.layout.name) + ' ' + field.label);
      }
    }
  }
  for (const char* field : {"PI System Calls", "PI Faults", "CPUP Context Switches", "PD CPU Limit",
                            "NCO RPC Calls", "USER Signals Rcvd", "DEVD Seek Ops"}) {
    EXPECT_TRUE(sourceless.contains(field)) << field;
  }
  for (const char* field :
       {"PI Context Switches", "PD Stack Kbytes", "NCO Read Ops", "FSL Block Size"}) {
    EXPECT_FALSE(sourceless.contains(field)) << field;
  }
}

TEST(Layouts, AreThoseOfTheGoldenTable) {
  const GoldenTable golden = ReadGoldenTables();
  std::set<std::string> declared;
  for (const DeclaredRecord& record : DeclaredRecords()) {
    SCOPED_TRACE(record.structure);
    declared.insert(record.structure);
    ASSERT_TRUE(golden.contains(record.structure));
    const std::vector<GoldenField>& fields = golden.at(record.structure);
    const GoldenField& head = fields.front();
    EXPECT_EQ(record.className, head.className);
    EXPECT_EQ(record.layout.structure, record.structure);
    EXPECT_EQ(record.layout.name, head.type);
    EXPECT_EQ(record.layout.category, head.category.at(0));
    EXPECT_EQ(record.layout.size, head.bytes);
    EXPECT_EQ(record.row->GetRecType(), head.type);
    EXPECT_EQ(record.row->GetDataType(), head.kind);
    EXPECT_EQ(record.row->GetRecSize(), head.bytes);
    EXPECT_EQ(record.row->GetRecTime(), 1234567890);
    EXPECT_STREQ(record.row->IsA(), "CMBProductRecord");
    EXPECT_EQ(record.row->IsProductRecord(), 1);
    CompareFields(record.layout, fields);

    ASSERT_EQ(record.row->GetFieldTypeCount(), head.rows);
    const std::string descriptors(reinterpret_cast<const char*>(record.row->GetFieldTypeArray()),
                                  static_cast<std::size_t>(head.rows) * sizeof(FieldDescriptor));
    EXPECT_EQ(descriptors, GoldenDescriptors(fields));
  }
  for (const auto& [structure, fields] : golden) {
    EXPECT_TRUE(declared.contains(structure)) << structure;
  }
}

TEST(Layouts, TellTheCountersOfTheirRates) {
  std::map<std::string, std::string> counters;
  std::map<std::string, std::string> growths;
  for (const DeclaredRecord& record : DeclaredRecords()) {
    const std::string name = record.layout.name;
    for (const FieldLayout& field : record.layout.fields) {
      EXPECT_EQ(field.meaning == FieldMeaning::rate, *field.rateOf != '\0') << field.label;
      counters[name + ' ' + field.label] = field.rateOf;
      growths[name + ' ' + field.label] = std::string(field.growthOf) + '/' + field.growthBy;
      if (name == "NCO" || name == "NSO") {
        EXPECT_EQ(field.needsTwoLooks, field.meaning == FieldMeaning::percent) << field.label;
      }
    }
  }
  // Those that no builder divides by the same declaration.
  for (const std::string record : {"PD ", "PDI ", "PGM ", "TERM ", "USER "}) {
    EXPECT_EQ(counters.at(record + "Reads/sec"), "Reads");
    EXPECT_EQ(counters.at(record + "Writes/sec"), "Writes");
    EXPECT_EQ(counters.at(record + "Total I/O Ops/sec"), "Total I/O Ops");
    EXPECT_EQ(counters.at(record + "Throughput/sec"), "Total I/O Kbytes");
  }
  EXPECT_EQ(counters.at("NSO RPC Bad Calls/sec"), "RPC Bad Calls");
  EXPECT_EQ(growths.at("CPUX User %"), "/");
  EXPECT_EQ(growths.at("CGRP CPU %"), "CPU Seconds/");
  EXPECT_EQ(growths.at("CGRP Throttled %"), "Throttled Periods/Periods");
  EXPECT_EQ(growths.at("DISK Avg Read Seconds"), "Read Seconds/Reads");
}

TEST(Layouts, ArePublishedUnderTheirNamesByTheirProfile) {
  TouchFieldTables();
  PublishLayouts();
  for (const DeclaredRecord& record : DeclaredRecords()) {
    EXPECT_EQ(LayoutRegistry::Instance().Find(record.layout.name, record.layout.category),
              record.layout.isModern ? nullptr : &record.layout)
        << record.layout.name;
  }
}

TEST(Layouts, SayWhatARowTellsAndShowColumnsOfTheirOwn) {
  for (const DeclaredRecord& record : DeclaredRecords()) {
    SCOPED_TRACE(record.structure);
    const std::string about = record.layout.about;
    EXPECT_GT(about.size(), 19U);
    EXPECT_TRUE(about.ends_with('.') && about.find_first_of("\n|\t") == std::string::npos) << about;
    std::set<std::string> headings;
    for (const ShownColumn& column : record.layout.shown) {
      EXPECT_EQ(std::ranges::count_if(record.layout.fields,
                                      [&](const FieldLayout& field) {
                                        return field.label == std::string(column.label);
                                      }),
                1)
          << column.heading;
      EXPECT_TRUE(headings.insert(column.heading).second) << column.heading;
    }
  }
}

TEST(RecordClass, HoldsACopyOrZeros) {
  recordPI_DEVD row = NewRow<recordPI_DEVD>(7);
  row.totalIoOps = 0x01020304U;
  row.deviceType = "a long type of device";
  row.deviceName = static_cast<const char*>(nullptr);
  EXPECT_STREQ(row.deviceType.c_str(), "a lo");
  EXPECT_STREQ(row.deviceName.c_str(), "");
  EXPECT_EQ(row.totalIoOps, 0x01020304U);  // stands right behind the text, at an odd offset

  const cmbClassPI_DEVD record(&row);
  row.totalIoOps = 0U;
  const auto* copy = static_cast<const recordPI_DEVD*>(record.GetRecStart());
  EXPECT_EQ(copy->totalIoOps, 0x01020304U);

  const cmbClassPI_DEVD empty(nullptr);
  const std::string zeros(sizeof(recordPI_DEVD), '\0');
  EXPECT_EQ(std::memcmp(empty.GetRecStart(), zeros.data(), zeros.size()), 0);
}

int Equal(const CMBRecord& a, const CMBRecord& b) { return a == b; }

TEST(RecordClass, IsEqualByTypeAndIdentity) {
  recordPI_UPI base = NewRow<recordPI_UPI>(1);
  base.transStringKey = "key";
  base.transType = "type";
  base.transDataKey = 5U;
  recordPI_UPI other = base;
  other.recordTime = 2;
  other.userString1 = "no part of the identity";
  EXPECT_EQ(Equal(cmbClassPI_UPI(&base), cmbClassPI_UPI(&other)), 1);
  for (const auto& change :
       std::vector<void (*)(recordPI_UPI&)>{[](recordPI_UPI& row) { row.transStringKey = "keys"; },
                                            [](recordPI_UPI& row) { row.transType = ""; },
                                            [](recordPI_UPI& row) { row.transDataKey = 6U; },
                                            [](recordPI_UPI& row) { row.recordType = "UPIB"; }}) {
    recordPI_UPI changed = base;
    change(changed);
    EXPECT_EQ(Equal(cmbClassPI_UPI(&base), cmbClassPI_UPI(&changed)), 0);
  }
  // A record of another shape is never read as this one, even under the same type text.
  CMBStringRecord text('4');
  text.SetText("UPI");
  EXPECT_EQ(Equal(cmbClassPI_UPI(&base), text), 0);

  recordPI_NINS sums = NewRow<recordPI_NINS>(1);
  const cmbClassPI_NINS first(&sums);
  sums.interfaceCount = 9U;
  EXPECT_EQ(Equal(first, cmbClassPI_NINS(&sums)), 1);
  EXPECT_EQ(Equal(first, cmbClassPI_NINS(nullptr)), 0);
}

TEST(DumpRecord, WritesLabelsOnceAndLeavesUnlabelledFieldsOut) {
  ScriptedNode::Reset();
  recordPI_WGRP row = NewRow<recordPI_WGRP>(-1);
  row.interval = 60U;
  row.workgroup = "batch";
  row.processCount = 4294967295U;
  row.userCpu = tagUTIME{3, 250000};
  row.cpuPercent = 12.5F;
  row.arguments = "not shown";
  row.cpuPercentCopy = 99.0F;
  g_msgDataLevel = 39;
  DumpRecord(row, 0);
  EXPECT_EQ(ScriptedNode::Instance().dataTrace, "");
  g_msgDataLevel = 40;
  DumpRecord(row, 0);
  DumpRecord(row, 1);
  const std::string values =
      "WGRP,-1,60,batch,4294967295,,,,3.250000,0.000000,12.500000,0,0,0,0,0,0,0,0,0,"
      "0.000000,0.000000,0.000000,0.000000,0.000000\n";
  EXPECT_EQ(ScriptedNode::Instance().dataTrace,
            "Record Type,Record Time,Interval,Workgroup,Process Count,Users,Groups,Programs,"
            "User CPU,System CPU,CPU %,Major Faults,Swaps,Context Switches,Real Mem Kbytes,"
            "Virtual Mem Kbytes,Reads,Writes,Total I/O Ops,Total I/O Kbytes,Avg I/O Kbytes,"
            "Throughput/sec,Reads/sec,Writes/sec,Total I/O Ops/sec\n" +
                values + values);
  ScriptedNode::Reset();
}

}  // namespace
