#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/scripted/ProcessTree.h"

/// A walk is the daemon's whole life on its own node.
enum class WalkScene {
  /// A start, three batches with all records, two scrapes of metrics, and a stop.
  kBatches,
  /// The same with two records that are scheduled each second, and an alarm; it stops once a
  /// follower has heard of kFollowed of their batches.
  kFollowed,
  /// A start, such batches that are followed, each operation of the control socket, and a stop.
  kOperations
};

/// The lines that a client asks in that scene, the last of which stops the daemon.
[[nodiscard]] const std::vector<std::string>& QuestionsOf(WalkScene scene);

/// What a walk came to.
struct WalkResult {
  static constexpr std::size_t kBatches = 3;
  static constexpr std::size_t kFollowed = 3;

  int status = 0;         ///< as waitpid(2) tells it
  int exitValue = -1;     ///< the daemon's; -1 where it did not come to its end
  std::size_t calls = 0;  ///< of the kind that was armed
  /// By kind, where each call was armed.
  std::map<std::string, std::size_t> callsOf;
  std::vector<std::size_t> places;  ///< of its allocations, where faults::kPlace was armed
  std::size_t placesBefore = 0;     ///< how many of them came before the first question
  std::size_t placesToStop = 0;     ///< and before the last one
  bool hasFailed = false;
  /// The question that was under way at the failure, counted from 1; 0 for the start.
  std::size_t failedAt = 0;
  std::string firstAnswer;           ///< that of the first client, whenever it comes
  std::vector<std::string> answers;  ///< to each question of the scene; empty for none
  int descriptorsBefore = 0;
  int descriptorsAfter = 0;
  std::size_t followed = 0;  ///< batches of the schedule that a follower has heard of
  bool hasLeak = false;      ///< as the sanitizer tells it; false without one
  std::string log;           ///< the message log
  std::string errors;        ///< what came to standard error
  std::string failedPlace;   ///< the callers, as addresses in this program

  [[nodiscard]] bool HasEnded() const;
};

/// The `place`-th call of that kind, or the `turn`-th of that place, as Faults.h has them.
struct Fault {
  std::string kind;
  std::size_t place;
  WalkScene scene = WalkScene::kBatches;
  std::size_t turn = 1;
};

/// A host whose figures stand still, and walks on it, each in a process and a folder of its own, so
/// that none sees what another has left in the program.
class Walks {
 public:
  Walks();
  /// Has that call fail.
  [[nodiscard]] WalkResult Run(const Fault& fault) const;
  /// The same of each, several at a time; `look` gets them in turn, and ends them by false.
  void RunEach(const std::vector<Fault>& faults,
               const std::function<bool(const Fault& fault, const WalkResult& walk)>& look) const;

 private:
  process_tree::HostTree m_host;
};
