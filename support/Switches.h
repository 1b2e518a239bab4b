#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>

class UnixAgent;

/// The trace thresholds, fetched from the node once at start. A line is written if the threshold
/// stands above its level - 1.
inline int g_msgLogLevel = 0;
inline int g_msgDataLevel = 0;

/// The kernel generation, set once at start from the `uname` release: 1 (2.4.9), 2 (2.4.21) or 3.
inline int g_kernelVariant = 3;
/// 2.6.9 and all later kernels.
constexpr int kNewestKernel = 3;

/// 1 if the environment holds SAUNIXPMAP.
inline unsigned char g_hasUnixPmap = 0;

/// The node's identifier, the "service" of messages; owned by the node layer, null until known.
inline char* g_localNodeId = nullptr;

/// The one agent object; null until constructed.
inline UnixAgent* g_pAgent = nullptr;

// Signal handlers write the following, so they are lock-free.

/// Non-zero enables COLLECTOR.LOG.
inline std::atomic<std::int32_t> g_collectorLogOn{0};
/// 1 makes the process and workgroup records print time-stamped lines to standard output.
inline std::atomic<std::int32_t> g_processTraceOn{0};
/// The last signal that reached the stop handler; 0 if none.
inline std::atomic<std::int32_t> g_caughtSignal{0};

static_assert(std::atomic<std::int32_t>::is_always_lock_free);
