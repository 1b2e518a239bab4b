#include "client/files/UserStore.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include "client/ask/Errors.h"
#include "client/files/UserRows.h"
#include "support/HostPaths.h"
#include "tests/support/TempFolder.h"

namespace {

TEST(UserStoreTest, TheGuardIsMadeWithTheModeOfTheDaemonsSettings) {
  const struct {
    const char* ini;  ///< null: there is none
    int mode;
  } cases[] = {{nullptr, 0666},
               {"", 0666},
               {"[Agent]\nGuard Mode = 0660\n", 0660},
               {"[Node]\nGuard Mode = 0660\n", 0666},
               {"[Agent]\n; Guard Mode = 0660\n[agent]\r\n guard mode=600 \r\nx\n", 0600},
               {"[Agent]\nGuard Mode = 0640\n", 0666}};
  for (const auto& row : cases) {
    const TempFolder root;
    SetProductRoot(root.Path().string());
    const std::filesystem::path agent = root.Path() / "opt/qmtrx/mond/agent";
    std::filesystem::create_directories(agent);
    if (row.ini != nullptr) {
      std::ofstream(agent / "qmtagt.ini") << row.ini;
    }
    const UserFileKind& kind = UserFileKinds()[kUPD];
    UserStore(kind, 0).Change([&](const std::string&) {
      const int id = ::semget(::ftok((agent / "qmtuser").c_str(), kind.projectId), 3, 0);
      ::semid_ds set{};
      EXPECT_EQ(::semctl(id, 0, IPC_STAT, &set), 0);
      EXPECT_EQ(set.sem_perm.mode & 0777, row.mode) << (row.ini == nullptr ? "none" : row.ini);
      return std::string();
    });
    SetProductRoot("");
  }
}

TEST(UserRowsTest, LinesOfJsonAreCountedFromTheBeginOfTheFile) {
  std::vector<UserFault> faults;
  const UserTable table = ReadUserTable("\n \r\n{\"A\": 1}\nx\n", faults);
  EXPECT_EQ(table.rows.at(0).line, 3U);
  EXPECT_EQ(faults.at(0).line, 4U);
}

TEST(UserStoreTest, AChangeKeepsTheModeAndNoLinkIsFollowed) {
  namespace fs = std::filesystem;
  const TempFolder root;
  SetProductRoot(root.Path().string());
  fs::create_directories(root.Path() / "opt/qmtrx/mond/agent");
  const UserFileKind& kind = UserFileKinds()[kUPD];
  const UserStore store(kind, 0);
  EXPECT_EQ(store.Read(), "");
  const fs::path file = ProductPath(std::string(kUserDataDirectory) + '/' + kind.fileName);
  const std::string record(kind.recordSize, 'x');
  const auto append = [&](const std::string& records) { return records + record; };
  std::ofstream(file.string());
  fs::permissions(file, fs::perms{0640});
  store.Change(append);
  store.Change(append);
  EXPECT_EQ(store.Read(), record + record);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms{0640});
  // It is swapped while the change is made.
  std::ofstream(root.Path() / "elsewhere");
  store.Change([&](const std::string& records) {
    fs::remove(file);
    fs::create_symlink(root.Path() / "elsewhere", file);
    return append(records);
  });
  EXPECT_TRUE(fs::is_empty(root.Path() / "elsewhere"));
  fs::remove(file);
  fs::create_symlink(root.Path() / "elsewhere", file);
  EXPECT_THROW(static_cast<void>(store.Read()), ClientError);
  EXPECT_THROW(store.Change(append), ClientError);
  EXPECT_TRUE(fs::is_empty(root.Path() / "elsewhere"));
  SetProductRoot("");
}

}  // namespace
