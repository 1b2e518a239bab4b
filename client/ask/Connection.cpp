#include "client/ask/Connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"

namespace {

constexpr int kMaxDepth = 32;
constexpr int kMaxMembers = 4096;

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
  const auto error = answer.find("error");
  if (error == answer.end() || !error->is_object()) {
    throw ClientError("broken answer: \"error\" is not an object");
  }
  const auto text = [&](const char* name) {
    const auto member = error->find(name);
    return member != error->end() && member->is_string() ? member->get<std::string>()
                                                         : std::string();
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
  throw RefusedError(words + HintOf(text("code")));
}

std::string RequestLine(const Json& request) {
  std::string line;
  try {
    line = request.dump() + '\n';
  } catch (const Json::type_error&) {
    throw UsageError("the request holds a text that is not UTF-8");
  }
  if (line.size() > kRequestBytes) {
    throw UsageError("the request is longer than " + std::to_string(kRequestBytes) + " bytes");
  }
  return line;
}

/// Bounds depth and members before the parser sees the line. What is no JSON passes or not.
void CheckShape(std::string_view line) {
  std::array<int, kMaxDepth> members{};
  std::size_t depth = 0;
  bool inText = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (inText) {
      i += c == '\\' ? 1 : 0;
      inText = c != '"';
    } else if (c == '"') {
      inText = true;
    } else if (c == '{' || c == '[') {
      if (depth == members.size()) {
        throw ClientError("broken answer: nested too deeply");
      }
      members.at(depth++) = 0;
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    } else if (c == ':' && depth > 0 && ++members.at(depth - 1) > kMaxMembers) {
      throw ClientError("broken answer: an object of too many members");
    }
  }
}

}  // namespace

Json ParseAnswer(std::string_view line) {
  CheckShape(line);
  try {
    return Json::parse(line);
  } catch (const Json::exception& error) {
    // The text quotes what was read last, which may be most of the line.
    const std::string_view what = error.what();
    throw ClientError("broken answer: not JSON (" + SafeText(what.substr(0, 200)) + ")");
  }
}

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

Json Connection::Ask(Json request) {
  const std::uint64_t id = ++m_lastId;
  request["id"] = id;
  const std::string line = RequestLine(request);
  const TimePoint deadline = std::chrono::steady_clock::now() + m_limits.answer;
  Send(line, deadline);
  Json answer = ParseAnswer(ReceiveLine(deadline));
  if (!answer.is_object()) {
    throw ClientError("broken answer: not an object");
  }
  const auto ok = answer.find("ok");
  if (ok == answer.end() || !ok->is_boolean()) {
    throw ClientError("broken answer: no \"ok\"; is " + Where() + " that of qmtdmon?");
  }
  const auto echoed = answer.find("id");
  if (echoed == answer.end() || *echoed != id) {
    // A daemon that could not even read the request has no id to echo.
    if (ok->get<bool>() || (echoed != answer.end() && !echoed->is_null())) {
      throw ClientError("broken answer: it belongs to another request");
    }
  }
  if (!ok->get<bool>()) {
    ThrowRefusal(answer);
  }
  return answer;
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
      throw ClientError("the daemon at " + Where() + " gave no answer in time");
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

std::string Connection::ReceiveLine(TimePoint deadline) {
  std::array<char, 65536> chunk;
  std::size_t searched = 0;
  while (true) {
    const std::size_t end = m_received.find('\n', searched);
    if (end != std::string::npos) {
      std::string line = m_received.substr(0, end);
      m_received.erase(0, end + 1);
      return line;
    }
    searched = m_received.size();
    if (searched > m_limits.answerBytes) {
      throw ClientError("broken answer: longer than " + std::to_string(m_limits.answerBytes) +
                        " bytes");
    }
    Await(POLLIN, deadline);
    const ssize_t count = ::recv(m_socket.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (count > 0) {
      m_received.append(chunk.data(), static_cast<std::size_t>(count));
      deadline = std::chrono::steady_clock::now() + m_limits.answer;
    } else if (count == 0) {
      throw ClientError("the daemon at " + Where() + " closed the connection " +
                        (m_received.empty() ? "without an answer" : "in the middle of an answer"));
    } else if (errno != EAGAIN && errno != EINTR) {
      throw ClientError("cannot read from " + Where() + ": " + ErrnoText(errno));
    }
  }
}
