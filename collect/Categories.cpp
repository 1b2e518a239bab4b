#include "collect/Categories.h"

#include <array>
#include <charconv>
#include <cstring>
#include <vector>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/HostFile.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "collect/device/DeviceSourceLINUX.h"
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
#include "collect/modern/cgroup/ControlGroupSource.h"
#include "collect/modern/cpu/CpuSource.h"
#include "collect/modern/device/DeviceSource.h"
#include "collect/modern/filesystem/FileSystemSource.h"
#include "collect/modern/network/InterfaceSource.h"
#include "collect/modern/network/ProtocolCounters.h"
#include "collect/modern/nfs/NFSTotals.h"
#include "collect/modern/process/ProcessSource.h"
#include "collect/modern/process/TaskIterator.h"
#include "collect/modern/process/TaskSource.h"
#include "collect/modern/system/SystemSource.h"
#include "collect/network/InterfaceSourceLINUX.h"
#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/nfs/NFSSource.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "collect/system/SystemSourceLINUX.h"
#include "collect/userdata/UserSource.h"
#include "support/ProductOptions.h"

// This file alone makes every source, those of the floors above included.

namespace {

/// Whether this host has what the source reads; asked of the sources that can tell.
template <class Source>
bool IsSupported(const Source& source) {
  if constexpr (requires { source.IsSupported(); }) {
    return source.IsSupported();
  }
  return true;
}

/// A run of a category whose result is a vector.
template <class Source, auto Accessor>
UtlError* ReadAll(Collector& collector, CategoryStep& step) {
  auto& container = *(collector.*Accessor)();
  Source source;
  UtlError* error = source.readAll(&collector, container);
  return step.Finish(error, container.size(), IsSupported(source));
}

/// A run of a category whose result is one object.
template <class Source, auto Accessor>
UtlError* ReadOne(Collector& collector, CategoryStep& step) {
  Source source;
  UtlError* error = source.readOne(&collector, *(collector.*Accessor)());
  const bool isSupported = IsSupported(source);
  return step.Finish(error, error == nullptr && isSupported ? 1 : 0, isSupported);
}

template <class Row>
std::size_t CountOf(const std::vector<Row>& rows) {
  return rows.size();
}
template <class Figures>
std::size_t CountOf(const Figures& /*figures*/) {
  return 1;
}

/// A run of a category of the profile `modern` alone, whose figures `read` replaces.
template <auto Member, auto read>
UtlError* ReadModern(Collector& collector, CategoryStep& step) {
  auto& figures = collector.GetModern()->*Member;
  read(figures);
  const std::size_t count = CountOf(figures);
  UtlErrorPtr error = TakeHostFileError();
  const bool isSupported = count != 0 || error != nullptr;
  return step.Finish(error.release(), count, isSupported);
}

/// Down to the depth that the site has set.
void ReadChosenGroups(std::vector<ControlGroup>& groups) {
  ControlGroupWalk walk;
  if (const char* depth = ProductOptions::Instance().Get("Host", "Control Group Depth")) {
    std::from_chars(depth, depth + std::strlen(depth), walk.depth);
  }
  ReadControlGroups(groups, walk);
}

/// By the kernel's task iterator where it is in use, else by a walk.
UtlError* ReadPresentProcesses(Collector& collector, CategoryStep& step) {
  std::vector<TaskGroup>* const groups = TaskIterator::Instance().Read();
  if (groups == nullptr) {
    KeptParts::Instance().Clear();
    return ReadAll<ModernProcessSource, &Collector::GetProcess>(collector, step);
  }
  ModernProcessSource::ForgetArguments();
  TaskSource source(*groups, TaskIterator::Instance().Missing());
  UtlError* error = source.readAll(&collector, *collector.GetProcess());
  return step.Finish(error, collector.GetProcess()->size(), true);
}

/// Of the processes that the run has walked or had from the iterator, where it has.
UtlError* ReadDetails(Collector& collector, CategoryStep& step) {
  std::vector<ProcessDetail>& details = collector.GetModern()->processes;
  TaskIterator& iterator = TaskIterator::Instance();
  const bool isCollected = collector.HasCollected(COLLECT_PROCESS);
  if (std::vector<TaskGroup>* const groups = isCollected ? iterator.Groups() : iterator.Read()) {
    if (!isCollected) {
      KeptParts::Instance().Match(*groups, collector.NamedRows());
    }
    ReadTaskDetails(*groups, iterator.Missing(), isCollected, details);
  } else if (isCollected) {
    ReadProcessDetails(*collector.GetProcess(), details);
  } else {
    ReadProcessDetails(details);
  }
  return step.Finish(TakeHostFileError().release(), details.size(), true);
}

constexpr std::array kCategories{
    Category{COLLECT_CPU, "CPU", "cpu", ReadAll<CPUSourceUser, &Collector::GetCPU>,
             ReadAll<ModernCpuSource, &Collector::GetCPU>},
    Category{COLLECT_PROCESS, "Process", "process",
             ReadAll<ProcessSourceUser, &Collector::GetProcess>, ReadPresentProcesses},
    Category{COLLECT_PROTOCOL, "Protocol", "protocol",
             ReadOne<ProtocolSourceUser, &Collector::GetProtocol>,
             ReadOne<ModernProtocolSource, &Collector::GetProtocol>},
    Category{COLLECT_MESSAGES, "Messages", "messages",
             ReadAll<MessagesSourceUser, &Collector::GetMessages>},
    Category{COLLECT_DEVICE, "Device", "device", ReadAll<DeviceIOSourceUser, &Collector::GetDevice>,
             ReadAll<ModernDeviceSource, &Collector::GetDevice>},
    Category{COLLECT_SEMAPHORE, "Semaphore", "semaphore",
             ReadAll<SemSourceUser, &Collector::GetSem>},
    Category{COLLECT_SHARED_MEMORY, "Shared Memory", "shared_memory",
             ReadAll<SHMSourceUser, &Collector::GetSHM>},
    Category{COLLECT_IPC, "IPC", "ipc", ReadOne<IPCSourceUser, &Collector::GetIPC>},
    Category{COLLECT_MESSAGE_QUEUES, "Message Queues", "message_queues",
             ReadAll<MsgSourceUser, &Collector::GetMsg>},
    Category{COLLECT_SYSTEM, "System", "system", ReadOne<SystemSourceUser, &Collector::GetSystem>,
             ReadOne<ModernSystemSource, &Collector::GetSystem>},
    Category{COLLECT_FILE_SYSTEM, "File System", "file_system",
             ReadAll<FileSystemSourceUser, &Collector::GetFileSystem>,
             ReadAll<ModernFileSystemSource, &Collector::GetFileSystem>},
    Category{COLLECT_INTERFACE, "Interface", "interface",
             ReadAll<InterfaceSourceUser, &Collector::GetInterface>,
             ReadAll<ModernInterfaceSource, &Collector::GetInterface>},
    Category{COLLECT_QUOTA, "Quota", "quota", ReadAll<QuotaSourceUser, &Collector::GetQuota>},
    Category{COLLECT_STORAGE, "Storage", "storage",
             ReadAll<StorageSourceUser, &Collector::GetStorage>},
    Category{COLLECT_FILE_STAT, nullptr, "file_stat",
             ReadAll<FileStatSourceUser, &Collector::GetFileStat>},
    Category{COLLECT_NFS_SERVER, "NFS Server", "nfs_server",
             ReadOne<NFSServerTotalSourceUser, &Collector::GetNFSServerTotal>,
             ReadOne<ModernNFSServerSource, &Collector::GetNFSServerTotal>},
    Category{COLLECT_NFS_CLIENT, "NFS Client", "nfs_client",
             ReadOne<NFSClientTotalSourceUser, &Collector::GetNFSClientTotal>,
             ReadOne<ModernNFSClientSource, &Collector::GetNFSClientTotal>},
    Category{COLLECT_UPI, "UPI", "upi", ReadAll<UPISourceUser, &Collector::GetUPI>},
    Category{COLLECT_UPIB, "UPIB", "upib", ReadAll<UPIBSourceUser, &Collector::GetUPIB>},
    Category{COLLECT_UPD, "UPD", "upd", ReadAll<UPDSourceUser, &Collector::GetUPD>},
    Category{COLLECT_UPDB, "UPDB", "updb", ReadAll<UPDBSourceUser, &Collector::GetUPDB>},
    Category{COLLECT_PRESSURE, "Pressure", "pressure", nullptr,
             ReadModern<&ModernFigures::pressure, ReadPressure>},
    Category{COLLECT_CONTROL_GROUP, "Control Group", "control_group", nullptr,
             ReadModern<&ModernFigures::groups, ReadChosenGroups>},
    Category{COLLECT_LINK, "Link", "link", nullptr, ReadModern<&ModernFigures::links, ReadLinks>},
    Category{COLLECT_SOCKET, "Socket", "socket", nullptr,
             ReadModern<&ModernFigures::sockets, ReadSockets>},
    Category{COLLECT_DISK, "Disk", "disk", nullptr, ReadModern<&ModernFigures::disks, ReadDisks>},
    Category{COLLECT_MEMORY, "Memory", "memory", nullptr,
             ReadModern<&ModernFigures::memory, ReadMemory>},
    Category{COLLECT_CPU_TIME, "CPU Time", "cpu_time", nullptr,
             ReadModern<&ModernFigures::cpuTimes, ReadCpuTimes>},
    Category{COLLECT_SENSOR, "Sensor", "sensor", nullptr,
             ReadModern<&ModernFigures::sensors, ReadSensors>},
    Category{COLLECT_PROCESS_DETAIL, "Process Detail", "process_detail", nullptr, ReadDetails},
    Category{COLLECT_HOST, "Host", "host", nullptr,
             ReadModern<&ModernFigures::host, ReadHostFacts>},
    Category{COLLECT_KERNEL, "Kernel", "kernel", nullptr,
             ReadModern<&ModernFigures::kernel, ReadKernel>},
};

}  // namespace

std::span<const Category> Categories() { return kCategories; }
