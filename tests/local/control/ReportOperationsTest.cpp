#include <stdexcept>

#include "node/ReportRegistry.h"
#include "tests/local/ServedControl.h"

namespace {

TEST(ReportOperationsTest, AReportComesAsATableOrFailsInWords) {
  ReportRegistry::Instance().Add("groups", [](const ReportArguments& arguments) {
    if (arguments.contains("bad")) {
      throw std::invalid_argument("no argument \"bad\"");
    }
    if (arguments.contains("late")) {
      throw std::runtime_error("too late");
    }
    return Report{{"PID"}, {{"7\xff"}}, {std::to_string(arguments.size())}};
  });
  ServedControl control;
  const auto peer = std::make_shared<FakePeer>(Rights::kRead);
  const std::pair<const char*, const char*> cases[] = {
      {R"("report":"groups")",
       R"({"ok":true,"report":{"columns":["PID"],"rows":[["7\ufffd"]],"notes":["0"]}})"},
      {R"("report":"groups","arguments":{"name":"a"})",
       R"({"ok":true,"report":{"columns":["PID"],"rows":[["7\ufffd"]],"notes":["1"]}})"},
      {R"("report":"groups","arguments":{"bad":""})",
       R"({"ok":false,"error":{"code":"bad-field","message":"no argument \"bad\"",)"
       R"("field":"arguments"}})"},
      {R"("report":"groups","arguments":{"late":""})",
       R"({"ok":false,"error":{"code":"report-failed","message":"too late"}})"},
      {R"("report":"x")",
       R"({"ok":false,"error":{"code":"unknown-report","message":"no report \"x\"",)"
       R"("field":"report"}})"},
      {R"("report":1)",
       R"({"ok":false,"error":{"code":"bad-field","message":"report must be the name of a report",)"
       R"("field":"report"}})"},
      {R"("report":"groups","arguments":{"pid":7})",
       R"({"ok":false,"error":{"code":"bad-field","message":"argument \"pid\" must be a text",)"
       R"("field":"arguments"}})"},
  };
  for (const auto& [members, answer] : cases) {
    EXPECT_EQ(control.Ask(std::string(R"({"op":"report",)") + members + "}", peer), JsonOf(answer));
  }
  ReportRegistry::Instance().Remove("groups");
}

}  // namespace
