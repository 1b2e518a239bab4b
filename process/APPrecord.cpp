#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "collect/process/ProcessSourceLINUX.h"
#include "process/ApplicationMonitor.h"
#include "process/ProcessRow.h"
#include "process/ProcessTrace.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

using ApplicationRow = recordPD_APP;

/// The fields of one condition.
struct Slot {
  Ushort ApplicationRow::*count;
  Text<12> ApplicationRow::*range;
  Text<10> ApplicationRow::*status;
  Text<4> ApplicationRow::*kind;
  Text<32> ApplicationRow::*label;
};

#define SLOT(n)                                                                 \
  Slot {                                                                        \
    &ApplicationRow::monitor##n##Count, &ApplicationRow::monitor##n##Range,     \
        &ApplicationRow::monitor##n##Status, &ApplicationRow::monitor##n##Kind, \
        &ApplicationRow::monitor##n##Label                                      \
  }
constexpr std::array kSlots{SLOT(1),  SLOT(2),  SLOT(3),  SLOT(4),  SLOT(5),
                            SLOT(6),  SLOT(7),  SLOT(8),  SLOT(9),  SLOT(10),
                            SLOT(11), SLOT(12), SLOT(13), SLOT(14), SLOT(15)};
#undef SLOT
static_assert(kSlots.size() == ApplicationMonitor::kProcesses);

const char* StatusText(int status) {
  switch (status) {
    case ApplicationMonitor::kUnknown:
      return "NONE";
    case ApplicationMonitor::kNormal:
      return "NORMAL";
    case ApplicationMonitor::kAbnormal:
      return "ABNORMAL";
    default:
      return "UNKNOWN";
  }
}

const char* ConditionStateText(int state) {
  switch (state) {
    case ApplicationMonitor::kUnknown:
      return "";
    case ApplicationMonitor::kNormal:
      return "NORMAL";
    case ApplicationMonitor::kAbnormal:
      return "ABNORMAL";
    default:
      return "SKIP";
  }
}

const char* KindText(int kind) {
  switch (kind) {
    case ApplicationMonitor::kProgram:
      return "EXE";
    case ApplicationMonitor::kCommandLine:
      return "CMD";
    default:
      return "";
  }
}

void CountProcesses(ApplicationMonitor& applications, const std::vector<Process>& processes) {
  PrintProcessTrace("process list of %zu taken", processes.size());
  applications.begin();
  std::array<char, sizeof(x_proc::cmdline) + 1> arguments{};
  for (const Process& process : processes) {
    const std::string_view text = process.GetCmdline();
    arguments[text.copy(arguments.data(), arguments.size() - 1)] = '\0';
    applications.countProcess(process.GetName(), arguments.data());
  }
  applications.end();
}

ApplicationRow ApplicationRowOf(const ApplicationMonitor& applications, int application,
                                std::int32_t now) {
  ApplicationRow row = NewRow<ApplicationRow>(now);
  row.applicationName = applications.GetName(application);
  row.applicationStatus = StatusText(applications.GetStatus(application));
  row.applicationExist = StatusText(applications.GetExist(application));
  for (int process = 0; process < ApplicationMonitor::kProcesses; ++process) {
    const Slot& slot = kSlots[static_cast<std::size_t>(process)];
    std::array<char, 32> range{};
    std::snprintf(range.data(), range.size(), "%d-%d",
                  applications.GetRangeMin(application, process),
                  applications.GetRangeMax(application, process));
    row.*slot.count =
        static_cast<std::uint16_t>(applications.GetProcessCount(application, process));
    row.*slot.range = range.data();
    row.*slot.status = ConditionStateText(applications.GetState(application, process));
    row.*slot.kind = KindText(applications.GetKind(application, process));
    row.*slot.label = applications.GetPattern(application, process);
  }
  return row;
}

/// Says once in the process's life that there is nothing to watch. Null, or an error that the
/// caller owns.
UtlError* ReportNothingToWatch() {
  static bool s_isReported = false;
  if (std::exchange(s_isReported, true) || !IsTraced(10)) {
    return nullptr;
  }
  MessageAndCopy(10106, "", "", "", "", "");
  return new UtlError("The information to be collected has not been set in Web Console. (PD_APP)",
                      __FILE__, __LINE__);
}

}  // namespace

bool RecordBuilder::HasApplications() const {
  return m_pApplications != nullptr && m_pApplications->GetCount() != 0;
}

UtlError* RecordBuilder::BuildPD_APP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_APP", AddressOf(pEvent), AddressOf(pRequest));
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  int count = 0;
  if (!HasApplications()) {
    if (UtlErrorPtr error{ReportNothingToWatch()}) {
      TraceExit("RecordBuilder::BuildPD_APP", 1);
      return error.release();
    }
  } else {
    CountProcesses(*m_pApplications, *m_pCollector->GetProcess());
    for (; count < m_pApplications->GetCount(); ++count) {
      const ApplicationRow row = ApplicationRowOf(*m_pApplications, count, now);
      DeliverRow(row, *pEvent, count);
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<ApplicationRow>::kName, count);
  TraceExit("RecordBuilder::BuildPD_APP", 0);
  return nullptr;
}
