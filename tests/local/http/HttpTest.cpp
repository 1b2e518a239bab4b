#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "local/HttpPages.h"
#include "local/http/HttpServer.h"
#include "node/FigureRegistry.h"
#include "tests/local/FakeAgent.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A client's connection, which waits ten seconds at most.
class HttpClient {
 public:
  explicit HttpClient(const std::string& address)
      : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    ::sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    peer.sin_port =
        htons(static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1))));
    const ::timeval limit{10, 0};
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    EXPECT_EQ(::connect(m_socket.Get(), reinterpret_cast<::sockaddr*>(&peer), sizeof peer), 0);
  }
  bool Send(const std::string& text) {
    return ::send(m_socket.Get(), text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }
  /// All up to the end of the connection.
  std::string Receive() {
    std::string text;
    char piece[65536];
    for (ssize_t count = 0; (count = ::recv(m_socket.Get(), piece, sizeof piece, 0)) > 0;) {
      text.append(piece, static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  Descriptor m_socket;
};

class HttpTest : public ::testing::Test {
 protected:
  HttpTest() {
    PublishFakeRecords();
    metrics.Configure({"FAKE", "IDLE", "NONE", "FAKE"},
                      [this](const std::string& problem) { problems.push_back(problem); });
    agent.onBatch = [this](CMBMultipleRecordRequestEvent& batch) {
      ++batches;
      for (CMBRecordRequestEvent* event : batch.m_events) {
        EXPECT_NE(event->IsRealtime(), 0);
        EXPECT_EQ(event->ShouldCalcRates(), 0);
        event->m_records.push_back(new FakeRecord(7));
        event->m_records.push_back(new FakeRecord(8));
      }
      return 0;
    };
  }
  /// Runs the loop while `script` plays the clients on another thread.
  void Serve(const std::function<void()>& script, HttpSettings settings = {}) {
    HttpServer server(
        loop, [this](const auto& exchange) { pages.Serve(exchange); }, settings);
    std::string error;
    ASSERT_TRUE(server.Open("127.0.0.1:0", error)) << error;
    address = server.Address();
    std::thread clients([&] {
      script();
      EventLoop::RequestStop();
    });
    loop.Run(agent);
    clients.join();
  }
  std::string Ask(const std::string& path, const std::string& headers = "",
                  const std::string& method = "GET") {
    HttpClient client(address);
    client.Send(method + ' ' + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n");
    return client.Receive();
  }

  ScratchDirectory directory;
  std::vector<std::string> problems;
  EventLoop loop;
  BatchDesk desk;
  LastRows lastRows;
  ScheduleBook schedule{loop, desk, lastRows};
  HistoryStore history{[](const std::string&) {}};
  MetricsDesk metrics{loop, desk, schedule, history};
  HttpPages pages{metrics};
  FakeAgent agent;
  std::atomic<int> batches = 0;
  std::string address;
};

TEST_F(HttpTest, EachPageAnswersAndNothingElse) {
  FigureRegistry::Instance().SetFact("host_profile", "modern");
  EXPECT_THAT(problems, testing::ElementsAre("Http Records: the record IDLE is not served",
                                             "Http Records: the record NONE is unknown"));
  Serve([&] {
    const struct {
      const char* method;
      const char* path;
      const char* status;
      const char* part;
    } cases[] = {
        {"GET", "/", "200", "href=\"/metrics\""},
        {"GET", "/-/healthy", "200", "healthy\n"},
        {"GET", "/-/ready?x=1", "200", "ready\n"},
        {"GET", "/metrics", "200", "qmt_fake_count_total{"},
        {"GET", "/metrics", "200", "\",host_profile=\"modern\"} 1\n"},
        {"GET", "/metrics?collect[]=FAKE&collect%5B%5D=FAKE", "200", "qmt_fake_"},
        {"GET", "/metrics?collect[]=IDLE", "400", "the record IDLE is not served\n"},
        {"GET", "/metrics?collect[]=", "400", "is unknown\n"},
        {"GET", "/metrics/", "404", "no such page\n"},
        {"GET", "/../etc/passwd", "404", "no such page\n"},
        {"POST", "/metrics", "405", "Allow: GET, HEAD\r\n"},
        {"DELETE", "/", "405", "only GET and HEAD\n"},
        {"BREW", "/-/ready", "405", "only GET and HEAD\n"},
    };
    for (const auto& row : cases) {
      const std::string answer = Ask(row.path, "", row.method);
      EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + row.status)) << row.path;
      EXPECT_THAT(answer, HasSubstr(row.part)) << row.path;
    }
    const std::string head = Ask("/metrics", "", "HEAD");
    EXPECT_THAT(head, HasSubstr("Content-Length: "));
    EXPECT_THAT(head, Not(HasSubstr("qmt_")));
  });
}

TEST_F(HttpTest, ARecordThatHasNothingToTellIsAskedForByNameAlone) {
  std::atomic<bool> isIdle = true;
  LayoutRegistry::Instance().PublishListing({{"FAKE", '4', true, [&] { return isIdle.load(); }},
                                             {"IDLE", '3', false},
                                             {"BARE", '4', true}});
  Serve([&] {
    EXPECT_THAT(Ask("/metrics"), Not(HasSubstr("qmt_fake_")));
    EXPECT_THAT(Ask("/metrics?collect[]=FAKE"), HasSubstr("qmt_fake_"));
    isIdle = false;
    EXPECT_THAT(Ask("/metrics"), HasSubstr("qmt_fake_"));
  });
  PublishFakeRecords();
}

TEST_F(HttpTest, TheFormatGoesByTheAcceptHeader) {
  const struct {
    const char* accept;
    bool isOpen;
  } cases[] = {
      {"", false},
      {"Accept: */*\r\n", false},
      {"Accept: application/openmetrics-text\r\n", true},
      {"Accept: application/openmetrics-text;version=1.0.0;q=0.8,text/plain;q=0.5,*/*;q=0.1\r\n",
       true},
      {"Accept: text/plain;version=0.0.4;q=1,*/*;q=0.1\r\n", false},
      {"Accept: text/plain, application/openmetrics-text;q=0.5\r\n", false},
      {"Accept: application/openmetrics-text;q=nan,,;q=\r\n", false},
  };
  Serve([&] {
    for (const auto& row : cases) {
      const std::string answer = Ask("/metrics", row.accept);
      EXPECT_EQ(answer.find("application/openmetrics-text; version=1.0.0") != std::string::npos,
                row.isOpen)
          << row.accept;
      EXPECT_EQ(answer.ends_with("# EOF\n"), row.isOpen) << row.accept;
      EXPECT_THAT(answer, HasSubstr(row.isOpen ? "# TYPE qmt_fake_count counter\n"
                                               : "# TYPE qmt_fake_count_total counter\n"));
      // The second row has the key of the first; the label's byte is no UTF-8.
      EXPECT_THAT(answer, HasSubstr("qmt_fake_count_total{label=\"a\xEF\xBF\xBD\"} 7\n"));
      EXPECT_THAT(answer, Not(HasSubstr("} 8\n")));
    }
  });
}

TEST_F(HttpTest, ScrapesThatComeCloseTogetherShareABatch) {
  Serve([&] {
    std::vector<std::thread> clients;
    for (int i = 0; i < 20; ++i) {
      clients.emplace_back([&] { EXPECT_THAT(Ask("/metrics"), HasSubstr("qmt_fake_count")); });
    }
    for (std::thread& client : clients) {
      client.join();
    }
    EXPECT_EQ(batches, 1);
    std::this_thread::sleep_for(MetricsDesk::kShared + milliseconds(50));
    Ask("/metrics");
    EXPECT_EQ(batches, 2);
  });
}

TEST_F(HttpTest, SlowHugeAndManyClientsEndByThemselves) {
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

TEST_F(HttpTest, WhoSendsNothingGivesWayAndWhatIsNoRequestIsToldAtOnce) {
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

TEST_F(HttpTest, AnAddressThatCannotBeHadIsTold) {
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
