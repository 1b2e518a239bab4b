#include <climits>
#include <random>

#include "local/ini/LocalIniFile.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TempFolder.h"

using testing::Pair;

namespace {

namespace fs = std::filesystem;

const std::string kSample =
    "# head\n"
    "stray = 1\n"
    "[Agent] ; the agent\n"
    "  Data Count =  5 # five \n"
    "broken line\n"
    "Empty=\n"
    "\n"
    "# belongs to what follows\n"
    "[Log Records / MESS]\n"
    "Eventfile = a=b\n"
    "[agent]\n"
    "data count = 6\n"
    "Late = 7";

void WriteFile(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::unique_ptr<LocalIniFile> OpenIn(const TempFolder& folder) {
  std::string error;
  auto ini = LocalIniFile::Open(folder.Path(), "qmtagt.ini", error);
  EXPECT_NE(ini, nullptr) << error;
  return ini;
}

std::string ReadText(LocalIniFile& ini, const char* key, const char* section,
                     const char* subSection = nullptr) {
  std::array<char, 64> out{"old"};
  ini.ReadString(out.data(), static_cast<int>(out.size()), key, section, subSection, nullptr, 0);
  return out.data();
}

std::size_t CountFiles(const TempFolder& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator{}));
}

}  // namespace

TEST(IniText, FindsKeysWhateverTheirCase) {
  const IniText ini(kSample);
  EXPECT_EQ(ini.Find("AGENT", "", "data COUNT"), "5 # five");
  EXPECT_EQ(ini.Find("Agent", "", "Empty"), "");
  EXPECT_EQ(ini.Find("Agent", "", "late"), "7");
  EXPECT_EQ(ini.Find("log records", "mess", "EVENTFILE"), "a=b");
  EXPECT_EQ(ini.Find("Log Records", "", "Eventfile"), std::nullopt);
  EXPECT_EQ(ini.Find("Agent", "", "stray"), std::nullopt);
  EXPECT_THAT(ini.Section("Agent"), ElementsAre(Pair("Data Count", "5 # five"), Pair("Empty", ""),
                                                Pair("data count", "6"), Pair("Late", "7")));
  EXPECT_EQ(IniText("\xEF\xBB\xBF[A]\r\nk = v\r\n").Find("A", "", "k"), "v");
}

TEST(IniText, SetChangesNothingElse) {
  struct Case {
    std::string before, section, subSection, key, value, after;
  };
  const std::string agent = "# c\n[A]\nx = 1 \nbad\n\n# of B\n[B]\ny=2\n";
  const std::vector<Case> cases{
      {"", "A", "", "k", "v", "[A]\nk = v\n"},
      {agent, "a", "", "X", "22", "# c\n[A]\nx = 22 \nbad\n\n# of B\n[B]\ny=2\n"},
      {agent, "A", "", "n", "v", "# c\n[A]\nx = 1 \nn = v\nbad\n\n# of B\n[B]\ny=2\n"},
      {agent, "B", "s", "n", "", agent + "\n[B/s]\nn = \n"},
      {"[A]", "A", "", "k", "v", "[A]\nk = v\n"},
      {"[A]\nk =\nj=3", "A", "", "l", "v", "[A]\nk =\nj=3\nl = v\n"},
      {"[A]\r\nk = 1\r\n", "A", "", "k", "2", "[A]\r\nk = 2\r\n"},
      {"[A]\r\nk = 1\r\n", "A", "", "j", "2", "[A]\r\nk = 1\r\nj = 2\r\n"},
      {"[A]\nk = \nj=3", "A", "", "k", "v", "[A]\nk = v\nj=3"},
      {"[A]\r\nk= \t\r\n", "A", "", "k", "v", "[A]\r\nk= v\r\n"},
      {"[A]\nk =", "A", "", "k", "v", "[A]\nk =v"},
      {"[A]\nk =  ", "A", "", "k", "v", "[A]\nk = v"},
      {"[A\nk = 1", "A", "", "k", "2", "[A\nk = 1\n\n[A]\nk = 2\n"},
  };
  for (const Case& c : cases) {
    IniText ini(c.before);
    std::string error;
    EXPECT_TRUE(ini.Set(c.section, c.subSection, c.key, c.value, error)) << error;
    EXPECT_EQ(ini.Text(), c.after);
    EXPECT_EQ(ini.Find(c.section, c.subSection, c.key), c.value);
  }
}

