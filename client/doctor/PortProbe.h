#pragma once

#include <chrono>
#include <string>

#include "client/doctor/Facts.h"

/// Asks an HTTP server at `address`, as in "https://127.0.0.1:9964", for its first page; of one
/// with TLS it only sees whether connections are taken. One that stands for all addresses is asked
/// by the loopback.
[[nodiscard]] PortFacts ProbePort(const std::string& address,
                                  std::chrono::milliseconds limit = std::chrono::seconds(5));
