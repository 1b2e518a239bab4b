#include <cctype>

#include "local/metrics/MetricFamily.h"
#include "records/RecordLayouts.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kNames = QMT_TEST_DIR "/fixtures/metrics/names.txt";

const char* KindName(MetricKind kind) {
  return kind == MetricKind::kCounter ? "counter" : kind == MetricKind::kInfo ? "info" : "gauge";
}

/// Every metric of every record, a line each.
std::string NamesNow() {
  g_hostProfile = HostProfile::kModern;
  PublishLayouts();
  g_hostProfile = HostProfile::kClassic;
  PublishLayouts();  // of records of both profiles those of `classic`
  std::ostringstream text;
  for (const RecordLayout* layout : LayoutRegistry::Instance().Layouts()) {
    if (!IsExposable(*layout)) {
      continue;
    }
    const RecordMetrics metrics = MetricsOf(*layout);
    for (const MetricFamily& family : metrics.families) {
      text << family.name << ' ' << KindName(family.kind);
      if (family.factor != family.divisor) {
        text << " * " << family.factor / family.divisor;
      }
      for (const FieldLayout* key : metrics.keys) {
        text << (key == metrics.keys.front() ? " by " : ",") << SnakeCase(key->label);
      }
      text << '\n';
    }
  }
  return text.str();
}

TEST(MetricNames, AreTheOnesThatReadersKnow) {
  const std::string now = NamesNow();
  if (std::getenv("QMT_WRITE_METRICS") != nullptr) {
    std::ofstream(kNames) << now;
  }
  const std::string pinned = FileText(kNames);
  EXPECT_EQ(pinned, now)
      << "a dashboard somewhere goes by these names; if the change is meant, set "
         "QMT_WRITE_METRICS=1";
}

TEST(MetricNames, AreNamesAndTheirOwn) {
  PublishLayouts();
  std::set<std::string> names;
  for (const RecordLayout* layout : LayoutRegistry::Instance().Layouts()) {
    for (const MetricFamily& family : MetricsOf(*layout).families) {
      EXPECT_TRUE(names.insert(family.name).second) << family.name;
      EXPECT_TRUE(std::all_of(family.name.begin(), family.name.end(), [](unsigned char letter) {
        return letter == '_' || std::islower(letter) != 0 || std::isdigit(letter) != 0;
      })) << family.name;
      for (const char* reserved : {"_total", "_count", "_sum", "_bucket", "_info", "_created"}) {
        EXPECT_FALSE(family.name.ends_with(reserved)) << family.name;
      }
      EXPECT_EQ(family.name.find("__"), std::string::npos) << family.name;
    }
  }
  EXPECT_GT(names.size(), 200U);
}

}  // namespace
