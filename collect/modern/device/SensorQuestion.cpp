#include "collect/modern/device/SensorQuestion.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <map>
#include <string_view>

#include "collect/modern/device/SensorWords.h"
#include "support/ChildProcess.h"
#include "support/Descriptor.h"
#include "support/HostReads.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"
#include "support/Uninterrupted.h"

namespace {

using SensorClock = std::chrono::steady_clock;

constexpr std::chrono::hours kSensorPassedOver{1};
constexpr std::size_t kMostLateChildren = 16;
/// That all sensors together may take.
constexpr int kMostLimits = 3;

/// What did not answer.
struct LateSensor {
  SensorClock::time_point since;
  pid_t child = 0;  ///< 0 once it has ended
};

/// By place.
std::map<std::string, LateSensor, std::less<>>& LateSensors() {
  static std::map<std::string, LateSensor, std::less<>> late;
  return late;
}

/// Takes the ends of late children, and forgets what may be read again.
void ForgetLateSensors() {
  const auto now = SensorClock::now();
  for (auto& [place, late] : LateSensors()) {
    if (late.child != 0 && ::waitpid(late.child, nullptr, WNOHANG) != 0) {
      late.child = 0;
    }
    if (late.child != 0 && now - late.since >= kSensorPassedOver) {
      Trace(20, kWarning, "The sensor is left out: it has still not answered. (%1)", place);
      late.since = now;
    }
  }
  std::erase_if(LateSensors(),
                [now](const auto& entry) { return now - entry.second.since >= kSensorPassedOver; });
}

class DirectSensorSink : public SensorSink {
 public:
  explicit DirectSensorSink(std::vector<SensorFigures>& sensors) : m_sensors(sensors) {}

  [[nodiscard]] bool Begin(const std::string& /*place*/) override { return true; }
  void Take(const SensorFigures& sensor) override { m_sensors.push_back(sensor); }

 private:
  std::vector<SensorFigures>& m_sensors;
};

/// The child's, which sends all to its parent.
class SendingSensorSink : public SensorSink {
 public:
  explicit SendingSensorSink(int pipe) : m_pipe(pipe) {}

  [[nodiscard]] bool Begin(const std::string& place) override {
    if (LateSensors().contains(place)) {
      return false;
    }
    Send({SensorWord::kBegin, place});
    return true;
  }
  void Take(const SensorFigures& sensor) override { Send({SensorWord::kTake, PackSensor(sensor)}); }

 private:
  void Send(const SensorWord& word) const {
    const std::string text = PackSensorWord(word);
    for (std::string_view rest = text; !rest.empty();) {
      const ssize_t written = ::write(m_pipe, rest.data(), rest.size());
      if (written < 0 && errno != EINTR) {
        ::_exit(1);
      }
      rest.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
  }

  int m_pipe;
};

// Whatever fails, the child never goes on as the agent.
[[noreturn]] void ReadSensorsAsChild(const SensorReader& reader, int pipe) noexcept {
  // The agent's handlers only note a signal for its loop, which the child does not run.
  ResetSignals();
  // It may outlive the agent's sockets and locks by hours.
  CloseOthers(pipe);
  SendingSensorSink sink(pipe);
  reader(sink);
  ::_exit(g_lackOfDescriptors);
}

/// What has come from one child.
class SensorAnswer {
 public:
  explicit SensorAnswer(std::vector<SensorFigures>& sensors) : m_sensors(sensors) {}

  enum class End { kWhole, kSilent, kTooLong };

  /// Takes words until the child has closed the pipe, unless it is silent for longer than the
  /// limit, or has words for longer than three of them.
  End Listen(int pipe, std::chrono::milliseconds limit) {
    const auto last = SensorClock::now() + kMostLimits * limit;
    auto end = SensorClock::now() + limit;
    for (;;) {
      const auto left =
          std::max(std::chrono::ceil<std::chrono::milliseconds>(end - SensorClock::now()),
                   std::chrono::milliseconds(0));
      ::pollfd question{pipe, POLLIN, 0};
      if (::poll(&question, 1, static_cast<int>(left.count())) > 0) {
        if (!TakePiece(pipe)) {
          return End::kWhole;
        }
        end = std::min(SensorClock::now() + limit, last);
      }
      // What was there when the time was up has been taken.
      if (left.count() == 0) {
        return SensorClock::now() >= last ? End::kTooLong : End::kSilent;
      }
    }
  }
  /// What the child began with last.
  [[nodiscard]] const std::string& Place() const { return m_place; }

 private:
  /// Takes as much as a pipe holds; false at its end.
  bool TakePiece(int pipe) {
    std::array<char, 65536> piece;
    const ssize_t count = ::read(pipe, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) {
      return true;
    }
    m_text.append(piece.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
    TakeWords();
    return count > 0;
  }

  void TakeWords() {
    std::string_view rest = m_text;
    SensorFigures sensor;
    for (SensorWord word; TakeSensorWord(rest, word);) {
      if (word.kind == SensorWord::kBegin) {
        m_place = word.bytes;
      } else if (word.kind == SensorWord::kTake && UnpackSensor(word.bytes, sensor)) {
        m_sensors.push_back(sensor);
      }
    }
    m_text.erase(0, m_text.size() - rest.size());
  }

  std::vector<SensorFigures>& m_sensors;
  std::string m_text;
  std::string m_place;
};

}  // namespace

void ReadSensorsDirectly(const SensorReader& reader, std::vector<SensorFigures>& sensors) {
  DirectSensorSink sink(sensors);
  reader(sink);
}

void ReadSensorsWithin(std::chrono::milliseconds limit, const SensorReader& reader,
                       std::vector<SensorFigures>& sensors) {
  ForgetLateSensors();
  const auto isLasting = [](const auto& entry) { return entry.second.child != 0; };
  if (std::ranges::count_if(LateSensors(), isLasting) >=
      static_cast<std::ptrdiff_t>(kMostLateChildren)) {
    return;
  }
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    NoteLackOfDescriptors(errno);
    Trace(20, kWarning, "The sensors are left out: OS API(pipe2). (en=%1)", errno);
    return;
  }
  const Descriptor listening(ends[0]);
  Descriptor sending(ends[1]);
  const pid_t child = Os().fork();
  if (child == 0) {
    ReadSensorsAsChild(reader, sending.Get());
  }
  if (child < 0) {
    Trace(20, kWarning, "The sensors are left out: OS API(fork). (en=%1)", errno);
    return;
  }
  sending.Close();
  SensorAnswer answer(sensors);
  const SensorAnswer::End end = answer.Listen(listening.Get(), limit);
  if (end == SensorAnswer::End::kWhole) {
    int status = 0;
    Uninterrupted([&] { return ::waitpid(child, &status, 0); });
    NoteLackOfDescriptors(WIFEXITED(status) ? WEXITSTATUS(status) : 0);
    return;
  }
  ::kill(child, SIGKILL);
  const bool isSilent = end == SensorAnswer::End::kSilent;
  if (isSilent) {
    Trace(20, kWarning, "The sensor is left out for an hour: no answer within %2 ms. (%1)",
          answer.Place(), limit.count());
  } else {
    Trace(20, kWarning,
          "The sensors from this one on are left out this time: too long in all. (%1)",
          answer.Place());
  }
  // A child without a sensor to blame is remembered all the same, so that its end is taken.
  const bool isBlamed = isSilent && !answer.Place().empty();
  const std::string key = isBlamed ? answer.Place() : std::to_string(child);
  LateSensors()[key] = {SensorClock::now(), child};
}
