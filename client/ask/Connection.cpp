#include "client/ask/Connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <streambuf>
#include <string_view>
#include <system_error>
#include <utility>

#include "client/ask/AnswerMembers.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "json/JsonText.h"

namespace {

constexpr JsonLimits kAnswerLimits{.depth = 32, .members = 4096};

std::string ErrnoText(int error) { return std::generic_category().message(error); }

sockaddr_un Address(std::string_view path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

bool FitsAddress(std::string_view path) { return path.size() < sizeof(sockaddr_un::sun_path); }

/// Milliseconds until `deadline`, rounded up, for poll.
int MillisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

void ThrowRefusal(const Json& answer) {
  const Json* error = answer.Find("error");
  if (error == nullptr || !error->IsObject()) {
    throw ClientError("broken answer: \"error\" is not an object");
  }
  const auto text = [&](const char* name) {
    const Json* member = error->Find(name);
    return member != nullptr && member->IsString() ? member->Text() : std::string();
  };
  std::string words = text("message");
  if (words.empty()) {
    words = "the daemon refused the request";
  }
  for (const char* name : {"field", "code"}) {
    if (const std::string value = text(name); !value.empty()) {
      words += std::string(" (") + name + " " + value + ")";
    }
  }
  throw RefusedError(words);
}

std::string RequestLine(const Json& request) {
  if (!IsUtf8(request)) {
    throw UsageError("the request holds a text that is not UTF-8");
  }
  std::string line = JsonText(request) + '\n';
  if (line.size() > kRequestBytes) {
    throw UsageError("the request is longer than " + std::to_string(kRequestBytes) + " bytes");
  }
  return line;
}

/// The value. Throws ClientError for a fault.
Json Parsed(ParsedJson parsed) {
  switch (parsed.fault) {
    case JsonFault::kNone:
      break;
    case JsonFault::kTooDeep:
      throw ClientError("broken answer: nested too deeply");
    case JsonFault::kTooManyMembers:
      throw ClientError("broken answer: an object of too many members");
    case JsonFault::kSyntax:
      throw ClientError("broken answer: not JSON (" + SafeText(parsed.words.substr(0, 200)) + ")");
  }
  return std::move(parsed.value);
}

}  // namespace

/// The bytes of the next answer up to its newline, taken as they come.
class Connection::LineStream : public std::streambuf {
 public:
  LineStream(Connection& connection, Waiting& waiting)
      : m_connection(connection), m_waiting(waiting) {}

  /// What was read since the row before is let go, or goes on to count.
  void EndRow(bool isLetGo) {
    const std::size_t place = m_shownBefore + static_cast<std::size_t>(gptr() - eback());
    m_kept += isLetGo ? 0 : place - m_rowEnd;
    m_rowEnd = place;
  }

  /// Takes the newline, once all before it was read.
  void TakeNewline() { m_connection.m_received.erase(0, 1); }

 protected:
  int_type underflow() override {
    std::string& received = m_connection.m_received;
    const auto read = static_cast<std::size_t>(egptr() - eback());
    m_shownBefore += read;
    received.erase(0, read);
    setg(nullptr, nullptr, nullptr);
    if (received.empty()) {
      if (m_kept + m_shownBefore - m_rowEnd > m_connection.m_limits.answerBytes) {
        m_connection.FailLong();
      }
      if (m_waiting.hasBegun) {
        // What the rows took that have come is no silence of the daemon's.
        m_waiting.deadline = m_connection.SilenceEnd(m_waiting);
      }
      m_connection.ReceiveMore(m_waiting);
    }
    const std::size_t size = std::min(received.find('\n'), received.size());
    setg(received.data(), received.data(), received.data() + size);
    return size == 0 ? traits_type::eof() : traits_type::to_int_type(received.front());
  }

 private:
  Connection& m_connection;
  Waiting& m_waiting;
  std::size_t m_shownBefore = 0;  ///< bytes before those that can be read now
  std::size_t m_rowEnd = 0;       ///< bytes up to the end of the row that came last
  std::size_t m_kept = 0;         ///< of them, those of rows that are kept
};

Json ParseAnswer(std::string_view line) { return Parsed(ParseJson(line, kAnswerLimits)); }

Connection::Connection(std::string path, int stop, ConnectionLimits limits)
    : m_path(std::move(path)), m_stop(stop), m_limits(limits) {
  Connect();
}

std::string Connection::Where() const { return "the socket " + SafeText(m_path); }

void Connection::Connect() {
  m_socket = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!m_socket.IsOpen()) {
    throw ClientError("cannot make a socket: " + ErrnoText(errno));
  }
  // For a Unix socket, the time limit of sending is that of connecting too.
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(m_limits.connect);
  const std::chrono::microseconds rest = m_limits.connect - seconds;
  const timeval limit{seconds.count(), rest.count()};
  if (::setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0) {
    throw ClientError("cannot limit the time of connecting: " + ErrnoText(errno));
  }

  Descriptor file;
  std::string reachable = m_path;
  if (!FitsAddress(m_path)) {
    file = Descriptor(::open(m_path.c_str(), O_PATH | O_CLOEXEC));
    if (!file.IsOpen()) {
      FailConnect(errno);
    }
    reachable = "/proc/self/fd/" + std::to_string(file.Get());
  }
  const sockaddr_un address = Address(reachable);
  int result = -1;
  do {
    result =
        ::connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    FailConnect(errno);
  }
}

