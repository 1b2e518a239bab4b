#include <crypt.h>
#include <sys/fsuid.h>

#include "client/ask/Errors.h"
#include "client/commands/Certificate.h"
#include "client/commands/Console.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/TempFolder.h"

namespace {

using testing::MatchesRegex;

class GateCommandsTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Path(const std::string& name) const { return m_folder.Path() / name; }
  [[nodiscard]] mode_t ModeOf(const std::string& name) const {
    struct stat status {};
    return ::stat(Path(name).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }
  void Write(const std::string& name, const std::string& text, mode_t mode = 0600) const {
    std::ofstream(Path(name)) << text;
    ::chmod(Path(name).c_str(), mode);
  }
  static Outcome Run(const std::vector<std::string>& words, const std::string& path = "",
                     std::vector<std::string> environment = {}) {
    environment.push_back("PATH=" + (path.empty() ? "/usr/bin:/bin" : path));
    RunOptions options;
    options.environment = std::move(environment);
    return RunProgram(QMTCTL_PATH, words, options);
  }

  TempFolder m_folder;
};

TEST_F(GateCommandsTest, MakeATokenAndItsLine) {
  const Outcome both = Run({"token", "new", "scraper.1", "--role", "metrics"});
  EXPECT_EQ(both.exit, kExitDone) << both.err;
  ASSERT_THAT(both.out, MatchesRegex("scraper\\.1\\.[A-Za-z0-9_-]{43}\n"
                                     "scraper\\.1:\\$5\\$rounds=1000\\$[./A-Za-z0-9]{1,16}"
                                     "\\$[./A-Za-z0-9]{43}:metrics\n"));
  const std::string secret = both.out.substr(10, 43);
  const std::string hash = both.out.substr(64, both.out.size() - 64 - 9);
  crypt_data data{};
  EXPECT_EQ(::crypt_r(secret.c_str(), hash.c_str(), &data), hash);

  Write("tokens", "# ours", 0600);
  for (const char* name : {"tokens", "fresh"}) {
    const Outcome added = Run({"token", "new", "a", "--file", Path(name)});
    EXPECT_EQ(added.exit, kExitDone) << added.err;
    EXPECT_THAT(added.out, MatchesRegex("a\\..{43}\n"));
  }
  EXPECT_THAT(m_folder.Read("tokens"), MatchesRegex("# ours\na:.*:read\n"));
  EXPECT_EQ(ModeOf("tokens"), 0600U) << "as it was";
  EXPECT_EQ(ModeOf("fresh"), 0640U);
  // What nobody was shown is not added.
  Write("empty", "");
  for (const char* name : {"fresh", "empty", "none"}) {
    const std::vector<std::string> full{"-c", "exec \"$0\" token new b --file \"$1\" >/dev/full",
                                        QMTCTL_PATH, Path(name)};
    EXPECT_EQ(RunProgram("/bin/sh", full).exit, kExitFailed);
  }
  EXPECT_EQ(ModeOf("empty"), 0600U);
  EXPECT_EQ(ModeOf("none"), 0U) << "left behind";
  RunOptions unread;
  unread.closedReader = true;
  EXPECT_EQ(RunProgram(QMTCTL_PATH, {"token", "new", "b", "--file", Path("fresh")}, unread).exit,
            kExitFailed);
  EXPECT_EQ(m_folder.Read("fresh").find("b:"), std::string::npos);
  const std::string before = m_folder.Read("fresh");
  EXPECT_THAT(Run({"token", "new", "a", "--file", Path("fresh")}).err, HasSubstr("a already"));
  EXPECT_EQ(m_folder.Read("fresh"), before);
  // A gate takes a whole file of 1,000,000 bytes.
  const std::size_t line = Run({"token", "new", "b"}).out.size() - std::string("b.\n").size() - 43;
  const std::string most(1'000'000 - line - 1, '#');
  for (const bool isTooLong : {true, false}) {
    Write("long", most + (isTooLong ? "#" : "") + '\n', 0600);
    const Outcome added = Run({"token", "new", "b", "--file", Path("long")});
    EXPECT_EQ(added.exit, isTooLong ? kExitFailed : kExitDone) << added.err;
    EXPECT_EQ(added.out.empty(), isTooLong);
    EXPECT_EQ(m_folder.Read("long").size(), isTooLong ? most.size() + 2 : 1'000'000) << isTooLong;
  }
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(Run({"token", "new", "a", "--file", Path("pipe")}).exit, kExitFailed);
  EXPECT_EQ(Run({"token", "new", "a:b"}).exit, kExitUsage);
  EXPECT_EQ(Run({"token", "new", "a", "--role", "admin"}).exit, kExitUsage);
}

TEST_F(GateCommandsTest, TokensMadeAtOnce) {
  constexpr std::size_t kPrograms = 12;
  Write("tokens", "");
  std::filesystem::create_symlink("tokens", Path("link"));
  std::vector<std::thread> programs;
  for (std::size_t i = 0; i < kPrograms; ++i) {
    programs.emplace_back([this, i] {
      const Outcome made = Run({"token", "new", "t" + std::to_string(i), "--file",
                                Path(i % 2 == 0 ? "tokens" : "link")});
      EXPECT_EQ(made.exit, kExitDone) << made.err;
    });
  }
  for (std::thread& program : programs) {
    program.join();
  }
  const std::string text = m_folder.Read("tokens");
  EXPECT_EQ(std::ranges::count(text, '\n'), kPrograms) << text;
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link")));
}

TEST_F(GateCommandsTest, MakeACertificateByWhatIsInstalled) {
  int made = 0;
  for (const std::string tool : {"openssl", "certtool"}) {
    const std::string program = "/usr/bin/" + tool;
    if (!std::filesystem::exists(program)) {
      continue;
    }
    ++made;
    std::filesystem::create_directory(Path(tool));
    std::filesystem::create_symlink(program, Path(tool + "/" + tool));
    const Outcome outcome = Run({"cert", "new", "--host", "web.example", "--host", "192.0.2.9",
                                 "--days", "30", "--out", Path(tool + "-pair")},
                                Path(tool));
    EXPECT_EQ(outcome.exit, kExitDone) << outcome.err;
    EXPECT_THAT(outcome.out, MatchesRegex("SHA-256 ([0-9A-F]{2}:){31}[0-9A-F]{2}\n"));
    EXPECT_EQ(ModeOf(tool + "-pair.key"), 0600U);
    EXPECT_EQ(ModeOf(tool + "-pair.crt"), 0644U);
    EXPECT_THAT(m_folder.Read(tool + "-pair.key"), StartsWith("-----BEGIN "));
    EXPECT_THAT(m_folder.Read(tool + "-pair.key"), HasSubstr("PRIVATE KEY-----"));
    EXPECT_THAT(m_folder.Read(tool + "-pair.crt"), StartsWith("-----BEGIN CERTIFICATE-----"));
  }
  for (const char* file : {"openssl-pair.crt", "certtool-pair.crt"}) {
    const Outcome text =
        made < 2 ? Outcome()
                 : RunProgram("/usr/bin/openssl", {"x509", "-in", Path(file), "-noout", "-text"});
    for (const char* part :
         {"DNS:web.example", "DNS:localhost", "IP Address:192.0.2.9", "IP Address:127.0.0.1",
          "IP Address:0:0:0:0:0:0:0:1", "CA:FALSE", "TLS Web Server Authentication"}) {
      EXPECT_TRUE(made < 2 || text.out.find(part) != std::string::npos) << file << part << text.out;
    }
  }
  Write("old.key", "kept");
  EXPECT_THAT(Run({"cert", "new", "--out", Path("old")}).err, HasSubstr("old.key: it is there"));
  EXPECT_EQ(m_folder.Read("old.key"), "kept");
  EXPECT_FALSE(std::filesystem::exists(Path("old.crt")));
  EXPECT_THAT(Run({"cert", "new", "--out", Path("new")}, Path("")).err,
              HasSubstr("neither openssl nor certtool"));
  EXPECT_EQ(Run({"cert", "new", "--out", Path("new"), "--host", "a,DNS:b"}).exit, kExitUsage);
  for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("new")) << entry.path();
  }
}

