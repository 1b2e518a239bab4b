#include "tests/system/Daemon.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kIni = "opt/qmtrx/mond/agent/qmtagt.ini";

const std::string kDefaults =
    "[Agent]\n"
    "UFSS background collection time = 00:00\n"
    "Messages File = \n"
    "Workgroup File = wgfile\n"
    "Accounting File = /var/adm/pacct\n"
    "Use Accounting Data = Y\n"
    "Log Died Processes Data = Y\n"
    "Truncate Accounting File = N\n"
    "Microstate accounting = N\n"
    "Device Name Cache = N\n"
    "User Defined Record DataMaxCount = 1440\n"
    "\n[Schedule]\nPI = 60\nCPUP = 60\nDEVD = 60\nNIND = 60\nWGRP = 60\nPDS = 60\nFSL = 60\n"
    "PDI = 300\n";

void StartAndStop(const ProductRoot& root, const char* errorName) {
  Daemon daemon(root, errorName);
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  daemon.Signal(SIGTERM);
  EXPECT_EQ(0, daemon.ExitValue());
}

TEST(IniFileTest, AFirstStartWritesAllSettingsAndTheNextOneKeepsThem) {
  const ProductRoot root;
  StartAndStop(root, "first");
  EXPECT_EQ(kDefaults, root.Read(kIni));
  StartAndStop(root, "second");
  EXPECT_EQ(kDefaults, root.Read(kIni));
}

TEST(IniFileTest, AFileThatCannotBeUsedEndsTheStartAndStaysAsItWas) {
  const std::string binary(
      "\x7F"
      "ELF\0\x01[Agent]\n",
      15);
  const struct {
    const char* what;
    std::string text;
    fs::perms mode;
  } cases[] = {
      {"read-only", "[Agent]\nUse Accounting Data = N\n", fs::perms{0444}},
      {"unreadable", "[Agent]\n", fs::perms::none},
      {"binary", binary, fs::perms{0644}},
      {"binary without zero bytes", "\xFF\xFE\x01\n\xFF", fs::perms{0644}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    const ProductRoot root(row.text);
    fs::permissions(root.Path() / kIni, row.mode);
    Daemon daemon(root, "errors");
    EXPECT_EQ(1, daemon.ExitValue());
    const std::string errors = daemon.Errors();
    EXPECT_NE(std::string::npos,
              errors.find("QMTX10201-E Initialization of Agent Configuration failed."))
        << errors;
    EXPECT_NE(std::string::npos, errors.find("qmtagt.ini")) << errors;
    EXPECT_EQ(row.mode, fs::status(root.Path() / kIni).permissions());
    fs::permissions(root.Path() / kIni, fs::perms{0644});
    EXPECT_EQ(row.text, root.Read(kIni));
  }
}

TEST(IniFileTest, ADirectoryInItsPlaceEndsTheStart) {
  const ProductRoot root;
  fs::remove(root.Path() / kIni);
  fs::create_directory(root.Path() / kIni);
  Daemon daemon(root, "errors");
  EXPECT_EQ(1, daemon.ExitValue());
  EXPECT_NE(std::string::npos,
            daemon.Errors().find("QMTX10201-E Initialization of Agent Configuration failed."))
      << daemon.Errors();
  EXPECT_TRUE(fs::is_directory(root.Path() / kIni));
}

}  // namespace
