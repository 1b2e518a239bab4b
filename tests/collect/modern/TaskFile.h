#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "support/TaskFigures.h"

/// A thread as the helper tells it: sleeping, with nothing counted.
[[nodiscard]] inline TaskFigures MakeTask(int pid, int group) {
  TaskFigures task{};
  task.size = sizeof task;
  task.version = QMT_TASK_FIGURES_VERSION;
  task.present = kTaskHasRunDelay | kTaskHasCharacters | kTaskHasBytes | kTaskHasMemory;
  task.pid = pid;
  task.tgid = group;
  task.state = 1;
  task.startTime = 1'000'000'000;
  std::strcpy(task.name, "task");
  return task;
}

/// The bytes of a stream.
[[nodiscard]] inline std::string StreamOf(const std::vector<TaskFigures>& tasks) {
  std::string bytes(tasks.size() * sizeof(TaskFigures), '\0');
  if (!tasks.empty()) {
    std::memcpy(bytes.data(), tasks.data(), bytes.size());
  }
  return bytes;
}