TEST(IniText, SetRefusesWhatWouldNotReadBack) {
  using Names = std::array<std::string, 4>;  // section, sub-section, key, value
  for (const Names& n : std::vector<Names>{{"A", "", "k", "v\n[Node]"},
                                           {"A", "", "k", "v\r"},
                                           {"A", "", "k", std::string(1, '\0')},
                                           {"A", "", "k\nj", "v"},
                                           {"A\n", "", "k", "v"},
                                           {"A", "", "", "v"},
                                           {"", "", "k", "v"},
                                           {"A", "", "#k", "v"},
                                           {"A", "", "[k", "v"},
                                           {"A", "", "k=j", "v"},
                                           {"A", "", " k", "v"},
                                           {"A]", "", "k", "v"},
                                           {"A/B", "", "k", "v"}}) {
    IniText ini("[A]\nx = 1\n");
    std::string error;
    EXPECT_FALSE(ini.Set(n[0], n[1], n[2], n[3], error)) << n[0] << '|' << n[2] << '|' << n[3];
    EXPECT_NE(error, "");
    EXPECT_EQ(ini.Text(), "[A]\nx = 1\n");
  }
}

TEST(IniText, FaultsNameLineAndText) {
  const IniText ini(kSample + "\n[]\n[A/]\n[A] x\n= 3\n[A]\n= 3\nz\n");
  std::vector<std::string> seen;
  for (const IniFault& fault : ini.Faults()) {
    seen.push_back(std::to_string(fault.line) + ' ' + fault.problem + '|' + fault.text);
  }
  EXPECT_THAT(seen, ElementsAre("2 a key that belongs to no section|stray = 1",
                                "5 neither section, comment nor key = value|broken line",
                                "14 an empty section name|[]", "15 an empty section name|[A/]",
                                "16 text after the section|[A] x", "17 no key before the '='|= 3",
                                "19 no key before the '='|= 3",
                                "20 neither section, comment nor key = value|z"));
  EXPECT_EQ(IniText(std::string("[A]\nk = \0v\n", 11)).Faults().at(0).problem,
            "a zero byte in the line");

  std::string flood = "[" + std::string(500, 'x') + '\n';
  for (int i = 0; i < 1000; ++i) {
    flood += "?\n";
  }
  const IniText flooded(flood);
  ASSERT_EQ(flooded.Faults().size(), IniText::kMaxFaults + 1);
  EXPECT_EQ(flooded.Faults().front().text.size(), IniText::kMaxFaultText);
  EXPECT_EQ(flooded.Faults().back().problem, "951 more lines can't be used");
}

TEST(IniText, AnyTextIsKeptAndCanBeEdited) {
  std::mt19937 random(20310507);
  const std::string alphabet("[]/=#;Ak \t\r\n\0\xEF\xBB\xBF", 16);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (auto length = random() % 60; length > 0; --length) {
      text += alphabet[random() % alphabet.size()];
    }
    IniText ini(text);
    ASSERT_EQ(ini.Text(), text);
    std::string error;
    ASSERT_TRUE(ini.Set("A", "k", "k", "v", error)) << testing::PrintToString(text);
    ASSERT_EQ(ini.Find("a", "K", "K"), "v") << testing::PrintToString(text);
  }
}

