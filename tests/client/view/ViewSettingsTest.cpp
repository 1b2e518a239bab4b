#include "client/view/ViewSettings.h"

#include "tests/support/TempFolder.h"

namespace {

constexpr const char* kFile = "qmtctl/view.ini";

/// Settings of a folder of the test's own.
class ViewSettingsTest : public testing::Test {
 protected:
  ViewSettingsTest() {
    ::setenv("XDG_CONFIG_HOME", m_folder.Path().c_str(), 1);
    ::setenv("HOME", (m_folder.Path() / "home").c_str(), 1);
  }
  ~ViewSettingsTest() override {
    ::unsetenv("XDG_CONFIG_HOME");
    Restore();
  }

  void Write(const std::string& text) const {
    std::filesystem::create_directories(m_folder.Path() / "qmtctl");
    std::ofstream(m_folder.Path() / kFile) << text;
  }

  TempFolder m_folder;

 private:
  void Restore() const {
    if (m_home.empty()) {
      ::unsetenv("HOME");
    } else {
      ::setenv("HOME", m_home.c_str(), 1);
    }
  }

  static std::string HomeNow() {
    const char* home = std::getenv("HOME");
    return home == nullptr ? "" : home;
  }
  const std::string m_home = HomeNow();
};

TEST_F(ViewSettingsTest, RemembersColumnsAndLeavesOtherLines) {
  Write(
      "# mine\nx = y\n[Columns]\nPI = A\n; a note\n# and one\nPDI= PID , CPU % Each,,Program "
      "\n[Later]\nPI = B\n");
  {
    ViewSettings settings;
    EXPECT_THAT(settings.ColumnsOf("PDI"), ElementsAre("PID", "CPU % Each", "Program"));
    EXPECT_THAT(settings.ColumnsOf("PI"), ElementsAre("A"));
    EXPECT_THAT(settings.ColumnsOf("DISK"), IsEmpty());
    EXPECT_TRUE(settings.SetColumns("DISK", {"Device", "In Use %"})) << settings.Complaint();
    EXPECT_TRUE(settings.SetColumns("PI", {}));
  }
  const ViewSettings again;
  EXPECT_THAT(again.ColumnsOf("PDI"), ElementsAre("PID", "CPU % Each", "Program"));
  EXPECT_THAT(again.ColumnsOf("DISK"), ElementsAre("Device", "In Use %"));
  EXPECT_THAT(again.ColumnsOf("PI"), IsEmpty());
  const std::string text = m_folder.Read(kFile);
  for (const char* line : {"# mine\n", "x = y\n", "# and one\n", "[Later]\nPI = B\n"}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
}

TEST_F(ViewSettingsTest, ATextThatIsWrittenAgainIsTheSame) {
  ViewSettings settings;
  EXPECT_EQ(settings.Complaint(), "");
  EXPECT_TRUE(settings.SetColumns("PDI", {"PID"}));
  EXPECT_TRUE(settings.SetColumns("PI", {"CPU %"}));
  const std::string first = m_folder.Read(kFile);
  ViewSettings again;
  EXPECT_TRUE(again.SetColumns("PI", {"CPU %"}));
  EXPECT_EQ(m_folder.Read(kFile), first);
}

TEST_F(ViewSettingsTest, TellsLinesThatSayNothing) {
  Write("[Columns]\nPDI = PID\nnonsense\n");
  ViewSettings settings;
  EXPECT_THAT(settings.Complaint(), HasSubstr(std::string(kFile) + ", line 3: no \"=\""));
  EXPECT_THAT(settings.ColumnsOf("PDI"), ElementsAre("PID"));
  EXPECT_TRUE(settings.SetColumns("PI", {"CPU %"}));
  EXPECT_THAT(m_folder.Read(kFile), HasSubstr("nonsense\n"));
}

TEST_F(ViewSettingsTest, NeverReplacesWhatItCannotRead) {
  const struct {
    const char* what;
    void (*make)(const std::string& path);
  } cases[] = {
      {"too long",
       [](const std::string& path) {
         std::ofstream(path) << std::string(70000, '#') << "\n[Columns]\nPI = A\n";
       }},
      {"a pipe", [](const std::string& path) { ::mkfifo(path.c_str(), 0600); }},
      {"a folder", [](const std::string& path) { std::filesystem::create_directory(path); }},
      {"endless",
       [](const std::string& path) { std::filesystem::create_symlink("/dev/zero", path); }},
      {"a circle of links",
       [](const std::string& path) { std::filesystem::create_symlink("view.ini", path); }}};
  for (const auto& row : cases) {
    const std::filesystem::path path = m_folder.Path() / kFile;
    std::filesystem::remove_all(path.parent_path());
    std::filesystem::create_directories(path.parent_path());
    row.make(path);
    const auto kind = std::filesystem::symlink_status(path).type();
    ViewSettings settings;
    EXPECT_THAT(settings.Complaint(), HasSubstr(path.string())) << row.what;
    EXPECT_THAT(settings.ColumnsOf("PI"), IsEmpty()) << row.what;
    EXPECT_FALSE(settings.SetColumns("PI", {"CPU %"})) << row.what;
    EXPECT_THAT(settings.Complaint(), HasSubstr(path.string())) << row.what;
    EXPECT_THAT(settings.ColumnsOf("PI"), ElementsAre("CPU %")) << row.what;
    EXPECT_EQ(std::filesystem::symlink_status(path).type(), kind) << row.what;
  }
}

TEST_F(ViewSettingsTest, FindsItsFolder) {
  // A folder that is not absolute would be another one in each place.
  ::setenv("XDG_CONFIG_HOME", "relative", 1);
  std::filesystem::create_directory(m_folder.Path() / "home");
  ViewSettings settings;
  EXPECT_TRUE(settings.SetColumns("PI", {"CPU %"})) << settings.Complaint();
  EXPECT_THAT(m_folder.Read("home/.config/qmtctl/view.ini"), HasSubstr("PI = CPU %\n"));
  ::unsetenv("HOME");
  ViewSettings homeless;
  EXPECT_EQ(homeless.Complaint(), "");
  EXPECT_FALSE(homeless.SetColumns("PI", {"CPU %"}));
  EXPECT_THAT(homeless.Complaint(), HasSubstr("no home"));
  EXPECT_THAT(homeless.ColumnsOf("PI"), ElementsAre("CPU %"));
  ::setenv("HOME", (m_folder.Path() / "nobody/there").c_str(), 1);
  EXPECT_FALSE(ViewSettings().SetColumns("PI", {"CPU %"}));
}

}  // namespace
