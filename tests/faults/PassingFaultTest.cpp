#include <filesystem>
#include <fstream>

#include "gate/GateLoop.h"
#include "gate/access/AccessError.h"
#include "gate/access/AccountFile.h"
#include "gate/alarm/AlarmMemory.h"
#include "gate/push/PushCursor.h"
#include "tests/faults/SystemCalls.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kHash =
    "$2b$04$abcdefghijklmnopqrstuuJ8bzXGvZ0cXrMLm8DGd.C4fGSd1WcYe";  // of no password

/// The next file can't be opened for want of a descriptor.
class NextOpenFails {
 public:
  NextOpenFails() { faults::ArmSystemCall("open", 1); }
  ~NextOpenFails() { faults::DisarmSystemCalls(); }
  NextOpenFails(const NextOpenFails&) = delete;
  NextOpenFails& operator=(const NextOpenFails&) = delete;
};

class PassingFaultTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Path(const char* name) const { return m_folder.Path() / name; }
  void Write(const char* name, const std::string& text) const {
    std::ofstream(Path(name) + ".new") << text;
    std::filesystem::rename(Path(name) + ".new", Path(name));
  }

  TempFolder m_folder;
};

TEST_F(PassingFaultTest, AFileOfAccountsThatHasChangedIsReadLater) {
  std::vector<std::string> told;
  Write("users", std::string("a:") + kHash + "\nb:" + kHash + '\n');
  AccountFile file(AccountKind::kUsers, Path("users"),
                   [&](const std::string& text) { told.push_back(text); });
  Write("users", std::string("a:") + kHash + '\n');
  std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();
  {
    const NextOpenFails fails;
    EXPECT_EQ(file.Look(now).accounts.size(), 2U);
  }
  EXPECT_THAT(told, ElementsAre(HasSubstr("stay in force")));
  now += std::chrono::seconds(2);
  EXPECT_EQ(file.Look(now).accounts.size(), 1U) << "who is in it no more is let in no more";
}

TEST_F(PassingFaultTest, WhatHasBeenToldAndSentIsNotTakenForNone) {
  AlarmMemory memory;
  memory.contact = 5;
  Write("alarms.json", AlarmMemoryText(memory));
  Write("push-far.json", R"({"url":"u","since":7,"after":{}})");
  GateLoop loop;
  std::string error;
  PushCursor cursor(loop, m_folder.Path().string(), "far", "u");
  {
    const NextOpenFails fails;
    EXPECT_THROW(static_cast<void>(ReadAlarmMemory(Path("alarms.json"), error)),
                 PassingAccessError);
  }
  {
    const NextOpenFails fails;
    EXPECT_THROW(static_cast<void>(cursor.Load(0, error)), PassingAccessError);
  }
  EXPECT_EQ(ReadAlarmMemory(Path("alarms.json"), error).contact, 5);
  EXPECT_TRUE(cursor.Load(0, error)) << error;
  EXPECT_FALSE(std::filesystem::exists(Path("push-far.json.bad")));
}

}  // namespace