TEST(LocalIniFile, ReadsAsTheContractSays) {
  const TempFolder folder;
  EXPECT_EQ(ReadText(*OpenIn(folder), "k", "A"), "");
  WriteFile(folder.Path() / "qmtagt.ini",
            "[A]\nk = some text\nn = -12\np = +5\nbad = 12x\nbig = 99999999999999999999\n"
            "sign = +-3\n[A/B]\nk = sub\n");
  const auto ini = OpenIn(folder);
  EXPECT_EQ(ReadText(*ini, "k", "A"), "some text");
  EXPECT_EQ(ReadText(*ini, "k", "A", "B"), "sub");
  EXPECT_EQ(ReadText(*ini, "none", "A"), "");
  std::array<char, 5> small{};
  EXPECT_EQ(ini->ReadString(small.data(), 5, "k", "A", nullptr, nullptr, 0), 1);
  EXPECT_STREQ(small.data(), "some");
  EXPECT_EQ(ini->ReadString(nullptr, 5, "k", nullptr, nullptr, nullptr, 0), 0);
  const std::vector<std::pair<const char*, long>> numbers{
      {"n", -12}, {"p", 5}, {"bad", 77}, {"big", LONG_MAX}, {"sign", 77}, {"none", 77}, {"k", 77}};
  for (const auto& [key, expected] : numbers) {
    long value = 77;
    EXPECT_EQ(ini->ReadLong(&value, key, "A", nullptr, nullptr), expected == 77 ? 0 : 1) << key;
    EXPECT_EQ(value, expected) << key;
  }
}

TEST(LocalIniFile, WritesThroughALinkAndKeepsTheMode) {
  const TempFolder folder;
  WriteFile(folder.Path() / "real.ini", kSample);
  fs::permissions(folder.Path() / "real.ini", fs::perms{0640});
  fs::create_symlink("real.ini", folder.Path() / "qmtagt.ini");
  const auto ini = OpenIn(folder);
  EXPECT_EQ(ini->WriteLong(9, "Data Count", "Agent", nullptr, nullptr, 0), 1);
  std::string expected = kSample;
  expected.replace(expected.find("5 # five"), 8, "9");
  EXPECT_EQ(folder.Read("real.ini"), expected);
  EXPECT_EQ(ReadText(*ini, "Data Count", "Agent"), "9");
  EXPECT_TRUE(fs::is_symlink(folder.Path() / "qmtagt.ini"));
  EXPECT_EQ(fs::status(folder.Path() / "real.ini").permissions(), fs::perms{0640});
  EXPECT_EQ(CountFiles(folder), 2U);
}

TEST(LocalIniFile, InTheWorkingFolderItStaysThereWhateverTakesTheNameOfThatFolder) {
  const TempFolder folder(TempFolder::kEnter);
  for (const char* name : {"held", "other"}) {
    fs::create_directory(name);
  }
  WriteFile("held/qmtagt.ini", "[A]\nKey=1\n");
  fs::current_path("held");
  std::string error;
  const auto ini = LocalIniFile::Open(".", "qmtagt.ini", error);
  EXPECT_EQ(ini->Path(), folder.Path() / "held/qmtagt.ini");
  EXPECT_FALSE(ini->Write("two\nlines", "Key", "A", nullptr, error));
  EXPECT_THAT(error, StartsWith(ini->Path() + ": "));
  fs::rename(folder.Path() / "held", folder.Path() / "moved");
  fs::create_directory_symlink("other", folder.Path() / "held");
  EXPECT_TRUE(ini->Write("2", "Key", "A", nullptr, error)) << error;
  EXPECT_EQ(folder.Read("moved/qmtagt.ini"), "[A]\nKey=2\n");
  EXPECT_TRUE(fs::is_empty(folder.Path() / "other"));
}