void Connection::FailConnect(int error) const {
  switch (error) {
    case ENOENT:
    case ECONNREFUSED:
      throw ClientError("no daemon answers at " + Where() + " (" + ErrnoText(error) +
                        "): qmtdmon seems not to run");
    case EACCES:
    case EPERM:
      throw ClientError("permission denied: no right to use " + Where() +
                        ": it is for root, the daemon's user and the members of its group");
    case EAGAIN:
    case ETIMEDOUT:
      throw ClientError("the daemon at " + Where() +
                        " takes no connection: it seems busy or stuck");
    default:
      throw ClientError("cannot connect to " + Where() + ": " + ErrnoText(error));
  }
}

Connection::Waiting Connection::SendRequest(Json request) {
  if (request.Find("id") == nullptr) {
    request["id"] = ++m_lastId;
  }
  const std::string line = RequestLine(request);
  const TimePoint begin = std::chrono::steady_clock::now();
  const TimePoint end = begin + m_limits.whole;
  const TimePoint deadline = std::min(begin + m_limits.answer, end);
  Send(line, deadline);
  return {std::move(request["id"]), deadline, end, false};
}

Json Connection::Ask(Json request) {
  Waiting waiting = SendRequest(std::move(request));
  Json answer = ParseAnswer(ReceiveLine(waiting));
  CheckAnswer(answer, waiting.id);
  return answer;
}

Json Connection::AskRows(Json request, const RowTaker& taker) {
  Waiting waiting = SendRequest(std::move(request));
  LineStream line(*this, waiting);
  std::size_t next = 0;
  const JsonRowTaker checked{[&](const Json& answer, std::size_t place, const Json& result) {
                               CheckAnswer(answer, waiting.id);
                               if (place < next) {
                                 throw ClientError("broken answer: a result with its rows twice");
                               }
                               next = place + 1;
                               taker.begin(place, result);
                             },
                             [&](Json row) {
                               CheckRow(row);
                               line.EndRow(taker.row(std::move(row)));
                             }};
  Json answer = Parsed(ParseJsonRows(line, kAnswerLimits, checked));
  line.TakeNewline();
  CheckAnswer(answer, waiting.id);
  return answer;
}

void Connection::CheckAnswer(const Json& answer, const Json& id) const {
  if (!answer.IsObject()) {
    throw ClientError("broken answer: not an object");
  }
  const Json* ok = answer.Find("ok");
  if (ok == nullptr || !ok->IsBool()) {
    throw ClientError("broken answer: no \"ok\"; is " + Where() + " that of qmtdmon?");
  }
  const Json* echoed = answer.Find("id");
  if (echoed == nullptr || *echoed != id) {
    // A daemon that could not even read the request has no id to echo.
    if (ok->Bool() || (echoed != nullptr && !echoed->IsNull())) {
      throw ClientError("broken answer: it belongs to another request");
    }
  }
  if (!ok->Bool()) {
    ThrowRefusal(answer);
  }
}

void Connection::FailLate() const {
  throw ClientError("the daemon at " + Where() + " gave no answer in time");
}

void Connection::Await(short events, TimePoint deadline) const {
  std::array<pollfd, 2> wanted{{{m_socket.Get(), events, 0}, {m_stop, POLLIN, 0}}};
  while (true) {
    const int ready = ::poll(wanted.data(), wanted.size(), MillisecondsUntil(deadline));
    if (ready < 0 && errno != EINTR) {
      throw ClientError("cannot wait for the daemon: " + ErrnoText(errno));
    }
    if (ready > 0 && wanted[1].revents != 0) {
      throw Interrupted{};
    }
    if (ready > 0) {
      return;
    }
    if (ready == 0) {
      FailLate();
    }
  }
}

void Connection::Send(std::string_view line, TimePoint deadline) {
  while (!line.empty()) {
    Await(POLLOUT, deadline);
    const ssize_t sent =
        ::send(m_socket.Get(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      line.remove_prefix(static_cast<std::size_t>(sent));
    } else if (errno == EPIPE || errno == ECONNRESET) {
      // The daemon may have said why it hung up: that line is still to be read.
      return;
    } else if (errno != EAGAIN && errno != EINTR) {
      throw ClientError("cannot write to " + Where() + ": " + ErrnoText(errno));
    }
  }
}

std::string Connection::ReceiveLine(Waiting& waiting) {
  std::size_t searched = 0;
  while (true) {
    const std::size_t newline = m_received.find('\n', searched);
    if (newline != std::string::npos) {
      std::string line = m_received.substr(0, newline);
      m_received.erase(0, newline + 1);
      return line;
    }
    searched = m_received.size();
    if (searched > m_limits.answerBytes) {
      FailLong();
    }
    ReceiveMore(waiting);
  }
}

Connection::TimePoint Connection::SilenceEnd(const Waiting& waiting) const {
  return std::min(std::chrono::steady_clock::now() + m_limits.answer, waiting.end);
}

void Connection::ReceiveMore(Waiting& waiting) {
  std::array<char, 65536> chunk;
  while (true) {
    // Where bytes always wait, no waiting would end.
    if (std::chrono::steady_clock::now() >= waiting.end) {
      FailLate();
    }
    Await(POLLIN, waiting.deadline);
    const ssize_t count = ::recv(m_socket.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count > 0) {
      waiting.hasBegun = true;
      m_received.append(chunk.data(), static_cast<std::size_t>(count));
      waiting.deadline = SilenceEnd(waiting);
      return;
    }
    if (count == 0) {
      throw ClientError("the daemon at " + Where() + " closed the connection " +
                        (waiting.hasBegun ? "in the middle of an answer" : "without an answer"));
    }
    if (errno != EAGAIN && errno != EINTR) {
      throw ClientError("cannot read from " + Where() + ": " + ErrnoText(errno));
    }
  }
}

void Connection::FailLong() const {
  throw ClientError("broken answer: longer than " + std::to_string(m_limits.answerBytes) +
                    " bytes");
}
