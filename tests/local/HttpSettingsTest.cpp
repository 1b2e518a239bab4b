#include "local/HttpSettings.h"

#include "local/IniCheck.h"
#include "local/NodeSettings.h"
#include "support/ListenAddress.h"
#include "tests/local/FakeAgent.h"
#include "tests/support/Testing.h"

namespace {

TEST(ListenAddressTest, NumbersAloneAreAnAddress) {
  for (const char* good : {"127.0.0.1:9964", "[::1]:0", "0.0.0.0:65535", "[fe80::1]:80"}) {
    const auto address = ParseListenAddress(good);
    ASSERT_TRUE(address) << good;
    EXPECT_EQ(address->Get()->sa_family, *good == '[' ? AF_INET6 : AF_INET) << good;
  }
  for (const char* bad :
       {"", ":", ":80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "[]:80", "127.0.0.1:-1",
        "127.0.0.1: 1", "::1:80", "localhost:80", "[::1]", "1.2.3.4:http", "a b:1"}) {
    EXPECT_FALSE(ParseListenAddress(bad)) << bad;
  }
}

class HttpSettingsTest : public ::testing::Test {
 protected:
  HttpSettingsTest() { ::unsetenv("QMT_HTTP_LISTEN"); }

  std::unique_ptr<LocalIniFile> Open(const std::string& text) {
    std::ofstream("a.ini") << text;
    std::string error;
    auto ini = LocalIniFile::Open(".", "a.ini", error);
    EXPECT_NE(ini, nullptr) << error;
    return ini;
  }
  HttpSettings Read(const std::string& text, bool isService = false) {
    return ReadHttpSettings(*Open(text), isService);
  }

  const ScratchDirectory m_directory;
};

TEST_F(HttpSettingsTest, TheSectionCountsBeforeNodeAndTheEnvironmentLast) {
  const HttpSettings none = Read("");
  EXPECT_THAT(none.listen, ElementsAre("127.0.0.1:9964"));
  EXPECT_FALSE(none.records);
  EXPECT_TRUE(none.arguments);
  EXPECT_EQ(none.gate, GateMode::kChild);
  EXPECT_EQ(Read("", true).gate, GateMode::kUnit);

  const HttpSettings all = Read(
      "[Http]\nlisten = 10.0.0.7:1, [::1]:2\nRecords = PI FSL\nNames = a,b\nCertificate = /c d\n"
      "Key = /k\nUsers = u\nTokens = t\nArguments = NO\nGate = None\n"
      "[Node]\nHttp Listen = 1.1.1.1:1\nHttp Hosts = z\nHttp Records = X\n",
      true);
  EXPECT_THAT(all.listen, ElementsAre("10.0.0.7:1", "[::1]:2"));
  EXPECT_THAT(*all.records, ElementsAre("PI", "FSL"));
  EXPECT_EQ(all.recordsLine, 3U);
  EXPECT_THAT(all.names, ElementsAre("a", "b"));
  EXPECT_EQ(all.certificate + all.key + all.users + all.tokens, "/c d/kut");
  EXPECT_FALSE(all.arguments);
  EXPECT_STREQ(GateModeName(all.gate), "none");

  ::setenv("QMT_HTTP_LISTEN", "2.2.2.2:2", 1);
  EXPECT_THAT(Read("[Http]\nNames = a\n").listen, ElementsAre("2.2.2.2:2"));
  const HttpSettings former =
      Read("[Node]\nHttp Listen = 1.1.1.1:1\nHttp Hosts = z\nHttp Records =\n");
  EXPECT_THAT(former.listen, ElementsAre("1.1.1.1:1"));
  EXPECT_THAT(former.names, ElementsAre("z"));
  EXPECT_THAT(former.records.value(), IsEmpty());
  EXPECT_THAT(Read("[Http]\nListen =\n").listen, IsEmpty());
  ::unsetenv("QMT_HTTP_LISTEN");
  const HttpSettings wrong = Read("[Http]\nGate = x\nArguments = maybe\n", true);
  EXPECT_EQ(wrong.gate, GateMode::kNone);
  EXPECT_FALSE(wrong.arguments);
}

TEST_F(HttpSettingsTest, WhatIsWrongIsToldWithItsLine) {
  const auto ini = Open(
      "[Http]\nListen = 127.0.0.1:1 nowhere\nPort = 1\nGate = on\nArguments = 1\nKey = k\n"
      "Listen =\nTokens =\n[Node]\nHttp Listen = x\nHttp Port = 1\nHttp Records = PI\n");
  std::vector<std::string> told;
  for (const auto& problems : {HttpProblems(*ini), NodeProblems(*ini)}) {
    for (const IniProblem& problem : problems) {
      told.push_back(std::to_string(problem.line) + " " + problem.text);
    }
  }
  EXPECT_THAT(told, ElementsAre("10 \"Http Listen\" must be ADDRESS:PORT, as 127.0.0.1:9964 or "
                                "[::1]:9964, not \"x\"",
                                "2 \"Listen\" must be ADDRESS:PORT, as 127.0.0.1:9964 or "
                                "[::1]:9964, not \"127.0.0.1:1 nowhere\"",
                                "3 no setting \"Port\" in [Http]",
                                "4 \"Gate\" must be child, unit or none, not \"on\"",
                                "5 \"Arguments\" must be yes or no, not \"1\"",
                                "6 \"Key\" needs \"Certificate\" beside it in [Http]",
                                "11 no setting \"Http Port\" in [Node]"));
  EventLoop loop;
  BatchDesk desk;
  LastRows rows;
  ScheduleBook book(loop, desk, rows);
  const IniListing listing = ListIni(*ini, ".", book);
  EXPECT_THAT(listing.settings, IsEmpty());
  EXPECT_EQ(listing.problems.size(), told.size() + 1) << "a line that stands twice besides";
}

}  // namespace
