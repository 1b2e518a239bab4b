#include <atomic>
#include <list>

#include "gate/http/HttpServer.h"
#include "gate/http/ListenSocket.h"
#include "tests/gate/KeyPair.h"
#include "tests/gate/TlsClient.h"

namespace {

using std::chrono::milliseconds;

class HttpServerTest : public GateFixture {
 protected:
  /// Runs a server of its own loop, which answers "/-/healthy", while `script` plays the clients.
  void Serve(const std::function<void()>& script, HttpSettings settings = {}) {
    GateLoop loop;
    HttpServer server(
        loop,
        [](const auto& exchange) {
          exchange->Answer({200, HttpAnswer{}.contentType, "healthy\n"});
        },
        settings);
    std::string error;
    ASSERT_TRUE(server.Open("127.0.0.1:0", error)) << error;
    address = server.Address();
    std::thread clients([&] {
      script();
      loop.Stop();
    });
    loop.Run();
    clients.join();
  }
};

TEST_F(HttpServerTest, SlowHugeAndManyClientsEndByThemselves) {
  HttpSettings settings;
  settings.deadline = milliseconds(300);
  settings.maxConnections = 50;
  Serve(
      [&] {
        std::list<HttpClient> idle;
        for (int i = 0; i < 300; ++i) {
          idle.emplace_back(address);
        }
        HttpClient slow(address);
        EXPECT_THAT(Ask("/-/healthy"), HasSubstr("healthy")) << "behind 300 idle ones";
        // A byte now and then does not keep a place.
        const auto begin = std::chrono::steady_clock::now();
        while (slow.Send("G") && std::chrono::steady_clock::now() - begin < milliseconds(8000)) {
          std::this_thread::sleep_for(milliseconds(100));
        }
        EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(8000));
        EXPECT_THAT(Ask("/", "X: " + std::string(100'000, 'x') + "\r\n"),
                    testing::AnyOf("", StartsWith("HTTP/1.1 4")));
        HttpClient garbage(address);
        garbage.Send(std::string("\0\xff\r\n\r\n", 6));
        EXPECT_THAT(garbage.Receive(), testing::AnyOf("", HasSubstr(" 400 ")));
        EXPECT_THAT(Ask("/-/healthy"), HasSubstr("healthy"));
      },
      settings);
}

TEST(HttpHeadTest, WhatIsNoRequestOfOursIsRefusedAtOnce) {
  const HeadRule rule{.maxBytes = 1000, .hostNames = {"own.example"}};
  const std::string many = [] {
    std::string text = "GET /?";
    for (int i = 0; i < 120; ++i) {
      text += "a&";
    }
    return text;
  }();
  std::string headers = "GET / HTTP/1.1\r\n";
  for (int i = 0; i < 101; ++i) {
    headers += "a:\n";
  }
  const auto host = [](const std::string& name) {
    return "GET / HTTP/1.1\r\nHost: " + name + "\r\n\r\n";
  };
  constexpr unsigned kMore = HeadVerdict::kIncomplete;
  const std::pair<std::string, unsigned> cases[] = {
      {"", kMore},
      {"GET", kMore},
      {"GET / HTTP/1.1\r\nHost: localhost\r\n", kMore},
      {host("localhost"), 0},
      {"\r\n" + host("LOCALHOST:9964"), 0},
      {host("127.0.0.1:80"), 0},
      {host("[::1]:9964"), 0},
      {host("own.example."), 0},
      {"GET / HTTP/1.0\n\n", 0},
      {host("evil.example"), 421},
      {host("own.example.evil.example"), 421},
      {host("127.0.0.1.evil.example"), 421},
      {host("[::1"), 421},
      {host("localhost:x"), 421},
      {host(""), 421},
      {"GET / HTTP/1.1\r\n\r\n", 400},
      {"GET / HTTP/1.1\nHost: localhost\nhost: localhost\n\n", 400},
      {std::string("\0\xff", 2), 400},
      {" GET", 400},
      {std::string(40, 'G'), 400},
      {"GET\r\n", 400},
      {"GET /\r\n", 400},
      {"GET / HTTP/2\r\n", 400},
      {"GET /\x1b HTTP/1.1\r\n", 400},
      {"GET /" + std::string(600, 'x'), 414},
      {many, 414},
      {headers, 431},
      {"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(1000, 'x'), 431},
  };
  for (const auto& [bytes, status] : cases) {
    EXPECT_EQ(JudgeHead(bytes, rule).status, status) << bytes;
  }
}

TEST_F(HttpServerTest, BehindTlsAHeadHasTheSameBounds) {
  const std::string stem = folder.Path() / "own";
  MakeKeyPair(stem, std::time(nullptr) + 1000);
  Begin(nullptr, Json{{"certificate", stem + ".crt"}, {"key", stem + ".key"}});
  const std::string x(5000, 'x');
  const struct {
    std::string path;
    std::string header;
    const char* status;
  } cases[] = {{"/?" + x.substr(2000), x, "200"},
               {"/?" + x, "", "414"},
               {"/api/1/events?records=" + x, "", "413"},
               {"/", x + x, "431"}};
  for (const auto& row : cases) {
    EXPECT_THAT(TlsClient(Address()).Ask(row.path, row.header, "\r\n"),
                StartsWith(std::string("-HTTP/1.1 ") + row.status));
  }
}

TEST_F(HttpServerTest, WhoSendsNothingGivesWayAndWhatIsNoRequestIsToldAtOnce) {
  const auto begin = std::chrono::steady_clock::now();
  const auto isSoon = [&] { return std::chrono::steady_clock::now() - begin < milliseconds(4500); };
  Serve([&] {
    std::list<HttpClient> idle;
    for (int i = 0; i < 300; ++i) {
      idle.emplace_back(address);
      idle.back().Send("GE");
    }
    EXPECT_THAT(Ask("/-/healthy"), HasSubstr("healthy")) << "behind 300 slow ones";
    HttpClient garbage(address);
    garbage.Send(std::string("\0\xff\r\n\r\n", 6));
    EXPECT_THAT(garbage.Receive(), StartsWith("HTTP/1.1 400 "));
    std::string arguments = "/?";
    for (int i = 0; i < 3000; ++i) {
      arguments += "a&";
    }
    EXPECT_THAT(Ask(arguments), StartsWith("HTTP/1.1 414 "));
    // In pieces it is one request all the same.
    HttpClient pieces(address);
    for (const char* piece : {"GET /-/heal", "thy HTTP/1.1\r\nHo", "st: localhost\r\n", "\r\n"}) {
      pieces.Send(piece);
      std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_THAT(pieces.Receive(), HasSubstr("healthy"));
  });
  EXPECT_TRUE(isSoon());
}

TEST_F(HttpServerTest, WhoEndsWithinItsHeadIsGoneAtOnce) {
  const auto begin = std::chrono::steady_clock::now();
  Serve([&] {
    const auto lastWords = [&](const std::string& text, milliseconds pause) {
      HttpClient client(address);
      client.Send(text);
      std::this_thread::sleep_for(pause);
      client.EndSending();
      return client.Receive();
    };
    const std::string whole = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";
    // The end comes with the bytes, or while more of them are waited for.
    for (const milliseconds pause : {milliseconds(0), milliseconds(50)}) {
      EXPECT_EQ(lastWords("", pause), "");
      EXPECT_EQ(lastWords("G", pause), "");
      EXPECT_EQ(lastWords(whole.substr(0, whole.size() - 1), pause), "");
      EXPECT_THAT(lastWords(whole, pause), HasSubstr("healthy"));
    }
  });
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(4500));
}

TEST_F(HttpServerTest, WhoIsThereOftenAndSaysNothingKeepsNobodyOut) {
  constexpr unsigned kMost = 8;
  constexpr ::in_addr_t kOther = INADDR_LOOPBACK + 1;
  struct Case {
    const char* what;
    HttpSettings settings;
    unsigned inside;    ///< how many of one address are served
    unsigned expected;  ///< and all that were, once another one is
  };
  HttpSettings remote;
  remote.maxConnections = kMost;
  remote.isTls = true;
  remote.shareKey = PeerKey;
  HttpSettings loopback = remote;
  loopback.shareKey = ShareKey;
  for (Case& one :
       std::vector<Case>{{"an address with its share", remote, kMost / 4, kMost / 4 + 1},
                         {"the loopback", loopback, kMost, 2 * kMost + 1}}) {
    SCOPED_TRACE(one.what);
    std::atomic<unsigned> entered = 0;
    one.settings.onConnection = [&] { ++entered; };
    Serve(
        [&] {
          std::list<HttpClient> silent;
          for (unsigned i = 0; i < one.inside + kMost; ++i) {
            silent.emplace_back(address);
          }
          EXPECT_TRUE(WaitUntil([&] { return entered == one.inside; }));
          const auto begin = std::chrono::steady_clock::now();
          const HttpClient other(address, kOther);
          EXPECT_TRUE(WaitUntil([&] { return entered == one.expected; })) << entered;
          EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(6000));
        },
        one.settings);
  }
}

TEST(ListenSocketTest, WhoTakesPartInWhoseShare) {
  const auto share = [](const std::string& address) {
    return ShareKey(*ParseListenAddress(address + ":1")->Get());
  };
  for (const char* none : {"127.0.0.2", "[::1]", "[::ffff:127.0.0.1]"}) {
    EXPECT_EQ(share(none), "") << none;
  }
  EXPECT_EQ(share("[::ffff:192.0.2.1]"), share("192.0.2.1"));
  EXPECT_NE(share("[::ffff:192.0.2.1]"), share("[::ffff:192.0.2.2]"));
  EXPECT_EQ(share("[2001:db8::1]"), share("[2001:db8::2]"));
  EXPECT_NE(share("[2001:db8::1]"), share("[2001:db8:0:1::1]"));
}

TEST_F(HttpServerTest, AnAddressThatCannotBeHadIsTold) {
  GateLoop loop;
  HttpServer first(loop, [](const auto&) {});
  HttpServer second(loop, [](const auto&) {});
  std::string error;
  ASSERT_TRUE(first.Open("127.0.0.1:0", error)) << error;
  EXPECT_FALSE(second.Open(first.Address(), error));
  EXPECT_THAT(error, HasSubstr("can't listen: Address already in use"));
  for (const char* wrong : {"", "9964", ":9964", "localhost:1", "127.0.0.1:", "1.2.3.4:x",
                            "::1:9964", "[::1]", "127.0.0.1:99999"}) {
    EXPECT_FALSE(second.Open(wrong, error)) << wrong;
    EXPECT_THAT(error, HasSubstr("is no ADDRESS:PORT")) << wrong;
  }
  EXPECT_EQ(second.Address(), "");
}

}  // namespace
