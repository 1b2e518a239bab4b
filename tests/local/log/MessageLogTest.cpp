#include "local/ini/LocalIniFile.h"
#include "local/log/MessageLog.h"
#include "support/Descriptor.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TempFolder.h"

using testing::MatchesRegex;

namespace {

namespace fs = std::filesystem;

/// A message log whose standard error is a file.
class MessageLogTest : public testing::Test {
 protected:
  MessageLogTest()
      : m_errorFile(::open((m_folder.Path() / "stderr").c_str(),
                           O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    ::unsetenv("JOURNAL_STREAM");
    m_settings.directory = m_folder.Path();
    m_settings.errorDescriptor = m_errorFile.Get();
  }
  ~MessageLogTest() override { ::unsetenv("JOURNAL_STREAM"); }

  [[nodiscard]] std::vector<std::string> Lines(const std::string& name) const {
    std::vector<std::string> lines;
    std::ifstream file(m_folder.Path() / name);
    for (std::string line; std::getline(file, line);) {
      lines.push_back(line);
    }
    return lines;
  }
  [[nodiscard]] std::string Log() const { return m_folder.Read("log/qmtdmon.log"); }
  [[nodiscard]] std::string Errors() const { return m_folder.Read("stderr"); }

  TempFolder m_folder;
  Descriptor m_errorFile;
  MessageLogSettings m_settings;
};

MessageLine Trace(int level, const char* text) {
  MessageLine line;
  line.level = level;
  line.kind = 3;
  line.sourceFile = "Some.cpp";
  line.sourceLine = 12;
  line.format = text;
  return line;
}

TEST(LogText, PutsArgumentsIn) {
  const std::array<const char*, 3> args{"one %2 %s", "two", nullptr};
  const auto expand = [&](const char* format) { return ExpandMessage(format, 3, args.data()); };
  EXPECT_EQ(expand("%2-%1."), "two-one %2 %s.");
  EXPECT_EQ(expand("%1%1"), "one %2 %sone %2 %s");
  EXPECT_EQ(expand("[%3][%4][%5]"), "[][][]");
  EXPECT_EQ(expand("%0 %6 %s %n %% 5%"), "%0 %6 %s %n %% 5%");
  EXPECT_EQ(expand("%25"), "two5");
  EXPECT_EQ(expand(nullptr), "");
  EXPECT_EQ(ExpandMessage("a%1", 1, nullptr), "a");
  EXPECT_EQ(ExpandMessage("a%1", -1, args.data()), "a");
}

TEST(LogText, MakesOneHarmlessLine) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"plain \\ text\n", "plain \\ text"},
      {"a\nb\tc\rd\n\n", "a\\nb\\tc\\rd\\n"},
      {std::string("\x1b[31m\x7f\0", 7), "\\x1b[31m\\x7f\\x00"},
      {"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80",
       "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"\xc2\x9b"
       "31m",
       "\\xc2\\x9b31m"},
      {"\xff\xc3(\xe2\x82", "\\xff\\xc3(\\xe2\\x82"},
      {"\xc0\xaf\xe0\x80\xaf", "\\xc0\\xaf\\xe0\\x80\\xaf"},
      {"\xed\xa0\x80\xf5", "\\xed\\xa0\\x80\\xf5"},
      {"0123456789abcdef0123456789abcdefX", "0123456789abcdef0123456789abc..."},
      {"0123456789abcdef0123456789ab\xc3\xbcmnX", "0123456789abcdef0123456789ab..."},
  };
  for (const auto& [text, expected] : cases) {
    std::string out = ">";
    AppendLine(out, text, 32);
    EXPECT_EQ(out, ">" + expected);
  }
}

TEST_F(MessageLogTest, ALineNamesTimeProcessLevelKindAndOrigin) {
  MessageLog log(m_settings);
  const std::array<const char*, 1> args{"PI\n%1"};
  MessageLine message = Trace(10, "QMTX10300-W record=%1");
  message.number = 10300;
  message.kind = 2;
  message.argCount = 1;
  message.args = args.data();
  log.PrintMsg(message);
  log.PrintMsg(Trace(1, "trace"));
  log.EventText("Shutdown requested\n");
  log.AssertLog("p != 0", "/a/b/File.cpp", 7);
  log.Note(1, 1, "note");
  const std::string head =
      "[0-9-]+T[0-9:]+\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2} " + std::to_string(::getpid()) + ' ';
  EXPECT_THAT(Lines("log/qmtdmon.log"),
              ElementsAre(MatchesRegex(head + "10 W 10300 QMTX10300-W record=PI\\\\n%1"),
                          MatchesRegex(head + "1 I Some.cpp:12 trace"),
                          MatchesRegex(head + "1 I event Shutdown requested"),
                          MatchesRegex(head + "1 E File.cpp:7 Assertion failed: p != 0"),
                          MatchesRegex(head + "1 E node note")));
  EXPECT_EQ(Errors(), Log());
}

