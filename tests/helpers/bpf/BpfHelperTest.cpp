#include <ostream>

#include "tests/helpers/bpf/TaskFixture.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned kSomeUser = 64321;

/// What lies below a folder, links and modes aside.
std::vector<std::string> NamesBelow(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder).string();
    // The kernel's own, of a mount by root.
    if (!name.ends_with(".debug")) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

struct ::stat StatusAt(const std::string& path) {
  struct ::stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

class BpfHelperTest : public BpfTest {
 protected:
  void TearDown() override {
    if (!IsSkipped()) {
      EXPECT_EQ(RunHelper({"unload", "--pin", Folder()}).value, 0);
      EXPECT_TRUE(NamesBelow(Mounted()).empty());
    }
  }
  static std::string Folder() { return Mounted() + "/agent"; }
  static HelperEnd Load(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"load", "--pin", Folder()});
    return RunHelper(more);
  }
};

TEST_F(BpfHelperTest, PinsForTheGroupAlone) {
  const HelperEnd end = Load({"--group", "64321", "--mode", "0440"});
  ASSERT_EQ(end.value, 0) << end.words;
  EXPECT_THAT(NamesBelow(Mounted()), ::testing::ElementsAre("agent", "agent/tasks"));
  const struct ::stat folder = StatusAt(Folder());
  const struct ::stat tasks = StatusAt(Folder() + "/tasks");
  EXPECT_EQ(folder.st_mode & 07777, 0750U);
  EXPECT_EQ(tasks.st_mode & 07777, 0440U);
  EXPECT_EQ(folder.st_uid + tasks.st_uid, 0U);
  EXPECT_EQ(folder.st_gid, 64321U);
  EXPECT_EQ(tasks.st_gid, 64321U);

  const HelperEnd status = RunHelper({"status", "--pin", Folder()});
  EXPECT_EQ(status.value, 0);
  EXPECT_NE(status.words.find("tasks: mode 0440, user root, group 64321\nversion 1, 464 bytes"),
            std::string::npos)
      << status.words;
}

TEST_F(BpfHelperTest, ReplacesWhatReadersMayGoOnWith) {
  ASSERT_EQ(Load().value, 0);
  const int former = ::open((Folder() + "/tasks").c_str(), O_RDONLY | O_CLOEXEC);
  const ino_t before = StatusAt(Folder() + "/tasks").st_ino;
  // What others keep there.
  fs::create_directory(Folder() + "/other");
  ASSERT_EQ(Load({"--mode", "0400"}).value, 0);
  EXPECT_NE(StatusAt(Folder() + "/tasks").st_ino, before);
  EXPECT_EQ(StatusAt(Folder() + "/tasks").st_mode & 07777, 0400U);
  EXPECT_FALSE(ReadTasks(Folder() + "/tasks").empty());
  TaskFigures figures{};
  EXPECT_EQ(::read(former, &figures, sizeof figures), ssize_t{sizeof figures});
  ::close(former);
  // The folder is not taken away below somebody else's.
  EXPECT_EQ(RunHelper({"unload", "--pin", Folder()}).value, 0);
  EXPECT_THAT(NamesBelow(Mounted()), ::testing::ElementsAre("agent", "agent/other"));
  fs::remove(Folder() + "/other");
}

struct RefusedCase {
  const char* name;
  const char* words;  ///< MOUNT stands for where the file system is, a comma for a blank
  int value;
  const char* reason;
  unsigned user = 0;
  std::function<void(const std::string& theirs)> prepare = [](const std::string&) {};
};

void PrintTo(const RefusedCase& refused, std::ostream* out) { *out << refused.name; }

class BpfRefusalTest : public BpfTest, public ::testing::WithParamInterface<RefusedCase> {};

TEST_P(BpfRefusalTest, SaysWhyAndLeavesNothing) {
  GetParam().prepare(Mounted() + "/theirs");
  const std::vector<std::string> before = NamesBelow(Mounted());
  std::vector<std::string> words;
  std::istringstream line(GetParam().words);
  for (std::string word; line >> word;) {
    std::ranges::replace(word, ',', ' ');
    words.push_back(word.starts_with("MOUNT") ? Mounted() + word.substr(5) : word);
  }
  const HelperEnd end = RunHelper(words, GetParam().user);
  EXPECT_EQ(end.value, GetParam().value);
  EXPECT_NE(end.words.find(GetParam().reason), std::string::npos) << end.words;
  EXPECT_EQ(std::count(end.words.begin(), end.words.end(), '\n'), 1) << end.words;
  EXPECT_EQ(NamesBelow(Mounted()), before);
  fs::remove_all(Mounted() + "/theirs");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BpfRefusalTest,
    ::testing::Values(
        RefusedCase{"Nothing", "", 2, "usage: qmt_bpf load"},
        RefusedCase{"Command", "reload", 2, "usage:"},
        RefusedCase{"TwoCommands", "status load", 2, "usage:"},
        RefusedCase{"NoValue", "load --pin", 2, "usage:"},
        RefusedCase{"OptionOfLoad", "status --mode 0440", 2, "usage:"},
        RefusedCase{"Octal", "load --mode 0480", 2, "--mode \"0480\""},
        RefusedCase{"Mode", "load --mode 4440", 2, "--mode \"4440\""},
        RefusedCase{"Relative", "load --pin tasks", 2, "an absolute path"},
        RefusedCase{"Group", "load --group no,such,group --pin MOUNT/agent", 2,
                    "no group \"no such group\""},
        RefusedCase{"NumberOfNoGroup", "load --group 4294967295 --pin MOUNT/agent", 2,
                    "no group \"4294967295\""},
        RefusedCase{"OtherFileSystem", "load --pin /proc/agent", 1, "no BPF file system"},
        RefusedCase{"NoParent", "load --pin MOUNT/a/b", 1, "No such file"},
        RefusedCase{"Dot", "load --pin MOUNT/a.b", 1, "a.b: "},
        RefusedCase{"User", "load --pin MOUNT/agent", 1, "only root", kSomeUser},
        RefusedCase{"NothingPinned", "status --pin MOUNT/agent", 1, "nothing is pinned"},
        RefusedCase{"FolderOfOthers", "load --pin MOUNT/theirs", 1, "another user's", 0,
                    [](const std::string& theirs) {
                      ::mkdir(theirs.c_str(), 0755);
                      EXPECT_EQ(::chown(theirs.c_str(), kSomeUser, kSomeUser), 0);
                    }},
        RefusedCase{"FolderForAll", "load --pin MOUNT/theirs", 1, "others may write", 0,
                    [](const std::string& theirs) {
                      ::mkdir(theirs.c_str(), 0755);
                      EXPECT_EQ(::chmod(theirs.c_str(), 0777), 0);
                    }},
        RefusedCase{
            "Link", "load --pin MOUNT/theirs", 1, "theirs: ", 0,
            [](const std::string& theirs) { EXPECT_EQ(::symlink("/", theirs.c_str()), 0); }}),
    [](const auto& one) { return std::string(one.param.name); });

}  // namespace
