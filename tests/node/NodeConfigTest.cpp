#include "node/NodeConfig.h"

#include "node/FigureRegistry.h"
#include "node/LayoutRegistry.h"
#include "tests/support/Testing.h"

namespace {

TEST(NodeConfig, TheTreeOwnsItsChildren) {
  struct Counted : CMBNodeConfigBase {
    explicit Counted(int& alive) : m_alive(alive) { ++m_alive; }
    ~Counted() override { --m_alive; }
    int& m_alive;
  };
  int alive = 0;
  {
    CMBNodeConfigRequest root;
    auto* folder = new CMBNodeConfigRequest("Folder", "Help");
    root.push_back(folder);
    folder->push_back(new Counted(alive));
    root.push_back(new Counted(alive));
    root.push_back(nullptr);
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(root.Children().size(), 2U);
  }
  EXPECT_EQ(alive, 0);
}

TEST(NodeConfig, ItemsCopyTheirTexts) {
  char value[] = "before";
  CMBNodeConfigItem text(7, "Label", "Help", value, 255, 1, 2);
  value[0] = 'X';
  EXPECT_EQ(text.Value(), "before");
  EXPECT_FALSE(text.IsChoice());
  const CMBNodeConfigItem choice(8, "Label", "Help", std::uint16_t{3}, std::uint16_t{1}, 5);
  EXPECT_TRUE(choice.IsChoice());
  EXPECT_EQ(choice.PossibleValuesId(), 3);
  EXPECT_EQ(choice.CurrentIndex(), 1);
}

TEST(NodeConfig, PossibleValuesAreOfFixedWidth) {
  char table[] = {'Y', 'e', 's', '\0', 'N', 'e', 'v', 'r', 'x', 'y'};
  using Values = std::vector<std::string>;
  EXPECT_EQ(CMBNodeConfigPossibleValues(1, sizeof table, table, 4).Values(),
            (Values{"Yes", "Nevr"}));
  EXPECT_EQ(CMBNodeConfigPossibleValues(1, 2, table, 4).Values(), Values{});
  EXPECT_EQ(CMBNodeConfigPossibleValues(1, 8, table, 0).Values(), Values{});
  EXPECT_EQ(CMBNodeConfigPossibleValues(1, 8, nullptr, 4).Values(), Values{});
}

TEST(NodeConfig, UpdatesAnswerAsTextAndAsChoice) {
  CMBNodeConfigUpdate text(4, std::string("new value"));
  EXPECT_EQ(text.id(), 4);
  EXPECT_STREQ(static_cast<char*>(text), "new value");
  EXPECT_STREQ(static_cast<const char*>(std::as_const(text)), "new value");
  CMBNodeConfigUpdate choice(5, std::uint16_t{2});
  EXPECT_EQ(choice.currentValue(), 2);
  EXPECT_STREQ(static_cast<char*>(choice), "");
}

TEST(Registries, ReplaceByNameAndCategory) {
  static constexpr RecordLayout kInterval{"PI", "recordPI", '4', 20, {}};
  static constexpr RecordLayout kDetail{"PI", "recordPD", '3', 30, {}};
  static constexpr RecordLayout kNewer{"PI", "recordPI", '4', 40, {}};
  LayoutRegistry layouts;
  layouts.Publish(kInterval);
  layouts.Publish(kDetail);
  layouts.Publish(kNewer);
  EXPECT_EQ(layouts.Layouts().size(), 2U);
  EXPECT_EQ(layouts.Find("PI"), &kNewer);
  EXPECT_EQ(layouts.Find("PI", '3'), &kDetail);
  EXPECT_EQ(layouts.Find("PI", '7'), nullptr);
  layouts.PublishListing({{"PI", '4', true}, {"PD", '3', false}});
  ASSERT_NE(layouts.FindListing("PD"), nullptr);
  EXPECT_FALSE(layouts.FindListing("PD")->served);
  EXPECT_EQ(layouts.FindListing("PD", '4'), nullptr);

  FigureRegistry figures;
  figures.Add({"restarts_total", "first", FigureKind::kCounter, [] { return 1.0; }});
  figures.Add({"age_seconds", "other", FigureKind::kGauge, [] { return 2.0; }});
  figures.Add({"restarts_total", "second", FigureKind::kCounter, [] { return 3.0; }});
  ASSERT_EQ(figures.Figures().size(), 2U);
  EXPECT_EQ(figures.Figures()[0].read(), 3.0);
}

}  // namespace
