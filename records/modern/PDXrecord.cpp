#include <cmath>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "collect/modern/cgroup/ControlGroupName.h"
#include "collect/process/NameCache.h"
#include "records/DetailRows.h"
#include "records/UserObjects.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GroupPath.h"
#include "records/modern/GrowthRows.h"

namespace {

using DetailRecord = recordPD_PDX;

constexpr FigurePair<DetailRecord, ProcessDetail> kDetailPairs[] = {
    {&DetailRecord::threads, &ProcessDetail::threads},
    {&DetailRecord::openFiles, &ProcessDetail::openFiles},
    {&DetailRecord::lastCpu, &ProcessDetail::lastCpu},
    {&DetailRecord::userSeconds, &ProcessDetail::userSeconds},
    {&DetailRecord::systemSeconds, &ProcessDetail::systemSeconds},
    {&DetailRecord::voluntarySwitches, &ProcessDetail::voluntarySwitches},
    {&DetailRecord::otherSwitches, &ProcessDetail::otherSwitches},
    {&DetailRecord::runDelaySeconds, &ProcessDetail::runDelaySeconds},
    {&DetailRecord::storageReadBytes, &ProcessDetail::storageReadBytes},
    {&DetailRecord::storageWriteBytes, &ProcessDetail::storageWriteBytes},
    {&DetailRecord::callReadBytes, &ProcessDetail::callReadBytes},
    {&DetailRecord::callWriteBytes, &ProcessDetail::callWriteBytes},
    {&DetailRecord::readCalls, &ProcessDetail::readCalls},
    {&DetailRecord::writeCalls, &ProcessDetail::writeCalls},
    {&DetailRecord::anonymousBytes, &ProcessDetail::anonBytes},
    {&DetailRecord::fileBytes, &ProcessDetail::fileBytes},
    {&DetailRecord::sharedBytes, &ProcessDetail::sharedBytes},
    {&DetailRecord::swapBytes, &ProcessDetail::swapBytes},
    {&DetailRecord::peakBytes, &ProcessDetail::peakBytes},
    {&DetailRecord::oomScore, &ProcessDetail::oomScore},
    {&DetailRecord::oomScoreAdjust, &ProcessDetail::oomScoreAdjust}};

/// What a process had waited for a processor at a request's last answer.
struct KeptDelay {
  std::uint64_t startTicks = 0;
  double seconds = kNotTold;
};

/// On a request that has been served.
struct DelayObject : CMBUserObject {
  double at = 0;
  std::unordered_map<std::int32_t, KeptDelay> delays;  ///< by process number
};

/// The innermost service or scope of the service manager in a path of groups; empty for none.
std::string_view UnitOf(std::string_view path) {
  while (!path.empty()) {
    const std::size_t slash = path.rfind('/');
    const std::string_view name = path.substr(slash == std::string_view::npos ? 0 : slash + 1);
    if (name.ends_with(".service") || name.ends_with(".scope")) {
      return name;
    }
    path = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  }
  return {};
}

/// The group's own container, or that of one above it.
std::string ContainerOf(std::string_view path) {
  while (path.size() > 1) {
    ControlGroupName name = NameControlGroup(path);
    if (!name.containerId.empty()) {
      return std::move(name.containerId);
    }
    if (!name.containerName.empty()) {
      return std::move(name.containerName);
    }
    path = path.substr(0, path.rfind('/'));
  }
  return {};
}

/// The names of a build's users, each looked up once: whom the system does not know costs it most.
using BuildUsers = std::unordered_map<std::uint32_t, std::string>;

/// The name, or the number of a user without one.
std::string_view UserOf(double uid, BuildUsers& users) {
  if (!IsTold(uid)) {
    return {};
  }
  const auto number = static_cast<std::uint32_t>(uid);
  const auto [user, isNew] = users.try_emplace(number);
  if (isNew) {
    const char* const name = KnownUserName(static_cast<int>(number));
    user->second = name != nullptr ? name : std::to_string(number);
  }
  return user->second;
}

DetailRecord DetailRow(const ProcessDetail& process, std::int32_t now, BuildUsers& users) {
  DetailRecord row = NewRow<DetailRecord>(now);
  row.pid = process.pid;
  row.startTime =
      IsTold(process.startTime) ? static_cast<std::int32_t>(std::floor(process.startTime)) : 0;
  row.name = process.name;
  row.user = UserOf(process.uid, users);
  row.state = std::string_view(&process.state, 1);
  row.controlGroup = ShownGroupPath(process.controlGroup, sizeof(row.controlGroup) - 1);
  row.containerId = ContainerOf(process.controlGroup);
  row.unit = UnitOf(process.controlGroup);
  row.executable = process.executable;
  row.commandLine = process.commandLine;
  row.blockedIn = process.blockedIn;
  PutFigures<DetailRecord, ProcessDetail>(row, process, kDetailPairs);
  return row;
}

/// How long its first thread waited for a processor since the request's last answer, in percent.
double DelayPercent(const DelayObject& last, const ProcessDetail& process, double seconds) {
  const auto former = last.delays.find(process.pid);
  if (former == last.delays.end() || former->second.startTicks != process.startTicks) {
    return kNotTold;
  }
  return 100 * Quotient(GrowthOfCounter(process.runDelaySeconds, former->second.seconds), seconds);
}

}  // namespace

UtlError* RecordBuilder::BuildPD_PDX(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_PDX", AddressOf(pEvent), AddressOf(pRequest));
  DelayObject& last = ClaimUserObject<DelayObject>(*pRequest).object;
  const double at = m_pCollector->TakenAt(COLLECT_PROCESS_DETAIL);
  std::unordered_map<std::int32_t, KeptDelay> delays;
  BuildUsers users;
  BuildDetailRows<DetailRecord>(
      m_pCollector->GetModern()->processes, *pEvent,
      [&](const ProcessDetail& process, std::int32_t now) {
        DetailRecord row = DetailRow(process, now, users);
        row.runDelayPercent =
            static_cast<float>(DelayPercent(last, process, SecondsBetween(last.at, at)));
        delays[process.pid] = {process.startTicks, process.runDelaySeconds};
        return row;
      });
  last.at = at;
  last.delays = std::move(delays);
  TraceExit("RecordBuilder::BuildPD_PDX", 0);
  return nullptr;
}
