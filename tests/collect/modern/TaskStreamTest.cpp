#include "collect/modern/process/TaskStream.h"

#include <limits>

#include "collect/modern/process/TaskTimes.h"
#include "tests/collect/modern/TaskFile.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::uint64_t kHuge = std::uint64_t{1} << 62;

/// The groups of a stream that comes in pieces of so many bytes, or its fault.
std::string DumpStream(const std::string& bytes, std::size_t piece) {
  std::vector<TaskGroup> groups(3);
  TaskStream stream(groups);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const std::string_view part = std::string_view(bytes).substr(at, piece);
    if (!stream.Take(std::as_bytes(std::span(part)))) {
      EXPECT_TRUE(groups.empty());
      return stream.Fault();
    }
  }
  if (!stream.Finish()) {
    EXPECT_TRUE(groups.empty());
    return stream.Fault();
  }
  std::ostringstream out;
  for (const TaskGroup& group : groups) {
    out << group.task.tgid << TaskStateLetter(group.task.state) << group.live << ' '
        << group.task.utime << ',' << group.task.readCalls << ',' << group.task.voluntarySwitches
        << ',' << group.task.virtualPages << ';';
  }
  return out.str();
}

/// Figures of a thread, and those of its group's threads that have ended.
TaskFigures Counted(int pid, int group, std::uint64_t figure, std::uint64_t dead,
                    std::uint32_t state = 1) {
  TaskFigures task = MakeTask(pid, group);
  task.state = state;
  task.utime = figure;
  task.readCalls = figure + 1;
  task.voluntarySwitches = figure + 2;
  task.virtualPages = state == 32 ? 0 : figure + 3;
  task.deadUtime = dead;
  task.deadReadCalls = dead;
  task.deadVoluntarySwitches = dead;
  return task;
}

TaskFigures Changed(std::uint32_t TaskFigures::*field, std::uint32_t value) {
  TaskFigures task = MakeTask(8, 8);
  task.*field = value;
  return task;
}

TEST(TaskStreamTest, SumsTheThreadsOfEachProcess) {
  struct Case {
    const char* what;
    std::vector<TaskFigures> tasks;
    const char* groups;
  };
  const Case cases[] = {
      {"no task", {}, ""},
      {"one", {Counted(7, 7, 10, 5)}, "7S0 15,16,12,13;"},
      {"threads among others, what has ended once",
       {Counted(7, 7, 10, 5), Counted(8, 8, 1, 0), Counted(9, 7, 20, 6), Counted(10, 8, 2, 0)},
       "7S0 35,37,12,13;8S0 3,5,3,4;"},
      {"numbers that wrapped",
       {Counted(3, 9, 20, 5), Counted(4, 4, 1, 0), Counted(9, 9, 10, 5)},
       "4S0 1,2,3,4;9S0 35,37,12,13;"},
      {"threads that end before their leader is seen",
       {Counted(2, 9, 3, 5), Counted(3, 9, 20, 8), Counted(9, 9, 10, 28)},
       "9S0 38,41,12,13;"},
      {"processes out of order",
       {Counted(9, 9, 1, 0), Counted(10, 4, 7, 0), Counted(4, 4, 1, 7), Counted(11, 9, 3, 1)},
       "4S0 8,10,3,4;9S0 4,6,3,4;"},
      {"reaped meanwhile",
       {Counted(0, 0, 1, 0), Counted(7, 7, 10, 5), Counted(0, 7, 20, 5), Counted(8, 0, 20, 5)},
       "7S0 15,16,12,13;"},
      {"a leader that has ended",
       {Counted(7, 7, 10, 5, 32), Counted(8, 7, 1, 5, 32), Counted(9, 7, 20, 5, 0),
        Counted(10, 7, 30, 5, 2)},
       "7R9 66,70,12,23;"},
      {"all its threads have ended",
       {Counted(7, 7, 1, 0, 32), Counted(8, 7, 2, 0, 32)},
       "7Z0 3,5,3,0;"},
      {"a leader that is not there", {Counted(8, 7, 20, 5), Counted(9, 9, 1, 0)}, "9S0 1,2,3,4;"},
      {"64 bits",
       {Counted(7, 7, kHuge, kHuge), Counted(8, 7, kHuge, 1)},
       "7S0 13835058055282163712,13835058055282163714,4611686018427387906,4611686018427387907;"},
  };
  for (const Case& test : cases) {
    const std::string bytes = StreamOf(test.tasks);
    for (const std::size_t piece : {std::size_t{1}, std::size_t{100}, sizeof(TaskFigures),
                                    sizeof(TaskFigures) + 1, std::size_t{65536}}) {
      EXPECT_EQ(DumpStream(bytes, piece), test.groups) << test.what << ", pieces of " << piece;
    }
  }
}

