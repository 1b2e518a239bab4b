#include "gate/send/HttpSender.h"

#include <optional>

#include "gate/GateLog.h"
#include "gate/GateLoop.h"
#include "gate/send/Backoff.h"
#include "io/LoopTimer.h"
#include "tests/gate/FakeServer.h"
#include "tests/support/TempFolder.h"

namespace {

using std::chrono::milliseconds;
using Request = FakeServer::Request;

class HttpSenderTest : public ::testing::Test {
 protected:
  /// What comes of a request, of which all may take ten seconds.
  SendResult ResultOf(SendRequest request) {
    std::optional<SendResult> result;
    LoopTimer limit(m_loop);
    limit.After(std::chrono::seconds(10), [this] { m_loop.Stop(); });
    const HttpSender::SendingPtr sending = m_sender->Send(std::move(request), [&](SendResult come) {
      EXPECT_FALSE(result) << "it is told once";
      result = std::move(come);
      m_loop.Post([this] { m_loop.Stop(); });
    });
    m_loop.Run();
    EXPECT_TRUE(result);
    return result.value_or(SendResult{});
  }
  static SendRequest To(const FakeServer& server, std::string body = "") {
    SendRequest request;
    request.url = server.Url("/write");
    request.body = std::move(body);
    return request;
  }

  GateLoop m_loop;
  std::optional<HttpSender> m_sender{std::in_place, m_loop};
};

TEST_F(HttpSenderTest, ServersGoodAndBad) {
  const struct {
    const char* what;
    FakeServer::Serve serve;
    int status;
    const char* error;
    std::size_t body;
    int retryAfter;
  } rows[] = {
      {"no content", [](const Request& from) { return from.Answer("204 No Content"); }, 204, "", 0,
       0},
      {"a long text",
       [](const Request& from) { return from.Answer("200", std::string(70000, 'x')); }, 200, "",
       HttpSender::kMostKept, 0},
      {"overload",
       [](const Request& from) { return from.Answer("503 No", "busy", "Retry-After: 7\r\n"); }, 503,
       "", 4, 7},
      {"a redirect",
       [](const Request& from) { return from.Answer("307 There", "", "Location: /else\r\n"); }, 307,
       "", 0, 0},
      {"silence", [](const Request& from) { return from.StaySilent(); }, 0, "timed out", 0, 0},
      {"half a head, then silence",
       [](const Request& from) {
         from.Say("HTTP/1.1 200 OK\r\nContent-");
         return from.StaySilent();
       },
       0, "timed out", 0, 0},
      {"no word", [](const Request&) { return false; }, 0, "Empty reply", 0, 0},
      {"garbage", [](const Request& from) { return from.Say("\x01garbage\xff\n\n") && false; }, 0,
       "HTTP/0.9", 0, 0},
      {"an end in the middle",
       [](const Request& from) {
         return from.Say("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nhalf") && false;
       },
       200, "", 4, 0},
      {"heads, then silence",
       [](const Request& from) {
         from.Say("HTTP/1.1 503 OK\r\nRetry-After: 9\r\nContent-Length: 50\r\n\r\nhalf");
         return from.StaySilent();
       },
       503, "", 4, 9},
      {"an end in the heads",
       [](const Request& from) { return from.Say("HTTP/1.1 200 OK\r\nA: b\r\n") && false; }, 0, "",
       0, 0},
      {"a promise alone",
       [](const Request& from) { return from.Say("HTTP/1.1 100 Go on\r\n\r\n") && false; }, 0, "",
       0, 0},
      {"a status that is none",
       [](const Request& from) { return from.Say("HTTP/1.1 -7 OK\r\n\r\n") && false; }, 0, "", 0,
       0},
      {"100 MB",
       [](const Request& from) {
         from.Say("HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n");
         const std::string piece(100000, 'x');
         int pieces = 0;
         while (pieces < 1000 && from.Say(piece)) {
           ++pieces;
         }
         EXPECT_LT(pieces, 200);
         return false;
       },
       200, "", HttpSender::kMostKept, 0},
      {"heads without end",
       [](const Request& from) {
         from.Say("HTTP/1.1 200 OK\r\n");
         while (from.Say("X: " + std::string(1000, 'x') + "\r\n")) {
         }
         return false;
       },
       0, "too long", 0, 0},
  };
  for (const auto& row : rows) {
    FakeServer server(row.serve);
    SendRequest request = To(server, "some text");
    request.timeout = milliseconds(400);
    const auto begin = std::chrono::steady_clock::now();
    const SendResult result = ResultOf(std::move(request));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2)) << row.what;
    EXPECT_EQ(result.status, row.status) << row.what;
    EXPECT_THAT(result.error, HasSubstr(row.error)) << row.what;
    EXPECT_EQ(result.error.empty(), result.status != 0) << row.what;
    EXPECT_EQ(result.body.size(), row.body) << row.what;
    EXPECT_EQ(result.retryAfter.count(), row.retryAfter) << row.what;
    EXPECT_EQ(server.Requests(), 1) << row.what;
  }
}

