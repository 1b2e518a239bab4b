#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "io/FileWriter.h"
#include "json/Json.h"

/// How far a target has got: by record the place of the last row that it has taken, or up to which
/// the daemon had none, in the file push-NAME.json of the gate's state. For the loop's thread.
class PushCursor {
 public:
  /// `folder`: of the state; empty for none, so that nothing outlasts the gate. `loop` outlives it.
  PushCursor(IoLoop& loop, const std::string& folder, const std::string& name, std::string url);
  PushCursor(const PushCursor&) = delete;
  PushCursor& operator=(const PushCursor&) = delete;

  /// Reads the file. One for another URL, or none, begins at `since`, seconds since the epoch.
  /// False, with the reason in `error`, if there is a file that can't be used: it is kept with
  /// ".bad" behind its name, and all that history has is to be sent.
  [[nodiscard]] bool Load(std::int64_t since, std::string& error);
  /// By record [time, row]; what has no entry begins at Since().
  [[nodiscard]] const Json& After() const { return m_after; }
  [[nodiscard]] std::int64_t Since() const { return m_since; }
  /// Goes on to these places, in memory. False if it stood there.
  bool Advance(const Json& next);
  /// Replaces the file, see FileWriter. One at a time. `done` is called from the loop with the
  /// reason of a failure, empty for none, unless this object is freed before.
  using Saved = std::function<void(const std::string& error)>;
  void Save(Saved done);

 private:
  [[nodiscard]] bool Read(std::int64_t since, std::string& error);

  std::string m_url;
  std::int64_t m_since = 0;
  Json m_after = Json::Object();
  Saved m_saved;
  FileWriter m_file;
};
