#include <pwd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "client/ask/AnswerMembers.h"
#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/doctor/FindFacts.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/TextFile.h"

namespace {

constexpr std::chrono::seconds kTimeLimit{5};

/// The number of that base behind the blanks that begin `text`.
template <class Number>
std::optional<Number> NumberOf(std::string_view text, int base) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc{} ? std::optional(number) : std::nullopt;
}

ProcessFacts FindProcess(std::int64_t pid) {
  ProcessFacts facts;
  const TextFilePtr file = OpenTextFile(HostPath("/proc/" + std::to_string(pid) + "/status"));
  std::array<char, 1024> line;
  std::optional<uid_t> user;
  std::optional<std::uint64_t> capabilities;
  constexpr int kMostLines = 200;
  for (int i = 0; file && i < kMostLines &&
                  std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr;
       ++i) {
    const std::string_view text = line.data();
    if (constexpr std::string_view kUser = "Uid:\t"; text.starts_with(kUser)) {
      // The second of the numbers is the one in force.
      const std::size_t second = text.find('\t', kUser.size());
      user = second == text.npos ? std::nullopt : NumberOf<uid_t>(text.substr(second), 10);
    } else if (constexpr std::string_view kSet = "CapEff:\t"; text.starts_with(kSet)) {
      capabilities = NumberOf<std::uint64_t>(text.substr(kSet.size()), 16);
    }
  }
  if (user && capabilities) {
    const ::passwd* entry = Os().getpwuid(*user);
    facts = {true, entry == nullptr ? std::to_string(*user) : entry->pw_name, *user == 0,
             *capabilities};
  }
  return facts;
}

void TakeStatus(const Json& answer, DaemonFacts& facts) {
  facts.status = ReadStatus(answer);
  const Json& history = ObjectMember(ObjectMember(answer, "status"), "history");
  facts.historyFile = TextMember(history, "file");
  facts.historyBytes = CountMember(history, "size_bytes");
  facts.lostBatches = CountMember(history, "lost_batches");
}

void TakeGate(const Json& answer, DaemonFacts& facts) {
  const Json& gate = ObjectMember(answer, "gate");
  facts.gateMode = TextMember(gate, "mode");
  facts.listen = TextsMember(gate, "listen");
}

void TakeAlarms(const Json& answer, DaemonFacts& facts) {
  for (const Json& definition :
       ObjectsMember(ObjectMember(answer, "alarms"), "definitions").Elements()) {
    if (TextMember(definition, "state") == "off") {
      facts.alarmsOff.push_back(TextMember(definition, "alarm") +
                                " is off: " + TextMember(definition, "why"));
    }
  }
}

/// Asks and has the answer taken; the fault, or nothing.
template <class Take>
std::string FaultOf(Connection& connection, const Json& request, DaemonFacts& facts, Take take) {
  try {
    take(connection.Ask(request), facts);
  } catch (const ClientError& error) {
    return error.what();
  }
  return "";
}

}  // namespace

DaemonFacts FindDaemon(const std::string& path) {
  DaemonFacts facts;
  try {
    Connection connection(path, -1,
                          {.connect = kTimeLimit,
                           .answer = kTimeLimit,
                           .whole = kTimeLimit,
                           .answerBytes = std::size_t{16} << 20});
    TakeStatus(connection.Ask({{"op", "status"}}), facts);
    facts.gateFault = FaultOf(connection, {{"op", "gate"}}, facts, TakeGate);
    // What comes late would be taken for the answer to what is asked next.
    facts.alarmsFault =
        facts.gateFault.empty()
            ? FaultOf(connection, {{"op", "alarms"}, {"limit", 1}}, facts, TakeAlarms)
            : "not asked, after that";
    facts.process = FindProcess(facts.status.pid);
  } catch (const ClientError& error) {
    facts.fault = error.what();
  }
  return facts;
}
