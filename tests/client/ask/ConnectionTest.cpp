#include "client/ask/Connection.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "client/ask/Errors.h"
#include "json/JsonText.h"
#include "tests/client/ClientHarness.h"
#include "tests/support/Testing.h"

namespace {

using std::chrono::milliseconds;

/// The words that `act` fails with.
template <class Act>
std::string FailureOf(Act act) {
  try {
    act();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no failure";
}

std::string AskFailure(const std::string& reply, ConnectionLimits limits = {}) {
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [&](const Json&) { return reply; });
  Connection connection(server.Path(), -1, limits);
  return FailureOf([&] { static_cast<void>(connection.Ask({{"op", "status"}})); });
}

TEST(Connection, BrokenAnswersAreFailures) {
  const struct {
    std::string reply;
    const char* words;
  } cases[] = {
      {"hello\n", "not JSON"},
      {"[]\n", "not an object"},
      {"{}\n", "no \"ok\""},
      {R"({"id":7,"ok":true})"
       "\n",
       "another request"},
      {R"({"ok":true})"
       "\n",
       "another request"},
      {R"({"id":1,"ok":false})"
       "\n",
       "\"error\" is not an object"},
      {R"({"id":1,"ok":false,"error":{"code":5}})"
       "\n",
       "refused"},
      {R"({"ok":false,"error":{"code":"bad-json","message":"no","field":"f"}})"
       "\n",
       "no (field f) (code bad-json)"},
      {ScriptedServer::kHangUp, "without an answer"},
  };
  for (const auto& [reply, words] : cases) {
    EXPECT_THAT(AskFailure(reply), HasSubstr(words)) << reply;
  }
}

TEST(Connection, TimeAndLengthOfAnAnswerAreLimited) {
  ConnectionLimits limits;
  limits.answer = milliseconds(50);
  EXPECT_THAT(AskFailure("", limits), HasSubstr("no answer in time"));
  EXPECT_THAT(AskFailure("{\"id\":", limits), HasSubstr("no answer in time"));
  const std::string slow = ScriptedServer::kSlowly + std::string(3000, ' ');
  limits.answer = std::chrono::seconds(20);
  limits.whole = milliseconds(50);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THAT(AskFailure(slow, limits), HasSubstr("no answer in time")) << "but never silent";
  EXPECT_THAT(AskFailure("", limits), HasSubstr("no answer in time"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  limits = {};
  limits.answerBytes = 1000;
  EXPECT_THAT(AskFailure(std::string(200'000, ' '), limits), HasSubstr("longer than 1000"));
}

TEST(Connection, ALongAnswerAndALongPathAreNoTrouble) {
  const ScratchFolder folder;
  const std::string deep = folder.Path() + "/" + std::string(120, 'd');
  std::filesystem::create_directory(deep);
  const ScriptedServer server(deep, "control.sock", [](const Json& request) {
    return Answer(request, {{"text", std::string(3'000'000, 'x')}});
  });
  Connection connection(server.Path());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(connection.Ask({{"op", "any"}})["text"].Text().size(), 3'000'000u);
  }
  EXPECT_THROW(static_cast<void>(connection.Ask({{"op", std::string(70'000, 'x')}})), UsageError);
  EXPECT_THAT(FailureOf([&] { Connection(deep + "/none.sock"); }), HasSubstr("seems not to run"));
}

/// Results of so many rows of ten bytes.
std::string RowsLine(const Json& request, int rows) {
  std::string line = R"({"id":)" + JsonText(request["id"]) + R"(,"ok":true,"results":[{"rows":[)";
  for (int row = 0; row < rows; ++row) {
    line += std::string(row == 0 ? "" : ",") + "{\"a\":10000}";
  }
  return line + "]}]}\n";
}

TEST(Connection, RowsMayBeAsManyAsWantedButNotHeldToAnyLength) {
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [](const Json& request) {
    return RowsLine(request, request["op"].Text() == "many" ? 100'000 : 1);
  });
  ConnectionLimits limits;
  limits.answerBytes = 300'000;
  Connection connection(server.Path(), -1, limits);
  for (const auto& [op, count] : {std::pair("many", 100'000U), std::pair("one", 1U)}) {
    std::size_t rows = 0;
    const Json answer = connection.AskRows({{"op", op}}, {[](std::size_t, const Json&) {},
                                                          [&](const Json& row) {
                                                            rows += row["a"] == 10000 ? 1 : 0;
                                                            return true;
                                                          }});
    EXPECT_EQ(rows, count);
    EXPECT_EQ(answer["results"][0]["rows"].Size(), 0U);
  }
  EXPECT_THAT(FailureOf([&] {
                static_cast<void>(connection.AskRows(
                    {{"op", "many"}},
                    {[](std::size_t, const Json&) {}, [](const Json&) { return false; }}));
              }),
              HasSubstr("longer than 300000"));
}

TEST(Connection, RowsOfABrokenAnswerAreNotShown) {
  const struct {
    const char* reply;
    const char* words;
    int rows;  ///< that were shown before
  } cases[] = {
      {R"({"id":7,"ok":true,"results":[{"rows":[{}]}]})", "another request", 0},
      {R"({"results":[{"rows":[{}]}]})", "no \"ok\"", 0},
      {R"({"id":1,"ok":true,"results":[{"rows":[{"a":1},{"a":[]}]}]})", "plain values", 1},
      {R"({"id":1,"ok":true,"results":[{"rows":[7]}]})", "plain values", 0},
      {R"({"id":1,"ok":true,"results":[{"rows":[{}],"rows":[{}]}]})", "twice", 1},
      {R"({"id":1,"ok":true,"results":[{"rows":[{},)", "not JSON", 1},
      {R"({"id":1,"ok":false,"error":{"code":"busy","message":"later"}})", "later", 0},
  };
  for (const auto& row : cases) {
    const ScratchFolder folder;
    const ScriptedServer server(folder.Path(), "s",
                                [&](const Json&) { return std::string(row.reply) + '\n'; });
    Connection connection(server.Path());
    int rows = 0;
    EXPECT_THAT(FailureOf([&] {
                  static_cast<void>(connection.AskRows(
                      {{"op", "get"}},
                      {[](std::size_t, const Json&) {}, [&](const Json&) { return ++rows > 0; }}));
                }),
                HasSubstr(row.words));
    EXPECT_EQ(rows, row.rows) << row.reply;
  }
}

TEST(Connection, AFullQueueOfConnectionsEndsInTime) {
  const ScratchFolder folder;
  const std::string path = folder.Path() + "/full";
  const Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            0);
  ASSERT_EQ(::listen(listener.Get(), 0), 0);
  ConnectionLimits limits;
  limits.connect = milliseconds(50);
  const Connection first(path, -1, limits);
  EXPECT_THAT(FailureOf([&] { Connection(path, -1, limits); }), HasSubstr("busy or stuck"));
}

TEST(Connection, AStopEndsTheWaiting) {
  const ScratchFolder folder;
  const ScriptedServer server(folder.Path(), "s", [](const Json&) { return std::string(); });
  const Descriptor stop(::eventfd(1, EFD_CLOEXEC));
  Connection connection(server.Path(), stop.Get());
  EXPECT_THROW(static_cast<void>(connection.Ask({{"op", "status"}})), Interrupted);
}

}  // namespace
