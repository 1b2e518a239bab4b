#include <arpa/inet.h>
#include <sys/socket.h>

#include <atomic>
#include <nlohmann/json.hpp>

#include "support/Descriptor.h"
#include "tests/system/Daemon.h"

namespace {

using nlohmann::json;

/// Sends 200 datagrams a second to a socket of its own, as long as it lives. What a busy machine
/// delays is made up for.
class Datagrams {
 public:
  Datagrams() : m_thread([this] { Send(); }) {}
  ~Datagrams() {
    m_stop = true;
    m_thread.join();
  }
  Datagrams(const Datagrams&) = delete;
  Datagrams& operator=(const Datagrams&) = delete;

 private:
  void Send() const {
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* name = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(socket.Get(), name, length), 0);
    EXPECT_EQ(::getsockname(socket.Get(), name, &length), 0);
    char byte = 0;
    for (auto next = std::chrono::steady_clock::now(); !m_stop;
         next += std::chrono::milliseconds(5)) {
      std::this_thread::sleep_until(next);
      EXPECT_EQ(::sendto(socket.Get(), &byte, 1, 0, name, length), 1);
      EXPECT_EQ(::recv(socket.Get(), &byte, 1, 0), 1);
    }
  }

  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

/// What the kernel says that all programs of this host have sent until now.
double SentUntilNow() {
  std::ifstream file("/proc/net/snmp");
  std::string word;
  double value = 0;
  for (int heads = 0; heads < 2 && file >> word;) {
    heads += word == "Udp:" ? 1 : 0;
  }
  for (int column = 0; column < 4; ++column) {
    file >> value;
  }
  return value;
}

/// The only row of an answer of `PI` alone.
json RowOf(const std::string& answer) {
  json row = json::parse(answer).at(0).at("rows").at(0);
  // The row tells its interval in whole microseconds, from which a high rate can differ by more
  // than its own last digits.
  const auto interval = row.at("Interval").get<double>();
  const auto shown = row.at("Context Switches/sec").get<double>();
  EXPECT_NEAR(shown, row.at("Context Switches").get<double>() / interval,
              0.01 + shown * 1e-6 / interval);
  return row;
}

double PerSecond(const json& row) {
  return row.at("UDP Pkts Out").get<double>() / row.at("Interval").get<double>();
}

TEST(LooksTest, PacketsAreThoseOfTheTimeBetweenTwoLooks) {
  const ProductRoot root("[Schedule]\n");
  Daemon daemon(root, "errors");
  ASSERT_TRUE(daemon.Says("QMTX10003-I")) << daemon.Errors();
  auto datagrams = std::make_unique<Datagrams>();
  // Others on this host send too: the kernel's own count bounds what there can be.
  const double before = SentUntilNow();
  const json busy = RowOf(AskDaemon(root, "get PI --json").output);
  EXPECT_GT(PerSecond(busy), 100);
  EXPECT_LE(busy.at("UDP Pkts Out").get<double>(), SentUntilNow() - before);

  const std::string command = "QMT_PRODUCT_ROOT='" + root.Path().string() + "' " + QMTCTL_PROGRAM +
                              " watch PI --every 0.5 --count 5 --json";
  const auto close = [](std::FILE* pipe) { ::pclose(pipe); };
  const std::unique_ptr<std::FILE, decltype(close)> pipe(::popen(command.c_str(), "r"), close);
  std::array<char, 65536> line{};
  double atStop = 0;
  json row;
  for (int sample = 1; sample <= 5; ++sample) {
    ASSERT_NE(std::fgets(line.data(), line.size(), pipe.get()), nullptr);
    if (sample == 1) {
      EXPECT_TRUE(json::parse(line.data()).at(0).at("rows").at(0).at("UDP Pkts Out").is_null());
      continue;
    }
    row = RowOf(line.data());
    if (sample == 3) {
      EXPECT_GT(PerSecond(row), 100);
      datagrams.reset();
      atStop = SentUntilNow();
    }
  }
  EXPECT_LE(row.at("UDP Pkts Out").get<double>(), SentUntilNow() - atStop) << "they have stopped";
}

}  // namespace
