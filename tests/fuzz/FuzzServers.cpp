// What servers answer to those who send: to the sender itself, a webhook, an Alertmanager and a
// server that kept rows are pushed to. They answer on the loopback, each connection one request.
// And what the daemon tells the gate, of alarms and for readers of events.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "gate/GateLoop.h"
#include "gate/alarm/AlarmDesk.h"
#include "gate/alarm/AlertmanagerSender.h"
#include "gate/alarm/WebhookSender.h"
#include "gate/console/EventDesk.h"
#include "gate/push/PushTarget.h"
#include "json/JsonText.h"
#include "support/Descriptor.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

using std::chrono::milliseconds;

bool IsFollow(std::string_view request) { return request.find("follow\"") != request.npos; }

/// Gives each connection in turn what a function makes of the head of its request, and ends it. Who
/// asks to follow is kept waiting for more.
class PlainServer {
 public:
  using Answer = std::function<std::string(const std::string& head)>;

  /// `end` is what the head ends with.
  PlainServer(Descriptor listener, std::string end, Answer answer)
      : m_listener(std::move(listener)), m_end(std::move(end)), m_answer(std::move(answer)) {
    Require(::listen(m_listener.Get(), 16) == 0);
    m_thread = std::thread([this] {
      for (int socket = 0; (socket = ::accept(m_listener.Get(), nullptr, nullptr)) >= 0;) {
        Serve(Descriptor(socket));
      }
    });
  }
  ~PlainServer() {
    ::shutdown(m_listener.Get(), SHUT_RDWR);
    m_thread.join();
  }
  PlainServer(const PlainServer&) = delete;
  PlainServer& operator=(const PlainServer&) = delete;