TEST_F(MessageLogTest, LevelsDecide) {
  struct Case {
    int logLevel;
    std::vector<int> inErrors, inFile;
  };
  for (const Case& c :
       std::vector<Case>{{0, {1}, {1}},
                         {10, {1, 10}, {1, 10, 204}},
                         {29, {1, 10, 20}, {1, 10, 20, 204}},
                         {30, {1, 10, 20, 30, 1030}, {1, 10, 20, 30, 1030, 204}},
                         {300, {1, 10, 20, 30, 1030}, {1, 10, 20, 30, 1030, 204}}}) {
    fs::remove_all(m_folder.Path() / "log");
    fs::resize_file(m_folder.Path() / "stderr", 0);
    m_settings.logLevel = c.logLevel;
    MessageLog log(m_settings);
    for (const int level : {1, 10, 20, 30}) {
      log.PrintMsg(Trace(level, ("at" + std::to_string(level) + ';').c_str()));
    }
    log.DebugText("Debug.cpp", 3, "at1030;\n");
    MessageLine copy = Trace(204, "at204;");
    copy.number = 10203;
    log.PrintMsg(copy);
    for (const int level : {1, 10, 20, 30, 1030, 204}) {
      const std::string text = " at" + std::to_string(level) + ';';
      EXPECT_EQ(Errors().find(text) != std::string::npos,
                testing::Value(c.inErrors, testing::Contains(level)))
          << c.logLevel << text;
      EXPECT_EQ(Log().find(text) != std::string::npos,
                testing::Value(c.inFile, testing::Contains(level)))
          << c.logLevel << text;
    }
    EXPECT_EQ(Log().find(" I common:10203 ") != std::string::npos, c.logLevel >= 10);
  }
}

TEST_F(MessageLogTest, TheJournalGetsPriorities) {
  struct stat status {};
  ASSERT_EQ(::fstat(m_errorFile.Get(), &status), 0);
  const std::string own = std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
  for (const std::string& other : {own + '1', own + ":1", std::string("x"), std::string()}) {
    ::setenv("JOURNAL_STREAM", other.c_str(), 1);
    MessageLog(m_settings).Note(1, 1, "other");
  }
  EXPECT_EQ(Errors().find('<'), std::string::npos);
  ::setenv("JOURNAL_STREAM", own.c_str(), 1);
  m_settings.logLevel = 30;
  MessageLog log(m_settings);
  log.Note(1, 1, "e");
  log.Note(10, 2, "w");
  log.Note(20, 3, "i");
  log.Note(30, 1, "d");
  const std::vector<std::string> lines = Lines("stderr");
  EXPECT_THAT(
      std::vector<std::string>(lines.end() - 4, lines.end()),
      ElementsAre(StartsWith("<3>2"), StartsWith("<4>2"), StartsWith("<6>2"), StartsWith("<7>2")));
  EXPECT_EQ(Log().find('<'), std::string::npos);
}

TEST_F(MessageLogTest, TheFileRotates) {
  m_settings.maxFileBytes = 500;
  m_settings.oldFiles = 2;
  MessageLog log(m_settings);
  for (int i = 0; i < 60; ++i) {
    log.Note(1, 3, "line " + std::to_string(i));
  }
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(m_folder.Path() / "log")) {
    ++files;
    EXPECT_LE(entry.file_size(), 500U) << entry.path();
  }
  EXPECT_EQ(files, 3U);
  EXPECT_THAT(Log(), HasSubstr("line 59"));
  EXPECT_EQ(Lines("stderr").size(), 60U);
}

TEST_F(MessageLogTest, AFileOrAFolderThatIsGoneIsMadeAnew) {
  m_settings.lookPause = {};
  MessageLog log(m_settings);
  for (const char* gone : {"log/qmtdmon.log", "log"}) {
    log.Note(1, 3, "before");
    fs::rename(m_folder.Path() / gone, m_folder.Path() / "moved");
    log.Note(1, 3, "after");
    EXPECT_THAT(Lines("log/qmtdmon.log"), ElementsAre(testing::EndsWith(" after")));
    fs::remove_all(m_folder.Path() / "moved");
  }
}

TEST_F(MessageLogTest, AFileThatCannotBeWrittenIsToldOnce) {
  const fs::path folder = m_folder.Path() / "log";
  const auto writeThree = [&](const char* name) {
    fs::resize_file(m_folder.Path() / "stderr", 0);
    MessageLog log(m_settings);
    for (const char* text : {"a", "b", "c"}) {
      log.Note(1, 3, text);
    }
    EXPECT_THAT(Lines("stderr"),
                ElementsAre(testing::EndsWith(" a"),
                            testing::AllOf(HasSubstr("can't be written"), HasSubstr(name)),
                            testing::EndsWith(" b"), testing::EndsWith(" c")));
  };
  std::ofstream(folder) << "no folder";
  writeThree("log/qmtdmon.log");
  fs::remove(folder);
  fs::create_directory(folder);
  const std::string half(3000, 'x');
  std::ofstream(folder / "qmtdmon.log") << half;
  // A part of the first line would fit.
  const FileSizeLimit limit(half.size() + 20);
  writeThree("File too large");
  EXPECT_EQ(Log().size(), half.size());
}

