#pragma once

#include <cstdint>

/// The bits of a collection mask: one per category of figures, then those that start no category.
/// Those of 32 bits are of both host profiles, those above of `modern` alone.
using CollectionMask = std::uint64_t;

inline constexpr std::uint32_t COLLECT_CPU = 0x00000001;
inline constexpr std::uint32_t COLLECT_PROCESS = 0x00000002;
inline constexpr std::uint32_t COLLECT_DEVICE = 0x00000010;
inline constexpr std::uint32_t COLLECT_FILE_SYSTEM = 0x00000040;
inline constexpr std::uint32_t COLLECT_INTERFACE = 0x00000080;
inline constexpr std::uint32_t COLLECT_MESSAGES = 0x00000200;
inline constexpr std::uint32_t COLLECT_PROTOCOL = 0x00000800;
inline constexpr std::uint32_t COLLECT_QUOTA = 0x00001000;
inline constexpr std::uint32_t COLLECT_IPC = 0x00002000;
inline constexpr std::uint32_t COLLECT_STORAGE = 0x00004000;
inline constexpr std::uint32_t COLLECT_SYSTEM = 0x00008000;
inline constexpr std::uint32_t COLLECT_UPI = 0x00080000;
inline constexpr std::uint32_t COLLECT_UPIB = 0x00200000;
inline constexpr std::uint32_t COLLECT_FILE_STAT = 0x00400000;
inline constexpr std::uint32_t COLLECT_UPD = 0x00800000;
inline constexpr std::uint32_t COLLECT_UPDB = 0x01000000;
inline constexpr std::uint32_t COLLECT_NFS_SERVER = 0x02000000;
inline constexpr std::uint32_t COLLECT_NFS_CLIENT = 0x04000000;
inline constexpr std::uint32_t COLLECT_SEMAPHORE = 0x10000000;
inline constexpr std::uint32_t COLLECT_SHARED_MEMORY = 0x20000000;
inline constexpr std::uint32_t COLLECT_MESSAGE_QUEUES = 0x40000000;

/// The file-system record that the background child serves; nothing is collected for it.
inline constexpr std::uint32_t COLLECT_UFSS = 0x00000400;
/// Ended processes; nothing is collected for it.
inline constexpr std::uint32_t COLLECT_ACCT = 0x08000000;
/// Limits of processes too; of the profile `modern` alone, and a part of the category of processes.
inline constexpr std::uint32_t COLLECT_PROCESS_LIMITS = 0x00000004;
/// The folders that processes work in too: the same, each a link to be read.
inline constexpr std::uint32_t COLLECT_PROCESS_FOLDER = 0x00000008;
/// A failing category is traced and does not end the run.
inline constexpr std::uint32_t COLLECT_CONTINUE_ON_ERROR = 0x80000000;

inline constexpr CollectionMask COLLECT_PRESSURE = CollectionMask{1} << 32U;
inline constexpr CollectionMask COLLECT_CONTROL_GROUP = CollectionMask{1} << 33U;
inline constexpr CollectionMask COLLECT_LINK = CollectionMask{1} << 34U;
inline constexpr CollectionMask COLLECT_SOCKET = CollectionMask{1} << 35U;
inline constexpr CollectionMask COLLECT_DISK = CollectionMask{1} << 36U;
inline constexpr CollectionMask COLLECT_MEMORY = CollectionMask{1} << 37U;
inline constexpr CollectionMask COLLECT_CPU_TIME = CollectionMask{1} << 38U;
inline constexpr CollectionMask COLLECT_SENSOR = CollectionMask{1} << 39U;
inline constexpr CollectionMask COLLECT_PROCESS_DETAIL = CollectionMask{1} << 40U;
inline constexpr CollectionMask COLLECT_HOST = CollectionMask{1} << 41U;
inline constexpr CollectionMask COLLECT_KERNEL = CollectionMask{1} << 42U;