TEST_F(HttpSenderTest, WhatIsSentAndThatConnectionsAreKept) {
  std::vector<std::string> seen;
  std::optional<FakeServer> server(std::in_place, [&](const Request& from) {
    seen.push_back(std::to_string(from.connection) + ' ' + from.head.substr(0, 20) + ' ' +
                   from.Header("X-Own") + ' ' + from.Header("User-Agent") + ' ' +
                   std::to_string(from.body.size()) + from.Header("Expect"));
    return from.Answer("200 OK");
  });
  SendRequest request = To(*server, std::string(3'000'000, '\0'));
  request.headers = {"X-Own: a b"};
  EXPECT_EQ(ResultOf(request).status, 200);
  request.method = "PUT";
  request.body = "";
  EXPECT_EQ(ResultOf(request).status, 200);
  const std::string agent = " a b qmtdmon/" QMT_VERSION " ";
  EXPECT_THAT(seen, testing::ElementsAre("1 POST /write HTTP/1.1" + agent + "3000000",
                                         "1 PUT /write HTTP/1.1\r" + agent + "0"));
  // The kept connection has gone; the next request finds the server that listens anew.
  const std::uint16_t port = server->Port();
  server.reset();
  EXPECT_THAT(ResultOf(request).error, HasSubstr("connect"));
  server.emplace([](const Request& from) { return from.Answer("202"); }, port);
  EXPECT_EQ(ResultOf(request).status, 202);
}

TEST_F(HttpSenderTest, WhoAsksIsProvedByFilesThatOthersCantRead) {
  TempFolder folder;
  const auto write = [&](const char* name, const std::string& text, mode_t mode) {
    const std::string path = folder.Path() / name;
    std::ofstream(path) << text;
    ::chmod(path.c_str(), mode);
    return path;
  };
  const std::string good = write("good", "s3cret\nmore", 0600);
  const std::string open = write("open", "s3cret\n", 0644);
  const std::string empty = write("empty", "\nx", 0600);
  const std::string fifo = folder.Path() / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  FakeServer server(
      [](const Request& from) { return from.Answer("200", from.Header("Authorization")); });
  const struct {
    SendIdentity identity;
    std::string answer;
    std::string error;
  } rows[] = {
      {{}, "", ""},
      {{"jane", good, "", "", "", ""}, "Basic amFuZTpzM2NyZXQ=", ""},
      {{"jane", "", good, "", "", ""}, "Bearer s3cret", ""},
      {{"jane", open, "", "", "", ""}, "", "open: others may reach the password"},
      {{"", "", open, "", "", ""}, "", "open: others may reach the token"},
      {{"", "", empty, "", "", ""}, "", "empty: its first line is no token"},
      {{"", "", fifo, "", "", ""}, "", "fifo: it is no regular file"},
      {{"", "", "", fifo, "", ""}, "", "fifo: it is no regular file"},
      {{"", "", "", "", open, ""}, "", "open: others may reach the key"},
      {{"", "", "", "", open, "/none"}, "", "/none: No such file"},
  };
  for (const auto& row : rows) {
    SendRequest request = To(server);
    request.identity = row.identity;
    const SendResult result = ResultOf(request);
    EXPECT_EQ(result.body, row.answer);
    EXPECT_THAT(result.error, HasSubstr(row.error));
    EXPECT_EQ(result.status != 0, row.error.empty());
  }
  for (const char* url : {"", "nonsense:", "ftp://127.0.0.1/", "file:///etc/passwd"}) {
    SendRequest request;
    request.url = url;
    EXPECT_NE(ResultOf(request).error, "") << url;
  }
}