TEST(TaskStreamTest, AFaultIsOneOfTheWhole) {
  const std::string size = std::to_string(sizeof(TaskFigures));
  struct Case {
    std::vector<TaskFigures> tasks;
    std::size_t cut;
    std::string fault;
  };
  const Case cases[] = {
      {{MakeTask(7, 7)}, 1, "it ends within a structure"},
      {{MakeTask(7, 7), MakeTask(8, 8)}, sizeof(TaskFigures) - 4, "it ends within a structure"},
      {{MakeTask(7, 7), Changed(&TaskFigures::size, 456)},
       0,
       "its structures have 456 bytes instead of " + size +
           ", so the helper is of another version"},
      {{MakeTask(7, 7), Changed(&TaskFigures::version, 2)},
       0,
       "its structures are of version 2 instead of 1, so the helper is of another version"},
      {{MakeTask(7, 7), MakeTask(8, 8), MakeTask(7, 7)}, 0, "it has a task twice"},
      {{MakeTask(7, 7), MakeTask(7, 7)}, 0, "it has a task twice"},
      {{MakeTask(7, 7), MakeTask(8, 7), MakeTask(9, 9), MakeTask(8, 7)}, 0, "it has a task twice"},
      {{MakeTask(7, 7), MakeTask(8, 8), MakeTask(8, 7)}, 0, "it has a task twice"},
      {{MakeTask(-8, 8)}, 0, "it has a task of the number -8 in the process 8"},
      {{MakeTask(7, -7)}, 0, "it has a task of the number 7 in the process -7"},
  };
  for (const Case& test : cases) {
    std::string bytes = StreamOf(test.tasks);
    bytes.resize(bytes.size() - test.cut);
    for (const std::size_t piece : {std::size_t{13}, std::size_t{65536}}) {
      EXPECT_EQ(DumpStream(bytes, piece), test.fault);
    }
  }
}

TEST(TaskStreamTest, AStateHasTheLetterOfItsStatLine) {
  constexpr std::uint32_t kNoLoad = 0x400;
  const std::pair<std::uint32_t, char> cases[] = {
      {0, 'R'},           {1, 'S'},     {2, 'D'},          {4, 'T'},      {8, 't'},
      {0x10, 'X'},        {0x20, 'Z'},  {0x40, 'P'},       {0x80, 'R'},   {2 | kNoLoad, 'I'},
      {0x80 | 0x20, 'Z'}, {0x101, 'S'}, {0x1000 | 1, 'D'}, {0x8000, 'D'}, {0x2001, 'S'},
  };
  for (const auto& [state, letter] : cases) {
    EXPECT_EQ(TaskStateLetter(state), letter) << state;
  }
}

TEST(TaskTimesTest, TimesAreScaledToTheRunTimeAndNeverFall) {
  struct Step {
    std::uint64_t user;
    std::uint64_t system;
    std::uint64_t runTime;
    std::uint64_t scaledUser;
    std::uint64_t scaledSystem;
  };
  const Step steps[] = {
      {0, 0, 0, 0, 0},
      {0, 0, 7, 7, 0},        // less than a tick: the kernel takes it for the user's
      {30, 10, 100, 75, 25},  //
      {30, 20, 100, 75, 25},  // no time has gone
      {30, 30, 90, 75, 25},   // nor back
      {30, 0, 110, 85, 25},   // the system's does not fall
      {0, 30, 120, 85, 35},   // nor does the user's
      {kHuge, kHuge, kHuge, kHuge / 2, kHuge / 2},
      {std::numeric_limits<std::uint64_t>::max() / 2, 1, kHuge + 10, kHuge / 2 + 10, kHuge / 2},
  };
  TaskTimes times;
  for (const Step& step : steps) {
    ScaleTaskTimes(step.user, step.system, step.runTime, times);
    EXPECT_EQ(times.user, step.scaledUser) << step.runTime;
    EXPECT_EQ(times.system, step.scaledSystem) << step.runTime;
  }
}

}  // namespace