TEST_F(MessageLogTest, DataTraceTakesWhatItsLevelAllows) {
  m_settings.dataLevel = 40;
  MessageLog log(m_settings);
  int written = 99;
  EXPECT_EQ(log.PrintDat("a,b\n1,\x1b\n", 8, 40, 1, &written), 8);
  EXPECT_EQ(written, 8);
  EXPECT_EQ(log.PrintDat("unwanted\n", 9, 41, 1, &written), 9);
  EXPECT_EQ(written, 9);
  EXPECT_EQ(log.PrintDat("rest", 4, 40, 1, nullptr), 4);
  EXPECT_EQ(log.PrintDat("", 0, 40, 1, &written), 0);
  EXPECT_EQ(m_folder.Read("log/qmtdmon.dat"), "a,b\n1,\\x1b\nrest");
  EXPECT_EQ(log.PrintDat(std::string(40000, 'x').c_str(), 40000, 40, 1, &written), 32767);
  EXPECT_EQ(written, 32767);
  EXPECT_EQ(log.PrintDat(nullptr, 4, 40, 1, &written), -1);
  EXPECT_EQ(log.PrintDat("x", -1, 40, 1, &written), -1);
  EXPECT_EQ(written, 0);
}

TEST_F(MessageLogTest, ADataTraceThatCannotBeWrittenIsAnError) {
  m_settings.dataLevel = 40;
  MessageLog log(m_settings);
  fs::create_symlink("/dev/full", m_folder.Path() / "log/qmtdmon.dat");
  int written = 99;
  EXPECT_EQ(log.PrintDat("a\n", 2, 40, 1, &written), -1);
  EXPECT_EQ(log.PrintDat("a\n", 2, 40, 1, &written), -1);
  EXPECT_EQ(written, 0);
  EXPECT_THAT(Lines("log/qmtdmon.log"), ElementsAre(HasSubstr("qmtdmon.dat")));
}

TEST_F(MessageLogTest, LevelsComeFromTheIniFile) {
  const std::vector<std::tuple<std::string, int, int>> cases{
      {"", 10, 0},
      {"[Node]\nmessage log level = 40\nMessage Data Level=41\n", 40, 41},
      {"[Node]\nMessage Log Level = 1000\nMessage Data Level = -1\n", 10, 0},
      {"[Node]\nMessage Log Level = high\n[Agent]\nMessage Data Level = 5\n", 10, 0}};
  for (const auto& [text, logLevel, dataLevel] : cases) {
    std::ofstream(m_folder.Path() / "qmtagt.ini") << text;
    std::string error;
    const auto ini = LocalIniFile::Open(m_folder.Path(), "qmtagt.ini", error);
    ASSERT_NE(ini, nullptr) << error;
    MessageLogSettings settings;
    ReadLogLevels(*ini, settings);
    EXPECT_EQ(settings.logLevel, logLevel) << text;
    EXPECT_EQ(settings.dataLevel, dataLevel) << text;
  }
}

TEST_F(MessageLogTest, AFullPipeCostsLinesAndNoTime) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  m_settings.errorDescriptor = writer.Get();
  MessageLog log(m_settings);
  const std::string text(3000, 'x');
  for (int i = 0; i < 100; ++i) {
    log.Note(10, 2, text);
  }
  EXPECT_EQ(Lines("log/qmtdmon.log").size(), 100U);
  std::string all(1 << 20, '\0');
  const ssize_t taken = ::read(reader.Get(), all.data(), all.size());
  ASSERT_GT(taken, 0);
  const auto whole = std::count(all.begin(), all.begin() + taken, '\n');
  log.Note(10, 2, "after");
  all.resize(
      static_cast<std::size_t>(std::max<ssize_t>(0, ::read(reader.Get(), all.data(), all.size()))));
  EXPECT_THAT(all, HasSubstr(std::to_string(100 - whole) + " lines are lost here.\n"));
  EXPECT_THAT(all, HasSubstr("after"));
}

TEST_F(MessageLogTest, ALinkOrAPipeInPlaceOfTheFileIsToldAndLeftAlone) {
  const fs::path file = m_folder.Path() / "log/qmtdmon.log";
  fs::create_directory(file.parent_path());
  std::ofstream(m_folder.Path() / "precious") << "precious";
  const auto plant = [&](int kind) {
    fs::remove(file);
    return kind == 0 ? ::symlink((m_folder.Path() / "precious").c_str(), file.c_str())
                     : ::mkfifo(file.c_str(), 0600);
  };
  for (const int kind : {0, 1}) {
    ASSERT_EQ(plant(kind), 0);
    // As a reader of the pipe makes an open for writing succeed.
    const Descriptor reader(kind == 0 ? -1 : ::open(file.c_str(), O_RDONLY | O_NONBLOCK));
    MessageLog(m_settings).Note(10, 2, "line");
    EXPECT_THAT(Errors(), HasSubstr("log/qmtdmon.log: it is a link or no regular file"));
    ASSERT_EQ(::ftruncate(m_errorFile.Get(), 0), 0);
  }
  EXPECT_EQ(m_folder.Read("precious"), "precious");
}

}  // namespace
