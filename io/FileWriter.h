#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"

/// Replaces a file by a thread of its own, as ReplaceFile() does, since a disk may take seconds to
/// sync it. What is given while one content is being written waits, the latest of it alone. All of
/// a process write one after the other. For the loop's thread.
class FileWriter {
 public:
  /// Called from the loop when the latest content stands, with an empty text, or can't be written,
  /// with the reason.
  using Written = std::function<void(const std::string& error)>;

  /// How long the end of an object waits for what was given to be written. What is being written
  /// then is still brought to its end; what waited is lost.
  static constexpr std::chrono::milliseconds kLongestEnd{1000};

  /// `path`: empty for no file, and then all counts as written. `loop` outlives it.
  FileWriter(IoLoop& loop, std::string path, Written written);
  ~FileWriter();
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  [[nodiscard]] const std::string& Path() const { return m_path; }
  void Write(std::string content);
  /// Whether what was given is not written yet.
  [[nodiscard]] bool IsBusy() const { return m_isExpected; }
  /// Waits for what was given, and calls `written` itself; false if that takes longer than `most`.
  [[nodiscard]] bool Finish(std::chrono::milliseconds most);

 private:
  struct Work;

  void Begin(std::string content);
  void Expect();
  void OnWritten();
  [[nodiscard]] bool WaitForThread(std::chrono::milliseconds most);

  std::string m_path;
  Written m_written;
  std::shared_ptr<Work> m_work;  ///< the thread has a share in it; null before the first content
  LoopTimer m_soon;
  LoopDescriptor m_event;  ///< readable when the thread is done
  bool m_isExpected = false;
};
