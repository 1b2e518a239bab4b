// qmt_process_ratios classic|modern|iterator ROUNDS RECORD...
//
// Measures what a look at the live processes costs under a host profile, `iterator` being `modern`
// by the kernel's task iterator, by turns with the system calls that a walk over /proc cannot do
// without, and prints one line a contender: its name, the median of its CPU
// time in microseconds a process, the median of its ratio to the floor. The contenders are the
// floor, the same calls with the paths of the agent, the collection alone, PD with PDS, and all the
// RECORDs together.

#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/UnixAgent.h"
#include "bench/ProcessFloor.h"
#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/process/TaskIterator.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"
#include "support/UtlError.h"
#include "tests/scripted/Batch.h"

namespace {

/// A turn looks at this many processes at least, or the clock would be too coarse.
constexpr std::size_t kProcessesATurn = 5'000;

/// The category letter of a record of processes; work groups alone are an interval's.
unsigned char CategoryOf(const std::string& record) { return record == "WGRP" ? '4' : '3'; }

double CpuMicroseconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return 1e6 * static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// One side of the comparison.
struct Contender {
  std::string name;
  std::function<void()> look;
  std::vector<double> times;   ///< microseconds a process, one a round
  std::vector<double> ratios;  ///< to the floor of the same round
};

/// A schedule of records that the agent answers; each answer is the previous one of the next.
class Schedule {
 public:
  Schedule(UnixAgent& agent, const std::vector<std::string>& records) : m_agent(agent) {
    for (const std::string& record : records) {
      m_batch.Add(record, CategoryOf(record), {.realtime = 0, .calcRates = 1});
    }
  }
  void Look() {
    if (m_agent.NotifyEvent(&m_batch.event) != 0) {
      throw std::runtime_error("the agent did not answer");
    }
    for (const auto& entry : m_batch.entries) {
      entry->NextAnswer();
    }
  }
  /// Rows of the last answer, all records together.
  [[nodiscard]] std::size_t Rows() const {
    std::size_t rows = 0;
    for (const auto& entry : m_batch.entries) {
      rows += entry->previous.size();
    }
    return rows;
  }

 private:
  UnixAgent& m_agent;
  Batch m_batch;
};

/// The product root that the agent needs; gone with the object.
class ProductFolder {
 public:
  ProductFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "qmt-bench-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make " + name);
    }
    m_path = name;
    std::filesystem::create_directories(m_path / "opt/qmtrx/mond");
    SetProductRoot(m_path.string());
  }
  ~ProductFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  ProductFolder(const ProductFolder&) = delete;
  ProductFolder& operator=(const ProductFolder&) = delete;

 private:
  std::filesystem::path m_path;
};

void RunRound(std::vector<Contender>& contenders, std::size_t processes) {
  const std::size_t looks = std::max<std::size_t>(1, kProcessesATurn / processes);
  for (Contender& contender : contenders) {
    const double begin = CpuMicroseconds();
    for (std::size_t look = 0; look < looks; ++look) {
      contender.look();
    }
    contender.times.push_back((CpuMicroseconds() - begin) / static_cast<double>(looks * processes));
    contender.ratios.push_back(contender.times.back() / contenders.front().times.back());
  }
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

/// How the processes are looked at.
struct Way {
  HostProfile profile;
  bool isByIterator;
};

std::optional<Way> WayOf(const std::string& word) {
  if (word == "iterator") {
    return Way{HostProfile::kModern, true};
  }
  const std::optional<HostProfile> profile = HostProfileOf(word);
  return profile ? std::optional(Way{*profile, false}) : std::nullopt;
}

void Measure(Way way, int rounds, const std::vector<std::string>& records) {
  const ProductFolder product;
  // The agent takes its profile from here.
  ::setenv("QMT_HOST_PROFILE", HostProfileName(way.profile), 1);
  g_msgLogLevel = 10;
  UnixAgent agent("/opt/qmtrx/mond/qmt_hostutil_", "bench");
  std::string text = "bench";
  if (agent.Init(text.data(), text.data(), text.data()) != 0) {
    throw std::runtime_error("the agent does not start");
  }
  ProductOptions::Instance().Set("Host", "Process Source", way.isByIterator ? "iterator" : "proc");
  Collector collector;
  Schedule pair(agent, {"PD", "PDS"});
  Schedule all(agent, records);
  const auto collect = [&collector] {
    const UtlErrorPtr error(collector.collect(COLLECT_PROCESS, 0));
    if (error != nullptr) {
      throw std::runtime_error(error->GetMessage());
    }
  };
  std::vector<Contender> contenders{
      {"floor", [] { static_cast<void>(WalkFloor(FloorPaths::kAbsolute, g_hostProfile)); }, {}, {}},
      {"relative paths",
       [] { static_cast<void>(WalkFloor(FloorPaths::kRelative, g_hostProfile)); },
       {},
       {}},
      {"collection", collect, {}, {}},
      {"PD PDS", [&pair] { pair.Look(); }, {}, {}},
      {Joined(records), [&all] { all.Look(); }, {}, {}}};

  // The first look of each only warms up; it also shows that all see the same host.
  for (Contender& contender : contenders) {
    contender.look();
  }
  if (way.isByIterator && TaskIterator::Instance().Groups() == nullptr) {
    throw std::runtime_error("the task iterator is not in use");
  }
  const std::size_t processes = WalkFloor(FloorPaths::kAbsolute, g_hostProfile);
  if (collector.GetProcess()->size() * 2 < processes || pair.Rows() * 2 < processes) {
    throw std::runtime_error("the agent sees less than half of the processes");
  }
  for (int round = 0; round < rounds; ++round) {
    RunRound(contenders, processes);
  }
  for (const Contender& contender : contenders) {
    std::printf("%s\t%.3f\t%.3f\n", contender.name.c_str(), Median(contender.times),
                Median(contender.ratios));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::optional<Way> way = words.empty() ? std::nullopt : WayOf(words.front());
  int rounds = 0;
  if (words.size() < 3 || !way ||
      std::from_chars(words[1].data(), words[1].data() + words[1].size(), rounds).ec !=
          std::errc{} ||
      rounds < 1) {
    std::fputs("usage: qmt_process_ratios classic|modern|iterator ROUNDS RECORD...\n", stderr);
    return 2;
  }
  try {
    Measure(*way, rounds, {words.begin() + 2, words.end()});
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "qmt_process_ratios: %s\n", problem.what());
    return 1;
  }
  return 0;
}
