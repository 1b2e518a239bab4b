#include <grp.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include "support/OsCalls.h"
#include "support/UserFileFormat.h"
#include "support/UserFileSemaphore.h"
#include "tests/support/TempFolder.h"

namespace {

int g_sleeps = 0;

class UserFileSemaphoreTest : public testing::Test {
 protected:
  void SetUp() override {
    g_sleeps = 0;
    Os().sleep = [](unsigned) {
      ++g_sleeps;
      return 0U;
    };
  }
  void TearDown() override { Os() = m_calls; }
  [[nodiscard]] bool IsSetThere() const { return ::semget(m_key, 3, 0) >= 0; }

  const OsCalls m_calls = Os();
  const TempFolder m_folder;
  const key_t m_key = ::ftok(m_folder.Path().c_str(), 'K');
};

TEST_F(UserFileSemaphoreTest, OneAtATimeAndNoSetIsLeft) {
  for (const key_t key : {0, -1}) {
    EXPECT_EQ(UserFileSemaphore(key, 1).create(), -1);
  }
  UserFileSemaphore first(m_key, 1);
  UserFileSemaphore second(m_key, 1);
  ASSERT_GE(first.create(), 0);
  ASSERT_GE(second.create(), 0);
  EXPECT_EQ(second.unlock(), 0) << "not locked";
  EXPECT_EQ(first.lock(false, 0), 0);
  EXPECT_EQ(second.lock(false, 6), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(g_sleeps, 6);
  EXPECT_EQ(first.unlock(), 0);
  EXPECT_EQ(second.lock(true, 0), 0);
  EXPECT_EQ(second.unlock(), 0);
  EXPECT_EQ(second.close(), 0);
  EXPECT_TRUE(IsSetThere());
  EXPECT_EQ(first.close(), 0);
  EXPECT_FALSE(IsSetThere());
}

TEST_F(UserFileSemaphoreTest, AKilledHolderAndARemovedSetBlockNobody) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    UserFileSemaphore semaphore(m_key, 1);
    const bool isHeld = semaphore.create() >= 0 && semaphore.lock(false, 0) == 0;
    [[maybe_unused]] const ssize_t told = ::write(ready[1], isHeld ? "y" : "n", 1);
    ::pause();
    ::_exit(0);
  }
  char isHeld = 'n';
  ASSERT_EQ(::read(ready[0], &isHeld, 1), 1);
  EXPECT_EQ(isHeld, 'y');
  ::close(ready[0]);
  ::close(ready[1]);
  {
    UserFileSemaphore semaphore(m_key, 1);
    ASSERT_GE(semaphore.create(), 0);
    EXPECT_EQ(semaphore.lock(false, 2), -1);
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  UserFileSemaphore semaphore(m_key, 1);
  const int id = semaphore.create();
  ASSERT_GE(id, 0);
  EXPECT_EQ(semaphore.lock(false, 0), 0);
  ::semctl(id, 0, IPC_RMID);
  EXPECT_EQ(semaphore.unlock(), -1);
  EXPECT_EQ(semaphore.close(), -1);
  ASSERT_GE(semaphore.create(), 0) << "a new set";
  EXPECT_EQ(semaphore.lock(false, 0), 0);
  EXPECT_EQ(semaphore.unlock(), 0);
  EXPECT_EQ(semaphore.close(), 0);
  EXPECT_FALSE(IsSetThere());
}

TEST_F(UserFileSemaphoreTest, ASetOfAnotherUserStaysUnlocked) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  const int id = ::semget(m_key, 3, IPC_CREAT | 0666);
  ASSERT_GE(id, 0);
  const pid_t child = ::fork();
  if (child == 0) {
    UserFileSemaphore semaphore(m_key, 1);
    const bool isOther = ::setuid(65534) == 0 && semaphore.create() == id;
    const bool isKept = semaphore.close() == -1 && errno == EPERM;
    ::_exit(isOther && isKept && semaphore.create() == id ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(::semctl(id, 0, IPC_RMID), 0);
}

TEST_F(UserFileSemaphoreTest, WhatWasUnlockedStaysAsItIsWhenItsProcessEnds) {
  UserFileSemaphore semaphore(m_key, 1);
  const int id = semaphore.create();
  ASSERT_GE(id, 0);
  const pid_t child = ::fork();
  if (child == 0) {
    UserFileSemaphore other(m_key, 1);
    const bool isDone = other.create() == id && other.lock(false, 0) == 0 && other.unlock() == 0;
    ::_exit(isDone ? 0 : 1);  // without a close
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(::semctl(id, 0, GETVAL), 1);
  EXPECT_EQ(::semctl(id, 1, GETVAL), 9999);
}

TEST_F(UserFileSemaphoreTest, ASetThatIsRemovedWhileItsLockIsWaitedForIsMadeAnew) {
  const int former = ::semget(m_key, 3, IPC_CREAT | 0666);
  ASSERT_GE(former, 0);
  sembuf take{2, 1, 0};
  ASSERT_EQ(::semop(former, &take, 1), 0);
  std::thread remover([former] {
    EXPECT_TRUE(WaitUntil([&] { return ::semctl(former, 2, GETZCNT) != 0; }));
    ::semctl(former, 0, IPC_RMID);
  });
  UserFileSemaphore semaphore(m_key, 1);
  const int id = semaphore.create();
  remover.join();
  EXPECT_GE(id, 0);
  EXPECT_NE(id, former);
  EXPECT_EQ(semaphore.lock(false, 0), 0);
}

TEST_F(UserFileSemaphoreTest, ItsRightsAreThoseOfTheSettingAndTheGroupGetsIn) {
  const struct {
    const char* setting;
    int mode;  ///< -1: none is told
  } cases[] = {{"0600", 0600}, {"660", 0660}, {"0660", 0660}, {"0666", 0666}, {"", -1},
               {"0777", -1},   {"06600", -1}, {"0x1b0", -1},  {"-660", -1}};
  for (const auto& row : cases) {
    EXPECT_EQ(ParseGuardMode(row.setting).value_or(-1), row.mode) << row.setting;
    EXPECT_EQ(UserFileGuardRights(row.setting).mode, row.mode == -1 ? 0666 : row.mode);
  }
  constexpr gid_t kGroup = 4242;
  UserFileSemaphore semaphore(m_key, 1, {0660, kGroup});
  const int id = semaphore.create();
  ASSERT_GE(id, 0);
  ::semid_ds set{};
  ASSERT_EQ(::semctl(id, 0, IPC_STAT, &set), 0);
  EXPECT_EQ(set.sem_perm.mode & 0777, 0660);
  EXPECT_EQ(set.sem_perm.gid, kGroup);
  // Without patience a lock that another holds is told at once.
  sembuf take{2, 1, 0};
  ASSERT_EQ(::semop(id, &take, 1), 0);
  EXPECT_EQ(UserFileSemaphore(m_key, 1, {}, std::chrono::milliseconds(1)).create(), -1);
  EXPECT_EQ(errno, EAGAIN);
  take.sem_op = -1;
  ASSERT_EQ(::semop(id, &take, 1), 0);
  if (::geteuid() != 0) {
    return;  // only root can become another user
  }
  for (const gid_t group : {kGroup, gid_t{4343}}) {
    const pid_t child = ::fork();
    if (child == 0) {
      const bool isOther =
          ::setgroups(0, nullptr) == 0 && ::setgid(group) == 0 && ::setuid(65534) == 0;
      UserFileSemaphore other(m_key, 1);
      const bool isIn = other.create() == id && other.lock(false, 0) == 0;
      ::_exit(isOther && isIn == (group == kGroup) ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << group;
  }
}

TEST(UserFileFormatTest, FieldsStandWhereWritersPutThem) {
  const struct {
    const char* kind;
    const char* label;
    std::size_t offset;
    std::size_t size;
  } cases[] = {{"UPI", "User Time 1", 112, 4},      {"UPI", "User String 7", 244, 64},
               {"UPIB", "User Long Roll 1", 68, 4}, {"UPIB", "User Unsigned Long Roll 1", 108, 4},
               {"UPIB", "User Float 1", 128, 8},    {"UPIB", "User Time 1", 208, 4},
               {"UPIB", "User String 11", 452, 64}, {"UPD", "User String 5", 148, 32},
               {"UPD", "Collect Time", 44, 4},      {"UPDB", "User Float 1", 88, 8},
               {"UPDB", "User String 6", 212, 32}};
  for (const auto& row : cases) {
    const UserFileKind* kind = FindUserFileKind(row.kind);
    ASSERT_NE(kind, nullptr);
    const auto field = std::ranges::find(kind->fields, row.label, &UserField::label);
    ASSERT_NE(field, kind->fields.end()) << row.label;
    EXPECT_EQ(field->offset, row.offset) << row.kind << row.label;
    EXPECT_EQ(field->size, row.size) << row.kind << row.label;
  }
  EXPECT_EQ(FindUserFileKind("upi"), nullptr);
}

}  // namespace