TEST(LocalIniFile, AWriteKeepsWhatOthersHaveEditedMeanwhile) {
  const TempFolder folder;
  WriteFile(folder.Path() / "qmtagt.ini", "[A]\nKey=1\n");
  const auto ini = OpenIn(folder);
  WriteFile(folder.Path() / "qmtagt.ini", "# by hand\n[A]\nKey=1\nNew=2\n");
  EXPECT_EQ(ini->WriteString("3", "Key", "A", nullptr, nullptr, 0), 1);
  EXPECT_EQ(folder.Read("qmtagt.ini"), "# by hand\n[A]\nKey=3\nNew=2\n");
}

TEST(LocalIniFile, AFailedWriteLeavesFileAndMemory) {
  const TempFolder folder;
  const std::string text = "[A]\nk = 1\n# " + std::string(3000, 'x') + '\n';
  WriteFile(folder.Path() / "qmtagt.ini", text);
  const auto ini = OpenIn(folder);
  std::string problem;
  ini->OnWriteProblem([&problem](const std::string& text_) { problem = text_; });
  const auto expectRefused = [&](const char* value, const char* reason) {
    problem.clear();
    EXPECT_EQ(ini->WriteString(value, "k", "A", nullptr, nullptr, 0), 0);
    EXPECT_THAT(problem, HasSubstr((folder.Path() / "qmtagt.ini").string()));
    EXPECT_THAT(problem, HasSubstr(reason));
    EXPECT_EQ(ReadText(*ini, "k", "A"), "1");
  };
  expectRefused("two\nlines", "line end");
  expectRefused(nullptr, "no value");
  expectRefused(std::string(LocalIniFile::kMaxSize, 'x').c_str(), "longer than 1048576");
  {
    const FileSizeLimit limit(2000);
    expectRefused("2", "File too large");
  }
  EXPECT_EQ(folder.Read("qmtagt.ini"), text);
  EXPECT_EQ(CountFiles(folder), 1U);
  EXPECT_EQ(ini->WriteString("2", "k", "A", nullptr, nullptr, 0), 1);
  EXPECT_EQ(ReadText(*ini, "k", "A"), "2");

  const auto lost = [&] {
    std::string error;
    fs::create_directory(folder.Path() / "gone");
    auto opened = LocalIniFile::Open(folder.Path() / "gone", "qmtagt.ini", error);
    fs::remove(folder.Path() / "gone");
    return opened;
  }();
  EXPECT_EQ(lost->WriteString("2", "k", "A", nullptr, nullptr, 0), 0);
  EXPECT_EQ(ReadText(*lost, "k", "A"), "");
}

TEST(LocalIniFile, AValueReadsBackAsItWasOrIsNotWritten) {
  const struct {
    std::string value;
    const char* refusal;  ///< null if the value is kept
  } cases[] = {
      {"../../etc/passwd", nullptr},
      {"$(touch x); `y` | z && \"q\" 'r' \\", nullptr},
      {"# no ; comment = [here]", nullptr},
      {"[Node]", nullptr},
      {"a\tb\v\f\x01\x1b[31m\x7f\x9b\xff\xEF\xBB\xBF", nullptr},
      {"\x1b]0;title\x07", nullptr},
      {std::string(5000, 'x'), nullptr},
      {"", nullptr},
      {"a\nb", "line end"},
      {"a\rb", "line end"},
      {"a\n", "line end"},
      {"\r\n[Node]\r\nk = v", "line end"},
      {" a", "blank"},
      {"a ", "blank"},
      {" ", "blank"},
      {"\ta", "blank"},
      {"a\t", "blank"},
      {"a\v", "blank"},
      {"\fa", "blank"},
  };
  for (const auto& entry : cases) {
    SCOPED_TRACE(testing::PrintToString(entry.value.substr(0, 40)));
    const TempFolder folder;
    const std::string before = "[A]\nk = old\n[Node]\nk = other\n";
    WriteFile(folder.Path() / "qmtagt.ini", before);
    const auto ini = OpenIn(folder);
    std::string problem;
    ini->OnWriteProblem([&problem](const std::string& text) { problem = text; });
    const bool isKept = entry.refusal == nullptr;
    EXPECT_EQ(ini->WriteString(entry.value.c_str(), "k", "A", nullptr, nullptr, 0), isKept ? 1 : 0);
    EXPECT_THAT(problem, isKept ? HasSubstr("") : HasSubstr(entry.refusal));
    std::array<char, 6000> out{};
    const auto again = OpenIn(folder);
    again->ReadString(out.data(), out.size(), "k", "A", nullptr, nullptr, 0);
    EXPECT_EQ(out.data(), isKept ? entry.value : "old");
    EXPECT_EQ(ReadText(*again, "k", "Node"), "other");
    EXPECT_EQ(folder.Read("qmtagt.ini") == before, !isKept);
  }
}

