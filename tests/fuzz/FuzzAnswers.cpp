// What the client is answered by whoever listens on the socket, and what it shows of it.
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "client/ask/AlarmAnswers.h"
#include "client/ask/Answers.h"
#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/PushAnswers.h"
#include "client/ask/SafeText.h"
#include "client/report/Points.h"
#include "client/show/GroupTree.h"
#include "json/JsonText.h"
#include "support/Descriptor.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

/// Whoever reads an answer tells in words why it is none.
void Take(const Json& answer, const std::function<void(Json&)>& read) {
  Json copy = answer;
  try {
    read(copy);
  } catch (const ClientError& error) {
    Require(*error.what() != '\0');
  } catch (const UsageError& error) {
    Require(*error.what() != '\0');
  }
}

void TakeAll(const Json& answer) {
  Take(answer, [](Json& part) { static_cast<void>(ReadResults(part, {{"FAKE", "4"}})); });
  Take(answer, [](Json& part) { static_cast<void>(ReadHistory(part, {"FAKE", ""})); });
  Take(answer, [](Json& part) { static_cast<void>(ReadSchema(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadListing(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadStatus(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadConfig(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadReport(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadConfigOutcome(part, 1)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadAlarms(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadAlarm(part, 1)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadAlarmRules(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadPushStatus(part)); });
  Take(answer, [](Json& part) { static_cast<void>(ReadPoints(part)); });
  Take(answer, [](Json& part) {
    std::vector<RecordAnswer> results = ReadResults(part, {{"CGRP", ""}});
    std::vector<GroupNode> groups = MakeGroupTree(std::move(results.at(0).rows));
    CutGroups(groups, 3);
    static_cast<void>(GroupsText(groups, {}));
  });
}

/// What comes to the terminal holds nothing that steers it, and is gone through step by step.
void TakeShown(std::string_view text) {
  const std::string safe = SafeText(text);
  std::size_t columns = 0;
  for (std::string_view rest = safe; !rest.empty();) {
    Require(static_cast<unsigned char>(rest[0]) >= ' ' && rest[0] != '\x7f');
    const TextStep step = FirstCharacter(rest);
    Require(step.bytes > 0 && step.bytes <= rest.size());
    columns += step.columns;
    rest.remove_prefix(step.bytes);
  }
  Require(TextWidth(safe) == columns);
  Require(SafeText(safe) == safe || text.find('\\') != text.npos);
}

/// A socket that answers a connection before it asks.
class EagerServer {
 public:
  EagerServer() : m_listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Require(Path().size() < sizeof(address.sun_path));
    std::memcpy(address.sun_path, Path().data(), Path().size());
    Require(::bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address),
                   sizeof(address)) == 0 &&
            ::listen(m_listener.Get(), 1) == 0);
  }

  /// What `ask` makes of the answer `bytes`; none if they are refused in words.
  template <class Ask>
  [[nodiscard]] std::optional<Json> Take(std::string_view bytes, const Ask& ask) const {
    Connection connection(Path());
    const Descriptor peer(::accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    const ssize_t sent = ::send(peer.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    Require(sent == static_cast<ssize_t>(bytes.size()));
    try {
      return ask(connection);
    } catch (const ClientError& error) {
      Require(*error.what() != '\0');
      return std::nullopt;
    }
  }

 private:
  [[nodiscard]] std::string Path() const { return m_folder.Path("s"); }

  FuzzFolder m_folder;
  Descriptor m_listener;
};

/// The answer with the rows that came one by one put back.
Json AskByRows(Connection& connection) {
  std::map<std::size_t, Json> rows;  // by the place of the result
  Json* current = nullptr;
  Json answer = connection.AskRows({{"op", "get"}}, {[&](std::size_t place, const Json&) {
                                                       current = &rows[place];
                                                       *current = Json::Array();
                                                     },
                                                     [&](Json row) {
                                                       current->PushBack(std::move(row));
                                                       return true;
                                                     }});
  Json* results = answer.Find("results");
  for (auto& [place, taken] : rows) {
    if (results != nullptr && results->IsArray() && place < results->Size()) {
      if (Json* left = (*results)[place].Find("rows"); left != nullptr && left->IsArray()) {
        *left = std::move(taken);
      }
    }
  }
  return answer;
}

/// An answer that is taken row by row is the one that is taken as a whole. Such as have rows that
/// are none, or twice, are refused on the way.
void TakeLine(std::string_view text) {
  constexpr std::size_t kMostSent = 65536;  // what a socket takes without a reader
  if (text.size() >= kMostSent) {
    return;
  }
  static const EagerServer server;
  const std::string line = std::string(text) + '\n';
  const auto whole = server.Take(line, [](Connection& connection) {
    return connection.Ask({{"op", "get"}});
  });
  const auto byRows = server.Take(line, AskByRows);
  Require(!byRows || (whole && *byRows == *whole));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = Input(data, size).Rest();
  TakeShown(text);
  TakeLine(text);
  try {
    // What is no object is refused with the line.
    if (const Json answer = ParseAnswer(text); answer.IsObject()) {
      TakeAll(answer);
    }
  } catch (const ClientError& error) {
    Require(SafeText(error.what()).size() < 2000 + 8 * text.size());
  }
  return 0;
}
