#include "local/metrics/node/NodeNames.h"

namespace {

constexpr double kBytesOfMemoryUnit = 1048576;

constexpr NodeEntry MemorySize(const char* name, const char* field) {
  return {name, nullptr, MetricKind::kGauge, {field}, kBytesOfMemoryUnit};
}
constexpr NodeEntry MemoryNumber(const char* name, const char* field) {
  return {name, nullptr, MetricKind::kGauge, {field}};
}
constexpr NodeEntry MemoryEvents(const char* name, const char* field) {
  return {name, nullptr, MetricKind::kUnknown, {field}};
}

constexpr std::array kMemoryEntries{
    MemorySize("node_memory_MemTotal_bytes", "Total Mbytes"),
    MemorySize("node_memory_MemFree_bytes", "Free Mbytes"),
    MemorySize("node_memory_MemAvailable_bytes", "Available Mbytes"),
    MemorySize("node_memory_Buffers_bytes", "Buffers Mbytes"),
    MemorySize("node_memory_Cached_bytes", "Cached Mbytes"),
    MemorySize("node_memory_SwapCached_bytes", "Swap Cached Mbytes"),
    MemorySize("node_memory_Active_bytes", "Active Mbytes"),
    MemorySize("node_memory_Inactive_bytes", "Inactive Mbytes"),
    MemorySize("node_memory_Active_anon_bytes", "Active Anonymous Mbytes"),
    MemorySize("node_memory_Inactive_anon_bytes", "Inactive Anonymous Mbytes"),
    MemorySize("node_memory_Active_file_bytes", "Active File Mbytes"),
    MemorySize("node_memory_Inactive_file_bytes", "Inactive File Mbytes"),
    MemorySize("node_memory_Unevictable_bytes", "Unevictable Mbytes"),
    MemorySize("node_memory_Mlocked_bytes", "Locked Mbytes"),
    MemorySize("node_memory_SwapTotal_bytes", "Swap Total Mbytes"),
    MemorySize("node_memory_SwapFree_bytes", "Swap Free Mbytes"),
    MemorySize("node_memory_Zswap_bytes", "Zswap Mbytes"),
    MemorySize("node_memory_Zswapped_bytes", "Zswapped Mbytes"),
    MemorySize("node_memory_Dirty_bytes", "Dirty Mbytes"),
    MemorySize("node_memory_Writeback_bytes", "Writeback Mbytes"),
    MemorySize("node_memory_AnonPages_bytes", "Anonymous Mbytes"),
    MemorySize("node_memory_Mapped_bytes", "Mapped Mbytes"),
    MemorySize("node_memory_Shmem_bytes", "Shared Mbytes"),
    MemorySize("node_memory_KReclaimable_bytes", "Kernel Reclaimable Mbytes"),
    MemorySize("node_memory_Slab_bytes", "Slab Mbytes"),
    MemorySize("node_memory_SReclaimable_bytes", "Slab Reclaimable Mbytes"),
    MemorySize("node_memory_SUnreclaim_bytes", "Slab Unreclaimable Mbytes"),
    MemorySize("node_memory_KernelStack_bytes", "Kernel Stack Mbytes"),
    MemorySize("node_memory_PageTables_bytes", "Page Tables Mbytes"),
    MemorySize("node_memory_SecPageTables_bytes", "Second Page Tables Mbytes"),
    MemorySize("node_memory_NFS_Unstable_bytes", "NFS Unstable Mbytes"),
    MemorySize("node_memory_Bounce_bytes", "Bounce Mbytes"),
    MemorySize("node_memory_WritebackTmp_bytes", "Writeback Temporary Mbytes"),
    MemorySize("node_memory_CommitLimit_bytes", "Commit Limit Mbytes"),
    MemorySize("node_memory_Committed_AS_bytes", "Committed Mbytes"),
    MemorySize("node_memory_VmallocUsed_bytes", "Vmalloc Used Mbytes"),
    MemorySize("node_memory_Percpu_bytes", "Per CPU Mbytes"),
    MemorySize("node_memory_HardwareCorrupted_bytes", "Hardware Corrupted Mbytes"),
    MemorySize("node_memory_AnonHugePages_bytes", "Anonymous Huge Mbytes"),
    MemorySize("node_memory_ShmemHugePages_bytes", "Shared Huge Mbytes"),
    MemorySize("node_memory_ShmemPmdMapped_bytes", "Shared Huge Mapped Mbytes"),
    MemorySize("node_memory_FileHugePages_bytes", "File Huge Mbytes"),
    MemorySize("node_memory_FilePmdMapped_bytes", "File Huge Mapped Mbytes"),
    MemorySize("node_memory_CmaTotal_bytes", "CMA Total Mbytes"),
    MemorySize("node_memory_CmaFree_bytes", "CMA Free Mbytes"),
    MemorySize("node_memory_Unaccepted_bytes", "Unaccepted Mbytes"),
    MemorySize("node_memory_Balloon_bytes", "Balloon Mbytes"),
    MemorySize("node_memory_DirectMap4k_bytes", "Direct Map 4k Mbytes"),
    MemorySize("node_memory_DirectMap2M_bytes", "Direct Map 2M Mbytes"),
    MemorySize("node_memory_DirectMap1G_bytes", "Direct Map 1G Mbytes"),
    MemoryNumber("node_memory_HugePages_Total", "Huge Pages"),
    MemoryNumber("node_memory_HugePages_Free", "Huge Pages Free"),
    MemoryNumber("node_memory_HugePages_Rsvd", "Huge Pages Reserved"),
    MemoryNumber("node_memory_HugePages_Surp", "Huge Pages Surplus"),
    MemorySize("node_memory_Hugepagesize_bytes", "Huge Page Mbytes"),
    MemorySize("node_memory_Hugetlb_bytes", "Huge Pages In All Mbytes"),
    MemoryEvents("node_vmstat_oom_kill", "OOM Kills"),
    MemoryEvents("node_vmstat_pgfault", "Faults"),
    MemoryEvents("node_vmstat_pgmajfault", "Major Faults"),
    MemoryEvents("node_vmstat_pswpin", "Swap-In Pages"),
    MemoryEvents("node_vmstat_pswpout", "Swap-Out Pages")};

constexpr std::array kMemoryGroups{NodeGroup{"MEMD", {}, kMemoryEntries}};

}  // namespace

std::span<const NodeGroup> NodeMemoryTable() { return kMemoryGroups; }
