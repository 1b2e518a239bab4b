#pragma once

#include "tests/faults/Walk.h"
#include "tests/support/Testing.h"

namespace faults {

/// All where the long dose is wanted, else some that lie evenly.
inline void AddSome(std::vector<Fault>& some, const std::vector<Fault>& all, std::size_t few) {
  const bool isAll = std::getenv("QMT_FAULTS_ALL") != nullptr;
  const std::size_t step = isAll || all.size() <= few ? 1 : all.size() / few;
  for (std::size_t at = 0; at < all.size(); at += step) {
    some.push_back(all[at]);
  }
}

/// Which faults have been tried without a finding, in the file that the variable QMT_FAULTS_DONE
/// names, so that hours of them can go on where they were interrupted. Without the variable nothing
/// is noted.
class DoneNotes {
 public:
  /// Notes of one scene tell nothing of another.
  explicit DoneNotes(const std::string& scene = "") : m_scene(scene.empty() ? "" : scene + ' ') {
    const char* path = std::getenv("QMT_FAULTS_DONE");
    if (path == nullptr) {
      return;
    }
    std::ifstream before(path);
    for (std::string line; std::getline(before, line);) {
      m_done.insert(line);
    }
    m_file.open(path, std::ios::app);
  }
  [[nodiscard]] std::vector<Fault> Left(const std::vector<Fault>& faults) const {
    std::vector<Fault> left;
    for (const Fault& fault : faults) {
      if (!m_done.contains(LineOf(fault))) {
        left.push_back(fault);
      }
    }
    return left;
  }
  /// Notes the fault if `expect` finds nothing wrong with its walk, else tells `more` of it.
  void Expect(const Fault& fault, const std::string& more, const std::function<void()>& expect) {
    SCOPED_TRACE(LineOf(fault));
    const int before = CountFindings();
    expect();
    if (CountFindings() != before) {
      ADD_FAILURE() << more;
    } else if (m_file.is_open()) {
      m_file << LineOf(fault) << std::endl;
    }
  }
  /// Those of the test that runs.
  static int CountFindings() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  }

 private:
  static constexpr const char* kScenes[] = {"", " followed", " operations"};

  [[nodiscard]] std::string LineOf(const Fault& fault) const {
    return m_scene + fault.kind + ' ' + std::to_string(fault.place) +
           kScenes[static_cast<std::size_t>(fault.scene)] +
           (fault.turn == 1 ? "" : " turn " + std::to_string(fault.turn));
  }

  std::string m_scene;
  std::set<std::string> m_done;
  std::ofstream m_file;
};

}  // namespace faults