TEST(LocalIniFile, AReadOnlyFileIsNotWritten) {
  const TempFolder folder;
  WriteFile(folder.Path() / "qmtagt.ini", "[A]\nk = 1\n");
  fs::permissions(folder.Path() / "qmtagt.ini", fs::perms{0444});
  const auto ini = OpenIn(folder);
  std::string problem;
  ini->OnWriteProblem([&problem](const std::string& text) { problem = text; });
  EXPECT_EQ(ini->WriteString("2", "k", "A", nullptr, nullptr, 0), 0);
  EXPECT_EQ(problem, (folder.Path() / "qmtagt.ini").string() + ": read-only");
  EXPECT_EQ(folder.Read("qmtagt.ini"), "[A]\nk = 1\n");
}

TEST(LocalIniFile, WhatIsNoIniFileIsNotOpened) {
  const TempFolder folder;
  ASSERT_EQ(::mkfifo((folder.Path() / "pipe").c_str(), 0600), 0);
  WriteFile(folder.Path() / "long", std::string(LocalIniFile::kMaxSize + 1, '\n'));
  WriteFile(folder.Path() / "limit", std::string(LocalIniFile::kMaxSize, '\n'));
  WriteFile(folder.Path() / "binary", std::string("\x7f"
                                                  "ELF\0[A]\nk = 1\n",
                                                  15));
  WriteFile(folder.Path() / "noise", "# text\n\x89PNG\x1a\n\xff\xfe=[\n");
  std::string mixed = "[A]\nk = 1\n";
  for (int line = 0; line < 10; ++line) {
    mixed += "some other text\n";
  }
  WriteFile(folder.Path() / "mixed", mixed);
  WriteFile(folder.Path() / "comments", "# text\n; more\n\n");
  const std::vector<std::pair<std::string, std::string>> cases{
      {"pipe", "no regular file"},
      {".", "no regular file"},
      {"long", "longer than 1048576 bytes"},
      {"binary", "zero byte"},
      {"mixed", "mixed:3: neither section, comment nor key = value; so it is in most lines"},
      {"noise", "noise:2: neither section, comment nor key = value; there is no section"}};
  for (const auto& [name, reason] : cases) {
    std::string error;
    EXPECT_EQ(LocalIniFile::Open(folder.Path(), name, error), nullptr);
    EXPECT_THAT(error, HasSubstr(folder.Path().string()));
    EXPECT_THAT(error, HasSubstr(reason));
  }
  std::string error;
  EXPECT_NE(LocalIniFile::Open(folder.Path(), "limit", error), nullptr) << error;
  EXPECT_NE(LocalIniFile::Open(folder.Path(), "comments", error), nullptr) << error;
  // What became something else meanwhile is not written over.
  const auto ini = OpenIn(folder);
  fs::rename(folder.Path() / "binary", folder.Path() / "qmtagt.ini");
  EXPECT_EQ(ini->WriteString("2", "k", "A", nullptr, nullptr, 0), 0);
  EXPECT_EQ(folder.Read("qmtagt.ini").size(), 15U);
}
