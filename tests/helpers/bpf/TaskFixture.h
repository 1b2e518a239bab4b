#pragma once

#include "support/TaskFigures.h"
#include "tests/support/Testing.h"

/// How a run of the helper has ended and what it has said, on both streams.
struct HelperEnd {
  int value = -1;
  std::string words;
};

/// Runs `qmt_bpf` with these words, as another user if one is given.
HelperEnd RunHelper(const std::vector<std::string>& words, unsigned user = 0);

/// The whole stream of a pinned iterator, by reads of at most `step` bytes. Empty, with a failed
/// expectation, if it can't be opened or does not end with a whole structure.
std::vector<TaskFigures> ReadTasks(const std::string& path, std::size_t step = 65536);

/// The tests below have a BPF file system of their own, which no other process sees; they are
/// skipped, with the reason, where this machine lends none or takes no BPF program.
class BpfTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;

  /// Where it is mounted.
  static const std::string& Mounted();

 private:
  static std::string m_mounted;
  static std::string m_reason;
};
