#pragma once

#include <sys/types.h>

#include <ostream>
#include <string>

/// A kind of process that the tests look at.
struct TaskKind {
  const char* name;
  /// Run in the child, which waits for its end behind it; null for nothing.
  void (*prepare)();
  /// What /proc shows once it stands still; 0 for one that never does.
  char settled = 'S';
};

inline void PrintTo(const TaskKind& kind, std::ostream* out) { *out << kind.name; }

/// Those of the table that every kernel lends to root.
extern const TaskKind kTaskKinds[18];

/// A process of a kind, which has settled; ended and reaped with the object.
class KindProcess {
 public:
  explicit KindProcess(const TaskKind& kind);
  ~KindProcess();
  KindProcess(const KindProcess&) = delete;
  KindProcess& operator=(const KindProcess&) = delete;

  [[nodiscard]] pid_t Pid() const { return m_pid; }

 private:
  pid_t m_pid = -1;
};
