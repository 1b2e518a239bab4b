#include "node/PqlConditionFinder.h"

#include "node/PqlStatement.h"
#include "tests/support/Testing.h"

namespace {

tagPQLDictEntry Field(const char* name) {
  tagPQLDictEntry entry;
  entry.name = name;
  return entry;
}

class PqlConditionFinderTest : public testing::Test {
 protected:
  void Condition(CPqlPrsParenData& group, const char* field, const char* value) {
    const tagPQLDictEntry entry = Field(field);
    m_statement.AddCondition(group, &entry, CPqlPrsCondData::kEqual,
                             m_statement.MakeStrings({value}));
  }
  CPqlPrs m_statement;
  PqlConditionFinder m_finder{&m_statement};
};

TEST_F(PqlConditionFinderTest, FindsNothingWhereNothingIs) {
  EXPECT_EQ(m_finder.Find("DEVICE"), nullptr);
  EXPECT_EQ(PqlConditionFinder(nullptr).Find("DEVICE"), nullptr);
  Condition(m_statement.AddGroup(m_statement.where()), "DEVICE", "sda");
  EXPECT_EQ(m_finder.Find(nullptr), nullptr);
  EXPECT_EQ(m_finder.Find("device"), nullptr);
  EXPECT_EQ(m_finder.Find("DEVICE2"), nullptr);
  EXPECT_STREQ(m_finder.Find("DEVICE"), "sda");
}

TEST_F(PqlConditionFinderTest, TakesOnlyEqualityWithOneString) {
  CPqlPrsParenData& group = m_statement.AddGroup(m_statement.where());
  const tagPQLDictEntry field = Field("F");
  constexpr int kEqual = CPqlPrsCondData::kEqual;
  m_statement.AddCondition(group, nullptr, kEqual, m_statement.MakeStrings({"no left side"}));
  m_statement.AddCondition(group, &field, kEqual, nullptr);
  m_statement.AddCondition(group, &field, 1, m_statement.MakeStrings({"not equality"}));
  m_statement.AddCondition(group, &field, kEqual, m_statement.MakeValue(1));
  m_statement.AddCondition(group, &field, kEqual, m_statement.MakeValue(2));
  m_statement.AddCondition(group, &field, kEqual, m_statement.MakeStrings({}));
  m_statement.AddCondition(group, &field, kEqual, m_statement.MakeStrings({"one", "two"}));
  EXPECT_EQ(m_finder.Find("F"), nullptr);
  Condition(group, "F", "hit");
  Condition(group, "F", "second hit");
  EXPECT_STREQ(m_finder.Find("F"), "hit");
  EXPECT_EQ(group.conds().GetCount(), 9);
}

TEST_F(PqlConditionFinderTest, LooksAtAGroupThenItsGroupsThenTheNext) {
  CPqlPrsParenData& first = m_statement.AddGroup(m_statement.where());
  CPqlPrsParenData& second = m_statement.AddGroup(m_statement.where());
  CPqlPrsParenData& nested = m_statement.AddGroup(first.parens());
  CPqlPrsParenData& sibling = m_statement.AddGroup(first.parens());
  Condition(second, "A", "second");
  Condition(sibling, "A", "sibling");
  EXPECT_STREQ(m_finder.Find("A"), "sibling");
  Condition(nested, "A", "nested");
  EXPECT_STREQ(m_finder.Find("A"), "nested");
  Condition(first, "A", "first");
  EXPECT_STREQ(m_finder.Find("A"), "first");
  Condition(second, "B", "second");
  EXPECT_STREQ(m_finder.Find("B"), "second");
}

TEST_F(PqlConditionFinderTest, AnyDepthCostsNoStack) {
  CPqlPrsParenData* group = &m_statement.AddGroup(m_statement.where());
  for (int depth = 0; depth < 200000; ++depth) {
    group = &m_statement.AddGroup(group->parens());
  }
  Condition(*group, "DEEP", "found");
  EXPECT_STREQ(m_finder.Find("DEEP"), "found");
  EXPECT_EQ(m_finder.Find("OTHER"), nullptr);
}

}  // namespace
