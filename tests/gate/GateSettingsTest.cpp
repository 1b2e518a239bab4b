#include "gate/GateSettings.h"

#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

TEST(GateSettingsTest, TargetsAndReceiversAreTakenAsTheDaemonTellsThem) {
  GateSettings settings;
  ASSERT_TRUE(ReadGateSettings(
      JsonOf(
          R"({"ok":true,"gate":{"mode":"unit","host":"h","state":"/s","push":[{"name":"far","url":"http://h","records":["PI"],"names":"node","user":"u","password_file":"/p","token_file":"/t","authority":"/a","client_certificate":"/c","client_key":"/k","labels":{"b":"1","a":"2"},"bytes_per_second":5,"batch":100,"days":7},{"labels":{"job":"own"}}],"alarms":{"alertmanager":["x"],"webhook":["y","z"],"token_file":"/t","link":"l"}}})"),
      settings));
  EXPECT_EQ(settings.host + settings.state, "h/s");
  ASSERT_EQ(settings.push.size(), 2U);
  const TargetSettings wanted{"far",
                              "http://h",
                              {"PI"},
                              true,
                              {"u", "/p", "/t", "/a", "/c", "/k"},
                              {{"b", "1"}, {"a", "2"}, {"instance", "h"}, {"job", "node"}},
                              5,
                              100,
                              7};
  EXPECT_EQ(settings.push[0], wanted);
  TargetSettings bare;
  bare.labels = {{"job", "own"}, {"instance", "h"}};
  EXPECT_EQ(settings.push[1], bare);
  const AlarmReceivers receivers{{"x"}, {"y", "z"}, "l", {"", "", "/t", "", "", ""}};
  EXPECT_EQ(settings.alarms, receivers);
}

}  // namespace