TEST_F(HttpSenderTest, ARequestIsTakenBackAndTheEndOfOneMayEndAll) {
  FakeServer silent([](const Request& from) { return from.StaySilent(); });
  FakeServer quick([](const Request& from) { return from.Answer("200"); });
  HttpSender::SendingPtr first = m_sender->Send(To(silent), [](SendResult) { FAIL(); });
  HttpSender::SendingPtr second = m_sender->Send(To(silent), [](SendResult) { FAIL(); });
  HttpSender::SendingPtr third = m_sender->Send(To(quick), [&](SendResult result) {
    EXPECT_EQ(result.status, 200);
    first.reset();
    third.reset();
    m_sender.reset();
    m_loop.Post([this] { m_loop.Stop(); });
  });
  m_loop.Run();
  EXPECT_EQ(third, nullptr);
}

TEST(UrlTest, WhatMayBeASecretIsNotShown) {
  const struct {
    const char* url;
    const char* shown;
    const char* server;
  } rows[] = {
      {"https://h:1/a/b", "https://h:1/a/b", "https://h:1"},
      {"https://u:p@h/a@b?t=x#y", "https://h/a@b", "https://h"},
      {"http://u:p/q@h/w", "http://u:p/q@h/w", "http://u:p"},
      {"http://u@v@h?t=@x", "http://h", "http://h"},
      {"u:p@h#@f", "h", "h"},
      {"", "", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ShownUrl(row.url), row.shown) << row.url;
    EXPECT_EQ(ServerOf(row.url), row.server) << row.url;
  }
}

TEST(WordsOfTest, WhatAServerSaysSteersNoTerminal) {
  SendResult said;
  said.status = 400;
  said.body =
      "a\xc2\x9b"
      "2J\x1b\x7f\xe2\x80\xae\xff\nb";
  const std::string words = R"(status 400: a\u{009B}2J\x1B\x7F\u{202E}\xFF)";
  EXPECT_EQ(WordsOf(said), words);
  SendResult longer = said;
  const std::string room(196, 'a');
  for (const auto& [end, shown] : {std::pair("\xe2\x82\xac\xe2\x82\xac", "\xe2\x82\xac"),
                                   std::pair("\xff\xff", R"(\xFF)"), std::pair("b\xff", "b")}) {
    longer.body = room + end;
    EXPECT_EQ(WordsOf(longer), "status 400: " + room + shown);
  }
  testing::internal::CaptureStderr();
  GateLog(said.body);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            R"(qmt_gate: a\u{009B}2J\x1B\x7F\u{202E}\xFF\x0Ab)"
            "\n");
  const std::string most(999, 'a');
  testing::internal::CaptureStderr();
  GateLog(most + "\xe2\x82\xac");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "qmt_gate: " + most + '\n');
}

TEST(BackoffTest, PausesDoubleWithChanceAndTheServersWordCounts) {
  Backoff backoff(milliseconds(100), milliseconds(1000));
  for (const int longest : {100, 200, 400, 800, 1000, 1000}) {
    const milliseconds pause = backoff.Next();
    EXPECT_GE(pause, milliseconds(longest / 2));
    EXPECT_LE(pause, milliseconds(longest));
  }
  const milliseconds named = backoff.Next(std::chrono::seconds(60));
  EXPECT_GE(named, std::chrono::seconds(60));
  EXPECT_LE(named, std::chrono::seconds(75));
  EXPECT_LE(backoff.Next(std::chrono::seconds(1'000'000'000)), std::chrono::minutes(75));
  EXPECT_LE(backoff.Next(std::chrono::seconds(-5)), milliseconds(1000));
  backoff.Reset();
  EXPECT_LE(backoff.Next(), milliseconds(100));
}

}  // namespace
