#pragma once

struct KeptPart;
struct ProcessDetail;
struct TaskGroup;

/// Fills what the task iterator and the kept part tell of a process, as the parsers of its files
/// do; the start time is one only with a boot time, in seconds since 1970.
void TakeTaskDetail(const TaskGroup& group, const KeptPart& part, double bootTime,
                    ProcessDetail& detail);