 private:
  void Serve(Descriptor socket) {
    char piece[4096];
    std::string bytes;
    ssize_t count = 1;
    while (count > 0 && bytes.find(m_end) == std::string::npos) {
      count = ::recv(socket.Get(), piece, sizeof piece, 0);
      bytes.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    if (count > 0) {
      const std::string text = m_answer(bytes);
      ::send(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL);
    }
    if (IsFollow(bytes)) {
      m_followers.push_back(std::move(socket));
      m_followers.erase(m_followers.begin(),
                        m_followers.end() - std::min<std::ptrdiff_t>(2, std::ssize(m_followers)));
      return;
    }
    ::shutdown(socket.Get(), SHUT_WR);
    // What is closed unread would take the answer back.
    while (::recv(socket.Get(), piece, sizeof piece, 0) > 0) {
    }
  }

  Descriptor m_listener;
  std::string m_end;
  Answer m_answer;
  std::vector<Descriptor> m_followers;
  std::thread m_thread;
};

template <class Address>
Descriptor Bound(Address address) {
  Descriptor socket(
      ::socket(reinterpret_cast<::sockaddr*>(&address)->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  Require(::bind(socket.Get(), reinterpret_cast<::sockaddr*>(&address), sizeof address) == 0);
  return socket;
}

Descriptor LoopbackListener() {
  ::sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return Bound(address);
}

Descriptor LocalListener(const std::string& path) {
  ::sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return Bound(address);
}

bool HasPause(std::string answer) {
  std::ranges::transform(answer, answer.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  });
  return answer.find("retry-after") != std::string::npos;
}

/// The server whose answers are the input's, then good ones, and a daemon that keeps two rows.
class Far {
 public:
  /// Up to 4 of them, each up to a zero byte. Requests to the URL of before have no answer.
  void SetAnswers(Input& input) {
    const std::lock_guard lock(m_mutex);
    ++m_number;
    m_answers.clear();
    m_said.clear();
    m_asked = 0;
    while (!input.IsEmpty() && m_answers.size() < 4) {
      m_answers.emplace_back(input.Until('\0'));
    }
  }
  [[nodiscard]] bool HasSaidAll() const {
    const std::lock_guard lock(m_mutex);
    return m_asked >= m_answers.size();
  }
  /// Whether its last words may name a time that the sender is to wait for.
  [[nodiscard]] bool HasAskedToWait() const {
    const std::lock_guard lock(m_mutex);
    return m_asked > 0 && m_asked <= m_answers.size() && HasPause(m_answers[m_asked - 1]);
  }
  /// What the daemon says in place of its rows: to those who follow, to those who follow alarms,
  /// and to all others in turn.
  void SetDaemon(Input& input) {
    const std::lock_guard lock(m_mutex);
    ++m_number;
    m_answers.clear();
    m_follow = input.Until('\0');
    m_alarms = input.Until('\0');
    m_said.clear();
    while (!input.IsEmpty() && m_said.size() < 6) {
      m_said.emplace_back(input.Until('\0'));
    }
    m_said.emplace_back();
    std::ranges::reverse(m_said);
    m_questions = 0;
  }
  [[nodiscard]] std::size_t Questions() const {
    const std::lock_guard lock(m_mutex);
    return m_questions;
  }
  /// Of these answers.
  [[nodiscard]] std::string Url() const {
    ::sockaddr_in address{};
    ::socklen_t size = sizeof address;
    ::getsockname(m_socket, reinterpret_cast<::sockaddr*>(&address), &size);
    const std::lock_guard lock(m_mutex);
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + Path();
  }
  [[nodiscard]] std::string Socket() const { return m_folder.Path("s"); }

 private:
  /// With the lock.
  [[nodiscard]] std::string Path() const { return '/' + std::to_string(m_number) + '/'; }
  /// On the thread of the server, which may come to a request when the next input is under way.
  std::string Next(std::string_view head) {
    const std::lock_guard lock(m_mutex);
    if (head.substr(0, head.find('\r')).find(' ' + Path()) == std::string_view::npos) {
      return "";
    }
    const std::size_t asked = m_asked++;
    return asked < m_answers.size() ? m_answers[asked] : "HTTP/1.1 204 Done\r\n\r\n";
  }
  /// On the thread of the daemon.
  std::string Say(std::string_view request) {
    const std::lock_guard lock(m_mutex);
    ++m_questions;
    if (m_said.empty()) {
      return Rows();
    }
    if (IsFollow(request)) {
      return request.find("alarm_follow") != request.npos ? m_alarms : m_follow;
    }
    const std::string said = m_said.back();
    m_said.resize(std::max<std::size_t>(m_said.size() - 1, 1));
    return said;
  }
  static std::string Rows() {
    const std::string text =
        "PI_a{x=\"1\"} 1 1000\nPI_b 2 1000\nPI_a{x=\"1\"} 3 2000\nPI_b 4 2000\n";
    return JsonText(Json{{"ok", true},
                         {"samples", Json{{"wait", 0},
                                          {"next", Json{{"PI", Json::Array({2, 2})}}},
                                          {"more", false},
                                          {"oldest", 1},
                                          {"rows", 2},
                                          {"count", 4},
                                          {"bytes", text.size()}}}}) +
           '\n' + text;
  }

  FuzzFolder m_folder;
  mutable std::mutex m_mutex;  ///< of the next seven
  std::uint64_t m_number = 0;
  std::vector<std::string> m_answers;
  std::size_t m_asked = 0;
  std::string m_follow;
  std::string m_alarms;
  std::vector<std::string> m_said;  ///< the next one last
  std::size_t m_questions = 0;
  Descriptor m_listener = LoopbackListener();
  int m_socket = m_listener.Get();
  PlainServer m_server{std::move(m_listener), "\r\n\r\n",
                       [this](const std::string& head) { return Next(head); }};
  PlainServer m_daemon{LocalListener(Socket()), "\n",
                       [this](const std::string& request) { return Say(request); }};
};

bool IsLine(const std::string& text) {
  return std::ranges::none_of(
      text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

/// For `onChange`: stops if the server has said all or nobody is left to ask it; soon, if whoever
/// asks may wait for as long as it was told.
void StopIfSaid(const Far& far, GateLoop& loop, bool isDone) {
  if (isDone || far.HasSaidAll()) {
    loop.Stop();
  } else if (far.HasAskedToWait()) {
    loop.After(milliseconds(20), [&loop] { loop.Stop(); });
  }
}

/// Runs until StopIfSaid() stops it.
void RunUntilSaid(GateLoop& loop) {
  // There are no other pauses: longer takes only what is kept from running.
  loop.After(milliseconds(2000), [&loop] { loop.Stop(); });
  loop.Run();
}

void TakeResult(const SendResult& result) {
  Require((result.status == 0) == !result.error.empty());
  Require(result.status == 0 || result.status >= 200);
  Require(result.body.size() <= HttpSender::kMostKept);
  Require(IsLine(WordsOf(result)) && WordsOf(result).size() < 600);
  Require(IsTaken(result) + IsRefused(result) + IsTurnedAway(result) <= 1);
  const Backoff::Pause pause = Backoff().Next(result.retryAfter);
  Require(pause.count() > 0 && pause <= Backoff::kLongestRetryAfter * 5 / 4);
}

void TakeSent(Far& far, GateLoop& loop) {
  HttpSender sender(loop);
  int results = 0;
  SendRequest request;
  request.url = far.Url();
  request.body = "x";
  const auto sending = sender.Send(std::move(request), [&](const SendResult& result) {
    ++results;
    TakeResult(result);
    loop.Stop();
  });
  loop.Run();
  Require(results == 1);
}

template <class Receiver, class Pace>
void TakeAlarms(Far& far, GateLoop& loop, Pace pace) {
  HttpSender sender(loop);
  constexpr std::uint64_t kAlarms = 3;
  const AlarmReceiver* told = nullptr;
  AlarmReceiverSettings settings;
  settings.report = [](const std::string& line) { Require(IsLine(line)); };
  settings.onChange = [&] {
    const ReceiverFigures& figures = told->Figures();
    StopIfSaid(far, loop, figures.sent + figures.dropped == kAlarms);
  };
  Receiver receiver(loop, sender, far.Url(), settings, pace);
  told = &receiver;
  for (std::uint64_t id = 1; id <= kAlarms; ++id) {
    receiver.Take(ReadAlarm(Json{{"id", id}, {"alarm", "full"}, {"since", std::uint64_t{1}}}),
                  true);
  }
  RunUntilSaid(loop);
  Require(receiver.Figures().sent + receiver.Figures().dropped <= kAlarms);
}

void TakePushed(Far& far, GateLoop& loop) {
  HttpSender sender(loop);
  DaemonDesk desk(loop, far.Socket());
  const PushHooks hooks{[](const std::string& line) { Require(IsLine(line)); },
                        [&] { StopIfSaid(far, loop, false); }};
  TargetSettings settings;
  settings.name = "far";
  settings.url = far.Url();
  settings.records = {"PI"};
  const PushPace pace{milliseconds(0), milliseconds(0), milliseconds(0), milliseconds(30000),
                      milliseconds(0)};
  PushTarget target(desk, sender, settings, "", hooks, pace);
  target.Start();
  RunUntilSaid(loop);
  const Json figures = target.Figures();
  Require(ParseJson(JsonText(figures)).value.IsObject() && IsLine(figures["error"].Text()));
  Require(figures["failures"].Unsigned() <= figures["requests"].Unsigned());
}

/// Runs until the daemon has been left alone for a while.
void RunUntilQuiet(const Far& far, GateLoop& loop) {
  constexpr int kQuiet = 4;
  std::function<void(std::size_t, int)> look = [&](std::size_t questions, int quiet) {
    if (quiet == kQuiet) {
      loop.Stop();
      return;
    }
    loop.After(milliseconds(1), [&, questions, quiet] {
      const std::size_t now = far.Questions();
      look(now, now == questions && now != 0 ? quiet + 1 : 0);
    });
  };
  look(0, 0);
  RunUntilSaid(loop);
}

/// A gate that has told of alarms before.
void TakeToldAlarms(Far& far, GateLoop& loop, std::string_view memory) {
  static const FuzzFolder folder;
  folder.Write("alarms.json", memory);
  HttpSender sender(loop);
  DaemonDesk desk(loop, far.Socket());
  AlarmTargets targets;
  targets.webhooks = {far.Url()};
  targets.folder = folder.Path();
  AlarmDesk alarms(desk, sender, targets,
                   {[](const std::string& line) { Require(IsLine(line)); }, [] {}});
  RunUntilQuiet(far, loop);
  Require(alarms.Figures().size() == 1);
}

/// A reader of events who comes back after some seconds.
void TakeEvents(Far& far, GateLoop& loop, std::string_view records) {
  DaemonDesk desk(loop, far.Socket());
  EventDesk events(desk);
  const auto exchange = std::make_shared<HttpExchange>();
  exchange->lastEventId = std::to_string(std::time(nullptr) - 100);
  exchange->arguments = {{"records", std::string(records)}};
  events.Serve(exchange, {"reader", [] { return true; }});
  RunUntilQuiet(far, loop);
  if (const auto& stream = exchange->Stream(); stream != nullptr) {
    std::string text(stream->Waiting(), '\0');
    Require(stream->Take(text.data(), text.size()) == text.size());
    Require(text.starts_with(": events\n") && text.ends_with("\n\n"));
  }
  exchange->Leave();
}

}  // namespace

/// The first byte, a digit in the seeds, chooses who sends.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Far far;
  Input input(data, size);
  const std::uint8_t kind = input.Byte() % 6;
  GateLoop loop;
  const bool isOfDaemon = kind == 4 || kind == 5;
  const std::string_view before = isOfDaemon ? input.Until('\0') : "";
  isOfDaemon ? far.SetDaemon(input) : far.SetAnswers(input);
  switch (kind) {
    case 0:
      TakeSent(far, loop);
      break;
    case 1:
      TakeAlarms<WebhookSender>(far, loop, milliseconds(0));
      break;
    case 2:
      TakeAlarms<AlertmanagerSender>(
          far, loop, AlertmanagerSender::Pace{.gather = milliseconds(0), .first = milliseconds(0)});
      break;
    case 3:
      TakePushed(far, loop);
      break;
    case 4:
      TakeToldAlarms(far, loop, before);
      break;
    default:
      TakeEvents(far, loop, before);
  }
  return 0;
}
