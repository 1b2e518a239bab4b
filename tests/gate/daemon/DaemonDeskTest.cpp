#include "gate/daemon/DaemonDesk.h"

#include <new>

#include "gate/GateLoop.h"
#include "tests/gate/GateHarness.h"

namespace {

TEST(DaemonDeskTest, WhoLacksMemoryForAnAnswerIsToldOnceMoreWithout) {
  const TempFolder folder;
  const std::string path = (folder.Path() / "control.sock").string();
  FakeDaemon daemon(path, [](const Json&) { return "{\"ok\":true}\n"; });
  GateLoop loop;
  DaemonDesk desk(loop, path);
  std::vector<std::string> answers;
  const DaemonDesk::QuestionPtr question =
      desk.AskJson(Json{{"op", "gate"}}, [&](const Json& answer) {
        answers.push_back(JsonText(answer));
        if (answers.size() == 1) {
          throw std::bad_alloc();
        }
        loop.Stop();
      });
  loop.After(std::chrono::seconds(20), [&loop] { loop.Stop(); });
  loop.Run();
  EXPECT_THAT(answers, ElementsAre(R"({"ok":true})", "null"));
  daemon.Stop();
}

}  // namespace