TEST_F(GateCommandsTest, WhoRenamesTheFolderThatACertificateIsMadeInGetsNothingOfIt) {
  if (!std::filesystem::exists("/usr/bin/openssl")) {
    GTEST_SKIP() << "no openssl";
  }
  for (const char* folder : {"bin", "other", "place"}) {
    std::filesystem::create_directory(Path(folder));
  }
  Write("bin/openssl",
        "#!/bin/sh\nfor folder in " + Path("place") +
            "/pair.??????; do\n  [ -L $folder ] || { /bin/mv $folder $folder.away && /bin/ln -s " +
            Path("other") + " $folder; }\ndone\nexec /usr/bin/openssl \"$@\"\n",
        0700);
  const Outcome outcome = Run({"cert", "new", "--out", Path("place/pair")}, Path("bin"));
  EXPECT_EQ(outcome.exit, kExitDone) << outcome.err;
  EXPECT_THAT(outcome.out, StartsWith("SHA-256 "));
  EXPECT_EQ(ModeOf("place/pair.key"), 0600U);
  EXPECT_EQ(ModeOf("place/pair.crt"), 0644U);
  EXPECT_TRUE(std::filesystem::is_empty(Path("other")));
  for (const auto& entry : std::filesystem::directory_iterator(Path("place"))) {
    EXPECT_TRUE(!std::filesystem::is_directory(entry) || std::filesystem::is_empty(entry))
        << "a key is left in " << entry.path();
  }
}

