#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "io/LoopDescriptor.h"

/// A file that is replaced as a whole and synced by a thread of its own, as a disk may take its
/// time. One write at a time. For the loop's thread.
class BackgroundFile {
 public:
  /// What the end of the object, and Finish, wait for a write under way. One that takes longer goes
  /// on by itself.
  static constexpr std::chrono::seconds kStopWait{3};

  /// How a write went: whether the new content stands there, and what went wrong, see ReplaceFile.
  using Written = std::function<void(bool isWritten, const std::string& error)>;

  /// `loop` outlives it.
  BackgroundFile(IoLoop& loop, std::string path);
  ~BackgroundFile();
  BackgroundFile(const BackgroundFile&) = delete;
  BackgroundFile& operator=(const BackgroundFile&) = delete;

  [[nodiscard]] const std::string& Path() const { return m_path; }
  /// Whether a write is under way: another one may not begin.
  [[nodiscard]] bool IsBusy() const { return m_write != nullptr; }
  /// Begins a write; `done` is called from the loop, or by Finish. False, with the reason in
  /// `error`, if there can't be a thread; `done` is not called then.
  [[nodiscard]] bool Replace(std::string content, Written done, std::string& error);
  /// Waits for a write under way; false if it takes too long.
  [[nodiscard]] bool Finish();

 private:
  struct Write;

  void Expect();
  void OnEnd();

  std::string m_path;
  std::shared_ptr<Write> m_write;  ///< the one under way
  Written m_done;
  LoopDescriptor m_ended;  ///< readable when it is over
};
