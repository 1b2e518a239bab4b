#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "support/OsCalls.h"
#include "utility/HostNameRequestManager.h"

// A question, then what comes back for it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Os().gettimeofday = [](::timeval* now) {
    *now = {1, 1};
    return 0;
  };
  HostNameRequestManager manager(nullptr, 2, "/none", "/none");
  for (int round = 0; round < 3; ++round) {
    HostNameRequest request;
    HostNameWire response;
    const std::size_t half = std::min(size / 2, sizeof response);
    std::memcpy(static_cast<HostNameWire*>(&request), data, half);
    static_cast<void>(manager.handle_request(request));
    std::memcpy(&response, data + half, std::min(size - half, sizeof response));
    static_cast<void>(manager.handle_request(reinterpret_cast<const char*>(&response)));
  }
  return 0;
}
