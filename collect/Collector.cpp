#include "collect/Collector.h"

#include <bit>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "collect/Categories.h"
#include "collect/CategoryFlags.h"
#include "collect/HostFile.h"
#include "collect/accounting/AcctRecord.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "collect/device/DeviceSourceLINUX.h"
#include "collect/filesystem/FileStatArgs.h"
#include "collect/filesystem/FileStatSource.h"
#include "collect/filesystem/FileSystemSource.h"
#include "collect/filesystem/QuotaSource.h"
#include "collect/filesystem/StorageSource.h"
#include "collect/ipc/IPCSource.h"
#include "collect/ipc/MsgSource.h"
#include "collect/ipc/SHMSource.h"
#include "collect/ipc/SemSource.h"
#include "collect/log/MessagesSource.h"
#include "collect/modern/ModernFigures.h"
#include "collect/network/InterfaceSourceLINUX.h"
#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/nfs/NFSSource.h"
#include "collect/process/NameCache.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "collect/system/SystemSourceLINUX.h"
#include "collect/userdata/UserSource.h"
#include "node/FigureRegistry.h"
#include "support/CollectorLog.h"
#include "support/HostProfile.h"
#include "support/HostReads.h"
#include "support/RunningClock.h"
#include "support/TraceLog.h"
#include "support/UtlError.h"

namespace {

/// Whether the system figures are made from those of the processors, so that asking for the former
/// collects the latter too.
constexpr bool SystemNeedsCPU() { return false; }

std::size_t PlaceOf(CollectionMask flag) {
  return static_cast<std::size_t>(std::countr_zero(flag));
}

bool IsAsked(const Category& category, CollectionMask flags) {
  if (category.flag == COLLECT_CPU && SystemNeedsCPU() && (flags & COLLECT_SYSTEM) != 0) {
    return true;
  }
  const bool isServed = category.run != nullptr || g_hostProfile == HostProfile::kModern;
  return isServed && (flags & category.flag) != 0;
}

/// Categories whose records show names of users or groups.
constexpr CollectionMask kShownWithNames = COLLECT_PROCESS | COLLECT_PROCESS_DETAIL |
                                           COLLECT_QUOTA | COLLECT_STORAGE | COLLECT_SEMAPHORE |
                                           COLLECT_SHARED_MEMORY | COLLECT_MESSAGE_QUEUES;

using FigureTable = std::shared_ptr<std::vector<CategoryFigures>>;

void PublishCategory(const FigureTable& table, std::size_t index) {
  const Category& category = Categories()[index];
  const auto add = [&](const char* what, const std::string& help, FigureKind kind, auto read) {
    FigureRegistry::Instance().Add(
        {std::string("collect_") + category.figure + '_' + what,
         help + " of the category " + category.figure + ".",
         kind,
         std::move(read),
         {std::string("collect_") + what, "category", category.figure, help + '.'}});
  };
  add("seconds", "Duration of the last collection", FigureKind::kGauge,
      [table, index] { return (*table)[index].seconds; });
  add("errors", "Failed collections", FigureKind::kCounter,
      [table, index] { return static_cast<double>((*table)[index].errors); });
  add("failed", "Whether the last collection failed", FigureKind::kGauge,
      [table, index] { return (*table)[index].isFailed ? 1.0 : 0.0; });
  FigureRegistry::Instance().Add(
      {std::string("category_") + category.figure + "_supported",
       std::string("Whether this host has the category ") + category.figure + '.',
       FigureKind::kGauge,
       [table, index] { return (*table)[index].isSupported ? 1.0 : 0.0; },
       {"category_supported", "category", category.figure,
        "Whether this host has what the category tells, as of its last collection."}});
  add("entities", "Rows held after the last collection", FigureKind::kGauge,
      [table, index] { return static_cast<double>((*table)[index].entities); });
  (*table)[index].isPublished = true;
}

/// Those of the profile `modern` alone are published when they are first run: the profile is chosen
/// later.
void PublishFigures(const FigureTable& table) {
  FigureRegistry::Instance().Add(
      {"collect_process_skipped",
       "Processes without a row after the last collection, such as ones with a blank in their "
       "name.",
       FigureKind::kGauge,
       [] { return static_cast<double>(ProcessSourceUser::Skipped()); },
       {}});
  for (std::size_t index = 0; index < Categories().size(); ++index) {
    if (Categories()[index].run != nullptr) {
      PublishCategory(table, index);
    }
  }
}

UtlError* RunCategory(Collector& collector, const Category& category, CollectionMask flags,
                      CategoryFigures& figures) {
  CategoryStep step(category, flags, figures);
  const auto begin = std::chrono::steady_clock::now();
  static_cast<void>(TakeHostFileError());  // what was read outside of a run is nobody's failure
  g_lackOfDescriptors = 0;
  step.Start();
  const bool isModern = g_hostProfile == HostProfile::kModern && category.runModern != nullptr;
  UtlError* error = (isModern ? category.runModern : category.run)(collector, step);
  figures.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return error;
}

/// Whose rows a category takes where the same run has collected them.
CollectionMask SourcesOf(CollectionMask flag) {
  return flag == COLLECT_PROCESS_DETAIL ? CollectionMask{COLLECT_PROCESS}
         : flag == COLLECT_SYSTEM       ? CollectionMask{COLLECT_PROCESS} | COLLECT_DEVICE
                                        : CollectionMask{0};
}

}  // namespace