TEST_F(GateCommandsTest, RootMakesNoCertificateWhereOthersMayWrite) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "of root alone";
  }
  const auto made = [this] { return Run({"cert", "new", "--out", Path("place/pair")}); };
  std::filesystem::create_directory(Path("place"));
  for (const mode_t mode : {0775U, 0757U}) {
    ASSERT_EQ(::chmod(Path("place").c_str(), mode), 0);
    EXPECT_THAT(made().err, HasSubstr(Path("place") + ": others than root may write"));
  }
  ASSERT_EQ(::chmod(Path("place").c_str(), 01777), 0);
  ASSERT_EQ(::chown(Path("place").c_str(), 65534, 0), 0);
  EXPECT_THAT(made().err, HasSubstr(Path("place") + ": others than root may write"));
  EXPECT_TRUE(std::filesystem::is_empty(Path("place")));
  ASSERT_EQ(::chown(Path("place").c_str(), 0, 0), 0);
  EXPECT_EQ(made().exit, kExitDone) << "sticky";
}

TEST_F(GateCommandsTest, ACertificatesFolderThatIsOfOthersDoesNotStay) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make files of others";
  }
  std::filesystem::create_directory(Path("place"));
  ASSERT_EQ(::chmod(m_folder.Path().c_str(), 0711), 0);
  ASSERT_EQ(::chmod(Path("place").c_str(), 01777), 0);
  CertificateOptions options;
  options.out = Path("place/pair");
  const mode_t mask = ::umask(0);
  ::setfsuid(65534);
  EXPECT_THROW(static_cast<void>(RunCertificateNew(options)), ClientError);
  ::setfsuid(0);
  ::umask(mask);
  EXPECT_TRUE(std::filesystem::is_empty(Path("place")));
}

TEST_F(GateCommandsTest, LinkToTheConsole) {
  const struct {
    const char* token;
    const char* addresses;
    const char* link;  ///< or what is wrong
  } cases[] = {
      {"t-_1", R"(["127.0.0.1:9964"])", "http://127.0.0.1:9964/#token=t-_1"},
      {"t", R"(["192.0.2.1:1", "0.0.0.0:1", "https://0.0.0.0:2", "[::1]:3"])",
       "https://127.0.0.1:2/#token=t"},
      {"t", R"(["[2001:db8::1]:1", "[::]:1", "[::1]:2"])", "http://[::1]:2/#token=t"},
      {"t", R"(["127.9.9.9:1"])", "http://127.9.9.9:1/#token=t"},
      {"t", "[]", "no gate is running"},
      {"t", R"(["192.0.2.1:1", "127.0.0.1", "127.0.0.1:1/x", "[::1:1", "localhost:1", 5])",
       "no address of the loopback"},
      {"t\\\">", R"(["127.0.0.1:1"])", "no proper token"},
      {"t", "5", "no proper addresses"},
  };
  for (const auto& each : cases) {
    std::string link;
    try {
      link = ConsoleLink(JsonOf(std::string(R"({"console": {"token": ")") + each.token +
                                R"(", "addresses": )" + each.addresses + "}}"));
    } catch (const ClientError& error) {
      link = error.what();
    }
    EXPECT_THAT(link, HasSubstr(each.link)) << each.addresses;
  }
}

TEST_F(GateCommandsTest, OpenTheConsole) {
  const ScriptedServer server(m_folder.Path(), "sock", [](const Json& request) {
    return Answer(request, JsonOf(R"({"console": {"token": "abc", "expires": 5,
                                                "addresses": ["127.0.0.1:7"]}})"));
  });
  Write("xdg-open",
        "#!/bin/sh\necho \"$*\" >'" + Path("seen.new") + "'\nmv '" + Path("seen.new") + "' '" +
            Path("seen") + "'\n",
        0700);
  const std::string link = "http://127.0.0.1:7/#token=abc\n";
  const std::string path = m_folder.Path().string() + ":/usr/bin:/bin";
  const std::vector<std::string> desktop{"DISPLAY=:9",
                                         "XDG_RUNTIME_DIR=" + m_folder.Path().string()};
  EXPECT_EQ(Run({"--socket", server.Path(), "console"}, path).out, link);
  EXPECT_EQ(Run({"--socket", server.Path(), "console", "--print"}, path, desktop).out, link);
  EXPECT_FALSE(std::filesystem::exists(Path("qmtctl-console.html")));
  const Outcome opened = Run({"--socket", server.Path(), "console"}, path, desktop);
  EXPECT_EQ(opened.out + opened.err, link);
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(Path("seen")); }));
  EXPECT_EQ(m_folder.Read("seen"), Path("qmtctl-console.html") + "\n") << "no secret";
  EXPECT_EQ(ModeOf("qmtctl-console.html"), 0600U);
  EXPECT_THAT(m_folder.Read("qmtctl-console.html"),
              HasSubstr("url=http://127.0.0.1:7/#token=abc\""));
}

}  // namespace
