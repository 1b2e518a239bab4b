// What the agent reads from the pipe of its host name helper: as an answer, when the loop tells of
// it, and while it waits for one. And what the helper reads.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "agent/UnixAgent.h"
#include "helpers/hostutil/Questions.h"
#include "helpers/hostutil/Resolver.h"
#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/scripted/ScriptedNode.h"
#include "utility/HostNameRequestManager.h"
#include "utility/SASocket.h"

/// In place of the system's resolver.
void Resolve(HostNameWire& request) {
  Require(request.IsTerminated());
  request.resultName = request.query;
}

namespace {

/// A question, then what comes back for it.
void TakeResponse(const std::uint8_t* data, std::size_t size) {
  HostNameRequestManager manager(nullptr, 2, "/none", "/none");
  for (int round = 0; round < 3; ++round) {
    HostNameRequest request;
    HostNameWire response;
    const std::size_t half = std::min(size / 2, sizeof response);
    std::memcpy(static_cast<HostNameWire*>(&request), data, half);
    static_cast<void>(manager.handle_request(request));
    std::memcpy(&response, data + half, std::min(size - half, sizeof response));
    static_cast<void>(manager.handle_request(reinterpret_cast<const char*>(&response)));
  }
}

/// One write of the other end: the words of the input where they belong, cut or filled up to a
/// length that is mostly the right one.
std::string PipedRecord(Input& input) {
  static constexpr std::size_t kLengths[] = {sizeof(HostNameWire),
                                             sizeof(HostNameWire),
                                             sizeof(HostNameWire),
                                             2 * sizeof(HostNameWire),
                                             1,
                                             sizeof(HostNameWire) - 1,
                                             sizeof(HostNameWire) + 1,
                                             0};
  const std::size_t length = kLengths[input.Byte() % std::size(kLengths)];
  HostNameWire wire;
  wire.kind = input.Byte();
  wire.stampSeconds = 1;
  wire.stampMicroseconds = input.Byte() % 4;
  for (HostNameWire::Field* field : {&wire.query, &wire.resultName, &wire.resultAddress}) {
    const std::string_view word = input.Until('\n');
    // One that fills its field has no end.
    field->fill(word.starts_with('~') ? '~' : '\0');
    word.copy(field->data(), field->size());
  }
  std::string bytes(reinterpret_cast<const char*>(&wire), sizeof wire);
  bytes += bytes;
  return bytes.substr(0, length);
}

void Put(int pipe, const std::string& bytes) {
  static_cast<void>(!::write(pipe, bytes.data(), bytes.size()));
}

/// The product's folder.
struct Product {
  Product() {
    SetProductRoot(folder.Path());
    std::filesystem::create_directories(folder.Path("opt/qmtrx/mond"));
    // It ends soon after who has started it, however that ends.
    folder.Write("helper", "exec > /dev/null 2>&1\nwhile kill -0 " + std::to_string(::getpid()) +
                               "; do sleep 1; done\n");
  }
  /// The helper's end of a pipe.
  [[nodiscard]] Descriptor Answers(const std::string& prefix) const {
    return Descriptor(
        ::open(folder.Path(prefix + ".pipeOut").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  }

  FuzzFolder folder;
};

/// After each write the loop tells the agent of the pipe; at times once more, with nothing in it.
void TakeEvents(Input& input, const Product& product) {
  const std::string prefix = "opt/qmtrx/mond/qmt_hostutil_";
  UnixAgent agent(('/' + prefix).c_str(), "test");
  Require(agent.InitConnection() == 1);
  while (!input.IsEmpty()) {
    Descriptor answers = product.Answers(prefix);
    Put(answers.Get(), PipedRecord(input));
    const std::uint8_t how = input.Byte();
    if (how % 4 == 0) {
      answers.Close();
    }
    for (int times = 1 + how % 2; times > 0; --times) {
      CMBSocketEvent event(agent.GetSocket()->GetListenFd());
      const int result = agent.NotifyEvent(&event);
      Require(result == 0 || result == -1);
    }
  }
}

/// A manager whose helper leaves the questions alone, and the answers to the input.
struct AskedHelper {
  AskedHelper() {
    Require(socket.Connect(1) == 0);
    static_cast<void>(manager.connection_init(&socket));
  }
  CMBRunnableNode node;
  SASocket socket{&node, "/asked.pipe"};
  HostNameRequestManager manager{nullptr, 2, "/bin/sh", "/helper"};
};

/// Each question finds in the pipe what the input holds.
void TakeAnswers(Input& input, const Product& product) {
  static AskedHelper& asked = *new AskedHelper;
  HostNameRequestManager& manager = asked.manager;
  Require(manager.IsHelperRunning());
  while (!input.IsEmpty()) {
    // Closed before the question: one that nobody can answer is not waited for.
    Put(product.Answers("asked").Get(), PipedRecord(input));
    HostNameRequest request;
    request.kind = input.Byte() % 3;
    HostNameWire::SetText(request.query, input.Until('\n'));
    const int result = manager.handle_request(request);
    Require(result >= -1 && result <= 1);
    Require(request.resultName.back() == '\0' && request.resultAddress.back() == '\0');
    HostNameWire rest;
    for (const int pipe : {asked.socket.GetListenFd(), asked.socket.GetTalkFd()}) {
      while (::read(pipe, &rest, sizeof rest) > 0) {
      }
    }
  }
  // The next input finds no question that waits.
  for (HostNameWire answer; answer.stampMicroseconds < 8; ++answer.stampMicroseconds) {
    answer.stampSeconds = 1;
    static_cast<void>(manager.handle_request(reinterpret_cast<const char*>(&answer)));
  }
}

/// Each write is one read, whatever its length. Only whole records are answered.
void TakeQuestions(Input& input) {
  static const std::unique_ptr<std::FILE, int (*)(std::FILE*)> told(std::fopen("/dev/null", "w"),
                                                                    std::fclose);
  int pairs[4];
  Require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pairs) == 0 &&
          ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pairs + 2) == 0);
  Descriptor asks(pairs[0]);
  const Descriptor questions(pairs[1]);
  Descriptor answers(pairs[2]);
  const Descriptor answered(pairs[3]);
  constexpr int kMostQuestions = 16;
  for (int count = 0; count < kMostQuestions && !input.IsEmpty(); ++count) {
    Put(asks.Get(), PipedRecord(input));
  }
  asks.Close();
  Require(ServeQuestions(questions.Get(), answers.Get(), true, told.get()) == 0);
  answers.Close();
  HostNameWire wire;
  for (ssize_t size = 0; (size = ::read(answered.Get(), &wire, sizeof wire)) != 0;) {
    Require(size == sizeof wire && wire.resultName == wire.query);
  }
}

}  // namespace

/// The first byte, a digit in the seeds, chooses who takes what the pipe holds.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Product product;
  ScriptedNode::Reset();
  Os().sleep = [](unsigned) { return 0U; };
  Os().gettimeofday = [](::timeval* now) {
    *now = {1, 1};
    return 0;
  };
  Input input(data, size);
  switch (input.Byte() % 4) {
    case 0:
      TakeResponse(data, size);
      break;
    case 1:
      TakeEvents(input, product);
      break;
    case 2:
      TakeAnswers(input, product);
      break;
    default:
      TakeQuestions(input);
  }
  return 0;
}
