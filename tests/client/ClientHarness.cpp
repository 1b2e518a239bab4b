#include "tests/client/ClientHarness.h"

#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <stdexcept>

#include "tests/json/JsonOf.h"

ScriptedServer::ScriptedServer(const std::string& folder, const std::string& name, Script script)
    : m_path(folder + "/" + name),
      m_script(std::move(script)),
      m_listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      m_stop(::eventfd(0, EFD_CLOEXEC)) {
  const Descriptor place(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const std::string path = "/proc/self/fd/" + std::to_string(place.Get()) + "/" + name;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  if (::bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(m_listener.Get(), 8) != 0) {
    throw std::runtime_error("cannot listen at " + m_path);
  }
  m_thread = std::thread([this] { Serve(); });
}

ScriptedServer::~ScriptedServer() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(m_stop.Get(), &one, sizeof(one)));
  m_thread.join();
}

std::vector<Json> ScriptedServer::Requests() const {
  const std::scoped_lock lock(m_mutex);
  return m_requests;
}

bool ScriptedServer::Stopped(int descriptor) const {
  std::array<pollfd, 2> wanted{{{descriptor, POLLIN, 0}, {m_stop.Get(), POLLIN, 0}}};
  ::poll(wanted.data(), wanted.size(), -1);
  return wanted[1].revents != 0;
}

void ScriptedServer::Serve() {
  while (!Stopped(m_listener.Get())) {
    const Descriptor client(::accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    ++m_connections;
    Talk(client.Get());
  }
}

void ScriptedServer::Talk(int client) {
  std::string received;
  std::array<char, 4096> chunk;
  while (!Stopped(client)) {
    const ssize_t count = ::recv(client, chunk.data(), chunk.size(), 0);
    if (count <= 0) {
      return;
    }
    received.append(chunk.data(), static_cast<std::size_t>(count));
    const std::size_t end = received.find('\n');
    if (end == std::string::npos) {
      continue;
    }
    Json request = JsonOf(received.substr(0, end));
    received.erase(0, end + 1);
    const std::string reply = m_script(request);
    request.Erase("id");
    {
      const std::scoped_lock lock(m_mutex);
      m_requests.push_back(std::move(request));
    }
    if (reply == kHangUp) {
      return;
    }
    const bool isSlow = reply.starts_with(kSlowly);
    for (std::size_t sent = isSlow ? kSlowly.size() : 0; sent < reply.size();) {
      const std::size_t wanted = isSlow ? 1 : reply.size() - sent;
      const ssize_t part = ::send(client, &reply[sent], wanted, MSG_NOSIGNAL);
      if (part <= 0) {
        return;
      }
      sent += static_cast<std::size_t>(part);
      if (isSlow) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
  }
}

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

std::string Answer(const Json& request, Json members) {
  Json answer{{"id", request["id"]}, {"ok", true}};
  for (JsonMember& member : members.Members()) {
    if (answer.Find(member.name) == nullptr) {
      answer[member.name] = std::move(member.value);
    }
  }
  return JsonText(answer) + "\n";
}

namespace {

struct Pair {
  Descriptor ours;
  Descriptor theirs;
};

Pair MakePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2 failed");
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Pair MakeTerminal() {
  int ours = -1;
  int theirs = -1;
  const winsize size{10, 40, 0, 0};
  if (::openpty(&ours, &theirs, nullptr, nullptr, &size) != 0) {
    throw std::runtime_error("openpty failed");
  }
  ::fcntl(ours, F_SETFD, FD_CLOEXEC);
  return {Descriptor(ours), Descriptor(theirs)};
}

/// Null-terminated, as exec wants it.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                 [](std::string& text) { return text.data(); });
  pointers.push_back(nullptr);
  return pointers;
}

int Spawn(const std::string& program, std::vector<std::string> words,
          std::vector<std::string> environment, int out, int err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  words.insert(words.begin(), program);
  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, Pointers(words).data(),
                                  Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error("cannot start " + program);
  }
  return pid;
}

}  // namespace

Outcome RunProgram(const std::string& program, const std::vector<std::string>& words,
                   const RunOptions& options) {
  Pair out = options.terminal ? MakeTerminal() : MakePipe();
  Pair err = MakePipe();
  std::vector<std::string> environment{"TZ=UTC", "TERM=xterm"};
  environment.insert(environment.end(), options.environment.begin(), options.environment.end());
  if (options.closedReader) {
    out.ours = Descriptor();
  }
  const int pid = Spawn(program, words, std::move(environment), out.theirs.Get(), err.theirs.Get());
  out.theirs = Descriptor();
  err.theirs = Descriptor();

  Outcome outcome;
  std::array<pollfd, 2> wanted{{{out.ours.Get(), POLLIN, 0}, {err.ours.Get(), POLLIN, 0}}};
  const std::array<std::string*, 2> texts{&outcome.out, &outcome.err};
  std::array<char, 65536> chunk;
  while ((wanted[0].fd >= 0 || wanted[1].fd >= 0) && ::poll(wanted.data(), 2, -1) >= 0) {
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (wanted[i].fd < 0 || wanted[i].revents == 0) {
        continue;
      }
      const ssize_t count = ::read(wanted[i].fd, chunk.data(), chunk.size());
      if (count <= 0) {
        wanted[i].fd = -1;
        continue;
      }
      texts[i]->append(chunk.data(), static_cast<std::size_t>(count));
      if (i == 0 && options.onOutput) {
        options.onOutput(pid, outcome.out);
      }
    }
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  outcome.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}
