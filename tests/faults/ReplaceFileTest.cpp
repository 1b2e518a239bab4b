#include "support/AtomicFile.h"
#include "tests/faults/Faults.h"
#include "tests/faults/SystemCalls.h"
#include "tests/support/TempFolder.h"

namespace {

// Settings, cursors of pushes, states of alarms and what the client writes all go this way.
TEST(ReplaceFileTest, AFileIsTheOldOneOrTheNewOneWhicheverCallFails) {
  int failures = 0;
  for (const char* call : {"open", "write", "fsync", "rename"}) {
    for (std::size_t place = 1;; ++place) {
      SCOPED_TRACE(call + std::string(", call ") + std::to_string(place));
      const TempFolder folder;
      const std::string path = folder.Path() / "settings";
      std::ofstream(path) << "old";
      faults::ForgetFailure();
      faults::ArmSystemCall(call, place);
      std::string error;
      const bool isDone = ReplaceFile(path, "new", error);
      faults::DisarmSystemCalls();
      if (!faults::HasFailed()) {
        EXPECT_TRUE(isDone) << error;
        EXPECT_EQ(folder.Read("settings"), "new");
        break;
      }
      ++failures;
      // Behind the rename only the folder's sync can fail.
      const bool isNew = error.find("can't be synced") != std::string::npos;
      EXPECT_EQ(isDone, isNew);
      EXPECT_THAT(error, ::testing::HasSubstr(path));
      EXPECT_EQ(folder.Read("settings"), isNew ? "new" : "old");
      EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    }
  }
  EXPECT_EQ(failures, 6);
}

}  // namespace
