#include "node/ProductRecord.h"

#include "tests/support/Testing.h"

namespace {

template <std::size_t Extra>
struct Row {
  Text<8> type;
  Packed<std::int32_t> time;
  std::array<unsigned char, Extra> extra{};
};

template <std::size_t Extra>
class RowRecord : public CMBProductRecord<Row<Extra>> {
 public:
  RowRecord(unsigned char kind, const FieldDescriptor* table, const char* type)
      : CMBProductRecord<Row<Extra>>(kind, table, 2) {
    this->m_record.type = type;
  }
  [[nodiscard]] const void* GetRecStart() const override { return &this->m_record; }
  Row<Extra>& Storage() { return this->m_record; }
  void Take(const Row<Extra>* source) { this->CopyIn(source); }
};

using Short = RowRecord<4>;
using Long = RowRecord<9>;
constexpr FieldDescriptor kTables[2] = {};

TEST(ProductRecord, OrderStopsOnlyAtALowerStep) {
  const Short base('4', &kTables[0], "CPUP");
  const Short same('4', &kTables[0], "CPUP");
  const Short lowerKind('3', &kTables[0], "CPUP");
  const Short highKind(0xF0, &kTables[0], "CPUP");
  const Long longer('4', &kTables[0], "CPUP");
  const Long longerLowerKind('3', &kTables[0], "CPUP");
  const Short laterTable('4', &kTables[1], "CPUP");
  const Short laterTableEarlierType('4', &kTables[1], "AAAA");
  const Short laterType('4', &kTables[0], "DEVD");
  const Short lowerKindLaterType('3', &kTables[0], "DEVD");
  const struct {
    const char* name;
    const CMBRecord *a, *b;
    int less, greater, equal;
  } cases[] = {
      {"equal", &base, &same, 0, 0, 1},
      {"kind", &lowerKind, &base, 1, 0, 0},
      {"kind is unsigned", &base, &highKind, 1, 0, 0},
      {"size", &base, &longer, 1, 0, 0},
      {"greater kind, smaller size", &base, &longerLowerKind, 1, 1, 0},
      {"table", &base, &laterTable, 1, 0, 0},
      {"table against type", &laterTableEarlierType, &base, 1, 1, 0},
      {"type", &base, &laterType, 1, 0, 0},
      {"greater kind, smaller type", &base, &lowerKindLaterType, 1, 1, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(*c.a < *c.b, c.less) << c.name;
    EXPECT_EQ(*c.b < *c.a, c.greater) << c.name;
    EXPECT_EQ(c.a->operator==(*c.b), c.equal) << c.name;
    EXPECT_EQ(c.b->operator==(*c.a), c.equal) << c.name;
  }
}

TEST(ProductRecord, ComparesNoField) {
  Short a('4', &kTables[0], "CPUP");
  const Short b('4', &kTables[0], "CPUP");
  a.Storage().time = 5;
  EXPECT_EQ(a.operator==(b), 1);
}

TEST(ProductRecord, AnswersForItsStructure) {
  Short record('4', &kTables[0], "CPUP");
  Row<4> source;
  source.type = "DEVD";
  source.time = -7;
  record.Take(nullptr);
  EXPECT_STREQ(record.GetRecType(), "CPUP");
  record.Take(&source);
  record.Take(&record.Storage());
  EXPECT_STREQ(record.IsA(), "CMBProductRecord");
  EXPECT_STREQ(record.GetRecType(), "DEVD");
  EXPECT_EQ(record.GetRecTime(), -7);
  EXPECT_EQ(record.GetRecSize(), 16);
  EXPECT_EQ(record.GetFieldTypeCount(), 2);
  EXPECT_EQ(record.IsProductRecord(), 1);
}

TEST(StringRecord, HoldsAText) {
  CMBPQLStatement a;
  CMBPQLStatement b;
  CMBLogifStatement other;
  a.SetText("SELECT A");
  b.SetText("SELECT B");
  other.SetText("SELECT A");
  EXPECT_STREQ(a.IsA(), "CMBPQLStatement");
  EXPECT_EQ(a.GetRecSize(), 9);
  EXPECT_EQ(a.operator==(b), 0);
  EXPECT_EQ(a.operator==(other), 0);
  EXPECT_EQ(a < b, 1);
  EXPECT_EQ(a.GetRecTime(), 0);
  EXPECT_EQ(a.IsProductRecord(), 0);
}

TEST(Packed, HoldsValuesAtOddOffsets) {
  struct Odd {
    unsigned char pad = 0;
    Packed<std::uint32_t> value;
    Packed<double> real;
  };
  static_assert(sizeof(Odd) == 13 && alignof(Odd) == 1);
  Odd odd;
  EXPECT_EQ(odd.value, 0U);
  odd.value = 0x01020304U;
  odd.real = -2.5;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&odd);
  EXPECT_EQ(bytes[1], 4);
  EXPECT_EQ(bytes[4], 1);
  EXPECT_EQ(odd.real, -2.5);
}

TEST(Text, CutsZeroFillsAndTakesNull) {
  Text<5> text;
  text = "abcdefgh";
  EXPECT_STREQ(text.c_str(), "abcd");
  text = std::string_view("x\0yz", 4);
  EXPECT_EQ(text.raw, (std::array<char, 5>{'x', 0, 0, 0, 0}));
  Text<5> other;
  other = "x";
  EXPECT_EQ(text, other);
  text = static_cast<const char*>(nullptr);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_FALSE(text == other);
}

}  // namespace