void CategoryStep::Start() const {
  if (m_category.name != nullptr) {
    Trace(30, kInformation, "Start Processing %1 Category.", m_category.name);
  }
}

UtlError* CategoryStep::Finish(UtlError* error, std::size_t entities, bool isSupported) {
  // What a process or a control group could not be opened for is missing, not gone; `classic` has
  // it as not there.
  const int lack = g_hostProfile == HostProfile::kModern ? g_lackOfDescriptors : 0;
  UtlErrorPtr owned(error);
  m_figures.entities = entities;
  m_figures.isSupported = isSupported || lack != 0;
  m_figures.isPartial = owned == nullptr && lack != 0;
  m_figures.isFailed = m_figures.isSupported && (owned != nullptr || lack != 0);
  m_figures.errors += m_figures.isFailed ? 1 : 0;
  if (owned != nullptr && (m_flags & COLLECT_CONTINUE_ON_ERROR) == 0) {
    return owned.release();
  }
  if (m_category.name != nullptr) {
    if (owned != nullptr || m_figures.isPartial) {
      const char* const told = owned != nullptr && owned->HasMessage() ? owned->GetMessage() : "";
      Trace(20, kError, "Error occured in %2 category collection - %1",
            m_figures.isPartial ? std::strerror(lack) : told, m_category.name);
    }
    Trace(20, kInformation, "Completed Processing %1 Category.", m_category.name);
  }
  return nullptr;
}

Collector::Collector()
    : m_pCPU(std::make_unique<std::vector<CPU>>()),
      m_pProcess(std::make_unique<std::vector<Process>>()),
      m_pProcessLimits(std::make_unique<std::vector<ProcessLimits>>()),
      m_pAcct(std::make_unique<std::vector<Acct>>()),
      m_pDevice(std::make_unique<std::vector<DeviceIO>>()),
      m_pSystem(std::make_unique<System>()),
      m_pProtocol(std::make_unique<Protocol>()),
      m_pInterface(std::make_unique<std::vector<Interface>>()),
      m_pMessages(std::make_unique<std::vector<Messages>>()),
      m_pFileSystem(std::make_unique<std::vector<FileSystem>>()),
      m_pQuota(std::make_unique<std::vector<Quota>>()),
      m_pStorage(std::make_unique<std::vector<Storage>>()),
      m_pFileStat(std::make_unique<std::vector<FileStat>>()),
      m_pSem(std::make_unique<std::vector<Sem>>()),
      m_pSHM(std::make_unique<std::vector<SHM>>()),
      m_pIPC(std::make_unique<IPC>()),
      m_pMsg(std::make_unique<std::vector<Msg>>()),
      m_pNFSServerTotal(std::make_unique<NFSServerTotal>()),
      m_pNFSClientTotal(std::make_unique<NFSClientTotal>()),
      m_pUPI(std::make_unique<UserRecords<kUPI>>()),
      m_pUPIB(std::make_unique<UserRecords<kUPIB>>()),
      m_pUPD(std::make_unique<UserRecords<kUPD>>()),
      m_pUPDB(std::make_unique<UserRecords<kUPDB>>()),
      m_pModern(std::make_unique<ModernFigures>()),
      m_figures(std::make_shared<std::vector<CategoryFigures>>(Categories().size())) {
  TraceEntry("Collector::Collector");
  CollectorLog::Instance();
  PublishFigures(m_figures);
  TraceExit("Collector::Collector");
}

Collector::~Collector() = default;

UtlError* Collector::collect(std::uint32_t flags, int) { return collect(CollectionMask{flags}); }

UtlError* Collector::collect(CollectionMask flags) {
  return collect(flags, std::span<const char* const>{});
}

UtlError* Collector::collect(CollectionMask flags, std::span<const char* const> fileStatPaths) {
  TraceEntry("Collector::collect", Hex{flags});
  Trace(30, kInformation, "Starting the collect routine");
  UtlError* error = nullptr;
  m_flags = flags;
  m_collected = 0;
  m_failed = 0;
  if (g_hostProfile == HostProfile::kModern && (flags & kShownWithNames) != 0) {
    RenewOldNames();
  }
  for (std::size_t index = 0; index < Categories().size() && error == nullptr; ++index) {
    const Category& category = Categories()[index];
    if (category.flag == COLLECT_FILE_STAT) {
      FileStatArgs::Set(fileStatPaths);
    }
    if (IsAsked(category, flags)) {
      if (!(*m_figures)[index].isPublished) {
        PublishCategory(m_figures, index);
      }
      if (category.run == nullptr) {
        m_takenAt[PlaceOf(category.flag)] = RunningSeconds();
      }
      error = RunCategory(*this, category, flags, (*m_figures)[index]);
      const CategoryFigures& done = (*m_figures)[index];
      const bool hasRows = error == nullptr && (!done.isFailed || done.isPartial);
      (hasRows ? m_collected : m_failed) |= category.flag;
      if (done.isPartial || (m_failed & m_collected & SourcesOf(category.flag)) != 0) {
        m_failed |= category.flag;
      }
    }
  }
  FileStatArgs::Set({});
  if (error != nullptr) {
    TraceExit("Collector::collect", error->GetMessage());
    return error;
  }
  TraceExit("Collector::collect");
  Trace(30, kInformation, "Completed the collect routine");
  return nullptr;
}

double Collector::TakenAt(CollectionMask flag) const {
  const double taken = m_takenAt[PlaceOf(flag)];
  return taken == 0 ? RunningSeconds() : taken;
}
