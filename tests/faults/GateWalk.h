#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/faults/GateSurroundings.h"
#include "tests/faults/Walk.h"

/// What a walk of the gate came to: it starts, a scene is played around it, and it is stopped.
struct GateWalkResult {
  int status = 0;        ///< as waitpid(2) tells it
  bool hasHung = false;  ///< it did not stop by its signal
  int exitValue = -1;    ///< of the gate; -1 where it did not come to its end
  bool hasFailed = false;
  std::map<std::string, std::size_t> calls;  ///< by kind; of allocations where they were counted
  int descriptorsBefore = 0;
  int descriptorsAfter = 0;
  bool hasLeak = false;     ///< as the sanitizer tells it; false without one
  std::string errors;       ///< what came to standard error
  std::string failedPlace;  ///< the callers, as addresses in this program

  bool hasAddress = false;
  std::vector<std::string> pages;  ///< each that was read in turn, and "right" for a right answer
  std::vector<std::string> sent;   ///< what has come to the servers, each once
  std::string told;                ///< what the daemon was told last
};

/// Walks of the gate alone, in that scene: each in processes and a
/// folder of its own, several at a time. A fault's kind is kAllocation or a name of SystemCalls.h.
void RunGateWalks(GateScene scene, const std::vector<Fault>& faults,
                  const std::function<void(const Fault& fault, const GateWalkResult& walk)>& look);
